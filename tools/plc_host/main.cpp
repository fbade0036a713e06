// plc-host, a command-line host of the driver.
#include <new>

#include "base/no_memory.h"
#include "base/standard_streams.h"
#include "tools/plc_host/commands/command_line.h"
#include "tools/plc_host/exit_codes.h"

namespace {

// Before anything of the program's own takes memory.
[[gnu::constructor(101)]] void prepare() {
  plc_base::end_when_unhandled("plc-host: ended: there is no memory left, or an error that plc-host does not know\n",
                               plc_host::kExitMemory);
}

}  // namespace

int main(int argc, char** argv) {
  plc_base::prepare_standard_streams();
  try {
    return plc_host::run_command_line(argc, argv);
  } catch (const std::bad_alloc&) {
    plc_base::say_without_memory("plc-host: there is no memory left\n");
    return plc_host::kExitMemory;
  }
}
