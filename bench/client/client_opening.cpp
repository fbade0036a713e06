// client_opening LIBRARY: what a controller used by name costs before its first read: the time to open it, the time to
// find a name, and the memory that one controller and each of many take.
//
// Times are medians; memory is the process's proportional share (PSS), measured in a process of its own.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/peer.h"
#include "bench/tag_lines.h"
#include "client/plc_client.h"

namespace {

using std::chrono::steady_clock;

constexpr uint32_t kSizes[] = {1000, 10000};
constexpr unsigned kTimes = 11;
constexpr unsigned kManyControllers = 64;

plc_client::Options options_for(const bench::TagFile& file, const char* library) {
  plc_client::Options options;
  options.address = "127.0.0.1";
  options.tags = {file.path()};
  options.driver = library;
  return options;
}

template <typename Work>
double time_ns(const Work& work) {
  const steady_clock::time_point start = steady_clock::now();
  work();
  return std::chrono::duration<double, std::nano>(steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

// KiB.
long proportional_share() {
  std::FILE* const file = std::fopen("/proc/self/smaps_rollup", "r");
  if (file == nullptr) return -1;
  char line[256];
  long share = -1;
  while (share < 0 && std::fgets(line, sizeof line, file) != nullptr) {
    if (std::strncmp(line, "Pss:", 4) == 0) share = std::strtol(line + 4, nullptr, 10);
  }
  std::fclose(file);
  return share;
}

// A port of this machine at which nothing listens as long as the object lives.
class ClosedPort {
 public:
  ClosedPort() : holder_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    auto* const address = reinterpret_cast<sockaddr*>(&address_);
    if (bind(holder_, address, length) != 0 || getsockname(holder_, address, &length) != 0) std::exit(1);
  }
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;
  ~ClosedPort() { close(holder_); }

  uint16_t number() const { return ntohs(address_.sin_port); }

 private:
  int holder_;
  sockaddr_in address_{};
};

// In a process of its own, so that no memory is there from before. Each controller has tried to read: the driver has
// its tag file.
long share_of(const bench::TagFile& file, const char* library, unsigned controllers) {
  int ends[2];
  if (pipe(ends) != 0) std::exit(1);
  const pid_t id = fork();
  if (id == 0) {
    const ClosedPort port;
    const long before = proportional_share();
    std::vector<std::unique_ptr<plc_client::Controller>> all;
    for (unsigned i = 0; i < controllers; ++i) {
      plc_client::Options options = options_for(file, library);
      options.port = port.number();
      all.push_back(std::make_unique<plc_client::Controller>(options));
      if (all.back()->read("Conveyor_Speed_00000").ok()) _exit(1);
    }
    const long share = proportional_share() - before;
    _exit(write(ends[1], &share, sizeof share) == sizeof share ? 0 : 1);
  }
  long share = -1;
  if (read(ends[0], &share, sizeof share) != sizeof share) std::exit(1);
  waitpid(id, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  return share;
}

void measure(uint32_t lines, const char* library) {
  const bench::TagFile file(lines);
  const long one = share_of(file, library, 1);
  const long many = share_of(file, library, kManyControllers);
  std::vector<double> openings;
  std::vector<double> listings;
  std::vector<double> findings;
  for (unsigned i = 0; i < kTimes; ++i) {
    std::unique_ptr<plc_client::Controller> controller;
    openings.push_back(
        time_ns([&] { controller = std::make_unique<plc_client::Controller>(options_for(file, library)); }));
    listings.push_back(time_ns([&] { controller->tags(); }));
    // Far apart from each other, as the names of a program are.
    std::vector<std::string> names;
    constexpr size_t kStride = 7919;
    for (size_t at = 0; at < lines; ++at) names.push_back(controller->tags()[at * kStride % lines].name);
    size_t found = 0;
    const double took = time_ns([&] {
      for (const std::string& name : names) found += controller->tag(name).line;
    });
    if (found == 0) std::exit(1);
    findings.push_back(took / lines);
  }
  std::printf("%5u names  open %6.2f ms  list %6.2f ms  find %5.0f ns  one %6ld KiB  each of %u %6ld KiB\n", lines,
              median(openings) / 1e6, median(listings) / 1e6, median(findings), one, kManyControllers,
              many / kManyControllers);
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count != 2) {
    std::fprintf(stderr, "client_opening LIBRARY\n");
    return 2;
  }
  bench::pin_to_one_processor();
  try {
    for (const uint32_t lines : kSizes) measure(lines, arguments[1]);
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
