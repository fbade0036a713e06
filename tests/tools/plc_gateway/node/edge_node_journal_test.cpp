// Tests of the edge node: what it keeps until the broker has it, what becomes history, and its second form.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace {

using gateway_test::bring_up;
using gateway_test::Told;
using gateway_test::World;
using plc_gateway::schema::Metric;

// ---------------------------------------------------------------------------------------------------- nothing lost

TEST(EdgeNode, RowThatAFenceCovers_LeavesTheJournalWhenTheFenceIsAcknowledged) {
  World world;
  bring_up(world);
  EXPECT_EQ(world.journal->counters().rows, 0U);
  world.set(0, 2);
  world.pass(100);
  EXPECT_EQ(world.journal->counters().rows, 1U);
  world.pass(plc_gateway::kFenceMs);
  EXPECT_EQ(world.journal->counters().rows, 1U);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_EQ(world.journal->counters().rows, 0U);
}

TEST(EdgeNode, RowPublishedBehindAFence_StaysWhenThatFenceIsAcknowledged) {
  World world;
  bring_up(world);
  world.set(0, 2);
  world.pass(200);
  ASSERT_TRUE(world.broker.fence);
  world.set(0, 3);
  world.pass(100);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_EQ(world.journal->counters().rows, 1U);
}

TEST(EdgeNode, WhatWasNotFenced_IsPublishedAgainAsHistoryBehindTheBirths) {
  World world;
  bring_up(world);
  world.set(0, 2);
  world.pass(100);
  world.set(0, 3);
  world.pass(100);
  world.node->on_disconnected("reset");
  world.set(0, 4);
  world.pass(150);
  world.take();
  world.let_broker_in();
  world.pass(50);
  const std::vector<Told> told = world.take();
  ASSERT_GE(told.size(), 3U);
  EXPECT_EQ(told[0].type, "NBIRTH");
  EXPECT_EQ(told[1].type, "DBIRTH");
  EXPECT_EQ(told[1].metric("Speed")->int_value(), 4U);
  std::vector<uint32_t> history;
  for (size_t i = 2; i < told.size(); ++i) {
    for (const Metric& metric : told[i].payload.metrics()) {
      EXPECT_TRUE(metric.is_historical());
      history.push_back(metric.int_value());
    }
  }
  EXPECT_EQ(history.size(), world.node->counters().values_historical);
  ASSERT_GE(history.size(), 2U);
  EXPECT_EQ(history[0], 2U);
  EXPECT_EQ(history[1], 3U);
  world.pass(plc_gateway::kFenceMs);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_EQ(world.journal->counters().rows, 0U);
}

TEST(EdgeNode, WhatAKilledProcessLeft_IsHistoryOfTheNext) {
  World world;
  bring_up(world);
  world.node->on_disconnected("reset");
  for (uint32_t i = 10; i < 20; ++i) {
    world.set(0, i);
    world.pass(100);
  }
  world.restart();
  world.pass(50);
  world.let_broker_in();
  world.pass(200);
  std::vector<uint32_t> history;
  for (const Told& one : world.take()) {
    if (one.type != "DDATA") continue;
    for (const Metric& metric : one.payload.metrics()) history.push_back(metric.int_value());
  }
  ASSERT_GE(history.size(), 9U);
  EXPECT_TRUE(std::is_sorted(history.begin(), history.end()));
  EXPECT_EQ(history.front(), 10U);
}

TEST(EdgeNode, HistoryOfManyRows_GoesOutAtABoundedRateBesideLiveValues) {
  World world;
  bring_up(world);
  world.node->on_disconnected("reset");
  for (uint32_t i = 0; i < 3000; ++i) {
    world.set(0, 1000 + i);
    world.pass(100);
  }
  world.let_broker_in();
  world.pass(1);
  world.set(0, 5);
  world.pass(110);
  bool live_seen = false;
  for (const Told& one : world.take()) {
    for (const Metric& metric : one.payload.metrics()) live_seen |= one.type == "DDATA" && !metric.is_historical();
  }
  EXPECT_TRUE(live_seen);
  EXPECT_LE(world.node->counters().values_historical, 2300U);
  for (int i = 0; i < 20; ++i) {
    world.acknowledge();
    world.pass(50);
  }
  world.acknowledge();
  EXPECT_GE(world.node->counters().values_historical, 2990U);
  EXPECT_EQ(world.journal->counters().rows, 0U);
}

