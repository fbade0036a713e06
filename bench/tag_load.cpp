// tag_load: times the loading of tag files of 100, 10,000 and 100,000 lines against the plain loader, in turns.
//
// Both loaders must fill the same records, byte for byte. Prints one line per size: lines, file size, median
// milliseconds of both, ratio, the driver's peak heap against its bound (the records plus twice the file); then how the
// time grows from 10,000 to 100,000 lines. All of it twice: with fresh memory for every load, as in a process that
// loads a file once and takes the system's time for 56 MB of new pages, and with memory that the process has kept,
// which leaves the loaders' own work. Ends with 1 when the records differ.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "bench/heap_watch.h"
#include "bench/operations.h"
#include "bench/peer.h"
#include "bench/plain_loader.h"
#include "bench/tag_lines.h"
#include "plc_driver/tags/tag_file.h"

namespace {

constexpr int kRounds = 31;
// Larger blocks are mappings of their own, whose pages are new each time; kept memory has none and is never given back.
constexpr int kFreshMappingBytes = 128 * 1024;
constexpr int kNoMappingBytes = 1 << 30;

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Processor time of this process: what else the machine does stays out.
double cpu_ms() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return 1e3 * static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_nsec);
}

struct Loaded {
  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
  uint32_t count = 0;
};

Loaded load_with_driver(const char* path) {
  static uint32_t group_ids[2048];
  Loaded loaded;
  const uint32_t* const counts = build_tagtable(&loaded.entries, &loaded.groups, path, group_ids);
  loaded.count = counts != nullptr ? counts[0] : 0;
  return loaded;
}

bool fill_the_same(const char* path, uint32_t lines) {
  const Loaded driver = load_with_driver(path);
  Loaded plain;
  plain.entries = bench::load_plainly(path, &plain.count);
  const bool is_same = driver.count == lines && plain.count == lines &&
                       std::memcmp(driver.entries, plain.entries, lines * sizeof(TagEntry)) == 0;
  plc::free_tag_arrays(driver.entries, driver.groups);
  std::free(plain.entries);
  return is_same;
}

// Median milliseconds of the driver's loading; prints the line. Negative when the records differ.
double measure(std::FILE* output, const char* memory, uint32_t lines) {
  const bench::TagFile file(lines);
  if (!fill_the_same(file.path(), lines)) {
    std::fprintf(output, "%u lines: the loaders differ\n", lines);
    return -1;
  }
  std::vector<double> driver_ms;
  std::vector<double> plain_ms;
  size_t peak = 0;
  for (int round = 0; round < kRounds; ++round) {
    uint32_t count = 0;
    double start = cpu_ms();
    TagEntry* const entries = bench::load_plainly(file.path(), &count);
    plain_ms.push_back(cpu_ms() - start);
    std::free(entries);

    const size_t before = bench::heap_bytes();
    bench::reset_heap_peak();
    start = cpu_ms();
    const Loaded loaded = load_with_driver(file.path());
    driver_ms.push_back(cpu_ms() - start);
    peak = std::max(peak, bench::peak_heap_bytes() - before);
    plc::free_tag_arrays(loaded.entries, loaded.groups);
  }
  const double driver = median(driver_ms);
  const double plain = median(plain_ms);
  const size_t bound = lines * sizeof(TagEntry) + 2 * file.bytes();
  std::fprintf(
      output,
      "tag_load %-5s %6u lines %8zu bytes  plain %8.3f ms  driver %8.3f ms  ratio %.3f  peak %.3f of its bound\n",
      memory, lines, file.bytes(), plain, driver, driver / plain,
      static_cast<double>(peak) / static_cast<double>(bound));
  std::fflush(output);
  return driver;
}

bool measure_all(std::FILE* output, const char* memory) {
  const double small = measure(output, memory, 100);
  const double medium = measure(output, memory, 10000);
  const double large = measure(output, memory, 100000);
  if (small < 0 || medium < 0 || large < 0) return false;
  std::fprintf(output, "tag_load %-5s growth from 10000 to 100000 lines  %.2f times\n", memory, large / medium);
  return true;
}

}  // namespace

int main() {
  std::FILE* const output = bench::take_standard_output();
  bench::pin_to_one_processor();
  mallopt(M_MMAP_THRESHOLD, kFreshMappingBytes);
  if (!measure_all(output, "fresh")) return 1;
  mallopt(M_MMAP_THRESHOLD, kNoMappingBytes);
  mallopt(M_TRIM_THRESHOLD, kNoMappingBytes);
  return measure_all(output, "kept") ? 0 : 1;
}
