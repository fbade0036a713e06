// What goes wrong in the world stands in the results: a value that was not read has no value, and a write says whether
// anybody knows what became of it.
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

#include "tests/client/controller/controller_fixture.h"
#include "tests/support/descriptors.h"

namespace plc_client_test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::chrono::seconds kLongPause{1000};  // does not pass while a test runs

class WorldTest : public ControllerTest {
 protected:
  void SetUp() override {
    start(tag_line("Word", "INT") + tag_line("Other", "INT") + tag_line("Third", "INT") +
          tag_line("Long", "LINT", "[0..99]") + tag_line("Text", "STRING", "", "300") + tag_line("Small", "SINT") +
          tag_line("Bits", "BOOL", "[0..15]") + tag_line("S.Bit", "BOOL", "", "", "", "MR0") +
          tag_line("S.Bits", "BOOL", "[0..4]", "", "", "DM0") + tag_line("EmBits", "BOOL", "[0..4]", "", "", "EM0") +
          tag_line("Grid", "DINT", "[0..9_0..29]"));
  }
  // Pauses that a test has not to wait for, one second for a reply, and each change of the connection in changes_.
  Options patient() {
    Options patient = options();
    patient.first_pause = kLongPause;
    patient.longest_pause = 3 * kLongPause;
    patient.reply_timeout_s = 1;
    patient.on_state = [this](const plc_client::State& state) { changes_.push_back(state.connected); };
    return patient;
  }
  std::string address() const { return "127.0.0.1:" + std::to_string(sim_->port()); }
  // Every connection ends behind the controller's back.
  void cut_connections() {
    sim_->tell("fault gone");
    sim_->tell("fault clear");
  }
  static uint64_t failures(const Controller& controller, Reason reason) {
    return controller.state().failures[static_cast<size_t>(reason)];
  }
  // The seconds of "...; the next attempt is in 1000.0 s".
  static double pause_of(const std::string& text) {
    const size_t at = text.find("; the next attempt is in ");
    return at == std::string::npos ? -1 : std::strtod(text.c_str() + at + 25, nullptr);
  }

  std::vector<bool> changes_;
};

TEST_F(WorldTest, NothingListens_ReadsAreBadAndSayWhy) {
  sim_->tell("fault gone");
  Controller controller(patient());
  const plc_client::TimePoint before = std::chrono::system_clock::now();
  const Reading reading = controller.read("Word");
  EXPECT_EQ(reading.quality, Quality::kBad);
  EXPECT_FALSE(reading.value.has_value());
  EXPECT_EQ(reading.error.reason, Reason::kNoConnection);
  EXPECT_EQ(reading.error.text, "refused: nothing listens on " + address() + " (2)");
  EXPECT_EQ(reading.error.advice, "Check the port, and whether the controller's host link is switched on.");
  EXPECT_GE(reading.time, before);
  EXPECT_LE(reading.time, std::chrono::system_clock::now());
  EXPECT_FALSE(controller.state().connected);
  EXPECT_EQ(controller.state().last_error.text, reading.error.text);
  EXPECT_EQ(failures(controller, Reason::kNoConnection), 1U);
  EXPECT_TRUE(changes_.empty());
  EXPECT_THAT(lines(), testing::Contains(HasSubstr("guard: connect refused")));
}

TEST_F(WorldTest, PauseBehindFailedConnects_DoublesUpToTheLongest) {
  sim_->tell("fault gone");
  Controller controller(patient());
  controller.read("Word");
  for (const double longest : {1000.0, 2000.0, 3000.0, 3000.0}) {
    const uint64_t calls = controller.state().calls;
    const Reading reading = controller.read("Word");
    EXPECT_EQ(reading.error.reason, Reason::kNotTried);
    EXPECT_THAT(reading.error.text, StartsWith("not read: refused: nothing listens on " + address()));
    EXPECT_LE(pause_of(reading.error.text), longest);
    EXPECT_GT(pause_of(reading.error.text), longest - 500);
    const WriteResult written = controller.write("Word", 1);
    EXPECT_EQ(written.outcome, Outcome::kNotDone);
    EXPECT_EQ(written.error.reason, Reason::kNotTried);
    EXPECT_THAT(written.error.text, StartsWith("not written: refused: nothing listens on " + address()));
    EXPECT_EQ(controller.read("Small").error.text, "the driver transfers no 8-bit values");
    EXPECT_EQ(controller.state().calls, calls);
    // Whoever asks for a connection has one tried at once.
    EXPECT_EQ(thrown<plc_client::ConnectionFailed>([&] { controller.connect(); }),
              "refused: nothing listens on " + address() +
                  " (2). Check the port, and whether the controller's host link is switched on.");
    EXPECT_EQ(controller.state().calls, calls + 1);
  }
}

