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

  std::vector<std::string> lines;
};

TEST_F(LogTest, UnderTheSystemsJournal_ALineBeginsWithItsLevel) {
  Log log(writer(), true);
  log.write(LogLevel::kError, "one", {}, 0);
  log.write(LogLevel::kWarning, "two", {{"a", "b"}}, 0);
  log.write(LogLevel::kInfo, "three", {{"a", "b"}, {"c", "d"}}, 0);
  EXPECT_THAT(lines, ElementsAre("<3>level=error event=one", "<4>level=warning event=two a=b",
                                 "<6>level=info event=three a=b c=d"));
}

TEST_F(LogTest, Elsewhere_ALineBeginsWithItsTime) {
  Log log(writer(), false);
  log.write(LogLevel::kInfo, "one", {}, 0);
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines[0], MatchesRegex("time=[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z level=info event=one"));
}

TEST_F(LogTest, Values_AreQuotedWhereTheyNeedItAndCannotBreakTheLine) {
  Log log(writer(), true);
  log.write(LogLevel::kInfo, "e", {{"plain", "127.0.0.1:80"}, {"empty", ""}, {"text", "a \"b\" \\"}}, 0);
  log.write(LogLevel::kInfo, "e", {{"hostile", "x\n<3>level=error event=\x1b[2J"}}, 0);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e plain=127.0.0.1:80 empty=\"\" text=\"a \\\"b\\\" \\\\\"",
                                 "<6>level=info event=e hostile=\"x\\\\n<3>level=error event=\\\\x1b[2J\""));
}

TEST_F(LogTest, Flood_IsAFewLinesAndThenOneInAMinuteWithItsCount) {
  Log log(writer(), true);
  for (int i = 0; i < 100; ++i) log.write(LogLevel::kInfo, "e", {{"why", "x"}, {"i", std::to_string(i)}}, i);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e why=x i=0", "<6>level=info event=e why=x i=1",
                                 "<6>level=info event=e why=x i=2"));
  lines.clear();
  log.tick(59999);
  EXPECT_THAT(lines, SizeIs(0));
  log.tick(60000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e why=x i=99 repeated=97"));
  log.write(LogLevel::kInfo, "e", {{"why", "x"}, {"i", "100"}}, 60001);
  log.tick(60002);
  EXPECT_THAT(lines, SizeIs(1));
  log.tick(120000);
  EXPECT_THAT(lines, ElementsAre("<6>level=info event=e why=x i=99 repeated=97",
                                 "<6>level=info event=e why=x i=100 repeated=1"));
}

TEST_F(LogTest, FloodOfOneKind_DoesNotSilenceAnother) {
  Log log(writer(), true);
  for (int i = 0; i < 10; ++i) log.write(LogLevel::kInfo, "e", {{"why", "x"}}, 0);
  log.write(LogLevel::kInfo, "e", {{"why", "y"}}, 0);
  log.write(LogLevel::kInfo, "f", {{"why", "x"}}, 0);
  EXPECT_THAT(lines, SizeIs(5));
}

// As somebody sees it who tries a command and makes one mistake after the other.
TEST_F(LogTest, SameEventForAnotherReason_IsTold) {
  Log log(writer(), true);
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
  Log log(writer(), true);
  for (int i = 0; i < 3; ++i) log.write(LogLevel::kInfo, "e", {}, 0);
  log.tick(60000);
  for (int i = 0; i < 4; ++i) log.write(LogLevel::kInfo, "e", {}, 60000);
  EXPECT_THAT(lines, SizeIs(6));
}

// Whoever chooses fields of lines cannot fill the memory or the disk.
TEST_F(LogTest, FloodOfEverNewKinds_IsBounded) {
  Log log(writer(), true);
  for (int i = 0; i < 10000; ++i) {
    std::string name;
    for (int rest = i; rest > 0; rest /= 26) name += static_cast<char>('a' + rest % 26);
    log.write(LogLevel::kInfo, "e", {{"name", name}}, 0);
  }
  EXPECT_THAT(lines, SizeIs(256 + 3));
}

}  // namespace
}  // namespace gateway_test
