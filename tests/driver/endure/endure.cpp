// Endurance: transfers of all kinds under faults of every kind, then loads of random tag files, for each given build of
// the driver in a process of its own, side by side.
//
// endure TRANSFERS LOADS SEED LIBRARY... [--no-faults]   prints one table; ends with 1 when a guarded build broke a
// rule (it stops there, with the last events), when memory or descriptors grew, or when a contract build broke none:
// the rules would see nothing. SIGTERM makes it come to its end: the figures are those of what was done
#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/driver/endure/endure_host.h"
#include "tests/driver/endure/endure_lines.h"
#include "tests/driver/endure/endure_loads.h"
#include "tests/support/temp_dir.h"

using namespace plc_endure;

namespace {

constexpr long kAllowedGrowthPages = 64;  // 256 KiB: what the C library takes for itself now and then
// Both ends of the connection, and what a failed receive of the contract build leaves open until the next connect.
constexpr long kMovingDescriptors = 4;

volatile sig_atomic_t is_ending = 0;

struct Order {
  unsigned long transfers = 0;
  unsigned long loads = 0;
  uint64_t seed = 1;
  bool has_faults = true;
};

// Least and most of a figure that should not move.
struct Range {
  long least = -1;
  long most = -1;

  void add(long value) {
    least = least < 0 || value < least ? value : least;
    most = value > most ? value : most;
  }
  bool is_flat(long allowed) const { return most - least <= allowed; }
};

// What a process tells about its build.
struct Figures {
  char build[40] = {};
  bool is_guarded = false;
  HostFigures host;
  double seconds = 0;
  unsigned long broken[kRules] = {};
  unsigned long faults[kFaults] = {};
  LineCount lines[kLineKinds] = {};
  unsigned long survivable = 0;
  unsigned long exchanges = 0;
  unsigned long carried_out = 0;
  unsigned long late_writes = 0;
  unsigned long connections = 0;
  unsigned long tcp = 0;
  unsigned long left_open = 0;
  Range pages;
  Range descriptors;
  unsigned long loads = 0;
  unsigned long accepted = 0;
  double load_seconds = 0;
  Range load_pages;
  bool is_right = false;
};

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
  if (statm == nullptr || std::fscanf(statm, "%ld %ld", &total, &resident) != 2) std::abort();
  std::fclose(statm);
  return resident;
}

