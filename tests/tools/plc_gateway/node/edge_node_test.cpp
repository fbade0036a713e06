// Tests of the edge node: what it says to the broker, in which order, and whom it obeys.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace {

using gateway_test::bring_up;
using gateway_test::quality_of;
using gateway_test::speed_command;
using gateway_test::Told;
using gateway_test::World;
using plc_gateway::schema::Metric;
using plc_gateway::schema::Payload;

// ---------------------------------------------------------------------------------------------------- births

TEST(EdgeNode, Connection_HasTheDeathAsItsWillAndTheSubscriptionBeforeTheBirths) {
  World world;
  ASSERT_TRUE(world.broker.will);
  EXPECT_EQ(world.broker.will->topic, "spBv1.0/Plant1/NDEATH/node1");
  EXPECT_EQ(world.broker.will->qos, 1);
  EXPECT_FALSE(world.broker.will->retained);
  Payload death;
  ASSERT_TRUE(death.ParseFromString(world.broker.will->payload));
  EXPECT_FALSE(death.has_seq());
  ASSERT_EQ(death.metrics_size(), 1);
  EXPECT_EQ(death.metrics(0).name(), "bdSeq");
  EXPECT_EQ(death.metrics(0).long_value(), 0U);
  world.pass(50);
  world.let_broker_in();
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"connect", "subscribe", "NBIRTH", "DBIRTH"}));
  EXPECT_EQ(world.broker.subscribed,
            (std::vector<std::string>{"spBv1.0/Plant1/NCMD/node1", "spBv1.0/Plant1/DCMD/node1/press1"}));
  const std::vector<Told> told = world.take();
  EXPECT_EQ(told[0].payload.seq(), 0U);
  EXPECT_EQ(told[0].metric("bdSeq")->long_value(), 0U);
  ASSERT_NE(told[0].metric("Node Control/Rebirth"), nullptr);
  EXPECT_FALSE(told[0].metric("Node Control/Rebirth")->boolean_value());
  EXPECT_EQ(told[1].payload.seq(), 1U);
  for (const Told& one : told) EXPECT_EQ(one.qos, 0);
}

TEST(EdgeNode, WithoutAController_BearsTheNodeAloneAndTheDeviceWhenItIsFound) {
  World world;
  world.controller_answers = false;
  world.pass(1);
  world.let_broker_in();
  EXPECT_EQ(world.types(), "NBIRTH");
  world.pass(900);
  EXPECT_EQ(world.types(), "fence");
  world.controller_answers = true;
  world.set(0, 7);
  world.pass(251);
  const std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told[0].type, "DBIRTH");
  ASSERT_NE(told[0].metric("Speed"), nullptr);
  EXPECT_EQ(told[0].metric("Speed")->int_value(), 7U);
}

TEST(EdgeNode, DeviceBirth_HoldsEveryVariableInTheOrderOfItsTimes) {
  World world;
  world.set(0, 0xFFFF);
  world.set(1, std::string("Lemon tart"));
  world.refuse(2);
  world.pass(1);
  world.let_broker_in();
  const Told birth = world.take()[1];
  ASSERT_EQ(birth.payload.metrics_size(), 3);
  uint64_t before = 0;
  for (const Metric& metric : birth.payload.metrics()) {
    EXPECT_GE(metric.timestamp(), before);
    before = metric.timestamp();
    EXPECT_TRUE(metric.has_alias());
  }
  EXPECT_EQ(birth.metric("Speed")->datatype(), 2U);
  EXPECT_EQ(birth.metric("Speed")->int_value(), 0xFFFFFFFFU);
  EXPECT_EQ(birth.metric("Name")->string_value(), "Lemon tart");
  EXPECT_TRUE(birth.metric("Level")->is_null());
  EXPECT_EQ(birth.metric("Level")->value_case(), Metric::VALUE_NOT_SET);
  EXPECT_EQ(quality_of(*birth.metric("Level")), 0);
}

