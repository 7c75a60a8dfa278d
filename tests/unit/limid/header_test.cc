#include "limid/limid.h"

namespace limid_header_test {

int Use(uint32_t* number, char* name);

int Use(uint32_t* number, char* name) {
  return limid_to_ifindex(1, number) + limid_from_ifindex(1, number) + limid_to_intfname(1, name, 16);
}

}  // namespace limid_header_test
