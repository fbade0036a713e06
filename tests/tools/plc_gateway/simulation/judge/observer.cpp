// The order of messages, their numbers, births and deaths.
#include "tests/tools/plc_gateway/simulation/judge/observer.h"

#include <algorithm>
#include <utility>

namespace plc_gateway::simulation {
namespace {

constexpr Ms kRebirthMs = 500;
const std::string kNode = "edge";
const std::string kDevice = "press";

std::string topic_of(const char* type, bool of_device) {
  return std::string("spBv1.0/Plant/") + type + "/" + kNode + (of_device ? "/" + kDevice : std::string());
}

const std::string kNodeBirthTopic = topic_of("NBIRTH", false);
const std::string kNodeDeathTopic = topic_of("NDEATH", false);
const std::string kNodeDataTopic = topic_of("NDATA", false);
const std::string kDeviceBirthTopic = topic_of("DBIRTH", true);
const std::string kDeviceDeathTopic = topic_of("DDEATH", true);
const std::string kDeviceDataTopic = topic_of("DDATA", true);
const std::string kFenceTopic = "plc-gateway/Plant/edge/fence";

}  // namespace

void Observer::demand(bool holds, const char* otherwise) const {
  if (!holds) throw Violation(otherwise);
}

void Observer::serve(const Configuration* configuration, Readings* readings, bool has_json, bool has_host) {
  configuration_ = configuration;
  readings_ = readings;
  has_json_ = has_json;
  has_host_ = has_host;
  is_ignoring_ = false;
}

uint64_t Observer::bd_seq_of(const Payload& payload) const {
  for (const Metric& metric : payload.metrics) {
    if (metric.name != "bdSeq") continue;
    demand(metric.datatype == 4U && metric.value_field == 11 && metric.number <= 255, "bdSeq is no Int64 of 0 to 255");
    return metric.number;
  }
  throw Violation("a birth or death of the node is without bdSeq");
}

void Observer::connecting(const Message& will) {
  if (is_ignoring_) return;
  demand(will.topic == kNodeDeathTopic && will.qos == 1 && !will.retained, "the will is no NDEATH of QoS 1");
  read_payload(will.payload, payload_);
  demand(!payload_.seq && payload_.metrics.size() == 1, "the will holds more than bdSeq and its time");
  const uint64_t number = bd_seq_of(payload_);
  if (bd_seq_) {
    const uint64_t step = (number + 256 - *bd_seq_) % 256;
    demand(step == 1 || (step == 2 && may_skip_) || (step == 0 && !was_sent_),
           "bdSeq is not one more than that of the last connect");
  }
  bd_seq_ = number;
  may_skip_ = false;
  was_sent_ = true;
  ++connection_;
  ledger_.begin_connection(connection_);
  subscribed_ = node_born_ = device_born_ = dead_ = rebirth_asked_ = host_online_ = false;
  json_due_ = json_seen_ = json_historical_due_ = json_historical_seen_ = 0;
}

void Observer::subscribing(const std::vector<std::string>& filters) {
  const auto has = [&](const char* topic) { return std::find(filters.begin(), filters.end(), topic) != filters.end(); };
  demand(has(kCommandTopic) && has(kNodeCommandTopic), "the edge node does not subscribe to its commands");
  demand(has(kStateTopic) == has_host_, "the edge node does not subscribe to the state of its primary host");
  subscribed_ = true;
}

void Observer::host_state_delivered(bool online) { host_online_ = online; }

void Observer::rebirth_asked() {
  if (rebirth_asked_ || !node_born_ || dead_) return;
  rebirth_asked_ = true;
  rebirth_ms_ = clock_.steady_ms();
}

void Observer::check_after(bool is_online) {
  if (is_ignoring_ || !is_online || !node_born_) return;
  demand(!rebirth_asked_ || clock_.steady_ms() - rebirth_ms_ <= kRebirthMs, "a rebirth was asked for and did not come");
  demand(!has_host_ || host_online_ || dead_, "the primary host is offline, and the node has not told its death");
}

void Observer::handed_over(const Message& message) {
  if (is_ignoring_) return;
  ledger_.catch_up();
  OnTheRoad& last = road_.emplace_back();
  demand(!message.retained, "a message is retained");
  demand(!dead_, "something is published behind the node's death");
  demand(subscribed_, "something is published before the subscription to commands");
  if (message.topic == kFenceTopic) {
    fence(message);
    return;
  }
  if (has_json_ && message.topic.compare(0, 5, "json/") == 0) {
    json(message);
    return;
  }
  demand(message.qos == 0, "a message of the standard has another QoS than 0");
  read_payload(message.payload, payload_);
  demand(payload_.time == static_cast<uint64_t>(clock_.wall_ms()), "a payload does not have the time of its sending");
  if (message.topic == kNodeDeathTopic) {
    node_death(message.payload, false);
    last.kind = Kind::kNodeDeath;
    return;
  }
  take_seq(message.topic == kNodeBirthTopic);
  if (message.topic == kNodeBirthTopic) {
    node_birth();
    last.kind = Kind::kNodeBirth;
  } else if (message.topic == kNodeDataTopic) {
    node_data();
  } else if (message.topic == kDeviceBirthTopic) {
    device_birth(last);
  } else if (message.topic == kDeviceDeathTopic) {
    device_death(last);
  } else if (message.topic == kDeviceDataTopic) {
    device_data(last);
  } else {
    throw Violation("a message is published to " + message.topic);
  }
}

void Observer::take_seq(bool is_node_birth) {
  demand(payload_.seq.has_value(), "a message is without seq");
  if (is_node_birth) seq_ = 0;
  demand(*payload_.seq == seq_, "seq has a gap");
  seq_ = (seq_ + 1) % 256;
}

void Observer::node_death(const std::string& payload, bool) {
  read_payload(payload, payload_);
  demand(!payload_.seq, "the node's death has a seq");
  demand(bd_seq_of(payload_) == bd_seq_, "the node's death has another bdSeq than the will");
  dead_ = true;
}

void Observer::node_birth() {
  demand(!has_host_ || host_online_, "the node is born without its primary host");
  demand(!node_born_ || rebirth_asked_, "the node is born again, and nobody asked for it");
  demand(bd_seq_of(payload_) == bd_seq_, "the node's birth has another bdSeq than the will");
  bool has_rebirth = false;
  node_aliases_.clear();
  for (const Metric& metric : payload_.metrics) {
    demand(metric.name && metric.datatype && metric.time, "a metric of the node's birth lacks name, datatype or time");
    demand(!metric.historical, "a metric of a birth is historical");
    const std::string name(*metric.name);
    demand(!metric.alias || node_aliases_.emplace(*metric.alias, name).second, "an alias is twice in the node's birth");
    demand(!metric.alias || !ledger_.knows(*metric.alias), "the node has an alias of the device");
    node_metric(name, metric);
    if (metric.name != "Node Control/Rebirth") continue;
    has_rebirth = true;
    demand(metric.datatype == 11U && metric.value_field == 14 && metric.number == 0 && !metric.alias,
           "Node Control/Rebirth is not false, or has an alias");
  }
  demand(has_rebirth, "the node's birth is without Node Control/Rebirth");
  node_born_ = true;
  device_born_ = false;
  rebirth_asked_ = false;
  ++totals_.births;
}

void Observer::node_data() {
  demand(node_born_, "data of the node before its birth");
  demand(!rebirth_asked_, "data before the births that were asked for");
  for (const Metric& metric : payload_.metrics) {
    demand(metric.alias && !metric.name && !metric.datatype && metric.time,
           "data of the node is without alias or time, or with a name or datatype");
    const auto name = node_aliases_.find(*metric.alias);
    demand(name != node_aliases_.end(), "data of the node has an alias that its birth has not");
    node_metric(name->second, metric);
  }
}

void Observer::node_metric(const std::string& name, const Metric& metric) {
  if (name == "Journal/Dropped Values") dropped_told_ = metric.number;
  if (name == "Last Command/Name") last_command_name_ = std::string(metric.bytes);
  if (name != "Last Command/Result" || metric.bytes != "done") return;
  demand(std::find(done_.begin(), done_.end(), last_command_name_) != done_.end(),
         "a command is told to be done, and none was");
}

void Observer::fence(const Message& message) {
  demand(message.qos == 1, "a fence has another QoS than 1");
  demand(node_born_, "a fence before the node's birth");
  demand(json_due_ == json_seen_ && json_historical_due_ == json_historical_seen_,
         "the second form has other values than the first");
}

void Observer::json(const Message& message) {
  demand(message.qos == 1, "a message of the second form has another QoS than 1");
  const bool historical = message.payload.find("\"historical\":true") != std::string::npos;
  ++(historical ? json_historical_seen_ : json_seen_);
}

void Observer::accepted_first() {
  if (road_.empty()) return;
  const OnTheRoad first = std::move(road_.front());
  road_.pop_front();
  switch (first.kind) {
    case Kind::kOther:
      break;
    case Kind::kNodeBirth:
      host_ = {};
      host_.node_is_born = true;
      break;
    case Kind::kNodeDeath:
      host_ = {};
      break;
    case Kind::kDeviceBirth:
      ledger_.accept_birth(*first.birth);
      host_.device_is_born = true;
      host_.values = first.birth->values;
      totals_.accepted += first.birth->values.size();
      break;
    case Kind::kDeviceDeath:
      ledger_.accept_death(first.row);
      host_.device_is_born = false;
      host_.values.clear();
      break;
    case Kind::kData:
      for (const Mark& mark : first.marks) {
        const bool again = ledger_.accept(mark.place);
        ++totals_.accepted;
        if (mark.historical) ++totals_.historical;
        if (again) ++totals_.duplicates;
        demand(!again || mark.historical, "a sample arrived twice, and is not marked as history");
      }
      for (const auto& [alias, value] : first.values) host_.values[alias] = value;
      break;
  }
}

void Observer::said_goodbye() {
  if (!is_ignoring_) demand(dead_, "the node says goodbye, which keeps its will back, and has not told its death");
}

void Observer::ended() {
  road_.clear();
  // By the will, or by the death that was told before the goodbye.
  host_ = {};
  node_born_ = device_born_ = false;
  dead_ = true;
}

}  // namespace plc_gateway::simulation
