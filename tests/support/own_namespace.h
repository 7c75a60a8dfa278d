// Programs that want a network of their own: they begin again in a user and network namespace that unshare(1) makes.
#ifndef CFM_TESTS_SUPPORT_OWN_NAMESPACE_H
#define CFM_TESTS_SUPPORT_OWN_NAMESPACE_H

namespace cfm_test {

// Whether this run is the one inside.
bool InOwnNamespace();

// Runs the program again inside, with these arguments, in place of this run: a program of its own makes the namespaces,
// because only a process with a single thread can, and a sanitizer has begun more. Returns only where the system
// refuses namespaces with ports in them.
void RunInOwnNamespace(int argc, char** argv);

}  // namespace cfm_test

#endif
