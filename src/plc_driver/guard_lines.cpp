// The lines that the guarded build prints beside those of diagnostics.
#include "plc_driver/guard_lines.h"

#include <errno.h>

#include "plc_driver/diagnostics.h"

namespace plc {

void print_guard(const char* text) {
  print_text("[PLC] guard: ");
  print_line(text);
}

void print_connect_error(int error) {
  if (error == ECONNREFUSED) {
    print_guard("connect refused");
  } else if (error == EHOSTUNREACH || error == ENETUNREACH) {
    print_guard("no route to the controller");
  } else {
    print_numbers("[PLC] guard: connect failed, error %d\r\n", error);
  }
}

void print_cut_off(uint32_t received) {
  print_numbers("[PLC] guard: reply cut off, %u bytes in time\r\n", unsigned{received});
}

void print_connection_lost(int error) { print_numbers("[PLC] guard: connection lost, error %d\r\n", error); }

void print_dropped(uint32_t replies) { print_numbers("[PLC] guard: %u late replies dropped\r\n", unsigned{replies}); }

void print_incomplete_names(uint32_t whole, uint32_t asked) {
  print_numbers("[PLC] guard: %u of %u names resolved\r\n", unsigned{whole}, unsigned{asked});
}

void print_wrong_values(uint32_t received_bytes, uint32_t asked_bytes) {
  print_numbers("[PLC] guard: %u bytes of values, %u were asked for\r\n", unsigned{received_bytes},
                unsigned{asked_bytes});
}

void print_incomplete_directory(uint32_t whole, uint32_t announced) {
  print_numbers("[PLC] guard: %u of %u programs in the directory\r\n", unsigned{whole}, unsigned{announced});
}

void print_refused(const char* request, uint32_t status) {
  print_numbers("[PLC] guard: controller refused %s, status %04X\r\n", request, unsigned{status});
}

}  // namespace plc