TEST_F(WorldTest, ListThatSendsNothing_EndsNoPause) {
  sim_->tell("fault gone");
  Options quick = patient();
  quick.first_pause = std::chrono::milliseconds(0);
  quick.longest_pause = std::chrono::milliseconds(0);
  Controller controller(quick);
  controller.read("Word");
  EXPECT_EQ(controller.read("Small").error.reason, Reason::kImpossible);
  EXPECT_EQ(controller.read("Word").error.reason, Reason::kNoConnection);
  EXPECT_EQ(failures(controller, Reason::kNoConnection), 2U);
}

TEST_F(WorldTest, ControllerThatComesBack_IsReadAgain) {
  sim_->tell("fault gone");
  Controller controller(patient());
  controller.read("Word");
  sim_->tell("fault clear");
  EXPECT_EQ(controller.read("Word").error.reason, Reason::kNotTried);
  controller.connect();
  const Reading reading = controller.read("Word");
  EXPECT_TRUE(reading.ok());
  EXPECT_EQ(bits_of(reading.value), memory().bits("Word", 16));
  EXPECT_TRUE(controller.state().connected);
  EXPECT_EQ(controller.state().connects, 1U);
  EXPECT_THAT(changes_, ElementsAre(true));
}

TEST_F(WorldTest, ConnectionThatEndedWhileIdle_CostsTheNextReadNothing) {
  Controller controller(patient());
  EXPECT_TRUE(controller.read("Word").ok());
  const plc_client::TimePoint first = controller.state().since;
  cut_connections();
  for (const Reading& reading : controller.read({"Word", "Other", "Text"})) {
    EXPECT_TRUE(reading.ok()) << reading.error.text;
  }
  EXPECT_EQ(controller.state().connects, 2U);
  EXPECT_EQ(failures(controller, Reason::kLost), 1U);
  EXPECT_GE(controller.state().since, first);
  EXPECT_THAT(changes_, ElementsAre(true, false, true));
}

TEST_F(WorldTest, ConnectionThatEndsTwice_IsABadReadingAndTheNextOneConnects) {
  Controller controller(patient());
  controller.connect();
  sim_->tell("fault close times=2 on=read");
  const Reading reading = controller.read("Word");
  EXPECT_EQ(reading.error.reason, Reason::kLost);
  EXPECT_EQ(reading.error.text, address() + ": the controller closed the connection (3)");
  EXPECT_TRUE(controller.read("Word").ok());
  EXPECT_EQ(sim_->count("fault.close"), 2U);
}

TEST_F(WorldTest, ConnectionThatEndedBeforeAWrite_IsNotWrittenTwice) {
  Controller controller(patient());
  controller.connect();
  const std::vector<uint64_t> before = memory().bits("Word", 16);
  cut_connections();
  const unsigned long sent = requests();
  const WriteResult lost = controller.write("Word", 5);
  EXPECT_EQ(lost.outcome, Outcome::kUnknown);
  EXPECT_FALSE(lost.verified);
  EXPECT_EQ(lost.error.reason, Reason::kLost);
  EXPECT_THAT(lost.error.text, EndsWith("; whether it was written is not known"));
  EXPECT_EQ(requests(), sent);
  EXPECT_EQ(memory().bits("Word", 16), before);
  EXPECT_EQ(controller.write("Word", 5, Verify::kReadBack).outcome, Outcome::kDone);
  EXPECT_EQ(memory().bits("Word", 16), std::vector<uint64_t>{5});
}

TEST_F(WorldTest, WriteWhoseAcknowledgementIsLost_IsUnknownAndMadeOnce) {
  Controller controller(patient());
  controller.connect();
  sim_->tell("fault close on=write");
  const std::vector<WriteResult> results = controller.write({{"Word", 5}, {"Other", 6}});
  EXPECT_EQ(results[0].outcome, Outcome::kUnknown);
  EXPECT_EQ(results[0].error.text,
            address() + ": the controller closed the connection (3); whether it was written is not known");
  EXPECT_EQ(results[1].outcome, Outcome::kNotDone);
  EXPECT_EQ(results[1].error.reason, Reason::kNotTried);
  EXPECT_EQ(results[1].error.text, "not written: " + address() + ": the controller closed the connection (3)");
  EXPECT_EQ(memory().bits("Word", 16), std::vector<uint64_t>{5});
  EXPECT_TRUE(controller.read("Word").ok());
}

