// Endurance: transfers of all kinds against plc-sim with random faults, then loads of random tag files, while memory
// and descriptors of the process are watched.
//
// endure TRANSFERS LOADS [SEED]   prints its figures; ends with 1 when memory or descriptors grow, or when a value
// that is checked is wrong
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>

#include "faults/sim_process.h"
#include "plc_driver.h"
#include "plc_driver/tags/tag_file.h"
#include "support/temp_dir.h"

namespace {

constexpr const char* kFileName = "PLC7F000001_0.csv";
constexpr long kAllowedGrowthPages = 64;  // 256 KiB: what the C library takes for itself now and then
constexpr uint32_t kConstantId = 0;
constexpr uint16_t kConstantValue = 4660;

// By id: what the file says, whether a batch may hold it, and its elements.
struct Variable {
  const char* fields;
  uint32_t elements;
  bool in_batch;
};
constexpr Variable kVariables[] = {
    {"Constant,INT,,,a,b,c", 1, true},          {"Word,INT,,,a,b,c", 1, true},
    {"Double,DINT,,,a,b,c", 1, true},           {"Quad,LINT,,,a,b,c", 1, false},
    {"Text,STRING,,20,a,b,c", 5, false},        {"Table,INT,[0..99],,a,b,c", 100, true},
    {"Grid,DINT,[0..3_0..4],,a,b,c", 20, true}, {"Cube,REAL,[0..1_0..2_0..3],,a,b,c", 24, true},
    {"Bits,BOOL,[0..15],,a,b,c", 16, true},     {"Bit,BOOL,,,a,b,c", 1, true},
    {"Part.Bit,BOOL,,,a,b,c", 1, true},         {"Quads,LREAL,[0..9],,a,b,c", 10, false},
};
constexpr uint32_t kVariableCount = sizeof kVariables / sizeof kVariables[0];

// Faults that cost no time-out, and those that cost one.
constexpr const char* kQuickFaults[] = {"close",
                                        "reset",
                                        "close on=read",
                                        "reset on=read",
                                        "cut 13",
                                        "cut 1 on=read",
                                        "cut 20 on=read",
                                        "close-after 9",
                                        "reset-after 15",
                                        "split 9 2 on=read",
                                        "split 15 1",
                                        "stale 17 on=read",
                                        "stale 300 on=read",
                                        "trailing 40",
                                        "duplicate on=read",
                                        "oversize 500 on=read",
                                        "garbage 40 on=read",
                                        "garbage 300 on=resolve",
                                        "wrong-sequence",
                                        "close on=directory",
                                        "reset on=directory-start",
                                        "close on=write",
                                        "reset-after 5 on=write"};
constexpr const char* kSlowFaults[] = {"no-reply", "no-reply on=read", "delay 1200", "no-reply on=directory"};

std::FILE* report = nullptr;

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

class Endurance {
 public:
  explicit Endurance(unsigned seed) : random_(seed) {
    settings_.ip_address = 0x7F000001;
    settings_.tcp_port = sim_.port();
    sim_.tell("set Constant " + std::to_string(kConstantValue));
    ev_plc_init(&settings_);
  }

  bool run_transfers(unsigned long transfers);
  bool run_loads(unsigned long loads);

 private:
  static std::string tags() {
    std::string text;
    for (uint32_t id = 0; id < kVariableCount; ++id) {
      text += std::string(kVariables[id].fields) + "," + std::to_string(id) + ",1,0,0,,DM\n";
    }
    return text;
  }

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  void transfer();
  void read_or_write(bool write);
  void batch();
  void maybe_fault(unsigned long number);
  void count_left_open(int32_t socket_before);
  void wait_for_late_replies() const;
  std::string random_file();

