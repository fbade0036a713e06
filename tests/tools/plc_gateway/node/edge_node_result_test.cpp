// Tests of the edge node: each command has one result, in a message of its own.
#include <gtest/gtest.h>

#include <utility>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace {

using gateway_test::bring_up;
using gateway_test::speed_command;
using gateway_test::Told;
using gateway_test::World;
using plc_gateway::Ms;
using plc_gateway::schema::Metric;
using plc_gateway::schema::Payload;

constexpr char kResultTopic[] = "spBv1.0/Plant1/DCMD/node1/press1";

void end_write(World& world) {
  ASSERT_TRUE(world.controller.writing);
  world.controller.writing.reset();
  plc_gateway::WriteOutcome outcome;
  outcome.outcome = plc_client::Outcome::kDone;
  outcome.time = world.clock.wall;
  world.node->on_written(outcome);
}

std::string text_of(const Told& told, const std::string& name) {
  const Metric* metric = told.metric("Last Command/" + name);
  if (metric == nullptr) return "absent";
  if (metric->is_null()) return "null";
  return metric->has_string_value() ? metric->string_value() : std::to_string(metric->long_value());
}

// "Name=Value Result" of each result that was published, in order.
std::vector<std::string> results(World& world) {
  std::vector<std::string> all;
  for (const Told& one : world.take()) {
    if (one.type != "NDATA") continue;
    all.push_back(text_of(one, "Name") + "=" + text_of(one, "Value") + " " + text_of(one, "Result"));
  }
  return all;
}

void add_metric(Payload& payload, const World& world, const std::string& name, uint32_t value, Ms later) {
  Metric* metric = payload.add_metrics();
  metric->set_name(name);
  metric->set_timestamp(static_cast<uint64_t>(world.clock.wall + later));
  metric->set_int_value(value);
}

TEST(EdgeNode, CommandsOfOneMessage_EachHaveAResultAsTheyEnd) {
  World world;
  bring_up(world);
  Payload payload = speed_command(world, 99999);
  add_metric(payload, world, "Speed", 7, 1);
  add_metric(payload, world, "Foo", 1, 0);
  add_metric(payload, world, "Speed", 3, 2);
  world.command(kResultTopic, payload);
  EXPECT_EQ(results(world), (std::vector<std::string>{"Speed=99999 refused", "Foo=1 refused"}));
  end_write(world);
  EXPECT_EQ(results(world), (std::vector<std::string>{"Speed=7 done"}));
  world.pass(100);
  end_write(world);
  EXPECT_EQ(results(world), (std::vector<std::string>{"Speed=3 done"}));
}

TEST(EdgeNode, CommandsThatComeTogether_EachHaveAResultAtOnce) {
  World world;
  bring_up(world);
  for (const uint32_t value : {1U, 2U, 3U}) {
    world.command(kResultTopic, speed_command(world, value));
    ++world.clock.wall;
    end_write(world);
  }
  EXPECT_EQ(results(world), (std::vector<std::string>{"Speed=1 done", "Speed=2 done", "Speed=3 done"}));
}

TEST(EdgeNode, Result_SaysTheCommandsTimeBesideItsOwn) {
  World world;
  bring_up(world);
  const Ms sent = world.clock.wall;
  world.command(kResultTopic, speed_command(world, 0xFFFFFFFE));
  world.pass(5);
  end_write(world);
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.at(0).type, "NDATA");
  EXPECT_EQ(text_of(told[0], "Value"), "-2");
  EXPECT_EQ(text_of(told[0], "Command Time"), std::to_string(sent));
  EXPECT_EQ(text_of(told[0], "Time"), std::to_string(sent + 5));
}

TEST(EdgeNode, ResultOfACommandWithoutTimeAndValue_SaysNeither) {
  World world;
  bring_up(world);
  Payload payload;
  payload.add_metrics()->set_name("Speed");
  world.command(kResultTopic, payload);
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.at(0).type, "NDATA");
  EXPECT_EQ(text_of(told[0], "Name"), "Speed");
  EXPECT_EQ(text_of(told[0], "Value"), "null");
  EXPECT_EQ(text_of(told[0], "Command Time"), "null");
}

