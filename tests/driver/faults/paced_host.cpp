// A host on a leash: reads one register for each line on its standard input, and says what came of it and how long it
// took.
//
// paced_host ADDRESS PORT TIMEOUT_S   in the folder of the tag file; answers "RESULT MILLISECONDS LOST LINES", the
// driver's lines with their line ends as they are seen in C, LOST the milliseconds that other processes took
#include <arpa/inet.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "plc_driver.h"
#include "tests/driver/faults/lateness_watch.h"
#include "tests/support/captured_output.h"

namespace {

std::string visible(const std::string& lines) {
  std::string text;
  for (const char character : lines) {
    text += character == '\r' ? std::string("\\r") : character == '\n' ? std::string("\\n") : std::string(1, character);
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "paced_host ADDRESS PORT TIMEOUT_S\n");
    return 2;
  }
  CommSettings settings = {};
  settings.ip_address = ntohl(inet_addr(argv[1]));
  settings.tcp_port = static_cast<uint16_t>(std::strtoul(argv[2], nullptr, 10));
  ConnContext conn = {-1, 0, static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)), 0, 0};
  plc_test::capture_output([&] { ev_plc_init(&settings); });
  plc_test::LatenessWatch lateness;
  char line[16];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
    RegRequest request = {};
    uint8_t data[4] = {};
    RegValue value = {1, data};
    uint32_t result = 0;
    lateness.start();
    const auto begin = std::chrono::steady_clock::now();
    const std::string lines = plc_test::capture_output([&] { result = ev_plc_read(&request, &value, &conn); });
    const auto taken = std::chrono::steady_clock::now() - begin;
    std::printf("%u %ld %ld %s\n", result,
                static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count()),
                lateness.lost_ms(), visible(lines).c_str());
    std::fflush(stdout);
  }
  return 0;
}
