#include "port/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "port/descriptor.h"

namespace cfm::port {
namespace {

struct Name {
  unsigned capability;
  const char* text;
};

constexpr std::array<Name, 2> kNeeded = {{{CAP_NET_RAW, "CAP_NET_RAW"}, {CAP_NET_ADMIN, "CAP_NET_ADMIN"}}};

// The sets of version 3 hold 64 capabilities in two words each.
using Sets = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

__user_cap_header_struct OfThisThread() {
  return {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
}

Sets ReadSets() {
  __user_cap_header_struct header = OfThisThread();
  Sets sets{};
  if (syscall(SYS_capget, &header, sets.data()) != 0) ThrowErrno("capget");
  return sets;
}

bool IsNeeded(unsigned capability) {
  for (const Name& needed : kNeeded) {
    if (needed.capability == capability) return true;
  }
  return false;
}

// It takes a privilege of its own, which a service that was started with just the two does not have; its bounding set
// is its manager's business then.
void ShrinkBoundingSet() {
  for (unsigned capability = 0; prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
    if (IsNeeded(capability)) continue;
    if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0 && errno != EPERM) ThrowErrno("PR_CAPBSET_DROP");
  }
}

}  // namespace

std::string MissingCapabilities() {
  const Sets sets = ReadSets();
  std::string missing;
  for (const Name& needed : kNeeded) {
    if ((sets[CAP_TO_INDEX(needed.capability)].effective & CAP_TO_MASK(needed.capability)) != 0) continue;
    if (!missing.empty()) missing += ", ";
    missing += needed.text;
  }
  return missing;
}

void KeepNetworkCapabilitiesOnly() {
  ShrinkBoundingSet();
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) ThrowErrno("PR_SET_NO_NEW_PRIVS");
  if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0) ThrowErrno("PR_CAP_AMBIENT_CLEAR_ALL");

  const Sets before = ReadSets();
  Sets kept{};
  for (const Name& needed : kNeeded) {
    const std::size_t word = CAP_TO_INDEX(needed.capability);
    const std::uint32_t bit = CAP_TO_MASK(needed.capability);
    kept[word].permitted |= before[word].permitted & bit;
    kept[word].effective |= before[word].effective & bit;
  }
  __user_cap_header_struct header = OfThisThread();
  if (syscall(SYS_capset, &header, kept.data()) != 0) ThrowErrno("capset");
}

}  // namespace cfm::port