  std::mt19937 random_;
  plc_test::TempDir folder_;
  plc_test::ScopedWorkingDirectory inside_{folder_.path()};
  plc_test::SimProcess sim_{PLC_SIM_PROGRAM, {"--quiet", folder_.write(kFileName, tags())}};
  CommSettings settings_{};
  ConnContext conn_{-1, 0, 1, 0, 0};
  std::map<uint32_t, unsigned long> results_;
  unsigned long faults_ = 0;
  unsigned long left_open_ = 0;
  unsigned long wrong_values_ = 0;
  unsigned long checked_values_ = 0;
  unsigned calls_behind_fault_ = 0;
};

void Endurance::read_or_write(bool write) {
  uint8_t data[4096] = {};
  // The constant is never written.
  const uint32_t id = write ? 1 + below(kVariableCount - 1) : below(kVariableCount);
  const uint32_t elements = kVariables[id].elements;
  const uint32_t offset = below(elements);
  RegRequest request = {};
  request.address = id << 16 | offset;
  RegValue value = {1 + below(elements - offset), data};
  const uint32_t result = write ? ev_plc_write(&request, &value, &conn_) : ev_plc_read(&request, &value, &conn_);
  ++results_[result];
  // What a fault left on the connection is dropped within the calls behind it.
  constexpr unsigned kCallsThatRecover = 4;
  if (!write && id == kConstantId && result == PLC_OK && calls_behind_fault_ > kCallsThatRecover) {
    ++checked_values_;
    wrong_values_ += data[0] != (kConstantValue & 0xFF) || data[1] != kConstantValue >> 8 ? 1 : 0;
  }
}

void Endurance::batch() {
  std::array<BatchReadRequest, 30> elements{};
  const uint32_t count = 1 + below(elements.size());
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t id = below(kVariableCount);
    while (!kVariables[id].in_batch) {
      id = below(kVariableCount);
    }
    elements[i].address = id << 16 | below(kVariables[id].elements);
    elements[i].count = 1;
  }
  ++results_[ev_OMRON_plc_read(elements.data(), static_cast<int32_t>(count), &conn_)];
}

// A receive that failed leaves its socket open: the next connect forgets it. This host closes it, so that it can go on.
void Endurance::count_left_open(int32_t socket_before) {
  if (socket_before >= 0 && conn_.socket_fd != socket_before && fcntl(socket_before, F_GETFD) != -1) {
    ++left_open_;
    close(socket_before);
  }
}

// Bytes too many can leave a connection one reply behind for as long as each late reply comes between a drain and the
// next: replies are matched by their order alone. A host that pauses lets the drain find it.
void Endurance::wait_for_late_replies() const {
  constexpr int kLateMs = 5;
  pollfd wait = {conn_.socket_fd, POLLIN, 0};
  poll(&wait, 1, kLateMs);
}

void Endurance::transfer() {
  const int32_t socket_before = conn_.socket_fd;
  const uint32_t kind = below(5);
  if (kind < 2) {
    read_or_write(false);
  } else if (kind < 4) {
    read_or_write(true);
  } else {
    batch();
  }
  count_left_open(socket_before);
}

void Endurance::maybe_fault(unsigned long number) {
  constexpr unsigned long kQuickEvery = 50;
  constexpr unsigned long kSlowEvery = 20000;
  constexpr unsigned long kGoneEvery = 5000;
  ++calls_behind_fault_;
  if (number % kQuickEvery == kQuickEvery / 2) {
    sim_.tell("fault clear");
    sim_.tell(std::string("fault ") + kQuickFaults[below(sizeof kQuickFaults / sizeof kQuickFaults[0])]);
  } else if (number % kSlowEvery == kSlowEvery / 3) {
    sim_.tell(std::string("fault ") + kSlowFaults[below(sizeof kSlowFaults / sizeof kSlowFaults[0])]);
  } else if (number % kGoneEvery == kGoneEvery / 5) {
    sim_.tell("fault gone");
    const int32_t socket_before = conn_.socket_fd;
    ++results_[ev_OMRON_plc_read(std::array<BatchReadRequest, 1>{}.data(), 0, &conn_)];
    count_left_open(socket_before);
    transfer();
    sim_.tell("fault clear");
  } else {
    // A fault that waits for its kind of request may still be armed.
    if (number % kQuickEvery == 0) {
      sim_.tell("fault clear");
      wait_for_late_replies();
    }
    if (number % kQuickEvery > kQuickEvery / 2 || number % kQuickEvery == 0) {
      calls_behind_fault_ = 0;
    }
    return;
  }
  ++faults_;
  calls_behind_fault_ = 0;
}

