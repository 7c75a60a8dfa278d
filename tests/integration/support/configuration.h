// Configurations in tests between processes. They travel between test and application, and are compared with the
// server's cache, as the create requests of client_server::OpCacheSync.
#ifndef CFM_TESTS_INTEGRATION_SUPPORT_CONFIGURATION_H
#define CFM_TESTS_INTEGRATION_SUPPORT_CONFIGURATION_H

#include <cstdint>
#include <string>
#include <vector>

#include "cfm/hierarchy.h"
#include "cfm/probe.h"
#include "client_server.pb.h"

namespace cfm_test {

struct Configuration {
  cfm::hierarchy hierarchy;
  cfm::probe probe;
};

// As create requests and back, every setting as it stands. `ifindex` carries the logical id of the port, unconverted.
client_server::OpCacheSync ToMessages(const Configuration& configuration);
Configuration FromMessages(const client_server::OpCacheSync& messages);

// What the server holds once the configuration has reached it: ports as interface indexes (0: there is no such port),
// and of a disabled AIS only the option that counts without it.
client_server::OpCacheSync CacheOf(const Configuration& configuration);

// How the second differs from the first, a line for each element that only one of them has (at most 20 lines); empty
// when they agree. The order of elements does not count, nor do the two name formats, which updates never carry.
std::string Difference(const client_server::OpCacheSync& expected, const client_server::OpCacheSync& actual);

// `mds` domains of `mas` associations of `meps` end points each, all on the loopback interface.
cfm::hierarchy Grid(unsigned mds, unsigned mas, std::uint16_t meps);

// One line of protobuf text format, and back (false: malformed).
std::string Text(const google::protobuf::Message& message);
bool FromText(const std::string& text, google::protobuf::Message& message);

}  // namespace cfm_test

#endif