TEST(EdgeNode, Rebirth_TellsBothBirthsAgainWithTheSameNumberOfTheConnection) {
  World world;
  bring_up(world);
  world.set(0, 5);
  world.pass(250);
  world.take();
  world.rebirth();
  world.pass(300);
  std::vector<Told> told = world.take();
  ASSERT_GE(told.size(), 2U);
  EXPECT_EQ(told[0].type, "NBIRTH");
  EXPECT_EQ(told[0].payload.seq(), 0U);
  EXPECT_EQ(told[0].metric("bdSeq")->long_value(), 0U);
  EXPECT_EQ(told[1].type, "DBIRTH");
  EXPECT_EQ(told[1].payload.seq(), 1U);
  EXPECT_EQ(told[1].metric("Speed")->int_value(), 5U);
  EXPECT_EQ(world.node->counters().rebirths, 1U);
}

TEST(EdgeNode, RebirthAskedForAgainAndAgain_IsCarriedOutAFewTimesASecond) {
  World world;
  bring_up(world);
  for (int i = 0; i < 1000; ++i) {
    world.rebirth();
    world.pass(1);
  }
  EXPECT_LE(world.node->counters().rebirths, 6U);
  EXPECT_GE(world.node->counters().rebirths, 4U);
}

TEST(EdgeNode, SubscriptionThatNobodyConfirms_IsNoConnectionAndIsTriedAgain) {
  World world;
  world.pass(1);
  world.node->on_connected();
  world.pass(9999);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"connect", "subscribe"})) << "and no births";
  EXPECT_FALSE(world.node->counters().broker_connected);
  EXPECT_EQ(world.node->counters().broker_connects, 0U);
  world.pass(1);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"connect", "subscribe", "drop", "connect"}));
  EXPECT_EQ(world.node->counters().broker_refused, 1U);
  EXPECT_EQ(world.node->broker_problem(),
            "the broker took the connection and does not confirm the subscription to commands within 10 s: see its log "
            "and its load, and whether the url's port is its own");
  world.let_broker_in();
  EXPECT_TRUE(world.node->counters().broker_connected);
  EXPECT_EQ(world.node->counters().broker_connects, 1U);
}

TEST(EdgeNode, ConnectThatNobodyAnswers_IsToldAndTriedAgainBehindAPause) {
  World world;
  world.pass(10000);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"connect", "drop", "connect"}));
  EXPECT_EQ(
      world.node->broker_problem(),
      "the broker does not answer to the connect within 10 s: see its log, and whether the url's port is its own");
  world.pass(10099);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"connect", "drop", "connect", "drop"}));
  world.pass(1);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"connect", "drop", "connect", "drop", "connect"}));
}

TEST(EdgeNode, EachConnection_HasTheNextNumberAlsoAfterAKill) {
  World world;
  world.let_broker_in();
  world.node->on_disconnected("reset");
  world.pass(200);
  Payload death;
  ASSERT_TRUE(world.broker.will);
  death.ParseFromString(world.broker.will->payload);
  EXPECT_EQ(death.metrics(0).long_value(), 1U);
  world.restart();
  ASSERT_TRUE(world.broker.will);
  death.ParseFromString(world.broker.will->payload);
  EXPECT_EQ(death.metrics(0).long_value(), 2U);
}

// ---------------------------------------------------------------------------------------------------- live data

TEST(EdgeNode, Change_IsPublishedByAliasAloneWithTheTimeOfItsReading) {
  World world;
  bring_up(world);
  const uint64_t alias = world.journal->alias(0);
  world.set(0, 120);
  world.pass(200);
  const std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told[0].type, "DDATA");
  EXPECT_EQ(told[0].topic, "spBv1.0/Plant1/DDATA/node1/press1");
  ASSERT_EQ(told[0].payload.metrics_size(), 1);
  const Metric& metric = told[0].payload.metrics(0);
  EXPECT_EQ(metric.alias(), alias);
  EXPECT_FALSE(metric.has_name());
  EXPECT_FALSE(metric.has_datatype());
  EXPECT_FALSE(metric.is_historical());
  EXPECT_FALSE(metric.has_properties());
  EXPECT_EQ(metric.int_value(), 120U);
  EXPECT_LE(metric.timestamp(), static_cast<uint64_t>(world.clock.wall));
  EXPECT_GT(metric.timestamp(), static_cast<uint64_t>(world.clock.wall) - 200);
}

TEST(EdgeNode, ValueThatDoesNotChange_IsNotPublishedAgain) {
  World world;
  bring_up(world);
  world.pass(5000);
  EXPECT_EQ(world.types(), "");
  EXPECT_GE(world.node->counters().groups[0].polls, 45U);
}

