// Lines of the gateway's log, and floods of them.
#include "tools/plc_gateway/service/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gateway_test {
namespace {

using plc_gateway::Log;
using plc_gateway::LogLevel;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;

class LogTest : public testing::Test {
 protected:
  Log::Writer writer() {
    return [this](const std::string& line) { lines.push_back(line); };
  }

  std::function<plc_gateway::Ms()> clock() {
    return [this] { return now; };
  }
  void four_times(Log& log, const char* event) {
    for (int i = 0; i < 4; ++i) log.write(LogLevel::kInfo, event, {}, 0);
  }

  plc_gateway::Ms now = 1'800'000'000'000;
  std::vector<std::string> lines;
};

TEST_F(LogTest, UnderTheSystemsJournal_ALineBeginsWithItsLevel) {
  Log log(writer(), true, clock());
  log.write(LogLevel::kError, "one", {}, 0);
  log.write(LogLevel::kWarning, "two", {{"a", "b"}}, 0);
  log.write(LogLevel::kInfo, "three", {{"a", "b"}, {"c", "d"}}, 0);
  EXPECT_THAT(lines, ElementsAre("<3>level=error event=one", "<4>level=warning event=two a=b",
                                 "<6>level=info event=three a=b c=d"));
}

TEST_F(LogTest, Elsewhere_ALineBeginsWithItsTime) {
  Log log(writer(), false, clock());
  log.write(LogLevel::kInfo, "one", {}, 0);
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines[0], MatchesRegex("time=[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z level=info event=one"));
}

TEST_F(LogTest, Values_AreQuotedWhereTheyNeedItAndCannotBreakTheLine) {
  Log log(writer(), true, clock());
  log.write(LogLevel::kInfo, "e", {{"plain", "127.0.0.1:80"}, {"empty", ""}, {"text", "a \"b\" \\"}}, 0);
  log.write(LogLevel::kInfo, "e", {{"hostile", "x\n<3>level=error event=\x1b[2J"}}, 0);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e plain=127.0.0.1:80 empty=\"\" text=\"a \\\"b\\\" \\\\\"",
                                 "<6>level=info event=e hostile=\"x\\\\n<3>level=error event=\\\\x1b[2J\""));
}

TEST_F(LogTest, Flood_IsAFewLinesAndThenOneInAMinuteWithItsCount) {
  Log log(writer(), true, clock());
  for (int i = 0; i < 100; ++i) log.write(LogLevel::kInfo, "e", {{"why", "x"}, {"i", std::to_string(i)}}, i);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e why=x i=0", "<6>level=info event=e why=x i=1",
                                 "<6>level=info event=e why=x i=2"));
  lines.clear();
  log.tick(59999);
  EXPECT_THAT(lines, SizeIs(0));
  log.tick(60000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e why=x i=99 repeated=97 last=2027-01-15T08:00:00.000Z"));
  log.write(LogLevel::kInfo, "e", {{"why", "x"}, {"i", "100"}}, 60001);
  log.tick(60002);
  EXPECT_THAT(lines, SizeIs(1));
  log.tick(120000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e why=x i=99 repeated=97 last=2027-01-15T08:00:00.000Z",
                                 "<6>level=info event=e why=x i=100 repeated=1 last=2027-01-15T08:00:00.000Z"));
}

TEST_F(LogTest, FloodOfOneKind_DoesNotSilenceAnother) {
  Log log(writer(), true, clock());
  for (int i = 0; i < 10; ++i) log.write(LogLevel::kInfo, "e", {{"why", "x"}}, 0);
  log.write(LogLevel::kInfo, "e", {{"why", "y"}}, 0);
  log.write(LogLevel::kInfo, "f", {{"why", "x"}}, 0);
  EXPECT_THAT(lines, SizeIs(5));
}

// As somebody sees it who tries a command and makes one mistake after the other.
TEST_F(LogTest, SameEventForAnotherReason_IsTold) {
  Log log(writer(), true, clock());
  const auto refused = [&](const char* reason) {
    log.write(LogLevel::kWarning, "command", {{"result", "refused"}, {"name", "Speed"}, {"reason", reason}}, 0);
  };
  for (const char* reason : {"it is 11000 ms old", "it is 12000 ms old", "it is 13000 ms old", "it is 14000 ms old"}) {
    refused(reason);
  }
  EXPECT_THAT(lines, SizeIs(3));
  refused("it has no time");
  EXPECT_THAT(lines, SizeIs(4));
}