TEST_F(WorldTest, RefusedWrite_KeepsTheOthersNotBack) {
  Controller controller(patient());
  controller.connect();
  sim_->tell("fault refuse on=resolve");
  const std::vector<WriteResult> results = controller.write({{"Word", 5}, {"Other", 6}}, Verify::kReadBack);
  EXPECT_EQ(results[0].outcome, Outcome::kNotDone);
  EXPECT_EQ(results[0].error.reason, Reason::kRefused);
  EXPECT_EQ(results[0].error.text, "the controller refused the name, status 0013 (3)");
  EXPECT_EQ(results[1].outcome, Outcome::kDone);
  EXPECT_TRUE(results[1].verified);
  EXPECT_EQ(memory().bits("Other", 16), std::vector<uint64_t>{6});
}

TEST_F(WorldTest, WriteCutShort_IsUnknownAndSaysHowFarItCame) {
  Controller controller(patient());
  controller.connect();
  const std::vector<uint64_t> before = memory().bits("Long", 64);
  sim_->tell("fault refuse on=resolve after=1");
  const WriteResult result = controller.write("Long", std::vector<int>(100, 7));
  EXPECT_EQ(result.outcome, Outcome::kUnknown);
  EXPECT_EQ(result.error.text, "the controller refused the name, status 0013 (3) after 51 of 100 elements");
  std::vector<uint64_t> expected(51, 7);
  expected.insert(expected.end(), before.begin() + 51, before.end());
  EXPECT_EQ(memory().bits("Long", 64), expected);
}

TEST_F(WorldTest, WriteBehindOneThatWasCutShort_IsNotToldHowFarThatCame) {
  Controller controller(patient());
  controller.connect();
  sim_->tell("fault close on=write after=1");
  const std::vector<WriteResult> results = controller.write({{"Long", std::vector<int>(100, 7)}, {"Word", 5}});
  EXPECT_EQ(results[0].error.text, address() +
                                       ": the controller closed the connection (3) after 51 of 100 elements; whether "
                                       "it was written is not known");
  EXPECT_EQ(results[1].outcome, Outcome::kNotDone);
  EXPECT_EQ(results[1].error.text, "not written: " + address() + ": the controller closed the connection (3)");
}

TEST_F(WorldTest, Silence_IsABadReadingAndTheNextOneIsGood) {
  Controller controller(patient());
  controller.connect();
  sim_->tell("fault no-reply on=read");
  const std::vector<Reading> readings = controller.read({"Word", "Long"});
  EXPECT_EQ(readings[0].error.reason, Reason::kNoAnswer);
  EXPECT_EQ(readings[0].error.text, address() + ": no answer within 1 s (3)");
  // Nobody waits for a controller that is silent again and again.
  EXPECT_EQ(readings[1].error.reason, Reason::kNotTried);
  EXPECT_EQ(readings[1].error.text, "not read: " + address() + " does not answer");
  EXPECT_FALSE(readings[1].value.has_value());
  EXPECT_TRUE(controller.read("Word").ok());
  EXPECT_EQ(failures(controller, Reason::kNoAnswer), 1U);
}

TEST_F(WorldTest, Close_IsFollowedByAConnectOfTheNextUse) {
  Controller controller(patient());
  const int descriptors = plc_test::count_open_descriptors();
  const Reading first = controller.read("Word");
  EXPECT_EQ(plc_test::count_open_descriptors(), descriptors + 1);
  controller.close();
  EXPECT_EQ(plc_test::count_open_descriptors(), descriptors);
  EXPECT_FALSE(controller.state().connected);
  controller.close();
  const Reading second = controller.read("Word");
  EXPECT_TRUE(second.ok()) << second.error.text;
  EXPECT_EQ(first.value, second.value);
  EXPECT_EQ(controller.state().connects, 2U);
  EXPECT_EQ(sim_->count("connections"), 2U);
  EXPECT_THAT(changes_, ElementsAre(true, false, true));
}

