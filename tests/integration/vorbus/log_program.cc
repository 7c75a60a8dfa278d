// Writes log lines of several levels, a fault or a backtrace, as its argument says.
#include <vorbus/vorbus.h>
#include <zlog.h>

#include <cstring>
#include <string_view>

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  const std::string_view what = argv[1];
  if (what == "fault") {
    vorbus_fault_t fault{};
    std::strcpy(fault.text, "no such thing");
    vorbus_gen_fault(1, "function", "file", 42, &fault);
    vorbus_gen_fault(2, nullptr, nullptr, 0, nullptr);
    std::memset(&fault, 'x', sizeof fault);  // text without an end
    vorbus_gen_fault(3, "function", "file", 43, &fault);
    return 0;
  }
  if (what == "backtrace") {
    vorbus_print_backtrace();
    return 0;
  }
  vorbus_t* token = nullptr;
  const vorbus_options_t options{nullptr, argv[2], 0};
  if (vorbus_open(&options, &token) != 0) {
    return 1;
  }
  zlog_category_t* category = vorbus_trace_init(token, "test");
  zlog_category_t* again = vorbus_trace_init(token, "test");
  zlog_category_t* other = vorbus_trace_init(token, "other");
  if (category == nullptr || again != category || other == nullptr || other == category ||
      vorbus_trace_init(nullptr, "test") != nullptr || vorbus_trace_init(token, "") != nullptr) {
    return 1;
  }
  for (const int level : {10, 11, 20, 40, 80, 100}) {
    zlog(category, "file", 4, "function", 8, 7, level, "of level %d", level);
  }
  vorbus_close(&token);
  return 0;
}
