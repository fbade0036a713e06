// The broker's port against a broker of which every byte is the test's.
#include "tools/plc_gateway/broker/mosquitto_broker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <mutex>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/broker/loop_run.h"
#include "tests/tools/plc_gateway/broker/wire_broker.h"

namespace gateway_test {
namespace {

using plc_gateway::BrokerEvents;
using plc_gateway::BrokerOptions;
using plc_gateway::Message;
using plc_gateway::MosquittoBroker;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::string_literals;

const Message kWill{"spBv1.0/G/NDEATH/E", "gone", 1, false};

// What happened, as words, and what the fake saw, from another thread.
class BrokerTest : public testing::Test {
 protected:
  BrokerOptions options(uint16_t port) {
    BrokerOptions made;
    made.host = "127.0.0.1";
    made.port = port;
    made.client_id = "id";
    return made;
  }

  BrokerEvents events() {
    BrokerEvents made;
    made.connected = [this] { note("connected"); };
    made.disconnected = [this](const std::string& reason) { note("disconnected: " + reason); };
    made.subscribed = [this](bool ok) { note(ok ? "subscribed" : "not subscribed"); };
    made.acknowledged = [this](int id) { note("acknowledged " + std::to_string(id)); };
    made.message = [this](const Message& message) {
      note("message " + message.topic + " " + std::to_string(message.payload.size()) +
           (message.retained ? " old" : ""));
    };
    made.too_long = [this](const std::string& topic, size_t bytes) {
      note("too long " + topic + " " + std::to_string(bytes));
    };
    return made;
  }

  void note(const std::string& what) {
    happened.push_back(what);
    if (on_event) on_event(what);
  }

  bool run_until_noted(const std::string& what) {
    return loop.run_until([&] {
      return std::find_if(happened.begin(), happened.end(),
                          [&](const std::string& noted) { return noted.rfind(what, 0) == 0; }) != happened.end();
    });
  }

  void saw(const std::string& bytes) {
    const std::lock_guard<std::mutex> hold(lock);
    seen.push_back(bytes);
  }
  bool run_until_seen(size_t count) {
    return loop.run_until([&] {
      const std::lock_guard<std::mutex> hold(lock);
      return seen.size() >= count;
    });
  }

  // What is told of a broker that answers to CONNECT with these bytes and then hangs up.
  std::string told_of(const std::string& answer, const std::function<void(BrokerOptions&)>& change = nullptr) {
    happened.clear();
    WireBroker fake([&](BrokerSide& side) {
      side.packet();
      side.send(answer);
    });
    BrokerOptions wanted = options(fake.port());
    if (change) change(wanted);
    port_ = fake.port();
    MosquittoBroker broker(loop.get(), wanted, events());
    broker.connect(kWill);
    run_until_noted("disconnected");
    return happened.back();
  }