TEST_F(LogTest, KindBehindItsQuietMinute_IsNewAgain) {
  Log log(writer(), true, clock());
  for (int i = 0; i < 3; ++i) log.write(LogLevel::kInfo, "e", {}, 0);
  log.tick(60000);
  for (int i = 0; i < 4; ++i) log.write(LogLevel::kInfo, "e", {}, 60000);
  EXPECT_THAT(lines, SizeIs(6));
}

TEST_F(LogTest, StateThatIsHeldBack_IsToldBeforeTheOneThatEndsIt) {
  Log log(writer(), true, clock());
  four_times(log, "controller_up");
  lines.clear();
  now += 5000;
  log.write(LogLevel::kWarning, "controller_away", {}, 5000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=controller_up repeated=1 last=2027-01-15T08:00:00.000Z",
                                 "<4>level=warning event=controller_away"));
  log.tick(60000);
  EXPECT_THAT(lines, SizeIs(2));
}

TEST_F(LogTest, StatesThatAreAllHeldBack_ComeInTheirOrderWithTheirTimes) {
  Log log(writer(), true, clock());
  four_times(log, "births_out");
  log.write(LogLevel::kInfo, "other", {}, 0);
  four_times(log, "broker_connected");
  four_times(log, "broker_lost");
  lines.clear();
  now += 1000;
  log.write(LogLevel::kInfo, "broker_connected", {}, 1000);
  now += 1000;
  log.write(LogLevel::kInfo, "broker_lost", {}, 2000);
  log.tick(60000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=broker_connected repeated=1 last=2027-01-15T08:00:01.000Z",
                                 "<6>level=info event=broker_lost repeated=2 last=2027-01-15T08:00:02.000Z"));
}

TEST_F(LogTest, StateOfAnotherVariable_EndsNothing) {
  Log log(writer(), true, clock());
  for (int i = 0; i < 4; ++i) log.write(LogLevel::kWarning, "variable_bad", {{"name", "A"}}, 0);
  lines.clear();
  log.write(LogLevel::kInfo, "variable_good", {{"name", "B"}}, 1);
  EXPECT_THAT(lines, SizeIs(1));
  log.write(LogLevel::kInfo, "variable_good", {{"name", "A"}}, 1);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=variable_good name=B",
                                 "<4>level=warning event=variable_bad name=A repeated=1 last=2027-01-15T08:00:00.000Z",
                                 "<6>level=info event=variable_good name=A"));
}

// Whoever chooses fields of lines cannot fill the memory or the disk.
TEST_F(LogTest, FloodOfEverNewKinds_IsBounded) {
  Log log(writer(), true, clock());
  for (int i = 0; i < 10000; ++i) {
    std::string name;
    for (int rest = i; rest > 0; rest /= 26) name += static_cast<char>('a' + rest % 26);
    log.write(LogLevel::kInfo, "e", {{"name", name}}, 0);
  }
  EXPECT_THAT(lines, SizeIs(256 + 3));
  lines.clear();
  log.tick(60'000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e others=9741 last=2027-01-15T08:00:00.000Z"))
      << "lines of many kinds, none of which speaks for all";
}

// A host of the broker sends refused commands without end, and one that is carried out.
TEST_F(LogTest, FloodOfWarnings_DoesNotSilenceWhatWasDone) {
  Log log(writer(), true, clock());
  for (int i = 0; i < 10000; ++i) {
    std::string name;
    for (int rest = i; rest > 0; rest /= 26) name += static_cast<char>('a' + rest % 26);
    log.write(LogLevel::kWarning, "command", {{"result", "refused"}, {"name", name}}, 0);
  }
  lines.clear();
  log.write(LogLevel::kInfo, "command", {{"result", "done"}, {"name", "Turns"}}, 0);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=command result=done name=Turns"));
}

}  // namespace
}  // namespace gateway_test