TEST_F(WorldTest, LimitOfFiles_IsNotBlamedOnTheDriver) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  const rlimit small = {4096, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(thrown<plc_client::Error>([&] { Controller controller(patient()); }),
            "cannot keep a driver library in memory: File too large: raise the limit, ulimit -f or LimitFSIZE");
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
}

TEST_F(WorldTest, LateReply_IsDroppedAndCounted) {
  Controller controller(patient());
  controller.read("Word");
  sim_->tell("fault foreign on=read");
  const Reading reading = controller.read("Other");
  EXPECT_EQ(bits_of(reading.value), memory().bits("Other", 16));
  EXPECT_EQ(controller.state().drops, 1U);
}

TEST_F(WorldTest, ValueThatIsReadBackDifferent_IsNotDone) {
  Options contract = patient();
  contract.driver = PLC_TEST_CONTRACT;
  Controller controller(contract);
  sim_->tell("set Word 9");
  controller.connect();
  sim_->tell("fault refuse on=write");  // which the contract build takes for done
  const WriteResult result = controller.write("Word", 5, Verify::kReadBack);
  EXPECT_EQ(result.outcome, Outcome::kUnknown);
  EXPECT_FALSE(result.verified);
  EXPECT_EQ(result.error.reason, Reason::kDifferent);
  EXPECT_EQ(result.error.text, "sent 5, but read back 9");
  EXPECT_EQ(result.error.advice, "Was the write refused? The contract build does not tell: try the guarded build.");
}

TEST_F(WorldTest, WriteThatAnotherOneFollows_AsksForTheOtherOne) {
  Options options = patient();
  options.first_pause = std::chrono::seconds{0};
  options.on_state = [this](const plc_client::State&) { sim_->tell("set Word 9"); };
  Controller controller(options);
  controller.connect();
  sim_->tell("fault close on=read");  // the connection's end is when the other one writes
  const WriteResult result = controller.write("Word", 5, Verify::kReadBack);
  EXPECT_EQ(result.outcome, Outcome::kUnknown);
  EXPECT_EQ(result.error.text, "written 5, but read back 9");
  EXPECT_EQ(result.error.advice, "Does a program in the controller write the variable too?");
}

TEST_F(WorldTest, ReadBackThatIsLost_LeavesTheWriteUnknown) {
  Controller controller(patient());
  controller.connect();
  sim_->tell("fault close times=2 on=read");
  const WriteResult result = controller.write("Word", 5, Verify::kReadBack);
  EXPECT_EQ(result.outcome, Outcome::kUnknown);
  EXPECT_EQ(result.error.reason, Reason::kLost);
  EXPECT_EQ(result.error.text,
            "written, but not read back: " + address() + ": the controller closed the connection (3)");
  EXPECT_EQ(memory().bits("Word", 16), std::vector<uint64_t>{5});
}

TEST_F(WorldTest, Exchanges_AreThoseThatTheControllerCounts) {
  Controller controller(patient());
  controller.connect();
  const auto counted = [&](const auto& use) {
    const unsigned long before = requests();
    const uint64_t noted = controller.state().exchanges;
    use();
    EXPECT_EQ(controller.state().exchanges - noted, requests() - before);
    return requests() - before;
  };
  EXPECT_EQ(counted([&] { controller.read("Word"); }), 2U);
  EXPECT_EQ(counted([&] { controller.read({"Word", "Other", "Third"}); }), 2U);
  EXPECT_EQ(counted([&] { controller.read("Grid"); }), 6U);
  EXPECT_EQ(counted([&] { controller.write("Word", 1); }), 2U);
  EXPECT_EQ(counted([&] { controller.write("Long", std::vector<int>(100, 3), Verify::kReadBack); }), 6U);
  EXPECT_EQ(counted([&] { controller.write("Text", std::string(290, 'x')); }), 4U);
  EXPECT_EQ(counted([&] { controller.write("Bits", std::vector<bool>(16, true)); }), 32U);
  EXPECT_EQ(counted([&] { controller.write("S.Bit", true); }), 2U);
  EXPECT_EQ(counted([&] { controller.write("S.Bits", std::vector<bool>(5, true)); }), 15U);
  EXPECT_EQ(counted([&] { controller.write("EmBits", std::vector<bool>(5, true)); }), 15U);
}

}  // namespace
}  // namespace plc_client_test
