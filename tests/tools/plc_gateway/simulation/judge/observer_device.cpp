// The device's messages: what they hold is in the journal or was read, and comes in its order.
#include <utility>

#include "tests/tools/plc_gateway/simulation/judge/observer.h"

namespace plc_gateway::simulation {

void Observer::check_live_order(uint64_t alias, Ms time, unsigned jumps_back) {
  Live& last = live_[alias];
  demand(last.jumps_back != jumps_back || time >= last.time, "a live value is older than the one before it");
  last = {time, jumps_back};
}

void Observer::device_birth(OnTheRoad& on_the_road) {
  demand(node_born_, "the device is born before the node");
  demand(!device_born_, "the device is born twice");
  demand(readings_->alive(), "the device is born, and the controller is not there");
  auto birth = std::make_shared<Ledger::Birth>();
  std::map<uint64_t, const Metric*> metrics;
  for (const Metric& metric : payload_.metrics) {
    demand(metric.name && metric.alias && metric.datatype && metric.time,
           "a metric of the device's birth lacks name, alias, datatype or time");
    demand(!metric.historical, "a metric of a birth is historical");
    demand(metrics.emplace(*metric.alias, &metric).second, "an alias is twice in a birth");
  }
  for (size_t i = 0; i < configuration_->variables.size(); ++i) {
    const Variable& variable = configuration_->variables[i];
    const uint64_t alias = ledger_.alias(i);
    const auto found = metrics.find(alias);
    demand(found != metrics.end(), "a variable is not in the device's birth");
    const Metric& metric = *found->second;
    demand(metric.name == variable.name && metric.datatype == static_cast<uint64_t>(variable.type),
           "a metric of a birth has another name or type than its variable");
    const Sample& last = readings_->last(i);
    demand(holds(metric, variable.type, last.good, last.bits, last.bytes) &&
               metric.time == static_cast<uint64_t>(last.time),
           "a birth holds another value or time than was read last");
    demand(metric.quality == (last.good ? 192 : 0) || (last.good && !metric.quality), "a birth has a wrong quality");
    birth->values[alias] = {last.time, last.good, last.bits, last.bytes, readings_->jumps_back(i)};
    check_live_order(alias, last.time, readings_->jumps_back(i));
    metrics.erase(found);
  }
  for (const auto& [alias, metric] : metrics) demand(metric->null, "a variable that is polled no more has a value");
  demand(metrics.size() == ledger_.retired(), "a birth has metrics of nobody, or lacks some of which history is left");
  ledger_.device_birth(birth);
  readings_->born();
  device_born_ = true;
  if (has_json_) json_due_ += configuration_->variables.size();
  on_the_road.kind = Kind::kDeviceBirth;
  on_the_road.birth = std::move(birth);
}

void Observer::device_death(OnTheRoad& on_the_road) {
  demand(device_born_, "the device dies without having been born");
  demand(payload_.metrics.empty(), "the device's death has metrics");
  device_born_ = false;
  if (has_json_) json_due_ += configuration_->variables.size();
  on_the_road.kind = Kind::kDeviceDeath;
  on_the_road.row = ledger_.match_death();
}

void Observer::device_data(OnTheRoad& on_the_road) {
  demand(device_born_, "data of the device before its birth or behind its death");
  demand(!rebirth_asked_, "data before the births that were asked for");
  on_the_road.kind = Kind::kData;
  on_the_road.marks.reserve(payload_.metrics.size());
  for (const Metric& metric : payload_.metrics) {
    demand(metric.alias && !metric.name && !metric.datatype && metric.time,
           "data of the device is without alias or time, or with a name or datatype");
    demand(ledger_.knows(*metric.alias), "data has an alias that no birth has");
    const Ledger::Place place = ledger_.match(metric, metric.historical);
    const Ledger::Cell& cell = *ledger_.cell(place);
    demand(cell.good ? !metric.quality || metric.quality == 192 : metric.quality == 0, "data has a wrong quality");
    on_the_road.marks.push_back({place, metric.historical});
    if (has_json_) ++(metric.historical ? json_historical_due_ : json_due_);
    if (metric.historical) continue;
    check_live_order(cell.alias, cell.time, cell.jumps_back);
    on_the_road.values.emplace_back(cell.alias,
                                    Ledger::Birth::Value{cell.time, cell.good, cell.bits, cell.bytes, cell.jumps_back});
  }
}

}  // namespace plc_gateway::simulation