TEST(EdgeNode, ResultsWithoutABroker_WaitBehindTheBirthsWithTheLastPublishedOne) {
  World world;
  bring_up(world);
  world.command(kResultTopic, speed_command(world, 1));
  end_write(world);
  ++world.clock.wall;
  world.command(kResultTopic, speed_command(world, 2));
  world.node->on_disconnected("gone");
  end_write(world);
  world.take();
  world.pass(5000);
  world.let_broker_in();
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.at(0).type, "NBIRTH");
  EXPECT_EQ(text_of(told[0], "Value"), "1");
  ASSERT_EQ(told.at(1).type, "DBIRTH");
  ASSERT_EQ(told.at(2).type, "NDATA");
  EXPECT_EQ(text_of(told[2], "Value"), "2");
}

TEST(EdgeNode, FloodOfCommands_IsAnsweredUpToTheWindowAndThenUpToTheRoom) {
  World world;
  bring_up(world);
  for (int i = 0; i < 3000; ++i) world.node->on_message({kResultTopic, "\xFF", 1, false});
  EXPECT_EQ(world.node->counters().commands.at("malformed"), 3000U);
  EXPECT_EQ(world.ended.size(), 3000U);
  std::vector<Told> told;
  const auto gather = [&] {
    for (Told& one : world.take()) {
      if (one.type == "NDATA") told.push_back(std::move(one));
    }
  };
  gather();
  EXPECT_EQ(told.size(), 500U);
  for (int i = 0; i < 10; ++i) {
    world.acknowledge();
    world.pass(plc_gateway::kFenceMs);
    gather();
  }
  ASSERT_EQ(told.size(), 1501U);
  EXPECT_EQ(text_of(told[1499], "Result"), "refused");
  EXPECT_EQ(text_of(told[1500], "Result"), "unpublished");
  EXPECT_EQ(text_of(told[1500], "Reason"),
            "the results of 1500 more commands are not published: 1000 were waiting; the log has them, and the metrics "
            "count them");
}

TEST(EdgeNode, ResultBehindRoomAgain_IsItsOwn) {
  World world;
  bring_up(world);
  world.node->on_disconnected("gone");
  for (int i = 0; i < 1002; ++i) world.node->on_message({kResultTopic, "\xFF", 1, false});
  world.pass(5000);
  world.let_broker_in();
  world.take();
  world.node->on_message({kResultTopic, "\xFF", 1, false});
  std::vector<Told> told;
  for (int i = 0; i < 10; ++i) {
    world.acknowledge();
    world.pass(plc_gateway::kFenceMs);
    for (Told& one : world.take()) {
      if (one.type == "NDATA") told.push_back(std::move(one));
    }
  }
  ASSERT_GE(told.size(), 2U);
  EXPECT_EQ(text_of(told[told.size() - 2], "Result"), "unpublished");
  EXPECT_EQ(text_of(told.back(), "Result"), "refused");
}

TEST(EdgeNode, Stop_TellsThatWaitingCommandsWereNotBegunAndWaitsForTheOneThatWas) {
  World world;
  bring_up(world);
  world.command(kResultTopic, speed_command(world, 1));
  ++world.clock.wall;
  world.command(kResultTopic, speed_command(world, 2));
  world.node->stop();
  EXPECT_EQ(results(world), (std::vector<std::string>{"Speed=2 failed"}));
  EXPECT_EQ(world.ended.at(0).reason, "the gateway stopped before the write was begun");
  world.pass(plc_gateway::kFenceMs);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_FALSE(world.node->stopped());
  end_write(world);
  EXPECT_EQ(results(world), (std::vector<std::string>{"Speed=1 done"}));
  world.pass(plc_gateway::kFenceMs);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_TRUE(world.node->stopped());
}

TEST(EdgeNode, Stop_TellsThatNobodyKnowsOfAWriteThatIsNotAnswered) {
  World world;
  bring_up(world);
  world.command(kResultTopic, speed_command(world, 1));
  world.node->stop();
  world.pass(1001);
  EXPECT_TRUE(world.node->stopped());
  const std::vector<Told> told = world.take();
  ASSERT_GE(told.size(), 2U);
  EXPECT_EQ(text_of(told[told.size() - 2], "Result"), "unknown");
  EXPECT_EQ(text_of(told[told.size() - 2], "Reason"),
            "the gateway stopped before the controller answered: read the variable");
  EXPECT_EQ(told.back().type, "NDEATH");
}

}  // namespace
