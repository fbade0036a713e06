// round_trip [--rounds N] [OPERATION...]: times operations of the driver against their floor.
//
// Driver and floor share one process, one connection, one peer and one processor, and take turns in short blocks. A
// round counts as the first quartile of its blocks, those that nothing else on the machine interrupted, and all rounds
// as their median. The floor is timed twice, before and behind the driver; when the two differ by more than 2 % the
// result is void and the operation is measured again, three times at most. Prints one line per operation: name,
// exchanges, floor and driver in microseconds, ratio with its first and third quartile, difference of the floors, and
// "ok" or "void".
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/floor.h"
#include "bench/operations.h"
#include "bench/peer.h"

namespace {

using bench::Host;
using bench::Requests;
using std::chrono::steady_clock;

constexpr uint32_t kLeastRounds = 31;
constexpr uint32_t kBlocksPerRound = 30;
constexpr uint32_t kBlockOperations = 16;
constexpr uint32_t kWarmUpOperations = 2000;
constexpr double kFloorTolerance = 0.02;
constexpr double kUndisturbed = 0.25;
constexpr int kAttempts = 3;

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double position = part * static_cast<double>(values.size() - 1);
  const size_t below = static_cast<size_t>(position);
  const size_t above = std::min(below + 1, values.size() - 1);
  const double share = position - static_cast<double>(below);
  return values[below] * (1 - share) + values[above] * share;
}

double median(const std::vector<double>& values) { return quantile(values, 0.5); }

template <typename Block>
double time_us(Block&& block) {
  const steady_clock::time_point start = steady_clock::now();
  block();
  const std::chrono::duration<double, std::micro> passed = steady_clock::now() - start;
  return passed.count() / kBlockOperations;
}

// Microseconds per operation, a value per round.
struct Times {
  std::vector<double> floor_before;
  std::vector<double> driver;
  std::vector<double> floor_behind;
};

void time_round(Host* host, Host::Operation operation, const Requests& requests, Times* times) {
  Times blocks;
  const auto time_floor = [&] {
    return time_us([&] { bench::repeat_floor(requests, host->socket_fd(), kBlockOperations); });
  };
  for (uint32_t block = 0; block < kBlocksPerRound; ++block) {
    blocks.floor_before.push_back(time_floor());
    blocks.driver.push_back(time_us([&] { host->repeat(operation, kBlockOperations); }));
    blocks.floor_behind.push_back(time_floor());
  }
  times->floor_before.push_back(quantile(blocks.floor_before, kUndisturbed));
  times->driver.push_back(quantile(blocks.driver, kUndisturbed));
  times->floor_behind.push_back(quantile(blocks.floor_behind, kUndisturbed));
}

double difference_of_floors(const Times& times) {
  return std::fabs(median(times.floor_before) / median(times.floor_behind) - 1);
}

bool is_void(const Times& times) { return difference_of_floors(times) > kFloorTolerance; }

void report(std::FILE* output, const char* name, const Requests& requests, const Times& times) {
  std::vector<double> ratios;
  std::vector<double> floors;
  for (size_t round = 0; round < times.driver.size(); ++round) {
    floors.push_back((times.floor_before[round] + times.floor_behind[round]) / 2);
    ratios.push_back(times.driver[round] / floors.back());
  }
  std::fprintf(output,
               "%-20s %zu exchanges  floor %7.2f us  driver %7.2f us  ratio %.3f (%.3f to %.3f)  floors %.1f %%  %s\n",
               name, requests.size(), median(floors), median(times.driver), median(ratios), quantile(ratios, 0.25),
               quantile(ratios, 0.75), 100 * difference_of_floors(times), is_void(times) ? "void" : "ok");
  std::fflush(output);
}

Times measure_once(const Host::NamedOperation& measured, const Requests& requests, uint32_t rounds) {
  const bench::Listener listener;
  const pid_t peer = bench::start_peer(listener, bench::kRecordNothing);
  Times times;
  {
    Host host(listener.port);
    host.repeat(measured.operation, kWarmUpOperations);
    bench::repeat_floor(requests, host.socket_fd(), kWarmUpOperations);
    for (uint32_t round = 0; round < rounds; ++round) time_round(&host, measured.operation, requests, &times);
  }
  waitpid(peer, nullptr, 0);
  close(listener.fd);
  return times;
}

// Prints the operation's line. Returns false when it is void.
bool measure(std::FILE* output, const Host::NamedOperation& measured, uint32_t rounds) {
  const Requests requests = bench::record_requests(measured.operation);
  Times times = measure_once(measured, requests, rounds);
  for (int attempt = 1; attempt < kAttempts && is_void(times); ++attempt) {
    times = measure_once(measured, requests, rounds);
  }
  report(output, measured.name, requests, times);
  return !is_void(times);
}

bool is_chosen(const char* name, const std::vector<std::string>& chosen) {
  return chosen.empty() || std::find(chosen.begin(), chosen.end(), name) != chosen.end();
}

}  // namespace

int main(int argument_count, char** arguments) {
  uint32_t rounds = kLeastRounds;
  std::vector<std::string> chosen;
  for (int i = 1; i < argument_count; ++i) {
    if (std::strcmp(arguments[i], "--rounds") == 0 && i + 1 < argument_count) {
      rounds = std::max(kLeastRounds, static_cast<uint32_t>(std::strtoul(arguments[++i], nullptr, 10)));
    } else {
      bench::Host::find_operation(arguments[i]);
      chosen.emplace_back(arguments[i]);
    }
  }
  std::FILE* const output = bench::take_standard_output();
  bench::pin_to_one_processor();
  bool is_valid = true;
  for (const Host::NamedOperation& operation : Host::operations()) {
    if (is_chosen(operation.name, chosen)) is_valid = measure(output, operation, rounds) && is_valid;
  }
  return is_valid ? 0 : 1;
}
