// What the program logs of births and of the primary host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/plc_gateway/program/program_world.h"
#include "tests/tools/plc_gateway/program/subscriber.h"
#include "tests/tools/plc_gateway/tag_line.h"

namespace gateway_test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

TEST(GatewayProgramsLog, BirthsLongerThanBrokersMayTake_AreLoggedOnceWithTheirLength) {
  ProgramWorld world;
  std::string tags;
  for (int i = 10; i < 30; ++i) {
    tags += plc_gateway_test::tag_line("Table" + std::to_string(i), "LINT", "[0..1999]");
  }
  world.folder.write("machine.csv", tags);
  world.start_controller();
  world.start_broker();
  world.start_gateway({{"\"Motor.Speed\"", "\"Table*\""}});
  ASSERT_TRUE(world.logs("event=birth_long")) << world.log();
  const std::string log = world.log();
  EXPECT_THAT(log, ContainsRegex("level=info event=births_out bytes=[1-9][0-9]{2} unconfirmed_rows="));
  EXPECT_THAT(log, ContainsRegex("level=info event=device_birth_out device=device bytes=32[0-9]{4}\n"));
  EXPECT_THAT(log,
              ContainsRegex("level=warning event=birth_long topic=spBv1.0/Plant/DBIRTH/node/device bytes=32[0-9]{4} "
                            "reason=\"a broker that takes less may drop it without a word, and nobody knows the "
                            "aliases behind it\" what_to_do=\"let the broker take messages of 32[0-9]{4} bytes: "
                            "see message_size_limit and max_packet_size in mosquitto's configuration\"\n"));
  world.stop_broker();
  world.start_broker();
  ASSERT_TRUE(world.logs(" bd_seq=1\n")) << world.log();
  world.end_gateway();  // which has told its births by then
  const std::string whole = world.log();
  EXPECT_NE(whole.find("event=device_birth_out"), whole.rfind("event=device_birth_out"));
  EXPECT_EQ(whole.find("event=birth_long"), whole.rfind("event=birth_long"));
}

TEST(GatewayProgramsLog, BirthBeyondTheLimitThatABrokerNames_IsTheReasonOfTheLossBehindTheConnection) {
  ProgramWorld world;
  world.start_controller();
  world.start_broker("allow_anonymous true\nmax_packet_size 300\n");
  world.start_gateway({{"[sparkplug]", "mqtt_version = \"5\"\n[sparkplug]"}});
  ASSERT_TRUE(world.logs("event=broker_lost")) << world.log();
  EXPECT_THAT(world.log(),
              ContainsRegex("event=broker_connected [^\n]*\n[^\n]*event=broker_lost reason=\"the broker takes "
                            "messages of at most 300 bytes, NBIRTH has [0-9]{3}: raise its "
                            "max_packet_size\"\n"));
}

TEST(GatewayProgramsLog, StateOfTheHostThatCannotBeUsed_IsLoggedWithTheReason) {
  ProgramWorld world;
  world.start_controller();
  world.start_broker();
  Subscriber host(world.broker_port);
  world.start_gateway({{"[json]", "primary_host = \"scada\"\n[json]"}});
  ASSERT_TRUE(world.logs("event=waiting_for_host primary_host=scada\n")) << world.log();
  ASSERT_TRUE(host.say("spBv1.0/STATE/scada", R"({"online": true})"));
  ASSERT_TRUE(world.logs("event=host_state_dropped")) << world.log();
  EXPECT_THAT(
      world.log(),
      HasSubstr("level=warning event=host_state_dropped reason=\"the STATE of scada has no timestamp\" "
                "what_to_do=\"let the host publish {\\\"online\\\": true, \\\"timestamp\\\": MILLISECONDS SINCE "
                "1970}, in at most 4096 bytes; its last state that could be read counts\"\n"));
}

}  // namespace
}  // namespace gateway_test
