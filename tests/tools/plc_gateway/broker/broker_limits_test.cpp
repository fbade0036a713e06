// What a broker of MQTT 5 says of its limits when it takes the connection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "tests/tools/plc_gateway/broker/loop_run.h"
#include "tests/tools/plc_gateway/broker/wire_broker.h"
#include "tools/plc_gateway/broker/mosquitto_broker.h"
#include "tools/plc_gateway/node/birth_bytes.h"

namespace gateway_test {
namespace {

using plc_gateway::BrokerEvents;
using plc_gateway::BrokerOptions;
using plc_gateway::MosquittoBroker;
using testing::ElementsAre;
using namespace std::string_literals;

// A connection to a broker that greets with these bytes.
class BrokerLimits : public testing::Test {
 protected:
  void connect(const std::string& greeting) {
    fake = std::make_unique<WireBroker>([this, greeting](BrokerSide& side) {
      side.packet();
      side.send(greeting);
      length_seen = side.packet().size();
    });
    BrokerOptions five;
    five.host = "127.0.0.1";
    five.port = fake->port();
    five.client_id = "id";
    five.mqtt5 = true;
    BrokerEvents events;
    events.connected = [this] { happened.emplace_back("connected"); };
    events.disconnected = [this](const std::string& reason) { happened.push_back(reason); };
    broker = std::make_unique<MosquittoBroker>(loop.get(), five, events);
    EXPECT_EQ(broker->most_message_bytes(), std::nullopt);
    broker->connect({"spBv1.0/G/NDEATH/E", "gone", 1, false});
    ASSERT_TRUE(loop.run_until([this] { return !happened.empty(); }));
  }

  TestLoop loop;
  std::vector<std::string> happened;
  std::atomic<size_t> length_seen{0};
  std::unique_ptr<WireBroker> fake;
  std::unique_ptr<MosquittoBroker> broker;
};

const std::string kTakes400 = "\x20\x08\x00\x00\x05\x27\x00\x00\x01\x90"s;

TEST_F(BrokerLimits, LongestMessage_IsThatOfTheGreeting) {
  connect(kTakes400);
  EXPECT_THAT(happened, ElementsAre("connected"));
  EXPECT_EQ(broker->most_message_bytes(), 400U);
  broker->drop();
  EXPECT_EQ(broker->most_message_bytes(), std::nullopt);
}

TEST_F(BrokerLimits, MessageOfTheLongestLength_IsSentWithThatLength) {
  connect(kTakes400);
  EXPECT_EQ(plc_gateway::message_bytes("t", 393, 0), 400U);
  ASSERT_TRUE(broker->publish({"t", std::string(393, 'x'), 0, false}));
  ASSERT_TRUE(loop.run_until([this] { return length_seen != 0; }));
  EXPECT_EQ(length_seen, 400U);
}

TEST_F(BrokerLimits, BrokerWithoutQos1_IsToldWithWhatToDo) {
  const std::string told =
      "the broker takes no messages of QoS 1, which the gateway's will and fences need: raise its max_qos";
  connect("\x20\x05\x00\x00\x02\x24\x00"s);
  EXPECT_THAT(happened, ElementsAre(told));
}

TEST_F(BrokerLimits, WillThatIsRefusedForItsQos_IsToldWithWhatToDo) {
  connect("\x20\x03\x00\x9B\x00"s);
  EXPECT_THAT(happened, ElementsAre("the broker takes no messages of QoS 1, which the gateway's will and fences need: "
                                    "raise its max_qos"));
}

}  // namespace
}  // namespace gateway_test
