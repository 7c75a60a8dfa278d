// MAC addresses, as they stand in the status records and in linktrace, loopback and delay-measurement reports.
#ifndef CFM_MAC_H
#define CFM_MAC_H

#include <cstdint>
#include <string>

#include "cfm/visibility.h"

namespace cfm {

/// A MAC address: exactly six octets in transmission order. Trivially copyable.
struct st_mac {
  std::uint8_t octets[6];

  /// Six lower-case hexadecimal pairs with colons between ("0a:0b:0c:0d:0e:0f"). Any thread.
  CFM_API std::string to_string() const;
};

}  // namespace cfm

#endif