TEST(EdgeNode, BrokerThatAcknowledgesNothing_IsLeftAfterTheKeepAlive) {
  World world;
  bring_up(world);
  world.set(0, 2);
  world.pass(200);
  world.pass(world.options.session.keep_alive_ms);
  EXPECT_EQ(world.node->counters().fences_overdue, 1U);
  EXPECT_NE(std::find(world.broker.events.begin(), world.broker.events.end(), "drop"), world.broker.events.end());
  EXPECT_GE(world.journal->counters().rows, 1U);
}

TEST(EdgeNode, BrokerThatAcknowledgesNothing_IsSentABoundedAmount) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.periods = {1, 1000};
  World world(options);
  bring_up(world);
  for (uint32_t i = 0; i < 5000; ++i) {
    world.set(0, i);
    world.pass(1);
  }
  EXPECT_LE(world.take().size(), 1010U);
}

TEST(EdgeNode, BrokersConnectionThatTakesNoMessage_IsLeft) {
  World world;
  bring_up(world);
  world.broker.takes_messages = false;
  world.set(0, 2);
  world.pass(100);
  EXPECT_FALSE(world.node->counters().broker_connected);
  EXPECT_EQ(world.journal->counters().rows, 1U);
  EXPECT_NE(world.node->broker_problem(), "");
}

// ---------------------------------------------------------------------------------------------------- clock set back

// So that the next poll, 100 ms later, has the time of the last one.
void read_again_at_the_same_time(World& world, uint32_t value) {
  world.clock.wall -= 100;
  world.set(0, value);
  world.pass(100);
}

TEST(EdgeNode, HistoryWithTheTimeOfTheBirthsValueAndAnother_IsPublished) {
  World world;
  bring_up(world);
  world.node->on_disconnected("reset");
  world.set(0, 5);
  world.pass(100);
  read_again_at_the_same_time(world, 7);
  world.let_broker_in();
  world.pass(50);
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[1].metric("Speed")->int_value(), 7U);
  ASSERT_EQ(told[2].type, "DDATA");
  ASSERT_EQ(told[2].payload.metrics_size(), 1);
  EXPECT_EQ(told[2].payload.metrics(0).int_value(), 5U);
  EXPECT_EQ(told[2].payload.metrics(0).timestamp(), told[1].metric("Speed")->timestamp());
  EXPECT_TRUE(told[2].payload.metrics(0).is_historical());
}

TEST(EdgeNode, LiveValueAndTimeThatTheBirthHadToo_ArePublished) {
  World world;
  bring_up(world);
  world.set(0, 5);
  world.pass(100);
  world.rebirth();
  world.pass(10);
  world.set(0, 6);
  world.pass(90);
  world.take();
  world.clock.wall -= 100;
  read_again_at_the_same_time(world, 5);
  const std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  ASSERT_EQ(told[0].type, "DDATA");
  EXPECT_EQ(told[0].payload.metrics(0).int_value(), 5U);
}

TEST(EdgeNode, ChangeOfAPollUnderWayThatTheBirthHas_IsNotPublishedAgain) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.pieces = {{0, {0}}, {0, {1}}, {1, {2}}};
  World world(options);
  bring_up(world);
  world.node->on_disconnected("reset");
  world.set(0, 5);
  world.clock.steady += 100;
  world.clock.wall += 100;
  world.node->on_time();
  ASSERT_EQ(world.controller.reading, 0U);
  world.answer_read();
  world.let_broker_in();
  ASSERT_EQ(world.controller.reading, 1U);
  world.answer_all();
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[1].metric("Speed")->int_value(), 5U);
  world.pass(plc_gateway::kFenceMs);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_EQ(world.journal->counters().rows, 0U);
}

TEST(EdgeNode, FirstValuesAtAnImmediateStop_AreNoHistoryOfTheNextProcess) {
  World world;
  world.pass(1);
  world.let_broker_in();
  EXPECT_EQ(world.journal->counters().rows, 1U);
  world.node->stop();
  ASSERT_TRUE(world.acknowledge());
  EXPECT_TRUE(world.node->stopped());
  EXPECT_EQ(world.journal->counters().rows, 0U);
}

// ---------------------------------------------------------------------------------------------------- without a value

// The birth says it all: that there is no value, and since when.
TEST(EdgeNode, RefusedVariableOfTheFirstBirth_IsNoHistoryBehindIt) {
  World world;
  world.refuse(0);
  world.pass(1);
  world.let_broker_in();
  world.pass(plc_gateway::kFenceMs);
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.size(), 3U);
  ASSERT_EQ(told[1].type, "DBIRTH");
  EXPECT_EQ(gateway_test::quality_of(*told[1].metric("Speed")), 0);
  EXPECT_EQ(told[2].type, "fence");
  ASSERT_TRUE(world.acknowledge());
  EXPECT_EQ(world.node->counters().values_historical, 0U);
  EXPECT_EQ(world.journal->counters().rows, 0U);
}

