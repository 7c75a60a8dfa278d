// The header alone, in the oldest C++.
#include <vorbus/vorbus.h>

static_assert(sizeof(vorbus_proc_t) == 255, "the name fills the identity");
static_assert(sizeof(vorbus_fault_t) == 350, "the size of a fault record");

int vorbus_open_in_cxx11(vorbus_t** token);
int vorbus_open_in_cxx11(vorbus_t** token) {
  const vorbus_options_t options = {"name", "/directory", 0};
  return vorbus_open(&options, token);
}