  TestLoop loop;
  std::vector<std::string> happened;
  std::function<void(const std::string&)> on_event;
  std::mutex lock;
  std::vector<std::string> seen;
  uint16_t port_ = 0;
};

TEST_F(BrokerTest, Connect_SendsIdWillAndCleanSession) {
  WireBroker fake([&](BrokerSide& side) {
    saw(side.packet());
    side.send(kAccepted);
    side.packet();
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  EXPECT_THAT(happened, IsEmpty());
  ASSERT_TRUE(run_until_noted("connected"));
  // Clean session, a will of QoS 1 that is not retained, ten seconds of keep-alive.
  EXPECT_THAT(seen,
              ElementsAre("\x10\x28\x00\x04MQTT\x04\x0E\x00\x0A\x00\x02id\x00\x12spBv1.0/G/NDEATH/E\x00\x04gone"s));
}

TEST_F(BrokerTest, ConnectOfMqtt5_TellsTheLongestMessageThatIsTaken) {
  WireBroker fake([&](BrokerSide& side) {
    saw(side.packet());
    side.send(kAccepted5);
    side.packet();
  });
  BrokerOptions five = options(fake.port());
  five.mqtt5 = true;
  MosquittoBroker broker(loop.get(), five, events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_THAT(seen[0], HasSubstr("\x27\x00\x04\x00\x00"s));
}

TEST_F(BrokerTest, Password_IsReadWithoutTheEndOfItsLine) {
  WireBroker fake([&](BrokerSide& side) {
    saw(side.packet());
    side.send(kAccepted);
    side.packet();
  });
  const plc_test::TempDir folder;
  BrokerOptions named = options(fake.port());
  named.username = "joe";
  named.password_file = folder.write("password", "secret\n");
  MosquittoBroker broker(loop.get(), named, events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].substr(seen[0].size() - 13), "\x00\x03joe\x00\x06secret"s);
}

TEST_F(BrokerTest, PasswordFileThatIsMissing_IsTold) {
  BrokerOptions named = options(1);
  named.password_file = "/nowhere/password";
  MosquittoBroker broker(loop.get(), named, events());
  broker.connect(kWill);
  EXPECT_THAT(happened, IsEmpty());
  ASSERT_TRUE(run_until_noted("disconnected"));
  EXPECT_THAT(happened, ElementsAre("disconnected: password_file: cannot read /nowhere/password: No such file or "
                                    "directory"));
}

// Each connection reads them anew, in the loop.
TEST_F(BrokerTest, PipeInThePlaceOfATlsFile_IsToldAndNotWaitedFor) {
  const plc_test::TempDir folder;
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const auto& [key, file] :
       {std::pair("ca_file", &BrokerOptions::ca_file), std::pair("cert_file", &BrokerOptions::cert_file),
        std::pair("key_file", &BrokerOptions::key_file)}) {
    BrokerOptions wanted = options(1);
    wanted.tls = true;
    wanted.*file = pipe;
    happened.clear();
    MosquittoBroker broker(loop.get(), wanted, events());
    broker.connect(kWill);
    ASSERT_TRUE(run_until_noted("disconnected"));
    EXPECT_THAT(happened, ElementsAre("disconnected: " + std::string(key) + ": cannot read " + pipe +
                                      ": it is not a regular file; correct the path, or let the gateway's user read "
                                      "it"));
  }
}

TEST_F(BrokerTest, Refusals_AreToldWithTheirRemedy) {
  EXPECT_EQ(
      told_of(refusal(5)),
      "disconnected: not authorised: the broker wants a user name and a password: set username and password_file");
  const plc_test::TempDir folder;
  const auto named = [](BrokerOptions& wanted) { wanted.username = "joe"; };
  EXPECT_EQ(told_of(refusal(4), named),
            "disconnected: not authorised: the broker does not take this user name without a password: set "
            "password_file");
  const auto with_password = [&](BrokerOptions& wanted) {
    wanted.username = "joe";
    wanted.password_file = folder.write("password", "secret\n");
  };
  EXPECT_EQ(told_of(refusal(4), with_password),
            "disconnected: not authorised: the broker does not take this user name with this password: see username, "
            "password_file and the broker's own list");
  EXPECT_EQ(told_of(refusal(1)), "disconnected: the broker does not speak MQTT 3.1.1: set mqtt_version = \"5\"");
  EXPECT_EQ(told_of(refusal(2)), "disconnected: the broker does not take the client id 'id'");
  EXPECT_EQ(told_of(refusal(3)), "disconnected: the broker is there and takes no clients now");
  const auto five = [](BrokerOptions& wanted) { wanted.mqtt5 = true; };
  EXPECT_EQ(told_of("\x20\x03\x00\x84\x00"s, five),
            "disconnected: the broker does not speak MQTT 5: set mqtt_version = \"3.1.1\"");
}

TEST_F(BrokerTest, BrokerThatHangsUpOrSpeaksOtherwise_IsTold) {
  for (const char* answer : {"", "HTTP/1.0 400 Bad Request\r\n\r\n"}) {
    EXPECT_EQ(told_of(answer),
              "disconnected: the broker closed the connection before it answered: see its log, and the url's port");
  }
  const std::string told = told_of("\xF0\x00"s);
  EXPECT_EQ(told, "disconnected: 127.0.0.1:" + std::to_string(port_) +
                      " does not speak MQTT as a broker should: see the url's port");
}

TEST_F(BrokerTest, BrokerThatAcceptsOneConnectionTwice_IsLeft) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted + kAccepted);
    saw(side.packet());
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("disconnected"));
  EXPECT_THAT(happened, ElementsAre("connected", "disconnected: 127.0.0.1:" + std::to_string(fake.port()) +
                                                     " does not speak MQTT as a broker should: it accepted one "
                                                     "connection twice; see the url's port"));
  ASSERT_TRUE(run_until_seen(1));
  EXPECT_THAT(seen, ElementsAre("")) << "the connection was ended";
}