long open_descriptors() {
  DIR* folder = opendir("/proc/self/fd");
  long count = -3;  // ".", ".." and the folder's own descriptor
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

double seconds_since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// The first tenth warms up: stacks, buffers of the C library, the tag table.
bool is_looked_at(unsigned long round, unsigned long rounds, unsigned long every) {
  return round > rounds / 10 && round % every == every - 1;
}

void run_transfers(const Library& library, const Order& order, std::FILE* out, Figures* figures) {
  // The contract build takes the first program whose name begins the variable's; the guarded one takes its own.
  const VariableBook book(figures->is_guarded ? plc_sim::DirectoryOrder::kFile
                                              : plc_sim::DirectoryOrder::kLongestFirst);
  std::FILE* file = std::fopen(VariableBook::file_name(), "wb");
  std::fwrite(book.file_text().data(), 1, book.file_text().size(), file);
  std::fclose(file);
  Host host(library, book, order.seed, order.has_faults);
  const auto begin = std::chrono::steady_clock::now();
  while (host.figures().transfers < order.transfers && is_ending == 0) {
    host.run_one();
    if (figures->is_guarded && host.rules().total() > 0) {
      std::fprintf(out, "%s, seed %lu, transfer %lu: %s\nthe last events:\n", figures->build,
                   static_cast<unsigned long>(order.seed), host.figures().transfers, host.rules().first().c_str());
      Network::instance().journal().print(out);
      break;
    }
    if (is_looked_at(host.figures().transfers, order.transfers, 500)) {
      figures->pages.add(resident_pages());
      figures->descriptors.add(open_descriptors());
    }
  }
  figures->seconds = seconds_since(begin);
  figures->host = host.figures();
  for (size_t rule = 0; rule < kRules; ++rule) figures->broken[rule] = host.rules().count_of(static_cast<Rule>(rule));
  std::copy(host.faults().counts().begin(), host.faults().counts().end(), figures->faults);
  const Network& network = Network::instance();
  figures->survivable = host.faults().survivable();
  figures->exchanges = network.exchanges();
  figures->connections = network.connections();
  figures->tcp = network.tcp_connections();
  figures->left_open = network.left_open();
  figures->carried_out = host.rules().writes_carried_out();
  figures->late_writes = host.rules().late_writes();
  if (!host.rules().first().empty() && !figures->is_guarded) {
    std::fprintf(out, "%s, the first of many: %s\n", figures->build, host.rules().first().c_str());
  }
}

void run_loads(const Library& library, const Order& order, Figures* figures) {
  Loads loads(library, order.seed);
  const auto begin = std::chrono::steady_clock::now();
  for (; figures->loads < order.loads && is_ending == 0; ++figures->loads) {
    figures->accepted += loads.run_one() ? 1U : 0U;
    if (is_looked_at(figures->loads, order.loads, 100)) figures->load_pages.add(resident_pages());
  }
  figures->load_seconds = seconds_since(begin);
}

bool is_right(const Figures& figures, const Order& order) {
  unsigned long broken = 0;
  for (const unsigned long count : figures.broken) broken += count;
  const bool must_be_clean = figures.is_guarded || !order.has_faults;
  const bool is_expected = must_be_clean ? broken == 0
                                         : figures.broken[static_cast<size_t>(Rule::kReadWrong)] > 0 &&
                                               figures.broken[static_cast<size_t>(Rule::kWriteAstray)] > 0;
  return (order.transfers == 0 || (is_expected && figures.host.values > 0 && figures.host.written > 0)) &&
         figures.pages.is_flat(kAllowedGrowthPages) && figures.descriptors.is_flat(kMovingDescriptors) &&
         figures.load_pages.is_flat(kAllowedGrowthPages);
}

// In a process of its own: everything for one build. The figures go to the pipe.
[[noreturn]] void run(const char* path, const Order& order, int pipe_fd) {
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  const plc_test::TempDir folder;
  Figures figures;
  {
    const Library library(path);
    if (out == nullptr || !count_lines(&figures.lines)) std::exit(2);
    const plc_test::ScopedWorkingDirectory inside(folder.path());
    std::snprintf(figures.build, sizeof figures.build, "%s", library.build.c_str());
    figures.is_guarded = library.is_guarded();
    if (order.transfers > 0) run_transfers(library, order, out, &figures);
    run_loads(library, order, &figures);
    figures.is_right = is_right(figures, order);
  }
  std::fflush(nullptr);
  const bool is_told = write(pipe_fd, &figures, sizeof figures) == static_cast<ssize_t>(sizeof figures);
  std::filesystem::remove_all(folder.path());
  _exit(is_told ? 0 : 2);
}

struct Process {
  const char* path;
  pid_t id = -1;
  int pipe_fd = -1;
};

Process start(const char* path, const Order& order) {
  int ends[2];
  if (pipe(ends) != 0) {
    std::perror("pipe");
    std::exit(2);
  }
  std::fflush(nullptr);
  const pid_t id = fork();
  if (id == 0) {
    close(ends[0]);
    run(path, order, ends[1]);
  }
  close(ends[1]);
  return {path, id, ends[0]};
}

Figures finish(const Process& process) {
  Figures figures;
  auto* bytes = reinterpret_cast<char*>(&figures);
  size_t taken = 0;
  while (taken < sizeof figures) {
    const ssize_t count = read(process.pipe_fd, bytes + taken, sizeof figures - taken);
    if (count == 0) break;
    taken += count > 0 ? static_cast<size_t>(count) : 0;
    if (count < 0 && is_ending != 0) kill(process.id, SIGTERM);
  }
  close(process.pipe_fd);
  int status = 0;
  while (waitpid(process.id, &status, 0) < 0) {
  }
  if (WIFSIGNALED(status)) std::printf("%s: ended by signal %d\n", process.path, WTERMSIG(status));
  figures.is_right = figures.is_right && taken == sizeof figures && status == 0;
  return figures;
}

template <typename Get>
void print_row(const char* name, const std::vector<Figures>& all, Get get) {
  std::printf("%-58s", name);
  for (const Figures& figures : all) std::printf(" %20s", std::string(get(figures)).c_str());
  std::printf("\n");
}

std::string text_of(unsigned long count) { return std::to_string(count); }
std::string text_of(const Range& range) {
  return range.least < 0 ? "-" : std::to_string(range.least) + " to " + std::to_string(range.most);
}

void print_counts(const std::vector<Figures>& all) {
  print_row("transfers", all, [](const Figures& f) { return text_of(f.host.transfers); });
  print_row("seconds", all, [](const Figures& f) { return text_of(static_cast<unsigned long>(f.seconds + 0.5)); });
  constexpr const char* kResults[] = {"returned 0", "returned 2", "returned 3", "returned anything else"};
  for (size_t i = 0; i < 4; ++i) {
    print_row(kResults[i], all, [i](const Figures& f) { return text_of(f.host.results[i]); });
  }
  print_row("values read with 0, each checked", all, [](const Figures& f) { return text_of(f.host.values); });
  print_row("elements written with 0, each checked", all, [](const Figures& f) { return text_of(f.host.written); });
  print_row("words written at the controller, each checked", all,
            [](const Figures& f) { return text_of(f.carried_out); });
  print_row("  of them when their call was over", all, [](const Figures& f) { return text_of(f.late_writes); });
  print_row("calls during which the memory changed", all,
            [](const Figures& f) { return text_of(f.host.changed_meanwhile); });
  print_row("calls that had to succeed", all, [](const Figures& f) { return text_of(f.host.clean_calls); });
  print_row("faults that the call had to get over", all, [](const Figures& f) { return text_of(f.survivable); });
  print_row("exchanges", all, [](const Figures& f) { return text_of(f.exchanges); });
  print_row("connections", all, [](const Figures& f) { return text_of(f.connections); });
  print_row("  of them by TCP", all, [](const Figures& f) { return text_of(f.tcp); });
  print_row("resident pages", all, [](const Figures& f) { return text_of(f.pages); });
  print_row("descriptors", all, [](const Figures& f) { return text_of(f.descriptors); });
  print_row("descriptors left open by failed receives", all, [](const Figures& f) { return text_of(f.left_open); });
  print_row("loads of random tag files", all, [](const Figures& f) { return text_of(f.loads); });
  print_row("  of them accepted", all, [](const Figures& f) { return text_of(f.accepted); });
  print_row("  resident pages", all, [](const Figures& f) { return text_of(f.load_pages); });
}

unsigned long count_of(const Figures& figures, const char* text) {
  for (const LineCount& line : figures.lines) {
    if (line.count > 0 && std::strcmp(line.text, text) == 0) return line.count;
  }
  return 0;
}

// Each kind of line that any of the builds printed.
void print_lines(const std::vector<Figures>& all) {
  std::printf("lines printed by the driver\n");
  for (size_t first = 0; first < all.size(); ++first) {
    for (const LineCount& line : all[first].lines) {
      const auto is_shown = [&line](const Figures& figures) { return count_of(figures, line.text) > 0; };
      const auto begin = all.begin();
      if (line.count > 0 && std::none_of(begin, begin + static_cast<std::ptrdiff_t>(first), is_shown)) {
        print_row((std::string("  ") + line.text).c_str(), all,
                  [&line](const Figures& f) { return text_of(count_of(f, line.text)); });
      }
    }
  }
}

void print_table(const std::vector<Figures>& all) {
  print_row("", all, [](const Figures& f) { return std::string(f.build); });
  print_counts(all);
  std::printf("faults made\n");
  for (size_t i = 0; i < kFaults; ++i) {
    print_row((std::string("  ") + name_of(static_cast<Fault>(i))).c_str(), all,
              [i](const Figures& f) { return text_of(f.faults[i]); });
  }
  print_lines(all);
  std::printf("rules broken\n");
  for (size_t i = 0; i < kRules; ++i) {
    print_row((std::string("  ") + name_of(static_cast<Rule>(i))).c_str(), all,
              [i](const Figures& f) { return text_of(f.broken[i]); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  Order order;
  std::vector<const char*> words;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--no-faults") == 0) {
      order.has_faults = false;
    } else {
      words.push_back(argv[i]);
    }
  }
  if (words.size() < 4) {
    std::fprintf(stderr, "endure TRANSFERS LOADS SEED LIBRARY... [--no-faults]\n");
    return 2;
  }
  order.transfers = std::strtoul(words[0], nullptr, 10);
  order.loads = std::strtoul(words[1], nullptr, 10);
  order.seed = std::strtoul(words[2], nullptr, 10);
  end_on_sigterm();
  std::vector<Process> processes;
  for (size_t i = 3; i < words.size(); ++i) processes.push_back(start(words[i], order));
  std::vector<Figures> all;
  for (const Process& process : processes) all.push_back(finish(process));
  std::printf("seed %lu\n", static_cast<unsigned long>(order.seed));
  print_table(all);
  bool is_right = true;
  for (const Figures& figures : all) is_right = is_right && figures.is_right;
  std::printf("%s\n", is_right ? "as it must be" : "NOT AS IT MUST BE");
  return is_right ? 0 : 1;
}
