// Looks at every message: the standard's order and numbers, births, and whether what is told is true.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/judge/ledger.h"
#include "tests/tools/plc_gateway/simulation/world/sim_broker.h"

namespace plc_gateway::simulation {

// What a host knows by the messages that the broker accepted.
struct HostView {
  bool node_is_born = false;
  bool device_is_born = false;
  std::map<uint64_t, Ledger::Birth::Value> values;  // by alias; without one: unknown
};

class Observer : public SimBroker::Watcher {
 public:
  Observer(SimClock& clock, Ledger& ledger, Totals& totals) : clock_(clock), ledger_(ledger), totals_(totals) {}

  // A process with this configuration.
  void serve(const Configuration* configuration, Readings* readings, bool has_json, bool has_host);
  // The process is dead, and does not know it yet: nothing that it says counts.
  void ignore(bool dead) { is_ignoring_ = dead; }
  // The disk may have taken a number for a connection that was never begun.
  void may_skip_bd_seq() { may_skip_ = true; }

  void rebirth_asked();
  void command_ended(const std::string& name) { done_.push_back(name); }
  // Behind each step.
  void check_after(bool is_online);

  const HostView& host() const { return host_; }
  bool device_is_born() const { return device_born_; }
  bool node_is_born() const { return node_born_; }
  uint64_t dropped_told() const { return dropped_told_; }

  void connecting(const Message& will) override;
  void connect_not_sent() override { was_sent_ = false; }
  void subscribing(const std::vector<std::string>& filters) override;
  void host_state_delivered(bool online) override;
  void handed_over(const Message& message) override;
  void accepted_first() override;
  void said_goodbye() override;
  void ended() override;

  static constexpr const char* kCommandTopic = "spBv1.0/Plant/DCMD/edge/press";
  static constexpr const char* kNodeCommandTopic = "spBv1.0/Plant/NCMD/edge";
  static constexpr const char* kStateTopic = "spBv1.0/STATE/scada";

 private:
  enum class Kind { kOther, kNodeBirth, kNodeDeath, kDeviceBirth, kDeviceDeath, kData };
  struct Mark {
    Ledger::Place place;
    bool historical = false;
  };
  struct OnTheRoad {
    Kind kind = Kind::kOther;
    std::shared_ptr<Ledger::Birth> birth;
    std::vector<Mark> marks;
    std::vector<std::pair<uint64_t, Ledger::Birth::Value>> values;  // live ones
    uint64_t row = 0;                                               // of a loss
  };

  void take_seq(bool is_node_birth);
  void node_birth();
  void node_death(const std::string& payload, bool is_will);
  void node_data();
  void node_metric(const std::string& name, const Metric& metric);
  void device_birth(OnTheRoad& on_the_road);
  void device_death(OnTheRoad& on_the_road);
  void device_data(OnTheRoad& on_the_road);
  void fence(const Message& message);
  void json(const Message& message);
  void check_live_order(uint64_t alias, Ms time, unsigned jumps_back);
  uint64_t bd_seq_of(const Payload& payload) const;
  void demand(bool holds, const char* otherwise) const;

  SimClock& clock_;
  Ledger& ledger_;
  Totals& totals_;
  const Configuration* configuration_ = nullptr;
  Readings* readings_ = nullptr;
  bool has_json_ = false;
  bool has_host_ = false;
  bool is_ignoring_ = false;

  std::optional<uint64_t> bd_seq_;  // of the last connect, for ever
  bool may_skip_ = false;
  bool was_sent_ = true;                          // the last connect: its number is used up
  std::map<uint64_t, std::string> node_aliases_;  // of the last birth of the node
  uint64_t connection_ = 0;
  bool host_online_ = false;
  bool subscribed_ = false;
  bool node_born_ = false;
  bool device_born_ = false;
  bool dead_ = false;
  uint64_t seq_ = 0;
  bool rebirth_asked_ = false;
  Ms rebirth_ms_ = 0;
  uint64_t json_due_ = 0;
  uint64_t json_seen_ = 0;
  uint64_t json_historical_due_ = 0;
  uint64_t json_historical_seen_ = 0;
  uint64_t dropped_told_ = 0;
  std::string last_command_name_;
  std::vector<std::string> done_;

  Payload payload_;
  std::deque<OnTheRoad> road_;
  HostView host_;
  struct Live {
    Ms time = 0;
    unsigned jumps_back = 0;
  };
  std::map<uint64_t, Live> live_;  // times that were published last, by alias, for ever
};

}  // namespace plc_gateway::simulation
