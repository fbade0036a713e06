// side_by_side LIBRARY [OPERATION...]: times operations of another build of the driver against those of this one.
//
// Both drivers share one process and one processor, each with a connection and a peer of its own, and take turns in
// short blocks. A round counts as the first quartile of its blocks, those that nothing else on the machine interrupted.
// Prints one line per operation: name, microseconds of both, and the median ratio of the rounds with its quartiles.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/operations.h"
#include "bench/peer.h"

namespace {

using bench::Host;
using std::chrono::steady_clock;

constexpr uint32_t kRounds = 61;
constexpr uint32_t kBlocksPerRound = 30;
constexpr uint32_t kBlockOperations = 16;
constexpr uint32_t kWarmUpOperations = 2000;

double quantile(std::vector<double> values, double part) {
  const auto position = static_cast<size_t>(part * static_cast<double>(values.size() - 1) + 0.5);
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(position), values.end());
  return values[position];
}

double time_us(Host& host, Host::Operation operation) {
  const steady_clock::time_point start = steady_clock::now();
  host.repeat(operation, kBlockOperations);
  const std::chrono::duration<double, std::micro> passed = steady_clock::now() - start;
  return passed.count() / kBlockOperations;
}

// One driver with its peer.
class Side {
 public:
  explicit Side(const bench::Driver& driver)
      : peer_(bench::start_peer(listener_, bench::kRecordNothing)), host_(new Host(listener_.port, driver)) {}
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;
  ~Side() {
    delete host_;  // ends the connection, and with it the peer
    waitpid(peer_, nullptr, 0);
    close(listener_.fd);
  }

  Host& host() { return *host_; }

 private:
  bench::Listener listener_;
  pid_t peer_;
  Host* host_;
};

void measure(std::FILE* output, const Host::NamedOperation& measured, const bench::Driver& other) {
  Side own({});
  own.host().repeat(measured.operation, kWarmUpOperations);
  Side theirs(other);
  theirs.host().repeat(measured.operation, kWarmUpOperations);
  std::vector<double> own_times;
  std::vector<double> their_times;
  std::vector<double> ratios;
  for (uint32_t round = 0; round < kRounds; ++round) {
    std::vector<double> own_blocks;
    std::vector<double> their_blocks;
    for (uint32_t block = 0; block < kBlocksPerRound; ++block) {
      own_blocks.push_back(time_us(own.host(), measured.operation));
      their_blocks.push_back(time_us(theirs.host(), measured.operation));
    }
    own_times.push_back(quantile(own_blocks, 0.25));
    their_times.push_back(quantile(their_blocks, 0.25));
    ratios.push_back(their_times.back() / own_times.back());
  }
  std::fprintf(output, "%-20s contract %7.2f us  guarded %7.2f us  ratio %.3f (%.3f to %.3f)\n", measured.name,
               quantile(own_times, 0.5), quantile(their_times, 0.5), quantile(ratios, 0.5), quantile(ratios, 0.25),
               quantile(ratios, 0.75));
  std::fflush(output);
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count < 2) {
    std::fprintf(stderr, "side_by_side LIBRARY [OPERATION...]\n");
    return 2;
  }
  const std::vector<std::string> chosen(arguments + 2, arguments + argument_count);
  for (const std::string& name : chosen) Host::find_operation(name);
  std::FILE* const output = bench::take_standard_output();
  const bench::Driver other = bench::load_driver(arguments[1]);
  bench::pin_to_one_processor();
  for (const Host::NamedOperation& operation : Host::operations()) {
    if (chosen.empty() || std::find(chosen.begin(), chosen.end(), operation.name) != chosen.end()) {
      measure(output, operation, other);
    }
  }
  return 0;
}
