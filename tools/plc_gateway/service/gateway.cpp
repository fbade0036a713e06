// Events of the controller's thread, the broker's connection and the timer go into the node; what changed is told.
#include "tools/plc_gateway/service/gateway.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <mutex>
#include <random>
#include <system_error>
#include <utility>
#include <variant>

#include "tools/plc_gateway/node/birth_bytes.h"
#include "tools/plc_gateway/service/checked_config.h"
#include "tools/plc_gateway/service/exit_codes.h"

namespace plc_gateway {
namespace {

constexpr Ms kNsOfMs = 1000000;
constexpr Ms kMsOfSecond = 1000;
constexpr Ms kStopLookMs = 10;    // between looks whether the goodbye is sent
constexpr Ms kStuckMs = 30000;    // for what the system adds to the time-outs of a job
constexpr Ms kStuckReplies = 20;  // reply time-outs that a job may take: connect, names, values, reading back

Ms clock_ms(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * kMsOfSecond + now.tv_nsec / kNsOfMs;
}

JournalOptions journal_options(const Config& config) {
  JournalOptions options;
  options.folder = config.journal_folder;
  options.most_bytes = config.journal_bytes;
  return options;
}

EdgeNodeOptions node_options(const Config& config, const std::vector<Piece>& pieces, std::optional<CommandDesk> earlier,
                             std::function<void(const CommandResult&)> command_ended,
                             std::function<void(const std::string&, const std::string&)> host_state_dropped) {
  EdgeNodeOptions options;
  options.variables = config.variables;
  for (const PollGroup& poll : config.polls) options.periods.push_back(poll.every_ms);
  options.pieces = pieces;
  options.rules = config.commands;
  options.session.topics = Topics(config.group, config.edge_node, config.device, config.primary_host);
  options.session.json_topic = config.json_topic;
  options.session.keep_alive_ms = config.keep_alive_s * kMsOfSecond;
  options.session.version = PLC_GATEWAY_VERSION;
  options.session.jitter = std::random_device()();
  options.earlier_desk = std::move(earlier);
  options.command_ended = std::move(command_ended);
  options.session.host_state_dropped = std::move(host_state_dropped);
  return options;
}

// What can only be found to be wrong now: the files have changed since they were checked, or another gateway runs.
template <typename Make>
auto open_or_throw(ExitCode code, const Make& make) {
  try {
    return make();
  } catch (const JournalError& error) {
    throw GatewayError(code, error.what());
  } catch (const plc_client::Error& error) {
    throw GatewayError(code, error.what());
  } catch (const std::system_error& error) {
    throw GatewayError(kExitFailed, "no thread can be started (" + error.code().message() +
                                        "): raise the limit, ulimit -u, ulimit -v or TasksMax");
  }
}

}  // namespace

Ms SystemClock::wall_ms() const { return clock_ms(CLOCK_REALTIME); }
Ms SystemClock::steady_ms() const { return clock_ms(CLOCK_MONOTONIC); }

struct Gateway::Bell {
  explicit Bell(uv_loop_t* loop, Gateway* owner) : async(new uv_async_t) {
    uv_async_init(loop, async.get(), [](uv_async_t* rung) { static_cast<Gateway*>(rung->data)->take_results(); });
    async->data = owner;
  }
  void ring() {
    const std::lock_guard<std::mutex> hold(lock);
    if (async) uv_async_send(async.get());
  }
  void close() {
    const std::lock_guard<std::mutex> hold(lock);
    async.reset();
  }
  std::mutex lock;
  UvHandle<uv_async_t> async;
};

Gateway::Gateway(uv_loop_t* loop, const Config& config, Log& log, std::optional<CommandDesk> earlier)
    : loop_(loop),
      config_(config),
      log_(log),
      bell_(std::make_shared<Bell>(loop, this)),
      worker_(open_or_throw(kExitLibrary,
                            [&] {
                              return std::make_unique<ControllerWorker>(config_.controller, config_.tag_address,
                                                                        config_.variables, config_.commands,
                                                                        [bell = bell_] { bell->ring(); });
                            })),
      port_(*this),
      broker_(loop, broker_options(config_), broker_events()),
      journal_(open_or_throw(kExitOutput, [&] { return Journal(journal_options(config_), config_.variables); })),
      node_(node_options(
                config_, worker_->pieces(), std::move(earlier),
                [this](const CommandResult& ended) { tell_command(ended); },
                [this](const std::string& reason, const std::string& what_to_do) {
                  tell_host_state(reason, what_to_do);
                }),
            clock_, port_, broker_, journal_),
      timer_(make_timer(loop, this)),
      told_bad_(config_.variables.size()) {}

Gateway::~Gateway() { bell_->close(); }

BrokerEvents Gateway::broker_events() {
  BrokerEvents events;
  events.connected = [this] {
    node_.on_connected();
    after();
  };
  events.disconnected = [this](const std::string& reason) {
    node_.on_disconnected(reason);
    after();
  };
  events.subscribed = [this](bool ok) {
    node_.on_subscribed(ok);
    after();
  };
  events.acknowledged = [this](int id) {
    node_.on_acknowledged(id);
    after();
  };
  events.message = [this](const Message& message) {
    node_.on_message(message);
    after();
  };
  events.too_long = [this](const std::string& topic, size_t bytes) { tell_too_long(topic, bytes); };
  return events;
}

void Gateway::start() {
  told_journal_.dropped = journal_.counters().dropped;
  node_.start();
  after();
}

void Gateway::stop(std::function<void()> stopped) {
  stopped_ = std::move(stopped);
  node_.stop();
  after();
}

void Gateway::tick() {
  journal_.retry();
  tell_journal();
  for (size_t i = 0; i < node_.counters().groups.size(); ++i) {
    const uint64_t skipped = node_.counters().groups[i].skipped;
    if (told_.groups.size() <= i) told_.groups.resize(i + 1);
    if (skipped == told_.groups[i].skipped) continue;
    tell(LogLevel::kWarning, "polls_skipped",
         {{"every_ms", std::to_string(config_.polls[i].every_ms)},
          {"skipped", std::to_string(skipped)},
          {"what_to_do", "the controller is slower than this poll asks: poll less often, or fewer names"}});
    told_.groups[i].skipped = skipped;
  }
}

// ---------------------------------------------------------------------------------------------------- the controller

void Gateway::Port::start_read(size_t piece) {
  owner.busy_since_ = owner.clock_.steady_ms();
  owner.worker_->start_read(piece);
}

void Gateway::Port::start_write(const WriteJob& job) {
  owner.busy_since_ = owner.clock_.steady_ms();
  owner.worker_->start_write(job);
}

bool Gateway::is_worker_stuck() const {
  const Ms longest = kStuckMs + kStuckReplies * config_.controller.reply_timeout_s * kMsOfSecond;
  return busy_since_ && clock_.steady_ms() - *busy_since_ > longest;
}

void Gateway::take_results() {
  for (const ControllerWorker::Result& result : worker_->take_results()) {
    busy_since_.reset();
    if (const auto* read = std::get_if<ReadResult>(&result)) {
      if (read->link_lost) {
        controller_problem_ = read->error;
        controller_advice_ = read->advice;
        controller_reason_ = read->reason;
      } else {
        note_bad(*read);
      }
      node_.on_read(*read);
    } else {
      node_.on_written(std::get<WriteOutcome>(result));
    }
  }
  after();
}

// Of a variable that has no value the log says why, once.
void Gateway::note_bad(const ReadResult& result) {
  for (const Sample& sample : result.samples) {
    const uint8_t is_bad = sample.good ? 0 : 1;
    uint8_t& told = told_bad_[sample.variable];
    if (is_bad == told) continue;
    told = is_bad;
    const std::string& name = config_.variables[sample.variable].name;
    if (is_bad != 0) {
      LogFields fields = {{"name", name}, {"reason", sample.error}};
      if (!sample.advice.empty()) fields.emplace_back("what_to_do", sample.advice);
      tell(LogLevel::kWarning, "variable_bad", fields);
    } else {
      tell(LogLevel::kInfo, "variable_good", {{"name", name}});
    }
  }
}

// ---------------------------------------------------------------------------------------------------- the loop

// Behind every event: tells what it changed, and comes back when the node wants to.
void Gateway::after() {
  tell_controller();
  tell_broker();
  if (stopped_ && node_.stopped() && !broker_.is_leaving()) {
    uv_timer_stop(timer_.get());
    std::exchange(stopped_, nullptr)();
    return;
  }
  const Ms now = clock_.steady_ms();
  std::optional<Ms> due = node_.next_ms();
  if (stopped_) due = std::min(due.value_or(now + kStopLookMs), now + kStopLookMs);
  if (due == timer_due_ && uv_is_active(reinterpret_cast<uv_handle_t*>(timer_.get())) != 0) return;
  timer_due_ = due;
  if (!due) {
    uv_timer_stop(timer_.get());
    return;
  }
  uv_update_time(loop_);
  const auto on_time = [](uv_timer_t* timer) {
    auto* self = static_cast<Gateway*>(timer->data);
    self->node_.on_time();
    self->after();
  };
  uv_timer_start(timer_.get(), on_time, static_cast<uint64_t>(std::max<Ms>(*due - now, 0)), 0);
}

// ---------------------------------------------------------------------------------------------------- the log

void Gateway::tell(LogLevel level, std::string_view event, const LogFields& fields) {
  log_.write(level, event, fields, clock_.steady_ms());
}

// What changes while the controller is away is why.
void Gateway::tell_controller() {
  using plc_client::Reason;
  const bool is_alive = node_.counters().controller_alive;
  const bool is_lost = told_.controller_alive && !is_alive;
  if (is_alive && !told_.controller_alive) {
    controller_problem_.clear();
    controller_advice_.clear();
    controller_reason_ = told_reason_ = Reason::kNone;
    tell(LogLevel::kInfo, "controller_up",
         {{"device", config_.device}, {"variables", std::to_string(config_.variables.size())}});
  } else if (is_lost || (controller_reason_ != told_reason_ && controller_reason_ != Reason::kNotTried)) {
    told_reason_ = controller_reason_;
    LogFields fields = {{"why", plc_client::reason_word(controller_reason_)}, {"reason", controller_problem_}};
    if (!controller_advice_.empty()) fields.emplace_back("what_to_do", controller_advice_);
    tell(LogLevel::kWarning, is_lost ? "controller_lost" : "controller_away", fields);
  }
  told_.controller_alive = is_alive;
}

void Gateway::tell_broker() {
  const Counters& now = node_.counters();
  if (now.broker_refused != told_.broker_refused) {
    tell(LogLevel::kWarning, "broker_away", {{"reason", node_.broker_problem()}});
  }
  if (now.broker_connects != told_.broker_connects) {
    tell(LogLevel::kInfo, "broker_connected",
         {{"broker", config_.broker_host + ":" + std::to_string(config_.broker_port)},
          {"bd_seq", std::to_string(now.last_bd_seq)}});
    if (!config_.primary_host.empty() && now.broker_connected && !now.births_out) {
      tell(LogLevel::kInfo, "waiting_for_host", {{"primary_host", config_.primary_host}});
    }
  }
  // One event may bring a connection and end it, when its births cannot be sent.
  if (now.broker_losses != told_.broker_losses) {
    tell(LogLevel::kWarning, "broker_lost", {{"reason", node_.broker_problem()}});
  }
  tell_births();
  told_.broker_refused = now.broker_refused;
  told_.broker_losses = now.broker_losses;
  told_.broker_connects = now.broker_connects;
}

// The broker drops what is too long for it without a word, and the lengths are all that can be known of that.
void Gateway::tell_births() {
  const Counters& now = node_.counters();
  if (now.births_out && !told_.births_out) {
    tell(LogLevel::kInfo, "births_out",
         {{"bytes", std::to_string(now.node_birth_bytes)},
          {"unconfirmed_rows", std::to_string(journal_.counters().rows)}});
  }
  const Topics topics(config_.group, config_.edge_node, config_.device, {});
  if (now.births != told_.births) tell_long_birth(topics.node_birth, now.node_birth_bytes, told_long_node_birth_);
  if (now.device_births != told_.device_births) {
    tell(LogLevel::kInfo, "device_birth_out",
         {{"device", config_.device}, {"bytes", std::to_string(now.device_birth_bytes)}});
    tell_long_birth(topics.device_birth, now.device_birth_bytes, told_long_device_birth_);
  }
  told_.births_out = now.births_out;
  told_.births = now.births;
  told_.device_births = now.device_births;
}

void Gateway::tell_long_birth(const std::string& topic, uint64_t bytes, bool& is_told) {
  if (is_told || bytes <= kLongBirthBytes) return;
  is_told = true;
  tell(LogLevel::kWarning, "birth_long",
       {{"topic", topic},
        {"bytes", std::to_string(bytes)},
        {"reason", "a broker that takes less may drop it without a word, and nobody knows the aliases behind it"},
        {"what_to_do", room_for_message(bytes)}});
}

void Gateway::tell_command(const CommandResult& ended) {
  const LogLevel level = ended.result == "done" ? LogLevel::kInfo : LogLevel::kWarning;
  tell(level, "command", {{"result", ended.result}, {"name", ended.name}, {"reason", ended.reason}});
}

void Gateway::tell_host_state(const std::string& reason, const std::string& what_to_do) {
  tell(LogLevel::kWarning, "host_state_dropped",
       {{"reason", "the STATE of " + config_.primary_host + " " + reason}, {"what_to_do", what_to_do}});
}

void Gateway::tell_too_long(const std::string& topic, size_t bytes) {
  tell(LogLevel::kWarning, "message_too_long",
       {{"topic", topic},
        {"bytes", std::to_string(bytes)},
        {"limit", std::to_string(kMostMessageFromBroker)},
        {"reason", "the gateway dropped it unread, and no result is published: no command is so long"},
        {"what_to_do", "see what publishes to this topic; a limit in the broker keeps such messages away"}});
}

void Gateway::tell_journal() {
  const JournalCounters now = journal_.counters();
  if (now.lost_damage != told_journal_.lost_damage) {
    tell(LogLevel::kError, "journal_damaged",
         {{"folder", config_.journal_folder},
          {"reason", journal_.damage()},
          {"what_to_do", "the old one is kept beside the new one"}});
  }
  if (now.unreadable_changes > told_journal_.unreadable_changes) {
    tell(LogLevel::kError, "journal_log_damaged",
         {{"folder", config_.journal_folder},
          {"unreadable_changes", std::to_string(now.unreadable_changes)},
          {"reason", "a change in journal.sqlite-wal is damaged, and those behind it cannot be read"},
          {"what_to_do",
           "after a power cut this may be the change that was being written; else the newest values may be lost: see "
           "what damages the disk"}});
  }
  if (now.removed > told_journal_.removed) {
    tell(LogLevel::kWarning, "journal_removed",
         {{"folder", config_.journal_folder},
          {"reason", "its files were removed or replaced: what is written goes when the gateway ends"},
          {"what_to_do",
           "see that the folder is there, wait until plc_gateway_journal_values is 0, and start the gateway again"}});
  }
  if (now.dropped != told_journal_.dropped) {
    tell(LogLevel::kError, "values_dropped",
         {{"folder", config_.journal_folder}, {"dropped", std::to_string(now.dropped)}});
  }
  if (now.failures != told_journal_.failures) {
    tell(LogLevel::kError, "journal_refused",
         {{"folder", config_.journal_folder},
          {"rows_in_memory", std::to_string(now.in_memory)},
          {"what_to_do", "see that its disk has room and can be written"}});
  }
  told_journal_ = now;
}

}  // namespace plc_gateway
