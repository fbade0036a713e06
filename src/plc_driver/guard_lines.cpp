// The lines that the guarded build prints beside those of diagnostics.
#include "plc_driver/guard_lines.h"

#include <errno.h>

#include <cstdarg>
#include <cstdio>

namespace plc {

void print_guard(const char* format, ...) {
  fputs("[PLC] guard: ", stdout);
  va_list arguments;
  va_start(arguments, format);
  vprintf(format, arguments);
  va_end(arguments);
  fputs("\r\n", stdout);
}

void print_connect_error(int error) {
  if (error == ECONNREFUSED) {
    print_guard("connect refused");
  } else if (error == EHOSTUNREACH || error == ENETUNREACH) {
    print_guard("no route to the controller");
  } else {
    print_guard("connect failed, error %d", error);
  }
}

}  // namespace plc