bool Endurance::run_transfers(unsigned long transfers) {
  Range memory;
  Range descriptors;
  const auto begin = std::chrono::steady_clock::now();
  for (unsigned long number = 0; number < transfers; ++number) {
    maybe_fault(number);
    transfer();
    // The first tenth warms up: stacks, buffers of the C library, the tag table.
    if (number > transfers / 10 && number % 500 == 499) {
      memory.add(resident_pages());
      descriptors.add(open_descriptors());
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  std::fprintf(report, "transfers: %lu in %.1f s, faults armed: %lu\n", transfers, seconds, faults_);
  for (const auto& [result, count] : results_) {
    std::fprintf(report, "  result %d: %lu\n", static_cast<int>(result), count);
  }
  std::fprintf(report, "  sockets that failed receives left open: %lu\n", left_open_);
  std::fprintf(report, "  values checked: %lu, wrong: %lu\n", checked_values_, wrong_values_);
  std::fprintf(report, "  resident memory: %ld to %ld pages\n  descriptors: %ld to %ld\n", memory.least, memory.most,
               descriptors.least, descriptors.most);
  // Between a lost connection and the next there is one descriptor less.
  return memory.most - memory.least <= kAllowedGrowthPages && descriptors.most - descriptors.least <= 1 &&
         wrong_values_ == 0 && checked_values_ > 0 && results_[PLC_OK] > transfers / 2;
}

std::string Endurance::random_file() {
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

bool Endurance::run_loads(unsigned long loads) {
  static uint32_t group_ids[plc::kIdBlocks];
  Range memory;
  Range descriptors;
  unsigned long kept = 0;
  const auto begin = std::chrono::steady_clock::now();
  for (unsigned long number = 0; number < loads; ++number) {
    folder_.write(kFileName, random_file());
    TagEntry* entries = nullptr;
    IndexedTagEntry* groups = nullptr;
    if (build_tagtable(&entries, &groups, kFileName, group_ids) != nullptr) {
      ++kept;
    }
    for (IndexedTagEntry* group = groups; group != nullptr && group->entries != nullptr; ++group) {
      std::free(group->entries);
    }
    std::free(groups);
    std::free(entries);
    if (number > loads / 10 && number % 100 == 99) {
      memory.add(resident_pages());
      descriptors.add(open_descriptors());
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  std::fprintf(report, "loads: %lu in %.1f s, %lu of them accepted\n", loads, seconds, kept);
  std::fprintf(report, "  resident memory: %ld to %ld pages\n  descriptors: %ld to %ld\n", memory.least, memory.most,
               descriptors.least, descriptors.most);
  return memory.most - memory.least <= kAllowedGrowthPages && descriptors.most == descriptors.least && kept > 0 &&
         kept < loads;
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
  const unsigned seed = argc > 3 ? static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)) : 1;
  Endurance endurance(seed);
  std::fprintf(report, "seed %u\n", seed);
  const bool transferred = endurance.run_transfers(std::strtoul(argv[1], nullptr, 10));
  std::fflush(report);
  const bool loaded = endurance.run_loads(std::strtoul(argv[2], nullptr, 10));
  std::fprintf(report, "%s\n", transferred && loaded ? "flat" : "NOT FLAT, or wrong values");
  std::fclose(report);
  return transferred && loaded ? 0 : 1;
}
