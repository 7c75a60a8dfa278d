// Network namespaces of a test: its own switches, cables and hosts, without a privilege on the machine.
#ifndef CFM_TESTS_NETWORK_SUPPORT_NAMESPACE_H
#define CFM_TESTS_NETWORK_SUPPORT_NAMESPACE_H

#include <string>

namespace cfm_test {

/// A network namespace with nothing in it but its loopback interface, which is up. IPv6 is off, so that no port says
/// anything by itself. It goes, with all its ports, when its Namespace and the processes in it are gone.
class Namespace {
 public:
  Namespace();
  ~Namespace();
  Namespace(const Namespace&) = delete;
  Namespace& operator=(const Namespace&) = delete;

  int fd() const { return fd_; }
  /// A name by which child processes find it.
  std::string path() const;

 private:
  int fd_ = -1;
};

/// The calling thread is in that namespace for as long as this lives: sockets that it opens there stay there.
class Inside {
 public:
  explicit Inside(const Namespace& network);
  ~Inside();
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  int home_ = -1;
};

}  // namespace cfm_test

#endif
