// States of the primary host that are not used, and why.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace gateway_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr Ms kHour = 3600000;

class HostStateOfANode : public testing::Test {
 protected:
  HostStateOfANode() : world(with_host()) {
    world.pass(1);
    world.let_broker_in();
  }

  plc_gateway::EdgeNodeOptions with_host() {
    plc_gateway::EdgeNodeOptions options = World::usual_options();
    options.session.topics = plc_gateway::Topics("Plant1", "node1", "press1", "scada");
    options.session.host_state_dropped = [this](const std::string& reason, const std::string& what_to_do) {
      reasons.push_back(reason);
      remedies.push_back(what_to_do);
    };
    return options;
  }

  void host_publishes(const std::string& text) { world.node->on_message({"spBv1.0/STATE/scada", text, 1, true}); }
  void host_says(bool online, Ms time) {
    host_publishes(std::string(R"({"online":)") + (online ? "true" : "false") +
                   ",\"timestamp\":" + std::to_string(time) + "}");
  }

  std::vector<std::string> reasons, remedies;
  World world;
};

// Clocks of hosts differ; only times of one host are compared.
TEST_F(HostStateOfANode, FarAheadOfThisClock_Counts) {
  host_says(true, world.clock.wall + kHour);
  EXPECT_EQ(world.types(), "NBIRTH DBIRTH");
  host_says(false, world.clock.wall);
  EXPECT_EQ(world.types(), "");
  EXPECT_THAT(reasons, ElementsAre("says offline, 3600000 ms before the last one that counts"));
  host_says(false, world.clock.wall + kHour);
  EXPECT_EQ(world.types(), "NDEATH");
}

TEST_F(HostStateOfANode, UsedBeforeTheClockWasSetBack_CountsOnTheNextConnection) {
  const Ms time = world.clock.wall;
  host_says(true, time);
  EXPECT_EQ(world.types(), "NBIRTH DBIRTH");
  world.clock.wall -= kHour;
  world.node->on_disconnected("lost");
  world.pass(200);
  world.let_broker_in();
  host_says(true, time);
  EXPECT_EQ(world.types(), "NBIRTH DBIRTH");
  EXPECT_THAT(reasons, IsEmpty());
}

TEST_F(HostStateOfANode, OlderThanTheLastOne_IsToldWithTheDifference) {
  const Ms now = world.clock.wall;
  host_says(true, now);
  host_says(false, now - 5);
  host_says(true, now - 70);
  EXPECT_THAT(reasons, ElementsAre("says offline, 5 ms before the last one that counts",
                                   "says online, 70 ms before the last one that counts"));
  EXPECT_THAT(remedies[0],
              HasSubstr("see the clock of the host, or of who else publishes its STATE, and start the gateway again: a "
                        "time in the future counts until then"));
}

TEST_F(HostStateOfANode, ThatCannotBeRead_IsToldAndLeavesTheLastOneInForce) {
  host_says(true, world.clock.wall);
  world.take();
  host_publishes(R"({"online": false})");
  host_publishes("OFFLINE");
  host_publishes("");
  EXPECT_THAT(reasons, ElementsAre("has no timestamp", "is not a JSON object",
                                   "is empty, as after its retained message was deleted"));
  EXPECT_EQ(remedies[0],
            "let the host publish {\"online\": true, \"timestamp\": MILLISECONDS SINCE 1970}, in at most 4096 bytes; "
            "its last state that could be read counts");
  world.pass(200);
  EXPECT_THAT(world.types(), Not(HasSubstr("NDEATH")));
}

}  // namespace
}  // namespace gateway_test
