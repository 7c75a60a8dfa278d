// The names by which people know the codes that the server reports.
#ifndef CFMCTL_STATUS_NAMES_H
#define CFMCTL_STATUS_NAMES_H

#include <cstdint>
#include <string>

#include "names.h"

namespace cfmctl {

extern const CodeNames kDefectNames;           // IEEE 802.1Q clause 20.1.2: by priority
extern const CodeNames kRemoteMepStateNames;   // IEEE 802.1Q clause 20.20
extern const CodeNames kPortStatusNames;       // IEEE 802.1Q clause 21.5.4
extern const CodeNames kInterfaceStatusNames;  // IEEE 802.1Q clause 21.5.5
extern const CodeNames kRelayActionNames;      // IEEE 802.1Q clause 21.9
extern const CodeNames kReplyPortActionNames;  // IEEE 802.1Q clauses 21.9.8 and 21.9.9

inline constexpr std::uint32_t kRemoteMepOk = 4;
inline constexpr std::uint32_t kInterfaceUp = 1;
inline constexpr std::uint32_t kPortBlocked = 1;
inline constexpr std::uint32_t kRelayHit = 1;

/// Why the server refused a test, and what to look at: "the MEP is not operational: ...".
std::string RefusalText(std::uint32_t error_code);

}  // namespace cfmctl

#endif
