#include "limid/limid.h"

#include <net/if.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <system_error>

#include "map_file.h"

namespace limid {
namespace {

struct Port {
  uint32_t ifindex = 0;
  std::array<char, IF_NAMESIZE> name = {};
};

// The kernel says ENXIO for an index and ENODEV for a name that it does not have.
int LookupError() {
  return errno == ENXIO ? -ENODEV : -errno;
}

int PortByIndex(uint32_t ifindex, Port* port) {
  port->ifindex = ifindex;
  return if_indextoname(ifindex, port->name.data()) == nullptr ? LookupError() : 0;
}

// Only by its present name: the kernel knows alternative names too, but what is found by one of them would not lead
// back.
int PortByName(const std::string& name, Port* port) {
  const unsigned int ifindex = if_nametoindex(name.c_str());
  if (ifindex == 0) return LookupError();
  if (const int error = PortByIndex(ifindex, port); error != 0) return error;
  return name == port->name.data() ? 0 : -ENODEV;
}

// The map file's contents; null when none is configured.
int ConfiguredMap(std::shared_ptr<const PortMap>* map) {
  const char* path = std::getenv("LIMID_MAP");
  if (path == nullptr || *path == '\0') return 0;
  static auto& cache = *new PortMapCache;  // never destroyed: other threads may still convert while the process ends
  return cache.Get(path, map);
}

int PortOf(uint32_t limid, Port* port) {
  std::shared_ptr<const PortMap> map;
  if (const int error = ConfiguredMap(&map); error != 0) return error;
  if (map != nullptr) {
    if (const auto entry = map->names.find(limid); entry != map->names.end()) return PortByName(entry->second, port);
  }
  if (const int error = PortByIndex(limid, port); error != 0) return error;
  // A port that the file names answers to the number that it has there, and to no other.
  return map != nullptr && map->ids.contains(port->name.data()) ? -ENODEV : 0;
}

int LimidOf(uint32_t ifindex, uint32_t* limid) {
  std::shared_ptr<const PortMap> map;
  if (const int error = ConfiguredMap(&map); error != 0) return error;
  Port port;
  if (const int error = PortByIndex(ifindex, &port); error != 0) return error;
  if (map != nullptr) {
    if (const auto entry = map->ids.find(port.name.data()); entry != map->ids.end()) {
      *limid = entry->second;
      return 0;
    }
    if (map->names.contains(ifindex)) return -ENODEV;
  }
  *limid = ifindex;
  return 0;
}

// Nothing is thrown through the C interface.
template <typename Conversion>
int Guarded(Conversion&& conversion) {
  try {
    return conversion();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (const std::system_error& error) {  // a mutex that cannot be locked
    return error.code().value() > 0 ? -error.code().value() : -EIO;
  }
}

}  // namespace
}  // namespace limid

int limid_to_ifindex(uint32_t limid, uint32_t* ifindex) {
  if (ifindex == nullptr) return -EINVAL;
  *ifindex = 0;
  return limid::Guarded([&] {
    limid::Port port;
    const int error = limid::PortOf(limid, &port);
    if (error == 0) *ifindex = port.ifindex;
    return error;
  });
}

int limid_from_ifindex(uint32_t ifindex, uint32_t* limid) {
  if (limid == nullptr) return -EINVAL;
  *limid = 0;
  return limid::Guarded([&] { return limid::LimidOf(ifindex, limid); });
}

int limid_to_intfname(uint32_t limid, char* name, size_t length) {
  if (name == nullptr || length == 0) return -EINVAL;
  *name = '\0';
  return limid::Guarded([&] {
    limid::Port port;
    if (const int error = limid::PortOf(limid, &port); error != 0) return error;
    const size_t needed = std::strlen(port.name.data()) + 1;
    if (needed > length) return -ERANGE;
    std::memcpy(name, port.name.data(), needed);
    return 0;
  });
}