TEST(EdgeNode, VariableThatIsRefused_IsPublishedOnceWithoutAValueAndGoodAgainWithItsQuality) {
  World world;
  world.set(0, 3);
  bring_up(world);
  world.refuse(0);
  world.pass(500);
  std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  const Metric lost = told[0].payload.metrics(0);
  EXPECT_TRUE(lost.is_null());
  EXPECT_EQ(lost.value_case(), Metric::VALUE_NOT_SET);
  EXPECT_EQ(quality_of(lost), 0);
  for (size_t i = 1; i < told.size(); ++i) EXPECT_EQ(told[i].type, "fence");
  world.acknowledge();
  world.set(0, 3);
  world.pass(200);
  told = world.take();
  ASSERT_FALSE(told.empty());
  const Metric found = told[0].payload.metrics(0);
  EXPECT_EQ(found.int_value(), 3U);
  EXPECT_EQ(quality_of(found), 192);
}

TEST(EdgeNode, NumbersOfMessages_RunFrom0To255AndRoundWithoutAGap) {
  World world;
  world.let_broker_in();
  unsigned expected = 0;
  for (uint32_t i = 1; i <= 600; ++i) {
    world.set(0, i);
    world.pass(100);
    world.acknowledge();
    for (const Told& one : world.take()) {
      if (one.type == "fence") continue;
      ASSERT_EQ(one.payload.seq(), expected) << one.type;
      expected = (expected + 1) % 256;
    }
  }
}

// ---------------------------------------------------------------------------------------------------- the controller

TEST(EdgeNode, LostController_IsToldAsTheDevicesDeathAndNoDataFollows) {
  World world;
  bring_up(world);
  world.controller_answers = false;
  world.pass(3000);
  std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told[0].type, "DDEATH");
  EXPECT_TRUE(told[0].payload.has_seq());
  for (size_t i = 1; i < told.size(); ++i) EXPECT_EQ(told[i].type, "fence");
  world.controller_answers = true;
  world.set(0, 9);
  world.pass(300);
  told = world.take();
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told[0].type, "DBIRTH");
  EXPECT_EQ(told[0].metric("Speed")->int_value(), 9U);
  for (size_t i = 1; i < told.size(); ++i) EXPECT_NE(told[i].type, "DDATA");
}

TEST(EdgeNode, ControllerLostWhileTheBrokerWasGone_IsHistoryWithoutValues) {
  World world;
  world.set(0, 1);
  bring_up(world);
  world.node->on_disconnected("reset");
  world.pass(1);
  world.controller_answers = false;
  world.pass(500);
  world.controller_answers = true;
  world.set(0, 2);
  world.pass(500);
  world.let_broker_in();
  world.pass(200);
  const std::vector<Told> told = world.take();
  std::vector<std::string> speeds;
  const uint64_t alias = world.journal->alias(0);
  for (const Told& one : told) {
    if (one.type != "DDATA") continue;
    for (const Metric& metric : one.payload.metrics()) {
      EXPECT_TRUE(metric.is_historical());
      if (metric.alias() == alias) speeds.push_back(metric.is_null() ? "null" : std::to_string(metric.int_value()));
    }
  }
  EXPECT_EQ(speeds, (std::vector<std::string>{"null", "2"}));
}

// ---------------------------------------------------------------------------------------------------- primary host

plc_gateway::EdgeNodeOptions with_host() {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.session.topics = plc_gateway::Topics("Plant1", "node1", "press1", "scada");
  return options;
}

void host_says(World& world, bool online, plc_gateway::Ms time) {
  world.node->on_message(
      {"spBv1.0/STATE/scada",
       std::string("{\"online\":") + (online ? "true" : "false") + ",\"timestamp\":" + std::to_string(time) + "}", 1,
       true});
}

TEST(EdgeNode, PrimaryHost_IsWaitedFor) {
  World world(with_host());
  world.let_broker_in();
  world.pass(1000);
  EXPECT_EQ(world.types(), "");
  EXPECT_EQ(world.broker.subscribed.back(), "spBv1.0/STATE/scada");
  host_says(world, false, 50);
  EXPECT_EQ(world.types(), "");
  host_says(world, true, 49);
  EXPECT_EQ(world.types(), "") << "older than the last state";
  host_says(world, true, 50);
  EXPECT_EQ(world.types(), "NBIRTH DBIRTH");
}