TEST_F(BrokerTest, PortThatNobodyListensOn_IsTold) {
  const plc_test::LoopbackSocket taken(SOCK_STREAM);  // bound, so that nobody else listens there
  MosquittoBroker broker(loop.get(), options(taken.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("disconnected"));
  EXPECT_EQ(happened[0], "disconnected: connection refused: nothing listens on 127.0.0.1:" +
                             std::to_string(taken.port()) + ": start the broker, or see the url's host and port");
}

TEST_F(BrokerTest, NameWithoutAnAddress_IsTold) {
  BrokerOptions nowhere = options(1883);
  nowhere.host = "no.such.name.invalid";
  MosquittoBroker broker(loop.get(), nowhere, events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("disconnected"));
  EXPECT_THAT(happened[0], HasSubstr("'no.such.name.invalid'"));
}

TEST_F(BrokerTest, NameWithSeveralAddresses_IsTriedAtEachOfThem) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    side.packet();
  });
  BrokerOptions named = options(fake.port());
  named.host = "localhost";  // where the machine has ::1 too, nobody listens there
  MosquittoBroker broker(loop.get(), named, events());
  broker.connect(kWill);
  EXPECT_TRUE(run_until_noted("connected"));
}

TEST_F(BrokerTest, Messages_GoOutInTheirOrderAndThoseOfQos1AreAcknowledged) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    for (int i = 0; i < 4; ++i) saw(side.packet());
    // The second one first: which is which is in the number.
    side.send("\x40\x02\x00\x04"s);
    side.send("\x40\x02\x00\x02"s);
    side.packet();
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  EXPECT_EQ(broker.publish({"a", "1", 0, false}), std::optional<int>(1));
  EXPECT_EQ(broker.publish({"b", "2", 1, false}), std::optional<int>(2));
  EXPECT_EQ(broker.publish({"c", "3", 0, false}), std::optional<int>(3));
  EXPECT_EQ(broker.publish({"d", "4", 1, false}), std::optional<int>(4));
  ASSERT_TRUE(run_until_noted("acknowledged 2"));
  EXPECT_THAT(happened, ElementsAre("connected", "acknowledged 4", "acknowledged 2"));
  EXPECT_THAT(seen, ElementsAre("\x30\x04\x00\x01"
                                "a1"s,
                                "\x32\x06\x00\x01"
                                "b\x00\x02"
                                "2"s,
                                "\x30\x04\x00\x01"
                                "c3"s,
                                "\x32\x06\x00\x01"
                                "d\x00\x04"
                                "4"s));
}

TEST_F(BrokerTest, ManyUnacknowledgedMessages_AreAllSent) {
  constexpr int kMany = 500;
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    for (int i = 0; i < kMany; ++i) saw(side.packet());
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  for (int i = 0; i < kMany; ++i) ASSERT_TRUE(broker.publish({"a", "1", 1, false}));
  EXPECT_TRUE(run_until_seen(kMany));
}

TEST_F(BrokerTest, Subscription_IsToldAsTheBrokerGrantsIt) {
  for (const bool granted : {true, false}) {
    happened.clear();
    WireBroker fake([&](BrokerSide& side) {
      side.packet();
      side.send(kAccepted);
      saw(side.packet());
      side.send(granted ? "\x90\x04\x00\x01\x01\x01"s : "\x90\x04\x00\x01\x01\x80"s);
      side.packet();
    });
    MosquittoBroker broker(loop.get(), options(fake.port()), events());
    broker.connect(kWill);
    ASSERT_TRUE(run_until_noted("connected"));
    ASSERT_TRUE(broker.subscribe({"a/b", "c"}));
    EXPECT_TRUE(run_until_noted(granted ? "subscribed" : "not subscribed"));
    EXPECT_EQ(seen.back(),
              "\x82\x0C\x00\x01\x00\x03"
              "a/b\x01\x00\x01"
              "c\x01"s);
  }
}

TEST_F(BrokerTest, MessageThatIsTooLong_IsDroppedToldAndCounted) {
  const std::string longest(plc_gateway::kMostMessageFromBroker, 'x');
  // 262144 and 262145 bytes with the topic "t".
  const std::string fits = "\x31\x83\x80\x10\x00\x01t"s + longest;
  const std::string exceeds = "\x31\x84\x80\x10\x00\x01t"s + longest + "x";
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    side.send(exceeds + fits);
    side.packet();
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("message"));
  EXPECT_THAT(happened, ElementsAre("connected", "too long t 262145", "message t 262144 old"));
  EXPECT_EQ(broker.dropped_messages(), 1U);
}

