// The fakes of the edge node's tests.
#include "tests/tools/plc_gateway/node/node_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace gateway_test {

using plc_gateway::DataType;
using plc_gateway::Journal;
using plc_gateway::Message;
using plc_gateway::ReadResult;
using plc_gateway::Sample;

namespace {

std::string type_of(const std::string& topic) {
  if (topic.compare(0, 8, "spBv1.0/") == 0) {
    const size_t start = topic.find('/', 8) + 1;
    return topic.substr(start, topic.find('/', start) - start);
  }
  return topic.compare(0, 12, "plc-gateway/") == 0 ? "fence" : "json";
}

}  // namespace

const plc_gateway::schema::Metric* Told::metric(const std::string& name) const {
  const auto alias = aliases.find(name);
  for (const auto& metric : payload.metrics()) {
    if (metric.name() == name || (alias != aliases.end() && metric.alias() == alias->second)) return &metric;
  }
  return nullptr;
}

void FakeBroker::connect(const Message& message) {
  will = message;
  events.emplace_back("connect");
}

void FakeBroker::disconnect() {
  will.reset();
  events.emplace_back("disconnect");
}

void FakeBroker::drop() {
  will.reset();
  events.emplace_back("drop");
}

bool FakeBroker::subscribe(const std::vector<std::string>& filters) {
  subscribed = filters;
  events.emplace_back("subscribe");
  return true;
}

std::optional<int> FakeBroker::publish(const Message& message) {
  if (!takes_messages) return std::nullopt;
  Told one;
  one.type = type_of(message.topic);
  one.topic = message.topic;
  one.qos = message.qos;
  one.id = ++last_id;
  one.text = message.payload;
  if (one.type == "fence") fence = one.id;
  if (one.type != "fence" && one.type != "json") one.payload.ParseFromString(message.payload);
  if (one.type == "NBIRTH") {
    aliases.clear();
    for (const auto& metric : one.payload.metrics()) {
      if (metric.has_alias()) aliases[metric.name()] = metric.alias();
    }
  }
  if (one.type == "NDATA") one.aliases = aliases;
  events.push_back(one.type);
  told.push_back(std::move(one));
  return last_id;
}

plc_gateway::EdgeNodeOptions World::usual_options() {
  plc_gateway::EdgeNodeOptions options;
  plc_gateway::Variable speed;
  speed.name = "Speed";
  speed.type = DataType::kInt16;
  plc_gateway::Variable name;
  name.name = "Name";
  name.type = DataType::kString;
  plc_gateway::Variable level;
  level.name = "Level";
  level.type = DataType::kFloat;
  level.group = 1;
  level.deadband = 0.5;
  options.variables = {speed, name, level};
  options.periods = {100, 1000};
  options.pieces = {{0, {0, 1}}, {1, {2}}};
  plc_gateway::CommandRule rule;
  rule.name = "Speed";
  rule.declared_type = "INT";
  rule.type = DataType::kInt16;
  options.rules = {rule};
  options.session.topics = plc_gateway::Topics("Plant1", "node1", "press1", "");
  options.session.version = "1.1.0";
  return options;
}

World::World() : World(usual_options()) {}

World::World(plc_gateway::EdgeNodeOptions given) : options(std::move(given)) {
  samples.resize(options.variables.size());
  for (uint32_t i = 0; i < samples.size(); ++i) {
    samples[i].variable = i;
    samples[i].good = true;
  }
  options.command_ended = [this](const plc_gateway::CommandResult& result) { ended.push_back(result); };
  restart();
}

void World::restart() {
  node.reset();
  journal.reset();
  controller = {};
  broker = {};
  plc_gateway::JournalOptions journal_options;
  journal_options.folder = "/journal";
  journal_options.vfs = disk.vfs();
  journal = std::make_unique<Journal>(journal_options, options.variables);
  node = std::make_unique<plc_gateway::EdgeNode>(options, clock, controller, broker, *journal);
  node->start();
}

void World::answer_read() {
  ReadResult result;
  result.piece = *controller.reading;
  controller.reading.reset();
  result.link_lost = !controller_answers;
  for (const uint32_t variable : options.pieces[result.piece].variables) {
    Sample sample = samples[variable];
    sample.time = clock.wall;
    if (!controller_answers) {
      sample = {};
      sample.variable = variable;
      sample.time = clock.wall;
      sample.reason = plc_client::Reason::kNoAnswer;
    }
    result.samples.push_back(sample);
  }
  if (!controller_answers) result.reason = plc_client::Reason::kNoAnswer;
  node->on_read(result);
}

void World::answer_all() {
  while (controller.reading) answer_read();
}

void World::pass(Ms ms) {
  const Ms end = clock.steady + ms;
  answer_all();
  while (true) {
    const std::optional<Ms> next = node->next_ms();
    if (!next || *next > end) break;
    const Ms step = std::max<Ms>(*next - clock.steady, 0);
    clock.steady += step;
    clock.wall += step;
    node->on_time();
    answer_all();
    if (step == 0 && node->next_ms() == next) {  // it wants to be called again at once: a moment passes
      ++clock.steady;
      ++clock.wall;
    }
  }
  clock.wall += end - std::min(end, clock.steady);
  clock.steady = std::max(end, clock.steady);
}

void World::let_broker_in() {
  node->on_connected();
  node->on_subscribed(true);
}

bool World::acknowledge() {
  if (!broker.fence) return false;
  node->on_acknowledged(*std::exchange(broker.fence, std::nullopt));
  return true;
}

void World::set(uint32_t variable, uint64_t bits) {
  samples[variable].good = true;
  samples[variable].bits = bits;
}

void World::set(uint32_t variable, const std::string& text) {
  samples[variable].good = true;
  samples[variable].bytes = text;
}

void World::refuse(uint32_t variable) {
  samples[variable] = {};
  samples[variable].variable = variable;
  samples[variable].reason = plc_client::Reason::kRefused;
  samples[variable].error = "refused by the controller";
}

std::string World::types() {
  std::string all;
  for (const Told& one : take()) all += (all.empty() ? "" : " ") + one.type;
  return all;
}

std::vector<Told> World::take() { return std::exchange(broker.told, {}); }

void World::command(const std::string& topic, const plc_gateway::schema::Payload& payload, bool retained) {
  node->on_message({topic, payload.SerializeAsString(), 1, retained});
}

void World::rebirth() {
  plc_gateway::schema::Payload payload;
  payload.set_timestamp(static_cast<uint64_t>(clock.wall));
  auto* metric = payload.add_metrics();
  metric->set_name("Node Control/Rebirth");
  metric->set_boolean_value(true);
  command("spBv1.0/Plant1/NCMD/node1", payload);
}

void bring_up(World& world) {
  world.let_broker_in();
  world.pass(1);
  world.pass(plc_gateway::kFenceMs);
  ASSERT_TRUE(world.acknowledge());
  world.take();
}

int32_t quality_of(const plc_gateway::schema::Metric& metric) {
  for (int i = 0; i < metric.properties().keys_size(); ++i) {
    if (metric.properties().keys(i) == "Quality")
      return static_cast<int32_t>(metric.properties().values(i).int_value());
  }
  return -1;
}

plc_gateway::schema::Payload speed_command(const World& world, uint32_t value) {
  plc_gateway::schema::Payload payload;
  payload.set_timestamp(static_cast<uint64_t>(world.clock.wall));
  plc_gateway::schema::Metric* metric = payload.add_metrics();
  metric->set_name("Speed");
  metric->set_timestamp(static_cast<uint64_t>(world.clock.wall));
  metric->set_int_value(value);
  return payload;
}

}  // namespace gateway_test
