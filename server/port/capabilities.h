// The privileges of this process.
#ifndef CFM_SERVER_PORT_CAPABILITIES_H
#define CFM_SERVER_PORT_CAPABILITIES_H

#include <string>

namespace cfm::port {

/// The names of those that the ports need and the process does not have: CAP_NET_RAW for their sockets, CAP_NET_ADMIN
/// for filters and fault actions. Empty when it has both.
std::string MissingCapabilities();

/// Gives up every other capability, and the ways back to one: the other ones of the bounding set, as far as the process
/// may, and programs that grant privileges. Binds the calling thread and those that it starts later. Throws
/// std::system_error.
void KeepNetworkCapabilitiesOnly();

}  // namespace cfm::port

#endif
