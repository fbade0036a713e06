// What the standard wants of aliases, of the number of a connection, and of goodbyes.
#include <gtest/gtest.h>

#include <set>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace gateway_test {
namespace {

uint64_t bd_seq_of_will(const World& world) {
  plc_gateway::schema::Payload payload;
  payload.ParseFromString(world.broker.will->payload);
  return payload.metrics(0).long_value();
}

plc_gateway::EdgeNodeOptions with_primary_host() {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.session.topics = plc_gateway::Topics("Plant1", "node1", "press1", "scada");
  return options;
}

TEST(EdgeNode, EachMetricOfABirthButRebirth_HasAnAliasOfItsOwn) {
  World world;
  world.pass(50);
  world.let_broker_in();
  world.pass(50);
  std::set<uint64_t> aliases;
  size_t metrics = 0;
  for (const Told& birth : world.take()) {
    for (const auto& metric : birth.payload.metrics()) {
      EXPECT_EQ(metric.has_alias(), metric.name() != "Node Control/Rebirth") << metric.name();
      if (metric.has_alias()) aliases.insert(metric.alias());
      ++metrics;
    }
  }
  EXPECT_EQ(metrics, 13U);
  EXPECT_EQ(aliases.size(), metrics - 1);
}

TEST(EdgeNode, ResultOfACommand_IsToldByAliasAlone) {
  World world;
  world.pass(50);
  world.let_broker_in();
  world.pass(50);
  world.take();
  world.command("spBv1.0/Plant1/DCMD/node1/press1", plc_gateway::schema::Payload(), true);
  world.command("spBv1.0/Plant1/NCMD/node1", plc_gateway::schema::Payload(), true);
  world.node->on_message({"spBv1.0/Plant1/DCMD/node1/press1", "\xFF", 1, false});
  world.pass(150);
  const std::vector<Told> told = world.take();
  ASSERT_FALSE(told.empty());
  ASSERT_EQ(told[0].type, "NDATA");
  ASSERT_EQ(told[0].payload.metrics_size(), 6);
  for (const auto& metric : told[0].payload.metrics()) {
    EXPECT_TRUE(metric.has_alias());
    EXPECT_FALSE(metric.has_name());
  }
}

TEST(EdgeNode, NumberOfAConnectThatReachedNoBroker_IsThatOfTheNextOne) {
  World world;
  world.pass(0);
  EXPECT_EQ(bd_seq_of_will(world), 0U);
  world.broker.is_there = false;
  world.node->on_disconnected("nobody listens");
  world.pass(6000);
  EXPECT_EQ(bd_seq_of_will(world), 0U);
  world.broker.is_there = true;
  world.node->on_disconnected("refused");
  world.pass(6000);
  EXPECT_EQ(bd_seq_of_will(world), 1U);
}

// How long it takes from the loss of a session to the next connect.
Ms pause_of(World& world) {
  world.node->on_disconnected("lost");
  world.broker.events.clear();
  Ms passed = 0;
  for (; world.broker.events.empty() && passed < 10000; ++passed) world.pass(1);
  return passed;
}

TEST(EdgeNode, SessionThatIsLostBeforeItSettled_LengthensThePauseToTheNext) {
  World world;
  bring_up(world);
  world.pass(1000);
  EXPECT_EQ(pause_of(world), 100);
  for (const Ms pause : {200, 400, 800, 1600, 3200, 5000, 5000}) {
    world.let_broker_in();
    world.pass(900);
    world.acknowledge();
    EXPECT_EQ(pause_of(world), pause);
  }
  world.let_broker_in();
  world.pass(2000);  // and nothing is acknowledged
  EXPECT_EQ(pause_of(world), 5000);
  world.let_broker_in();
  world.pass(1000);
  ASSERT_TRUE(world.acknowledge());
  EXPECT_EQ(pause_of(world), 100);
}

TEST(EdgeNode, DataOfTheNode_WaitsForTheDevicesBirth) {
  World world;  // its first read is under way
  world.let_broker_in();
  world.node->on_message({"spBv1.0/Plant1/DCMD/node1/press1", "\xFF", 1, false});
  world.clock.steady += 200;
  world.node->on_time();
  EXPECT_EQ(world.types(), "NBIRTH fence");
  world.pass(50);
  EXPECT_EQ(world.types().substr(0, 12), "DBIRTH NDATA");
}

TEST(EdgeNode, DataOfTheNodeWhoseDeviceIsAway_IsTold) {
  World world;
  world.controller_answers = false;
  world.let_broker_in();
  world.node->on_message({"spBv1.0/Plant1/DCMD/node1/press1", "\xFF", 1, false});
  world.pass(50);
  EXPECT_EQ(world.types(), "NBIRTH NDATA");
}

TEST(EdgeNode, StopWhileThePrimaryHostIsWaitedFor_TellsTheDeathBeforeTheGoodbye) {
  World world(with_primary_host());
  world.pass(50);
  world.let_broker_in();
  world.broker.events.clear();
  world.node->stop();
  world.pass(0);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"NDEATH", "disconnect"}));
  EXPECT_TRUE(world.node->stopped());
}

TEST(EdgeNode, StopWhileAFenceBecomesOverdue_TellsTheDeathBeforeTheGoodbye) {
  World world;
  world.pass(50);
  world.let_broker_in();
  world.pass(100);
  ASSERT_TRUE(world.broker.fence);
  world.pass(world.options.session.keep_alive_ms - 200);
  world.broker.events.clear();
  world.node->stop();
  world.pass(1000);
  ASSERT_GE(world.broker.events.size(), 2U);
  EXPECT_EQ(std::vector<std::string>(world.broker.events.end() - 2, world.broker.events.end()),
            (std::vector<std::string>{"NDEATH", "disconnect"}));
  EXPECT_TRUE(world.node->stopped());
}

TEST(EdgeNode, StopBeforeTheBrokerAnswered_LeavesTheDeathToTheWill) {
  World world;
  world.pass(50);
  world.broker.events.clear();
  world.node->stop();
  world.pass(0);
  EXPECT_EQ(world.broker.events, (std::vector<std::string>{"drop"}));
  EXPECT_TRUE(world.node->stopped());
}

}  // namespace
}  // namespace gateway_test
