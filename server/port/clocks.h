// The clocks of this system.
#ifndef CFM_SERVER_PORT_CLOCKS_H
#define CFM_SERVER_PORT_CLOCKS_H

#include "protocol/frame.h"

namespace cfm::port {

/// The system's clock is the one that the kernel's software stamps are taken from.
protocol::ClockReading ReadClocks();

}  // namespace cfm::port

#endif
