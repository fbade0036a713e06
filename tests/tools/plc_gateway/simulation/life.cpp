// A life's time: what happens next, and what is checked behind each step.
#include "tests/tools/plc_gateway/simulation/life.h"

#include <algorithm>
#include <utility>

namespace plc_gateway::simulation {
namespace {

constexpr uint64_t kMostIdleWakes = 20;
constexpr Ms kLongestGoodRead = 4;
// Bytes on their way to the broker: the gateway's window of 512 KiB, and a message and a birth beyond it.
constexpr size_t kMostUnderWay = 800 * 1024;
constexpr Ms kDrainMs = 20 * 60000;

}  // namespace

Life::Life(uint64_t seed, std::ostream* trace)
    : seed_(seed),
      trace_(trace),
      random_(seed * 0x9E3779B97F4A7C15U + 1),
      pace_(random_),
      has_host_(random_.percent(30)),
      has_json_(random_.percent(20)),
      most_bytes_(random_.percent(70) ? 3ULL << 20U : 16ULL << 20U),
      keep_alive_ms_(random_.between(2000, 20000)),
      disk_(seed),
      plant_(random_, pace_),
      controller_(clock_, events_, plant_, random_),
      ledger_(disk_, totals_),
      observer_(clock_, ledger_, totals_),
      broker_(clock_, events_, random_, observer_),
      hosts_(clock_, random_, totals_) {}

Life::~Life() {
  disk_.stop();
  node_.reset();
  journal_.reset();
}

void Life::note(const std::string& what) {
  if (trace_ != nullptr) *trace_ << clock_.steady_ms() << " " << what << "\n";
}

Totals Life::live() {
  try {
    live_all();
  } catch (const Violation& violation) {
    throw Violation("seed " + std::to_string(seed_) + ", at " + std::to_string(clock_.steady_ms()) + " ms, step " +
                    std::to_string(totals_.steps) + ": " + violation.what());
  }
  totals_.lives = 1;
  totals_.simulated_ms = clock_.steady_ms();
  totals_.events = events_.run();
  return totals_;
}

void Life::live_all() {
  configuration_ = plant_.configuration(random_);
  if (has_host_) set_host(random_.percent(70), false);
  start();
  plan_chaos();
  plan_command();
  run_until(pace_.length);
  heal();
  check_healed();
}

void Life::run_until(Ms end) {
  while (true) {
    Ms next = end;
    const std::optional<Ms> event = events_.next();
    if (event) next = std::min(next, *event);
    const std::optional<Ms> due = node_ ? node_->next_ms() : std::nullopt;
    const bool wakes = due && *due < next;
    if (wakes) next = std::max(*due, clock_.steady_ms());
    if (next >= end) break;
    if (next > clock_.steady_ms()) idle_wakes_ = 0;
    clock_.go_to(next);
    if (wakes) {
      if (++idle_wakes_ > kMostIdleWakes) throw Violation("the edge node wakes again and again at the same time");
      step([](EdgeNode& node) { node.on_time(); });
    } else {
      events_.run_first();
    }
  }
  clock_.go_to(end);
}

void Life::step(const std::function<void(EdgeNode&)>& act) {
  if (!node_) return;
  ++totals_.steps;
  act(*node_);
  check_after_step();
}

void Life::check_after_step() {
  if (disk_.is_stopped()) {
    kill(random_.percent(30));
    return;
  }
  const uint64_t rows = totals_.rows;
  ledger_.catch_up();
  if (look_at_journal_ || rows != totals_.rows || totals_.steps % 64 == 0) ledger_.check_leavings();
  look_at_journal_ = false;
  observer_.check_after(broker_.is_online() && broker_.mood() != SimBroker::Mood::kFrozen);
  poll_watch_->check_skipped(node_->counters().groups);
  if (broker_.bytes_under_way() > kMostUnderWay) throw Violation("too much is on its way to a broker that is frozen");
  if (is_stopping_ && node_->stopped()) {
    if (readings_->owed() != 0) throw Violation("a change that was read is not in the journal at an orderly end");
    stop_and_start();
  }
}

// ---------------------------------------------------------------------------------------------------- events

void Life::read_begins(size_t piece) { poll_watch_->read_begins(piece); }

void Life::write_begins(const WriteJob& job) {
  hosts_.write_begins(job);
  poll_watch_->write_begins();
  written_ = {configuration_.rules[job.rule].name};
  note("write " + written_[0]);
}

void Life::on_read(const ReadResult& result) {
  ++totals_.readings;
  if (trace_ != nullptr) {
    note("read of piece " + std::to_string(result.piece) + (result.link_lost ? " lost: " + result.error : ""));
  }
  poll_watch_->read_ends(result.piece);
  readings_->delivered(result, clock_.jumps_back());
  const bool was_alive = readings_->alive();
  const uint64_t process = process_;
  step([&](EdgeNode& node) { node.on_read(result); });
  if (process != process_ || !node_) return;
  if (was_alive && result.link_lost) ++totals_.controller_losses;
  readings_->check_after(result);
  poll_watch_->set_alive(readings_->alive());
}

void Life::on_written(const WriteOutcome& outcome) {
  if (outcome.outcome == plc_client::Outcome::kDone) observer_.command_ended(written_[0]);
  poll_watch_->write_ends();
  step([&](EdgeNode& node) { node.on_written(outcome); });
}

void Life::on_connected() {
  note("connected");
  step([](EdgeNode& node) { node.on_connected(); });
}

void Life::on_disconnected(const std::string& reason) {
  note("disconnected: " + reason);
  ++totals_.broker_losses;
  step([&](EdgeNode& node) { node.on_disconnected(reason); });
}

void Life::on_subscribed(bool ok) {
  step([&](EdgeNode& node) { node.on_subscribed(ok); });
}

void Life::on_acknowledged(int id) {
  look_at_journal_ = true;
  step([&](EdgeNode& node) { node.on_acknowledged(id); });
}

void Life::on_message(const Message& message) {
  if (trace_ != nullptr) note("message on " + message.topic);
  if (hosts_.arrives(message)) observer_.rebirth_asked();
  step([&](EdgeNode& node) { node.on_message(message); });
}

// ---------------------------------------------------------------------------------------------------- processes

bool Life::open_journal() {
  JournalOptions options;
  options.folder = "journal";
  options.most_bytes = most_bytes_;
  options.vfs = disk_.vfs();
  try {
    journal_ = std::make_unique<Journal>(options, configuration_.variables);
  } catch (const JournalError& error) {
    if (!disk_.is_stopped() && !disk_failed_)
      throw Violation(std::string("the journal cannot be opened: ") + error.what());
    note(std::string("no journal: ") + error.what());
  }
  if (!disk_.is_stopped()) return journal_ != nullptr;
  // Killed while it was starting.
  end_.in_mid_step = true;
  journal_.reset();
  disk_.start();
  return false;
}

void Life::start() {
  ++process_;
  has_run_ = false;
  disk_failed_ = is_disk_bad_ || disk_fails_at_ > disk_.operations();
  if (!open_journal()) {
    start_later(3000);
    return;
  }
  note("start with " + std::to_string(configuration_.variables.size()) + " variables");
  readings_ = std::make_unique<Readings>(configuration_);
  poll_watch_ = std::make_unique<PollWatch>(clock_, configuration_, kLongestGoodRead);
  ledger_.open(*journal_, configuration_, *readings_, end_);
  end_ = {};
  end_.is_first = false;
  observer_.serve(&configuration_, readings_.get(), has_json_, has_host_);
  hosts_.serve(&configuration_, &ledger_);
  controller_.serve(this, &configuration_);
  broker_.serve(this);
  EdgeNodeOptions options;
  options.variables = configuration_.variables;
  options.periods = configuration_.periods;
  options.pieces = configuration_.pieces;
  options.rules = configuration_.rules;
  options.session.topics = Topics("Plant", "edge", "press", has_host_ ? "scada" : "");
  if (has_json_) options.session.json_topic = "json/{name}";
  options.session.keep_alive_ms = keep_alive_ms_;
  options.session.version = "1.0";
  options.session.jitter = static_cast<uint32_t>(random_.next());
  is_stopping_ = false;
  has_run_ = true;
  node_ = std::make_unique<EdgeNode>(std::move(options), clock_, controller_, broker_, *journal_);
  step([](EdgeNode& node) { node.start(); });
  if (!is_healing_ && random_.percent(10)) {
    events_.at(clock_.steady_ms() + random_.spread(100, 10000), [this] { repeat_command(); });
  }
}

void Life::start_later(Ms longest) {
  events_.at(clock_.steady_ms() + random_.between(1, longest), [this, process = process_] {
    if (process != process_ || node_) return;
    // What a start that failed made of the journal is not known: the next one is with the same configuration.
    if (has_run_ && random_.percent(20)) configuration_ = plant_.configuration(random_);
    start();
  });
}

void Life::kill(bool power_cut) {
  note(power_cut ? "power cut" : "kill");
  ++(power_cut ? totals_.power_cuts : totals_.kills);
  const bool in_mid_step = disk_.is_stopped();
  end_.in_mid_step = end_.in_mid_step || in_mid_step;
  end_.power_cut = end_.power_cut || power_cut;
  end_.disk_failed = end_.disk_failed || disk_failed_;
  end_.in_memory = journal_->counters().in_memory;
  if (in_mid_step || disk_failed_) observer_.may_skip_bd_seq();
  disk_.stop();
  observer_.ignore(true);
  node_.reset();
  journal_.reset();
  ledger_.close();
  if (power_cut) {
    disk_.cut_power();
  } else {
    disk_.start();
  }
  controller_.serve(nullptr, nullptr);
  broker_.serve(nullptr);
  ++process_;
  start_later(random_.percent(70) ? 3000 : pace_.trouble_most);
}

// Of a process that has ended in order.
void Life::stop_and_start() {
  note("stopped");
  end_.disk_failed = disk_failed_;
  end_.in_memory = journal_->counters().in_memory;
  node_.reset();
  journal_.reset();
  ledger_.close();
  controller_.serve(nullptr, nullptr);
  broker_.serve(nullptr);
  ++process_;
  is_stopping_ = false;
  start_later(3000);
}

// ---------------------------------------------------------------------------------------------------- the end

void Life::heal() {
  note("everything is well from now on");
  is_healing_ = true;
  is_disk_bad_ = false;
  disk_.refuse(false);
  disk_.limit(UINT64_MAX);
  controller_.set_mood(SimController::Mood::kGood);
  broker_.set_mood(SimBroker::Mood::kGood);
  broker_.set_latency(1, 1);
  for (Held& held : plant_.all()) held.refused = false;
  plant_.freeze();
  if (has_host_) set_host(true, false);
  const Ms longest = *std::max_element(configuration_.periods.begin(), configuration_.periods.end());
  run_until(clock_.steady_ms() + std::max<Ms>(3 * longest, pace_.trouble_most) + 60000);
  for (const Ms end = clock_.steady_ms() + kDrainMs; !ledger_.is_empty() && clock_.steady_ms() < end;) {
    run_until(clock_.steady_ms() + 10000);
  }
}

void Life::check_healed() {
  if (!node_) throw Violation("the gateway does not start, and all is well");
  ledger_.check_end();
  const HostView& host = observer_.host();
  if (!host.device_is_born) throw Violation("the device is not born, and all is well");
  for (size_t i = 0; i < configuration_.variables.size(); ++i) {
    Variable variable = configuration_.variables[i];
    const Held& held = plant_.all()[configuration_.held[i]];
    const auto known = host.values.find(ledger_.alias(i));
    Sample there;
    Sample here;
    if (known != host.values.end()) there.good = known->second.good;
    if (there.good) there.bits = known->second.bits;
    if (there.good) there.bytes = known->second.bytes;
    here.good = true;
    here.bits = held.bits;
    here.bytes = held.bytes;
    if (must_be_told(variable, there, here)) throw Violation("a host has an old value of " + variable.name);
  }
  if (observer_.dropped_told() != journal_->counters().dropped) {
    throw Violation("the node tells " + std::to_string(observer_.dropped_told()) + " dropped values, the journal " +
                    std::to_string(journal_->counters().dropped));
  }
  is_stopping_ = true;
  const uint64_t process = process_;
  step([](EdgeNode& node) { node.stop(); });
  run_until(clock_.steady_ms() + 1100);
  if (process == process_) throw Violation("the gateway does not stop");
}

}  // namespace plc_gateway::simulation
