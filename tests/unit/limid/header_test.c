#include "limid/limid.h"

int limid_header_test_use(uint32_t* number, char* name);

int limid_header_test_use(uint32_t* number, char* name) {
  return limid_to_ifindex(1, number) + limid_from_ifindex(1, number) + limid_to_intfname(1, name, 16);
}
