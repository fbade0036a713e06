// Endurance: transfers of all kinds against plc-sim with random faults, then loads of random tag files, while memory
// and descriptors of the process are watched.
//
// endure TRANSFERS LOADS [SEED]   prints its figures; ends with 1 when memory or descriptors grow, and at the first
// value or reply that may not be, with the exchanges before it. SIGTERM makes it come to its end: the figures are those
// of what was done
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "faults/endure_transfers.h"
#include "plc_driver.h"
#include "plc_driver/tags/tag_file.h"
#include "support/temp_dir.h"

namespace {

constexpr long kAllowedGrowthPages = 64;  // 256 KiB: what the C library takes for itself now and then

std::FILE* report = nullptr;
volatile sig_atomic_t is_ending = 0;

void end_on_sigterm() {
  struct sigaction action = {};
  action.sa_handler = [](int) { is_ending = 1; };
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
}

long resident_pages() {
  long total = 0;
  long resident = 0;
  std::FILE* statm = std::fopen("/proc/self/statm", "r");
  if (statm == nullptr || std::fscanf(statm, "%ld %ld", &total, &resident) != 2) {
    std::abort();
  }
  std::fclose(statm);
  return resident;
}

int open_descriptors() {
  DIR* folder = opendir("/proc/self/fd");
  int count = -3;  // ".", ".." and the folder's own descriptor
  while (readdir(folder) != nullptr) {
    ++count;
  }
  closedir(folder);
  return count;
}

// Least and most of a figure that should not move.
struct Range {
  long least = -1;
  long most = -1;

  void add(long value) {
    least = least < 0 || value < least ? value : least;
    most = value > most ? value : most;
  }
};

// What is watched, and how long it takes.
class Watch {
 public:
  explicit Watch(unsigned long rounds) : rounds_(rounds) {}

  // The first tenth warms up: stacks, buffers of the C library, the tag table.
  void look(unsigned long round, unsigned long every) {
    if (round > rounds_ / 10 && round % every == every - 1) {
      memory_.add(resident_pages());
      descriptors_.add(open_descriptors());
    }
  }

  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count(); }

  void print() const {
    std::fprintf(report, "  resident memory: %ld to %ld pages\n  descriptors: %ld to %ld\n", memory_.least,
                 memory_.most, descriptors_.least, descriptors_.most);
  }

  bool is_flat(long moving_descriptors) const {
    return memory_.most - memory_.least <= kAllowedGrowthPages &&
           descriptors_.most - descriptors_.least <= moving_descriptors;
  }

 private:
  unsigned long rounds_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  Range memory_;
  Range descriptors_;
};

bool run_transfers(const plc_test::TempDir& folder, uint32_t seed, unsigned long transfers) {
  plc_test::EnduranceHost host(folder, seed);
  Watch watch(transfers);
  unsigned long done = 0;
  bool is_right = true;
  for (; done < transfers && is_right && is_ending == 0; ++done) {
    is_right = host.run_one();
    constexpr unsigned long kLookEvery = 500;
    watch.look(done, kLookEvery);
  }
  std::fprintf(report, "transfers: %lu in %.1f s\n", done, watch.seconds());
  host.print_figures(report);
  watch.print();
  host.print_error(report);
  // Between a lost connection and the next there is one descriptor less.
  return is_right && host.is_plausible() && watch.is_flat(1);
}

class Loads {
 public:
  Loads(const plc_test::TempDir& folder, uint32_t seed) : folder_(folder), random_(seed) {}

  bool run(unsigned long loads);

 private:
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  std::string random_file();
  bool load();

  const plc_test::TempDir& folder_;
  std::mt19937 random_;
};

std::string Loads::random_file() {
  static constexpr const char* kTypes[] = {"INT", "DINT", "LREAL", "BOOL", "STRING", "DATE", "Nonsense", ""};
  static constexpr const char* kRanges[] = {"",       "[0..9]", "[1..4_2..7]", "[0..1_0..2_0..3]",
                                            "[9..0]", "[..]",   "[1..",        "[2147483647..-2147483648]"};
  std::string text;
  uint32_t id = below(4) == 0 ? 0x40000 + below(5) * 0x1000 : 0;
  for (uint32_t lines = below(120); lines > 0; --lines) {
    id = below(20) == 0 ? below(0x50000) : id + 1;
    text += "V" + std::string(below(30) == 0 ? below(300) : below(20), 'n') + "," + kTypes[below(8)] + "," +
            kRanges[below(8)] + ",20,a,b,c," + std::to_string(id) + ",1,0," + std::to_string(below(5)) +
            (below(3) == 0 ? ",MAIN,DM\n" : ",\n");
  }
  for (uint32_t changes = below(4) == 0 ? below(20) : 0; changes > 0 && !text.empty(); --changes) {
    text[below(static_cast<uint32_t>(text.size()))] = static_cast<char>(below(256));
  }
  return text;
}

// Loads the file, gives it back, and says whether it was accepted.
bool Loads::load() {
  static uint32_t group_ids[plc::kIdBlocks];
  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
  const bool is_accepted =
      build_tagtable(&entries, &groups, plc_test::EnduranceHost::file_name(), group_ids) != nullptr;
  for (IndexedTagEntry* group = groups; group != nullptr && group->entries != nullptr; ++group) {
    std::free(group->entries);
  }
  std::free(groups);
  std::free(entries);
  return is_accepted;
}

bool Loads::run(unsigned long loads) {
  Watch watch(loads);
  unsigned long accepted = 0;
  unsigned long number = 0;
  for (; number < loads && is_ending == 0; ++number) {
    folder_.write(plc_test::EnduranceHost::file_name(), random_file());
    accepted += load() ? 1U : 0U;
    constexpr unsigned long kLookEvery = 100;
    watch.look(number, kLookEvery);
  }
  std::fprintf(report, "loads: %lu in %.1f s, %lu of them accepted\n", number, watch.seconds(), accepted);
  watch.print();
  return watch.is_flat(0) && accepted > 0 && accepted < number;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "endure TRANSFERS LOADS [SEED]\n");
    return 2;
  }
  // What the driver prints is not looked at here.
  report = fdopen(dup(STDOUT_FILENO), "w");
  if (report == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
    return 2;
  }
  const uint32_t seed = argc > 3 ? static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)) : 1;
  const unsigned long transfers = std::strtoul(argv[1], nullptr, 10);
  const unsigned long loads = std::strtoul(argv[2], nullptr, 10);
  std::fprintf(report, "seed %u\n", seed);
  end_on_sigterm();
  const plc_test::TempDir folder;
  const plc_test::ScopedWorkingDirectory inside(folder.path());
  const bool transferred = transfers == 0 || run_transfers(folder, seed, transfers);
  std::fflush(report);
  const bool loaded = loads == 0 || is_ending != 0 || Loads(folder, seed).run(loads);
  std::fprintf(report, "%s\n", transferred && loaded ? "flat, and every value right" : "NOT FLAT, or not right");
  std::fclose(report);
  return transferred && loaded ? 0 : 1;
}
