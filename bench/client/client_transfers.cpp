// client_transfers LIBRARY: times reads of variables by name against the driver's own calls with a plan made by hand.
//
// Both share one process and one processor, each with a copy of this build of the driver, a connection and a peer of
// its own, and take turns in short blocks. A round counts as the first quartile of its blocks, those that nothing else
// on the machine interrupted. Prints one line per read: name, microseconds of both, the median ratio of the rounds with
// its quartiles, and what the read by name allocates.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/client/direct_reads.h"
#include "bench/client/new_counter.h"
#include "bench/operations.h"
#include "bench/peer.h"
#include "client/plc_client.h"

namespace {

using std::chrono::steady_clock;

constexpr uint32_t kRounds = 61;
constexpr uint32_t kBlocksPerRound = 30;
constexpr uint32_t kBlockReads = 16;
constexpr uint32_t kWarmUpReads = 1000;

double part_of(std::vector<double> values, double part) {
  const auto position = static_cast<size_t>(std::lround(part * static_cast<double>(values.size() - 1)));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(position), values.end());
  return values[position];
}

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

void demand(const std::vector<plc_client::Reading>& readings) {
  for (const plc_client::Reading& reading : readings) {
    if (!reading.ok()) fail(reading.error.text.c_str());
  }
}

double time_us(const std::function<void()>& read) {
  const steady_clock::time_point start = steady_clock::now();
  for (uint32_t i = 0; i < kBlockReads; ++i) read();
  const std::chrono::duration<double, std::micro> passed = steady_clock::now() - start;
  return passed.count() / kBlockReads;
}

void measure(std::FILE* output, const char* name, const std::function<void()>& direct,
             const std::function<void()>& by_name) {
  for (uint32_t i = 0; i < kWarmUpReads; ++i) direct();
  for (uint32_t i = 0; i < kWarmUpReads; ++i) by_name();
  const uint64_t before = bench::allocations();
  for (uint32_t i = 0; i < kBlockReads; ++i) by_name();
  const uint64_t allocated = (bench::allocations() - before) / kBlockReads;
  std::vector<double> direct_times;
  std::vector<double> by_name_times;
  std::vector<double> ratios;
  for (uint32_t round = 0; round < kRounds; ++round) {
    std::vector<double> direct_blocks;
    std::vector<double> by_name_blocks;
    for (uint32_t block = 0; block < kBlocksPerRound; ++block) {
      direct_blocks.push_back(time_us(direct));
      by_name_blocks.push_back(time_us(by_name));
    }
    direct_times.push_back(part_of(direct_blocks, 0.25));
    by_name_times.push_back(part_of(by_name_blocks, 0.25));
    ratios.push_back(by_name_times.back() / direct_times.back());
  }
  std::fprintf(output, "%-20s driver %7.2f us  by name %7.2f us  ratio %.3f (%.3f to %.3f)  allocations %lu\n", name,
               part_of(direct_times, 0.5), part_of(by_name_times, 0.5), part_of(ratios, 0.5), part_of(ratios, 0.25),
               part_of(ratios, 0.75), static_cast<unsigned long>(allocated));
  std::fflush(output);
}

void measure_all(std::FILE* output, const char* library) {
  const bench::WordsFolder folder;
  const bench::Listener direct_listener;
  const pid_t direct_peer = bench::start_peer(direct_listener, bench::kRecordNothing);
  const bench::Listener named_listener;
  const pid_t named_peer = bench::start_peer(named_listener, bench::kRecordNothing);
  {
    bench::DirectReads direct(bench::load_driver(library), direct_listener.port);
    plc_client::Options options;
    options.address = "127.0.0.1";
    options.port = named_listener.port;
    options.tags = {bench::kWordsFile};
    options.driver = library;
    plc_client::Controller controller(options);
    std::vector<std::string> names;
    for (uint32_t id = 0; id < bench::kWords; ++id) names.push_back(controller.tags()[id].name);
    plc_client::Plan words = controller.plan(names);
    plc_client::Plan word = controller.plan({names.front()});
    measure(
        output, "one_word", [&] { direct.read_word(); }, [&] { demand(controller.read(word)); });
    measure(
        output, "100_words", [&] { direct.read_words(); }, [&] { demand(controller.read(words)); });
    measure(
        output, "one_word_unplanned", [&] { direct.read_word(); }, [&] { demand({controller.read(names.front())}); });
  }
  waitpid(direct_peer, nullptr, 0);
  waitpid(named_peer, nullptr, 0);
  close(direct_listener.fd);
  close(named_listener.fd);
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count != 2) {
    std::fprintf(stderr, "client_transfers LIBRARY\n");
    return 2;
  }
  std::FILE* const output = bench::take_standard_output();
  bench::pin_to_one_processor();
  try {
    measure_all(output, arguments[1]);
  } catch (const plc_client::Error& error) {
    fail(error.what());
  }
  return 0;
}
