// Endurance of controllers used by name: readings and writes by 8 threads on 8 controllers, each with a driver, a
// simulated controller and faults of its own.
//
// endure_client READINGS SEED LIBRARY [--no-faults]   prints one table; ends with 1 when a rule was broken: the thread
// stops there with its last events, and the others come to their end
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/client/endure/endure_user.h"
#include "tests/support/temp_dir.h"

using namespace plc_endure;

namespace {

constexpr unsigned kUsers = 8;

struct Order {
  unsigned long readings = 0;
  uint64_t seed = 1;
  bool has_faults = true;
  plc_client::Options options;
};

struct Totals {
  std::mutex in_use;
  std::atomic<bool> is_broken{false};
  UserFigures user;
  unsigned long broken[kRules] = {};
  unsigned long faults[kFaults] = {};
  unsigned long exchanges = 0;
  unsigned long connections = 0;
  unsigned long changes = 0;
  unsigned long carried_out = 0;
  unsigned long late_writes = 0;
  unsigned long drops = 0;
};

void add(Totals& totals, const User& user) {
  const UserFigures& figures = user.figures();
  totals.user.calls += figures.calls;
  totals.user.readings += figures.readings;
  totals.user.good += figures.good;
  for (size_t i = 0; i < figures.bad.size(); ++i) totals.user.bad[i] += figures.bad[i];
  totals.user.writes += figures.writes;
  for (size_t i = 0; i < figures.outcomes.size(); ++i) totals.user.outcomes[i] += figures.outcomes[i];
  totals.user.verified += figures.verified;
  totals.user.refused += figures.refused;
  totals.user.plans += figures.plans;
  totals.user.changed_meanwhile += figures.changed_meanwhile;
  totals.user.clean_calls += figures.clean_calls;
  for (size_t i = 0; i < kRules; ++i) totals.broken[i] += user.rules().count_of(static_cast<Rule>(i));
  for (size_t i = 0; i < kFaults; ++i) totals.faults[i] += user.machine().counts()[i];
  totals.exchanges += user.network().exchanges();
  totals.connections += user.network().connections();
  totals.changes += user.machine().changes();
  totals.carried_out += user.rules().writes_carried_out();
  totals.late_writes += user.rules().late_writes();
  totals.drops += user.state().drops;
}

void use_controller(const Order& order, const VariableBook& book, unsigned number, Totals& totals) {
  constexpr uint64_t kSeedsApart = 1000003;
  User user(order.options, book, number, order.seed + kSeedsApart * number, order.has_faults);
  while (user.figures().readings < order.readings / kUsers && user.rules().total() == 0 && !totals.is_broken) {
    user.run_one();
  }
  const std::lock_guard<std::mutex> lock(totals.in_use);
  add(totals, user);
  if (user.rules().total() > 0 && !totals.is_broken.exchange(true)) {
    std::printf("seed %lu, user %u: %s\nthe last events:\n", static_cast<unsigned long>(order.seed), number,
                user.rules().first().c_str());
    Network::instance().journal().print(stdout);
    std::printf("broken: %s\n", user.rules().first().c_str());
  }
}

void print_row(const char* name, unsigned long count) { std::printf("%-58s %12lu\n", name, count); }

void print_table(const Totals& totals, double seconds) {
  const UserFigures& user = totals.user;
  print_row("readings", user.readings);
  print_row("  good, each checked", user.good);
  for (size_t i = 1; i < plc_client::kReasons; ++i) {
    const std::string name = std::string("  ") + plc_client::reason_word(static_cast<plc_client::Reason>(i));
    print_row(name.c_str(), user.bad[i]);
  }
  print_row("writes", user.writes);
  constexpr const char* kOutcomes[] = {"  done, each checked", "  not done, each checked", "  unknown"};
  for (size_t i = 0; i < user.outcomes.size(); ++i) print_row(kOutcomes[i], user.outcomes[i]);
  print_row("  read back the same", user.verified);
  print_row("writes refused before anything was sent", user.refused);
  print_row("plans", user.plans);
  print_row("calls", user.calls);
  print_row("  that had to succeed", user.clean_calls);
  print_row("  during which the memory changed", user.changed_meanwhile);
  print_row("changes by the controller's own program", totals.changes);
  print_row("words written at the controllers, each checked", totals.carried_out);
  print_row("  of them when their call was over", totals.late_writes);
  print_row("exchanges", totals.exchanges);
  print_row("connections", totals.connections);
  print_row("late replies dropped", totals.drops);
  std::printf("faults made\n");
  for (size_t i = 0; i < kFaults; ++i) {
    print_row((std::string("  ") + name_of(static_cast<Fault>(i))).c_str(), totals.faults[i]);
  }
  std::printf("rules broken\n");
  for (size_t i = 0; i < kRules; ++i) {
    print_row((std::string("  ") + name_of(static_cast<Rule>(i))).c_str(), totals.broken[i]);
  }
  std::printf("%.0f s\n", seconds);
}

bool is_right(const Totals& totals) {
  const UserFigures& user = totals.user;
  return !totals.is_broken && user.good > user.readings / 2 && user.outcomes[0] > user.writes / 2 && user.verified > 0;
}

int run(const Order& given) {
  const VariableBook book(plc_sim::DirectoryOrder::kFile);
  const plc_test::TempDir folder;
  Order order = given;
  order.options.address = "127.0.0.1";
  order.options.tags = {folder.write(VariableBook::file_name(), book.file_text())};
  Totals totals;
  const auto begin = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kUsers; ++i) {
    threads.emplace_back(use_controller, std::cref(order), std::cref(book), i, std::ref(totals));
  }
  for (std::thread& thread : threads) thread.join();
  print_table(totals, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  std::printf("%s\n", is_right(totals) ? "as it must be" : "NOT AS IT MUST BE");
  return is_right(totals) ? 0 : 1;
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
  if (words.size() != 3) {
    std::fprintf(stderr, "endure_client READINGS SEED LIBRARY [--no-faults]\n");
    return 2;
  }
  order.readings = std::strtoul(words[0], nullptr, 10);
  order.seed = std::strtoul(words[1], nullptr, 10);
  order.options.driver = words[2];
  try {
    return run(order);
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
