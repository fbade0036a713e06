// The connection to the broker: coming and going, the primary host, stopping.
#include "tools/plc_gateway/node/session.h"

#include <algorithm>
#include <utility>

namespace plc_gateway {
namespace {

constexpr Ms kAnswerMs = 10000;    // of a broker to a connect or a subscription
constexpr Ms kFirstPauseMs = 100;  // before the connect after a lost connection
constexpr Ms kLongestPauseMs = 5000;
constexpr Ms kSettledMs = 1000;    // what a session must last, and a fence have come back, to be more than a try
constexpr Ms kDiskPauseMs = 1000;  // before the disk is asked again for a bdSeq
constexpr Ms kBirthPauseMs = 200;  // between births that hosts ask for
constexpr Ms kStopMs = 1000;       // for the last acknowledgment
constexpr Ms kLookMs = 1000;       // between looks at the journal's counters
constexpr Ms kHistoryTickMs = 10;

constexpr char kStateForm[] =
    "let the host publish {\"online\": true, \"timestamp\": MILLISECONDS SINCE 1970}, in at most 4096 bytes; its last "
    "state that could be read counts";
constexpr char kStateTooOld[] =
    "nothing, when the host has connected again and its earlier end came late; else see the clock of the host, or of "
    "who else publishes its STATE, and start the gateway again: a time in the future counts until then";

constexpr char kNoGreeting[] =
    "the broker does not answer to the connect within 10 s: see its log, and whether the url's port is its own";
constexpr char kNoSubscription[] =
    "the broker took the connection and does not confirm the subscription to commands within 10 s: see its log and its "
    "load, and whether the url's port is its own";

}  // namespace

Session::Session(SessionOptions options, const std::vector<Variable>& variables, const Clock& clock, BrokerPort& broker,
                 Journal& journal, Device& device, Counters& counters)
    : options_(std::move(options)),
      variables_(variables),
      clock_(clock),
      broker_(broker),
      journal_(journal),
      device_(device),
      counters_(counters),
      birth_rows_(variables.size()),
      told_bad_(variables.size()) {}

void Session::start() { connect_at_ms_ = clock_.steady_ms(); }

void Session::connect(Ms now) {
  const std::optional<uint64_t> number = unused_bd_seq_ ? unused_bd_seq_ : journal_.next_bd_seq();
  unused_bd_seq_.reset();
  if (!number) {
    last_problem_ = "the journal's disk refuses the number of the next connection";
    connect_at_ms_ = now + kDiskPauseMs;
    return;
  }
  bd_seq_ = *number;
  counters_.last_bd_seq = bd_seq_;
  link_ = Link::kConnecting;
  answer_by_ms_ = now + kAnswerMs;
  broker_.connect({options_.topics.node_death, death_payload(), 1, false});
}

std::string Session::death_payload() const {
  PayloadWriter writer;
  NodeMetric number;
  number.name = "bdSeq";
  number.number = bd_seq_;
  number.time = clock_.wall_ms();
  writer.birth(number);
  return writer.finish(number.time, std::nullopt);
}

void Session::on_connected() {
  if (link_ != Link::kConnecting) return;
  link_ = Link::kSubscribing;
  answer_by_ms_ = clock_.steady_ms() + kAnswerMs;
  std::vector<std::string> filters = {options_.topics.node_command, options_.topics.device_command};
  if (!options_.topics.host_state.empty()) filters.push_back(options_.topics.host_state);
  if (!broker_.subscribe(filters)) leave("the subscription to commands could not be sent", true);
}

void Session::on_subscribed(bool ok) {
  if (link_ != Link::kSubscribing) return;
  if (!ok) {
    leave("the broker refused the subscription to commands: its rules for this user must allow NCMD and DCMD", true);
    return;
  }
  ++counters_.broker_connects;
  counters_.broker_connected = true;
  if (!options_.topics.host_state.empty() && !host_online_) {
    link_ = Link::kWaitingForHost;
    return;
  }
  go_online();
}

void Session::on_disconnected(const std::string& reason) {
  if (link_ == Link::kDown || link_ == Link::kStopped) return;
  leave(reason, false);
}

// What is not known to be at the broker stays in the journal, and is history from now on.
void Session::leave(const std::string& reason, bool drop) {
  if (link_ == Link::kConnecting || link_ == Link::kSubscribing) ++counters_.broker_refused;
  const Ms now = clock_.steady_ms();
  if (link_ == Link::kOnline) {
    ++counters_.broker_losses;
    // Others are those of a broker that takes nothing, and of two gateways with one id: births without end.
    if (was_acknowledged_ && now - online_ms_ >= kSettledMs) pause_ms_ = kFirstPauseMs;
  }
  // The numbers count what brokers were sent, not what was tried.
  if (link_ == Link::kConnecting && !broker_.sent_connect()) unused_bd_seq_ = bd_seq_;
  if (drop) broker_.drop();
  last_problem_ = reason;
  link_ = Link::kDown;
  counters_.broker_connected = false;
  counters_.births_out = false;
  counters_.unfenced_values = 0;
  // What the broker said of the host holds for its connection; the times of what was said go on counting.
  host_online_ = false;
  rebirth_wanted_ = false;
  device_born_ = false;
  unfenced_.clear();
  unfenced_bytes_ = unfenced_messages_ = sent_bytes_ = sent_messages_ = 0;
  fence_.reset();
  fenced_ = 0;
  history_.clear();
  writer_ = {};  // what was written of a message that could not be sent
  connect_at_ms_ = now + pause_ms_ + (pause_ms_ > 0 ? options_.jitter % (pause_ms_ / 2 + 1) : 0);
  pause_ms_ = std::clamp(2 * pause_ms_, kFirstPauseMs, kLongestPauseMs);
}

void Session::go_online() {
  const Ms now = clock_.steady_ms();
  link_ = Link::kOnline;
  fence_ms_ = now;
  budget_ms_ = now;
  look_ms_ = now;
  history_budget_ = 0;
  history_.clear();
  live_next_ = std::max<uint64_t>(journal_.first_id(), 1);
  told_dropped_ = journal_.counters().dropped;
  online_ms_ = now;
  pause_ms_ = std::max(pause_ms_, kFirstPauseMs);
  was_acknowledged_ = false;
  births();
}

void Session::drop_host_state(const std::string& reason, const std::string& what_to_do) const {
  if (options_.host_state_dropped) options_.host_state_dropped(reason, what_to_do);
}

void Session::on_host_state(std::string_view payload) {
  const HostState state = read_host_state(payload);
  if (!state.problem.empty()) return drop_host_state(state.problem, kStateForm);
  // Of an earlier connection of the host, delivered late.
  const std::optional<Ms>& counts_from = state.online ? host_time_ : host_online_time_;
  if (counts_from && state.time < *counts_from) {
    return drop_host_state((state.online ? "says online, " : "says offline, ") +
                               std::to_string(*counts_from - state.time) + " ms before the last one that counts",
                           kStateTooOld);
  }
  host_time_ = host_time_ ? std::max(*host_time_, state.time) : state.time;
  host_online_ = state.online;
  if (state.online) {
    host_online_time_ = state.time;
    if (link_ == Link::kWaitingForHost) go_online();
    return;
  }
  if (link_ != Link::kOnline) return;
  send(options_.topics.node_death, death_payload(), 0);
  if (link_ != Link::kOnline) return;
  broker_.disconnect();
  leave("the primary host is offline", false);
}

void Session::request_rebirth() {
  if (link_ == Link::kOnline) rebirth_wanted_ = true;
}

void Session::stop() {
  stopping_ = true;
  stop_by_ms_ = clock_.steady_ms() + kStopMs;
}

void Session::finish_stop(Ms now) {
  if (link_ == Link::kOnline && (device_.writing() || !unfenced_.empty()) && now < stop_by_ms_) return;
  device_.give_up_write();
  publish_results();
  // A goodbye keeps the will back, so that the death is told before it, also by a node that was never born. Where
  // nothing can be told yet, the will does it.
  if (link_ == Link::kConnecting) {
    broker_.drop();
  } else if (link_ != Link::kDown) {
    send(options_.topics.node_death, death_payload(), 0);
    if (link_ != Link::kDown) broker_.disconnect();
  }
  link_ = Link::kStopped;
  counters_.broker_connected = false;
  counters_.births_out = false;
}

void Session::step() {
  const Ms now = clock_.steady_ms();
  switch (link_) {
    case Link::kDown:
      if (!stopping_ && now >= connect_at_ms_) connect(now);
      break;
    case Link::kConnecting:
    case Link::kSubscribing:
      if (now >= answer_by_ms_) leave(link_ == Link::kConnecting ? kNoGreeting : kNoSubscription, true);
      break;
    case Link::kOnline:
      step_online(now);
      break;
    case Link::kWaitingForHost:
    case Link::kStopped:
      break;
  }
  if (stopping_ && link_ != Link::kStopped) finish_stop(now);
}

// False while there is no data before the births that were asked for.
bool Session::bear_again(Ms now) {
  if (now - birth_ms_ < kBirthPauseMs) return false;
  ++counters_.rebirths;
  leave_to_history();
  return births();
}

void Session::step_online(Ms now) {
  // Who stops waits for it no longer than he waits anyhow, and says goodbye.
  if (fence_ && !stopping_ && now - fence_ms_ >= options_.keep_alive_ms) {
    ++counters_.fences_overdue;
    leave("the broker takes messages and acknowledges none", true);
    return;
  }
  if (rebirth_wanted_ && !bear_again(now)) return;
  publish_live();
  if (link_ == Link::kOnline && !stopping_) publish_history(now);
  if (link_ == Link::kOnline && now >= look_ms_) {
    look_ms_ = now + kLookMs;
    if (node_data_allowed() && journal_.counters().dropped != told_dropped_) tell_node(false, true);
  }
  publish_results();
  if (link_ == Link::kOnline) fence(now);
}

std::optional<Ms> Session::next_ms() const {
  switch (link_) {
    case Link::kDown:
      return connect_at_ms_;
    case Link::kConnecting:
    case Link::kSubscribing:
      return answer_by_ms_;
    case Link::kWaitingForHost:
    case Link::kStopped:
      return std::nullopt;
    case Link::kOnline:
      break;
  }
  // Nothing but these is done before the births that were asked for.
  Ms soonest = rebirth_wanted_ ? birth_ms_ + kBirthPauseMs : look_ms_;
  if (fence_ && !stopping_) soonest = std::min(soonest, fence_ms_ + options_.keep_alive_ms);
  if (stopping_) soonest = std::min(soonest, stop_by_ms_);
  if (rebirth_wanted_) return soonest;
  if (!fence_ && !unfenced_.empty()) soonest = std::min(soonest, fence_ms_ + kFenceMs);
  if (device_born_ && !stopping_ && !history_.empty() && window_open(true)) {
    soonest = std::min(soonest, budget_ms_ + kHistoryTickMs);
  }
  return soonest;
}

}  // namespace plc_gateway