TEST_F(BrokerTest, Disconnect_SendsWhatWaitsAndAGoodbyeWithoutAnEvent) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    for (int i = 0; i < 3; ++i) saw(side.packet());
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  ASSERT_TRUE(broker.publish({"a", "1", 0, false}));
  broker.disconnect();
  EXPECT_EQ(broker.publish({"a", "2", 0, false}), std::nullopt);
  ASSERT_TRUE(run_until_seen(3));
  EXPECT_TRUE(loop.run_until([&] { return !broker.is_leaving(); }));
  EXPECT_THAT(seen, ElementsAre("\x30\x04\x00\x01"
                                "a1"s,
                                "\xE0\x00"s, ""));
  EXPECT_THAT(happened, ElementsAre("connected"));
}

TEST_F(BrokerTest, Drop_EndsTheConnectionWithoutAWord) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    saw(side.packet());
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  broker.drop();
  ASSERT_TRUE(run_until_seen(1));
  EXPECT_THAT(seen, ElementsAre(""));
  EXPECT_THAT(happened, ElementsAre("connected"));
}

TEST_F(BrokerTest, DropWithinAnEvent_LeavesOutTheEventsBehindIt) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted +
              "\x30\x04\x00\x01"
              "t1\x30\x04\x00\x01"
              "t2"s);
    saw(side.packet());
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  on_event = [&](const std::string& what) {
    if (what.rfind("message", 0) == 0) broker.drop();
  };
  broker.connect(kWill);
  ASSERT_TRUE(run_until_seen(1));
  EXPECT_THAT(happened, ElementsAre("connected", "message t 1"));
}

TEST_F(BrokerTest, ConnectWithinTheEventOfALoss_ConnectsAgain) {
  std::atomic<int> connections{0};
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted);
    if (++connections > 1) side.packet();
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  on_event = [&](const std::string& what) {
    if (what.rfind("disconnected", 0) == 0) broker.connect(kWill);
  };
  broker.connect(kWill);
  ASSERT_TRUE(loop.run_until([&] { return happened.size() == 3; }));
  EXPECT_THAT(happened, ElementsAre("connected",
                                    "disconnected: the broker closed the connection: it was ended, or another client "
                                    "came with the id 'id' (two gateways of one group and edge node do so in turns)",
                                    "connected"));
}

TEST_F(BrokerTest, ConnectBehindAGoodbye_WaitsForItsEnd) {
  WireBroker fake([&](BrokerSide& side) {
    saw(side.packet().substr(0, 1));
    side.send(kAccepted);
    for (std::string packet = side.packet(); !packet.empty(); packet = side.packet()) saw(packet.substr(0, 1));
  });
  MosquittoBroker broker(loop.get(), options(fake.port()), events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  broker.disconnect();
  broker.connect(kWill);
  ASSERT_TRUE(run_until_seen(3));
  EXPECT_THAT(seen, ElementsAre("\x10", "\xE0", "\x10"));
}

TEST_F(BrokerTest, GoodbyeOfMqtt5_SaysThatTwoGatewaysHaveOneName) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted5 + "\xE0\x01\x8E"s);
    side.packet();
  });
  BrokerOptions five = options(fake.port());
  five.mqtt5 = true;
  MosquittoBroker broker(loop.get(), five, events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("disconnected"));
  EXPECT_EQ(happened.back(),
            "disconnected: another client came with this gateway's client id: two gateways must not have "
            "the same group and edge node");
}

TEST_F(BrokerTest, PublishThatMqtt5Refuses_IsNoAcknowledgment) {
  WireBroker fake([&](BrokerSide& side) {
    side.packet();
    side.send(kAccepted5);
    const std::string publish = side.packet();
    side.send("\x40\x03" + publish.substr(5, 2) + "\x87");  // not authorised
    side.packet();
  });
  BrokerOptions five = options(fake.port());
  five.mqtt5 = true;
  MosquittoBroker broker(loop.get(), five, events());
  broker.connect(kWill);
  ASSERT_TRUE(run_until_noted("connected"));
  ASSERT_TRUE(broker.publish({"t", "x", 1, false}));
  ASSERT_TRUE(run_until_noted("disconnected"));
  EXPECT_THAT(happened, ElementsAre("connected",
                                    "disconnected: the broker does not take what is published (Not authorized): let "
                                    "this user write the topics of the gateway, in the broker's access list"));
}

}  // namespace
}  // namespace gateway_test
