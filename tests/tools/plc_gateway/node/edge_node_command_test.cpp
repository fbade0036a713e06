// Tests of the edge node: commands across restarts, clocks that are set back, and a disk that refuses.
#include <gtest/gtest.h>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace {

using gateway_test::bring_up;
using gateway_test::speed_command;
using gateway_test::World;
using plc_gateway::Ms;
using plc_gateway::schema::Payload;

constexpr char kCommandTopic[] = "spBv1.0/Plant1/DCMD/node1/press1";

// The process is killed at once, and the next one is up `later` on the wall clock.
void restart_later(World& world, Ms later) {
  world.restart();
  world.clock.steady += 60000;
  world.clock.wall += later;
  world.pass(1);
  bring_up(world);
}

TEST(EdgeNode, RepeatedCommandBehindARestartAndAClockSetBack_IsRefused) {
  World world;
  bring_up(world);
  const Payload payload = speed_command(world, 300);
  const Ms sent = world.clock.wall;
  world.command(kCommandTopic, payload);
  ASSERT_TRUE(world.controller.writing);
  restart_later(world, -2000);
  world.clock.wall = sent;
  world.command(kCommandTopic, payload);
  EXPECT_FALSE(world.controller.writing);
  EXPECT_EQ(world.node->counters().commands.at("repeated"), 1U);
  ASSERT_FALSE(world.ended.empty());
  EXPECT_EQ(world.ended.back().reason, "a command for it with the same time was taken already");
  ++world.clock.wall;
  world.command(kCommandTopic, speed_command(world, 301));
  EXPECT_TRUE(world.controller.writing);
}

TEST(EdgeNode, CommandThatIsBegun_IsKnownBehindAPowerCut) {
  World world;
  bring_up(world);
  world.command(kCommandTopic, speed_command(world, 300));
  ASSERT_TRUE(world.controller.writing);
  world.disk.stop();
  world.node.reset();
  world.journal.reset();
  world.disk.cut_power();
  world.restart();
  EXPECT_EQ(world.journal->command_times(), (plc_gateway::Journal::CommandTimes{{"Speed", world.clock.wall}}));
}

TEST(EdgeNode, CommandThatTheDiskCannotRemember_IsRefusedAndNotWritten) {
  World world;
  bring_up(world);
  world.disk.refuse(true);
  world.command(kCommandTopic, speed_command(world, 300));
  EXPECT_FALSE(world.controller.writing);
  EXPECT_EQ(world.node->counters().commands.at("disk"), 1U);
  ASSERT_FALSE(world.ended.empty());
  EXPECT_EQ(world.ended.back().result, "refused");
  EXPECT_EQ(world.ended.back().reason,
            "the journal's disk refuses to remember it, and a restarted gateway could carry it out again; see the disk "
            "of [journal] folder");
  world.disk.refuse(false);
  ++world.clock.wall;
  world.command(kCommandTopic, speed_command(world, 300));
  EXPECT_TRUE(world.controller.writing);
}

TEST(EdgeNode, CommandsThatAreRefusedOtherwise_DoNotTroubleTheDisk) {
  World world;
  bring_up(world);
  world.controller_answers = false;
  world.pass(500);
  const uint64_t operations = world.disk.operations();
  world.command(kCommandTopic, speed_command(world, 300));
  EXPECT_EQ(world.disk.operations(), operations);
  EXPECT_TRUE(world.journal->command_times().empty());
}

}  // namespace