TEST(EdgeNode, PrimaryHostThatGoes_IsAnsweredWithTheNodesDeathAndANewConnection) {
  World world(with_host());
  world.pass(1);
  world.let_broker_in();
  host_says(world, true, 100);
  world.take();
  world.broker.events.clear();
  host_says(world, false, 99);
  EXPECT_EQ(world.broker.events, std::vector<std::string>{}) << "an older connection's death, delivered late";
  host_says(world, false, 100);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"NDEATH", "disconnect"}));
  const std::vector<Told> told = world.take();
  EXPECT_FALSE(told[0].payload.has_seq());
  EXPECT_EQ(told[0].payload.metrics(0).long_value(), 0U);
  world.pass(200);
  EXPECT_EQ(world.broker.events.back(), "connect");
  world.let_broker_in();
  world.pass(500);
  EXPECT_EQ(world.types(), "");
  host_says(world, true, 101);
  EXPECT_EQ(world.types(), "NBIRTH DBIRTH");
}

// ---------------------------------------------------------------------------------------------------- commands

TEST(EdgeNode, ListedCommand_IsWrittenOnceAndItsResultTold) {
  World world;
  bring_up(world);
  world.command("spBv1.0/Plant1/DCMD/node1/press1", speed_command(world, 300));
  ASSERT_TRUE(world.controller.writing);
  EXPECT_EQ(world.controller.writing->rule, 0U);
  EXPECT_EQ(world.controller.writing->value.bits(), 300U);
  world.controller.writing.reset();
  plc_gateway::WriteOutcome outcome;
  outcome.outcome = plc_client::Outcome::kDone;
  outcome.time = world.clock.wall;
  world.node->on_written(outcome);
  world.pass(150);
  EXPECT_FALSE(world.controller.writing);
  const std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  ASSERT_EQ(told[0].type, "NDATA");
  EXPECT_EQ(told[0].metric("Last Command/Name")->string_value(), "Speed");
  EXPECT_EQ(told[0].metric("Last Command/Result")->string_value(), "done");
  EXPECT_EQ(world.node->counters().commands.at("done"), 1U);
}

TEST(EdgeNode, CommandForAVariableThatIsNotListed_IsRefusedAndCounted) {
  World world;
  bring_up(world);
  Payload payload = speed_command(world, 1);
  payload.mutable_metrics(0)->set_name("Level");
  world.command("spBv1.0/Plant1/DCMD/node1/press1", payload);
  world.pass(150);
  EXPECT_FALSE(world.controller.writing);
  EXPECT_EQ(world.node->counters().commands.at("not-listed"), 1U);
  EXPECT_EQ(world.take()[0].metric("Last Command/Result")->string_value(), "refused");
}

TEST(EdgeNode, CommandWhileTheControllerIsLost_IsRefusedAndNeverWrittenLater) {
  World world;
  bring_up(world);
  world.controller_answers = false;
  world.pass(500);
  world.command("spBv1.0/Plant1/DCMD/node1/press1", speed_command(world, 300));
  world.controller_answers = true;
  world.pass(1000);
  EXPECT_FALSE(world.controller.writing);
  EXPECT_EQ(world.node->counters().commands.at("device-lost"), 1U);
}

// ---------------------------------------------------------------------------------------------------- the end

TEST(EdgeNode, Stop_WaitsForTheLastFenceAndTellsTheNodesDeath) {
  World world;
  bring_up(world);
  world.set(0, 2);
  world.pass(100);
  world.take();
  world.node->stop();
  EXPECT_FALSE(world.node->stopped());
  ASSERT_TRUE(world.acknowledge());
  EXPECT_TRUE(world.node->stopped());
  EXPECT_EQ(world.journal->counters().rows, 0U);
  ASSERT_GE(world.broker.events.size(), 2U);
  EXPECT_EQ(world.broker.events[world.broker.events.size() - 2], "NDEATH");
  EXPECT_EQ(world.broker.events.back(), "disconnect");
}

TEST(EdgeNode, Stop_DoesNotWaitForABrokerThatIsSilent) {
  World world;
  bring_up(world);
  world.set(0, 2);
  world.pass(100);
  world.node->stop();
  world.pass(1001);
  EXPECT_TRUE(world.node->stopped());
  EXPECT_EQ(world.journal->counters().rows, 1U);
}

}  // namespace
