// plc-gateway, which puts one controller on a broker.
#include <cstdio>
#include <new>

#include "base/no_memory.h"
#include "base/standard_streams.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"

namespace {

// Before anything of the program's own takes memory.
[[gnu::constructor(101)]] void prepare() {
  plc_base::end_when_unhandled(
      "plc-gateway: ended: there is no memory left, or an error that plc-gateway does not know\n",
      plc_gateway::kExitMemory);
}

}  // namespace

int main(int argc, char** argv) {
  plc_base::prepare_standard_streams();
  try {
    return plc_gateway::run_command_line(argc, argv);
  } catch (const std::bad_alloc&) {
    plc_base::say_without_memory("plc-gateway: there is no memory left\n");
    return plc_gateway::kExitMemory;
  }
}