TEST(EdgeNode, RefusedVariableOfAControllerThatReturns_IsNoHistoryBehindTheBirth) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.session.json_topic = "plant1/press1/{name}";
  World world(options);
  world.refuse(0);
  bring_up(world);
  world.controller_answers = false;
  world.pass(500);
  world.acknowledge();
  world.take();
  world.controller_answers = true;
  world.pass(500);
  size_t births = 0;
  for (const Told& one : world.take()) {
    if (one.type == "DBIRTH") ++births;
    EXPECT_NE(one.type, "DDATA");
    EXPECT_EQ(one.text.find("historical"), std::string::npos) << one.text;
  }
  EXPECT_EQ(births, 1U);
  EXPECT_EQ(world.node->counters().values_historical, 0U);
}

TEST(EdgeNode, RefusalWhileTheBrokerWasGone_IsHistoryWithItsOwnTime) {
  World world;
  bring_up(world);
  world.node->on_disconnected("reset");
  world.refuse(0);
  world.pass(200);
  world.let_broker_in();
  world.pass(50);
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told.size(), 3U);
  ASSERT_EQ(told[2].type, "DDATA");
  ASSERT_EQ(told[2].payload.metrics_size(), 1);
  EXPECT_TRUE(told[2].payload.metrics(0).is_null());
  EXPECT_TRUE(told[2].payload.metrics(0).is_historical());
  EXPECT_EQ(told[2].payload.metrics(0).timestamp() + 100, told[1].metric("Speed")->timestamp());
}

// ---------------------------------------------------------------------------------------------------- JSON

TEST(EdgeNode, JsonForm_IsPublishedForEachChangeWithQos1AndNotRetained) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.session.json_topic = "plant1/press1/{name}";
  World world(options);
  bring_up(world);
  world.set(0, 42);
  world.pass(100);
  const std::vector<Told> told = world.take();
  ASSERT_GE(told.size(), 2U);
  EXPECT_EQ(told[0].type, "json");
  EXPECT_EQ(told[0].topic, "plant1/press1/Speed");
  EXPECT_EQ(told[0].qos, 1);
  EXPECT_NE(told[0].text.find("\"value\":42"), std::string::npos) << told[0].text;
  EXPECT_EQ(told[1].type, "DDATA");
}

// A gateway without [json] has polled it; a broker's library refuses such a topic each time.
TEST(EdgeNode, FormerVariableWhoseNameNoTopicMayHold_IsHistoryWithoutJson) {
  plc_gateway::EdgeNodeOptions before = World::usual_options();
  before.variables[1].name = "Na\x01me";
  World world(before);
  bring_up(world);
  world.node->on_disconnected("reset");
  world.set(0, 42);
  world.set(1, "old");
  world.pass(100);

  world.options.variables.erase(world.options.variables.begin() + 1);
  world.options.pieces = {{0, {0}}, {1, {1}}};
  world.options.session.json_topic = "plant1/press1/{name}";
  world.restart();
  world.pass(50);
  world.let_broker_in();
  world.pass(200);
  size_t historical_texts = 0;
  for (const Told& one : world.take()) {
    if (one.type == "json") {
      EXPECT_EQ(one.topic.find("Na"), std::string::npos) << one.topic;
    }
    if (one.type != "DDATA") continue;
    for (const Metric& metric : one.payload.metrics()) historical_texts += metric.string_value() == "old" ? 1U : 0U;
  }
  EXPECT_EQ(historical_texts, 1U);
}

TEST(EdgeNode, MessageThatCouldNotBeSent_LeavesNothingInTheNextBirth) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.session.json_topic = "plant1/press1/{name}";
  World world(options);
  bring_up(world);
  world.broker.takes_messages = false;
  world.set(0, 42);
  world.pass(100);
  world.broker.takes_messages = true;
  world.pass(200);
  world.take();
  world.let_broker_in();
  const std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told[0].type, "NBIRTH");
  for (const Metric& metric : told[0].payload.metrics()) EXPECT_NE(metric.name(), "");
}

TEST(EdgeNode, LostController_HasNoValuesInTheJsonForm) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.session.json_topic = "plant1/press1/{name}";
  World world(options);
  bring_up(world);
  world.controller_answers = false;
  world.pass(200);
  size_t unknown = 0;
  for (const Told& one : world.take()) {
    if (one.type != "json") continue;
    ++unknown;
    EXPECT_EQ(one.text.find(R"({"value":null,"quality":"bad","reason":"no-answer","time":)"), 0U) << one.text;
  }
  EXPECT_EQ(unknown, 3U);
}

}  // namespace
