#include "protocol/interface_status.h"

#include <linux/if.h>

namespace cfm::protocol {

pdu::InterfaceStatus ToInterfaceStatus(const LinkState& link) {
  switch (link.operstate) {
    case IF_OPER_NOTPRESENT:
      return pdu::InterfaceStatus::kNotPresent;
    case IF_OPER_DOWN:
      return pdu::InterfaceStatus::kDown;
    case IF_OPER_LOWERLAYERDOWN:
      return pdu::InterfaceStatus::kLowerLayerDown;
    case IF_OPER_TESTING:
      return pdu::InterfaceStatus::kTesting;
    case IF_OPER_DORMANT:
      return link.held_dormant ? pdu::InterfaceStatus::kUp : pdu::InterfaceStatus::kDormant;
    case IF_OPER_UP:
      return pdu::InterfaceStatus::kUp;
    default:
      return link.lower_up ? pdu::InterfaceStatus::kUp : pdu::InterfaceStatus::kUnknown;
  }
}

}  // namespace cfm::protocol
