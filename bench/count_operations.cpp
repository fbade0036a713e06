// count_operations PORT OPERATION COUNT: performs one operation COUNT times against the peer on PORT, under a counter
// of system calls or instructions. Without arguments it prints the names of the operations.
#include <cstdio>
#include <cstdlib>

#include "bench/operations.h"

int main(int argument_count, char** arguments) {
  if (argument_count == 1) {
    for (const bench::Host::NamedOperation& operation : bench::Host::operations()) std::puts(operation.name);
    return 0;
  }
  if (argument_count != 4) {
    std::fprintf(stderr, "usage: count_operations PORT OPERATION COUNT\n");
    return 2;
  }
  bench::Host host(static_cast<uint16_t>(std::strtoul(arguments[1], nullptr, 10)));
  host.repeat(bench::Host::find_operation(arguments[2]),
              static_cast<uint32_t>(std::strtoul(arguments[3], nullptr, 10)));
  return 0;
}
