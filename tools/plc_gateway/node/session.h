// The broker's side of the edge node: connects, tells births and deaths, publishes what the journal holds, live or as
// history, and takes it out of the journal when a fence behind it was acknowledged.
//
// A row is live when it was appended after the births of this connection; what was not known to be at the broker by
// then is history. Numbers of messages (seq) are given when a message is handed to the broker, never before.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/model/counters.h"
#include "tools/plc_gateway/node/device.h"
#include "tools/plc_gateway/node/seams.h"
#include "tools/plc_gateway/sparkplug/payload.h"
#include "tools/plc_gateway/sparkplug/topics.h"

namespace plc_gateway {

constexpr Ms kFenceMs = 100;  // between fences: what a kill may double, all of it marked as history

struct SessionOptions {
  Topics topics;
  std::string json_topic;  // with {name}; empty: none
  Ms keep_alive_ms = 10000;
  std::string version;  // of the gateway, for the node's own metrics
  uint32_t jitter = 0;  // spreads the reconnects of many gateways: any number, another for each
  // Hears of each state of the primary host that is not used, why ("has no timestamp") and what to do; may be empty.
  std::function<void(const std::string& reason, const std::string& what_to_do)> host_state_dropped = {};
};

class Session {
 public:
  // All references outlive it.
  Session(SessionOptions options, const std::vector<Variable>& variables, const Clock& clock, BrokerPort& broker,
          Journal& journal, Device& device, Counters& counters);

  void start();
  // Waits a moment for what is published to be acknowledged, then tells the death and disconnects.
  void stop();
  bool stopped() const { return link_ == Link::kStopped; }

  // To be called when next_ms() has come, and after each event of the broker or the device.
  void step();
  std::optional<Ms> next_ms() const;  // a steady time

  void on_connected();
  void on_disconnected(const std::string& reason);
  void on_subscribed(bool ok);
  void on_acknowledged(int id);
  void on_host_state(std::string_view payload);
  // Births again, with the same bdSeq.
  void request_rebirth();
  // As metrics of the node: each result in a message of its own, in the order of these calls.
  void tell(const CommandResult& result);

  // The metric of an alias in the births.
  const std::map<uint64_t, std::string>& names() const { return names_; }
  // Why there is no connection, when there is none.
  const std::string& last_problem() const { return last_problem_; }

 private:
  enum class Link : uint8_t { kDown, kConnecting, kSubscribing, kWaitingForHost, kOnline, kStopped };
  struct Range {
    uint64_t first = 0;
    uint64_t last = 0;
  };
  struct Published {
    Range rows;
    size_t values = 0;
    size_t bytes = 0;
    size_t messages = 0;
  };

  void drop_host_state(const std::string& reason, const std::string& what_to_do) const;
  void connect(Ms now);
  void leave(const std::string& reason, bool drop);
  void go_online();
  void step_online(Ms now);
  void finish_stop(Ms now);
  std::string death_payload() const;

  bool births();
  bool node_birth();
  bool device_birth();
  void write_node_metrics(bool birth, bool command, bool dropped);
  bool bear_again(Ms now);
  void publish_live();
  bool publish_live_rows(const std::vector<JournalRow>& rows);
  bool publish_row(const JournalRow& row);
  std::vector<Sample> samples_of(const JournalRow& row, bool historical) const;
  std::optional<size_t> write_row(const JournalRow& row, bool historical);
  bool write_samples(const std::vector<Sample>& samples, bool historical);
  bool publish_json(const std::vector<Sample>& samples, bool historical);
  void publish_history(Ms now);
  bool publish_old_rows(const std::vector<JournalRow>& rows, Range& range);
  bool tell_node(bool command, bool dropped);
  void publish_results();
  void fence(Ms now);
  bool send(const std::string& topic, std::string payload, int qos);
  bool send_metrics(const std::string& topic);
  void account(Range rows, size_t values);
  void account() { account({}, 0); }  // of messages that stand for no row
  bool window_open(bool historical = false) const;
  bool node_data_allowed() const;
  void leave_to_history(uint64_t carried = 0);
  uint64_t row_of_birth() const;
  const Variable& variable(uint32_t index) const;

  SessionOptions options_;
  const std::vector<Variable>& variables_;
  const Clock& clock_;
  BrokerPort& broker_;
  Journal& journal_;
  Device& device_;
  Counters& counters_;
  std::map<uint64_t, std::string> names_;

  Link link_ = Link::kDown;
  bool stopping_ = false;
  bool was_acknowledged_ = false;  // what it published since it is online
  Ms stop_by_ms_ = 0;
  Ms connect_at_ms_ = 0;
  Ms answer_by_ms_ = 0;  // of the connect or the subscription under way
  Ms pause_ms_ = 0;      // before the next connect
  Ms online_ms_ = 0;     // since when it is online
  std::string last_problem_;
  uint64_t bd_seq_ = 0;
  std::optional<uint64_t> unused_bd_seq_;  // of a connect that reached no broker

  std::optional<Ms> host_time_;         // of the last state of the host that counted
  std::optional<Ms> host_online_time_;  // of the last one that said online
  unsigned seq_ = 0;
  bool host_online_ = false;
  bool rebirth_wanted_ = false;
  bool device_born_ = false;
  Ms birth_ms_ = 0;  // of the last births
  // The row of the journal that has what the device's last birth said of each variable, a value or none; 0: none has.
  std::vector<uint64_t> birth_rows_;
  std::vector<uint8_t> told_bad_;  // its last published quality

  uint64_t live_next_ = 1;     // the first row that was not published live
  std::deque<Range> history_;  // rows that are to be published as history, oldest first
  double history_budget_ = 0;  // values that may be published now
  Ms budget_ms_ = 0;

  PayloadWriter writer_;
  std::deque<Published> unfenced_;
  size_t unfenced_bytes_ = 0;
  size_t unfenced_messages_ = 0;
  size_t sent_bytes_ = 0;  // since the last account()
  size_t sent_messages_ = 0;
  size_t last_message_bytes_ = 0;  // as the broker counts them
  std::optional<int> fence_;       // the one that is not acknowledged
  size_t fenced_ = 0;              // entries of unfenced_ before it
  Ms fence_ms_ = 0;                // when it was sent
  uint64_t fence_number_ = 0;

  std::optional<CommandResult> last_command_;  // that was published
  std::deque<CommandResult> results_;          // that are to be published
  uint64_t unpublished_ = 0;                   // commands that the last of them stands for; 0: for itself
  uint64_t told_dropped_ = 0;
  Ms look_ms_ = 0;  // when the journal's counters are looked at again
};

}  // namespace plc_gateway
