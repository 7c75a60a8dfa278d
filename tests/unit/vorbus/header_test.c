// The header alone, in C.
#include <vorbus/vorbus.h>

_Static_assert(sizeof(vorbus_proc_t) == 255, "the name fills the identity");
_Static_assert(sizeof(vorbus_fault_t) == 350, "the size of a fault record");
_Static_assert(sizeof(vorbus_pid_t) == 4, "a pid has 32 bits");
_Static_assert(sizeof(vorbus_sigblock_t) == 4 && sizeof(vorbus_evgroup_t) == 4, "ids have 32 bits");

int vorbus_open_in_c(vorbus_t** token);
int vorbus_open_in_c(vorbus_t** token) {
  const vorbus_options_t options = {"name", "/directory", 0};
  return vorbus_open(&options, token);
}
