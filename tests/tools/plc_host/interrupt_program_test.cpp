// Tests of commands that Ctrl-C ends: while the driver waits for the controller, and in long work on files.
#include <filesystem>

#include "tests/tools/plc_host/program_fixture.h"
#include "tests/tools/plc_host/terminal.h"

namespace {

using namespace plc_host_test;

class InterruptTest : public ProgramTest {
 protected:
  // A command is interrupted once the simulator has as many requests as the call that stays without a reply makes.
  Outcome interrupted(std::vector<std::string> words, const std::string& fault, unsigned requests) {
    std::unique_ptr<Child> simulator = start_simulator({"--fault=" + fault});
    words.insert(words.end(), {"--address", "127.0.0.1:" + port_, "--timeout", "20"});
    Child command(host_words(words), path("out"), path("err"));
    const std::string wanted = "requests " + std::to_string(requests) + "\n";
    for (const Clock::time_point end = Clock::now() + kPatience; Clock::now() < end; poll(nullptr, 0, 5)) {
      simulator->type("counts\n");
      if (file_text(path("sim_out")).find(wanted) != std::string::npos) break;
    }
    command.signal(SIGINT);
    Outcome outcome;
    outcome.code = command.wait();
    outcome.out = file_text(path("out"));
    outcome.err = file_text(path("err"));
    EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("lost")));
    EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("the wait for a reply failed")));
    return outcome;
  }

  // Of a command that takes its tag file with --tags.
  Outcome interrupted_at(std::vector<std::string> words, const std::string& fault, unsigned requests) {
    words.insert(words.end(), {"--tags", path("machine.csv")});
    return interrupted(words, fault, requests);
  }
};

constexpr char kSilentRead[] = "no-reply on=read";
constexpr unsigned kOfRead = 4;   // the directory in two, a name, its value
constexpr unsigned kOfStart = 2;  // the directory

TEST_F(InterruptTest, Read_IsNotReadAndNotLost) {
  const Outcome outcome = interrupted_at({"read", "Speed", "Total"}, kSilentRead, kOfRead);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_THAT(outcome.out, HasSubstr("Speed  INT   not-read  "));
  EXPECT_THAT(outcome.out, HasSubstr("Total  DINT  not-read  "));
  EXPECT_EQ(outcome.err, "plc-host: 2 variables not read: interrupted\n");
}

TEST_F(InterruptTest, ReadByNumber_SaysWhyThereIsNoValue) {
  const Outcome outcome = interrupted_at({"read", "--id", "1"}, kSilentRead, kOfRead);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_THAT(outcome.out, HasSubstr("Speed #1  INT  not-read  "));
  EXPECT_EQ(outcome.err, "plc-host: 1 variable not read: interrupted\n");
}

TEST_F(InterruptTest, Write_IsLeftOpenWhenItWasSent) {
  const Outcome sent = interrupted_at({"write", "Speed=1", "Total=2"}, "no-reply on=write", kOfRead);
  EXPECT_EQ(sent.code, 130);
  EXPECT_THAT(sent.out, HasSubstr("Speed  INT   failed  "));
  EXPECT_THAT(sent.out, HasSubstr("Total  DINT  not-written  "));
  EXPECT_EQ(sent.err,
            "plc-host: Speed: interrupted; whether it was written is not known. Try: Read it to see what the "
            "controller has.\nplc-host: 1 variable not written: interrupted\n");
}

TEST_F(InterruptTest, WriteBeforeItsConnectionIsComplete_IsNotWritten) {
  const Outcome unsent = interrupted_at({"write", "Speed=1"}, "no-reply on=directory", kOfStart);
  EXPECT_EQ(unsent.code, 130);
  EXPECT_THAT(unsent.out, HasSubstr("Speed  INT  not-written  "));
  EXPECT_EQ(unsent.err, "plc-host: 1 variable not written: interrupted\n");
}

TEST_F(InterruptTest, ReadingBackAWrite_SaysThatItWasWritten) {
  constexpr unsigned kOfWriteAndRead = 6;
  const Outcome outcome = interrupted_at({"write", "--verify", "--json", "Speed=1"}, kSilentRead, kOfWriteAndRead);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_THAT(outcome.out, HasSubstr(R"("state":"failed")"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("reason":"written, but cannot be read back: interrupted")"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("written":true,"verified":null})"));
}

TEST_F(InterruptTest, Watch_CountsNoFailure) {
  const Outcome outcome = interrupted_at({"watch", "Speed"}, kSilentRead, kOfRead);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "plc-host: 0 calls, 0 failures, round trip - / - / - ms (shortest / mean / longest)\n");
}

// As started by nohup.
std::vector<std::string> without_hangup(const std::vector<std::string>& words) {
  std::vector<std::string> all = {"/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh"};
  all.insert(all.end(), words.begin(), words.end());
  return all;
}

TEST_F(InterruptTest, HangupThatWasIgnoredAtTheStart_EndsNoWatch) {
  const std::unique_ptr<Child> simulator = start_simulator();
  Child watch(without_hangup(host_words({"watch", "Speed", "--raw", "--interval", "10", "--address",
                                         "127.0.0.1:" + port_, "--tags", path("machine.csv")})),
              path("out"), path("err"));
  EXPECT_TRUE(watch.wait_for("0\n"));
  watch.signal(SIGHUP);
  simulator->type("set Speed 7654\n");
  EXPECT_TRUE(watch.wait_for("7654\n"));
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.wait(), 0);
}

TEST_F(InterruptTest, HangupOfTheTerminal_EndsAWatchWithItsSummary) {
  const std::unique_ptr<Child> simulator = start_simulator();
  Child watch(host_words({"watch", "Speed", "--raw", "--interval", "10", "--address", "127.0.0.1:" + port_, "--tags",
                          path("machine.csv")}),
              path("out"), path("err"));
  EXPECT_TRUE(watch.wait_for("0\n"));
  watch.signal(SIGHUP);
  EXPECT_EQ(watch.wait(), 0);
  EXPECT_THAT(file_text(path("err")), HasSubstr(", 0 failures, round trip "));
}

TEST_F(InterruptTest, Why_NamesNoFaultOfTheController) {
  const Outcome outcome = interrupted_at({"why", "Speed"}, kSilentRead, kOfRead);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_THAT(outcome.out, EndsWith("What went wrong\n"
                                    "  1. interrupted before the reply was there: what follows it is not known\n"
                                    "     Try: Run it again. It waits 20 seconds for a reply (--timeout).\n"));
}

TEST_F(InterruptTest, LiveCheck_NamesTheVariableItHadAskedFor) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nTotal,DINT,,,,,,1,1,0,0,\nTemp,REAL,,,,,,2,1,0,0,\n");
  const Outcome outcome = interrupted({"check", path("panel.csv"), "--live"}, kSilentRead, kOfRead);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_THAT(outcome.out,
              EndsWith(": 3 names, 127.0.0.1:" + port_ +
                       " has given 0 values, refused 0; interrupted while asking for Speed; 2 not asked for\n"));
  EXPECT_EQ(outcome.err, "plc-host: interrupted: the names without a result were not checked\n");
}

class WaitingScreenTest : public InterruptTest {
 protected:
  std::vector<std::string> watch_words(std::vector<std::string> more) const {
    std::vector<std::string> words = {
        "watch", "Speed", "Total", "--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR, "--color", "never"};
    words.insert(words.end(), more.begin(), more.end());
    return host_words(words);
  }
};

TEST_F(WaitingScreenTest, CallThatLasts_ShowsHowOldTheValuesAreAndTakesKeys) {
  Terminal terminal(watch_words({"--timeout", "600", "--interval", "0", "--sim-arg=--fault=no-reply on=read after=2"}));
  ASSERT_TRUE(terminal.shows("> Speed  INT     -       waiting  no reply for ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("; 0 was read ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("\r\nno reply for ")) << terminal.shown();
  terminal.press("j");
  EXPECT_TRUE(terminal.shows("> Total  DINT    -       waiting  no reply for ")) << terminal.shown();
  terminal.press("q");
  EXPECT_TRUE(terminal.shows("plc-host: 2 calls, 0 failures")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(WaitingScreenTest, FirstCallThatLasts_ShowsNoValue) {
  Terminal terminal(watch_words({"--timeout", "600", "--sim-arg=--fault=no-reply on=read"}));
  ASSERT_TRUE(terminal.shows("> Speed  INT     -       waiting  no reply for ")) << terminal.shown();
  EXPECT_THAT(terminal.shown(), Not(HasSubstr("was read")));
  terminal.press("\x03");
  EXPECT_TRUE(terminal.shows("plc-host: 0 calls, 0 failures")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

// Its rounds leave no time until the next.
TEST_F(WaitingScreenTest, RoundsThatLastLongerThanTheInterval_TakeKeys) {
  Terminal terminal(watch_words({"--interval", "0"}));
  ASSERT_TRUE(terminal.shows("\n> Speed ")) << terminal.shown();
  terminal.press("j");
  EXPECT_TRUE(terminal.shows("\n> Total ")) << terminal.shown();
  terminal.press("q");
  EXPECT_TRUE(terminal.shows(" calls, 0 failures")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(WaitingScreenTest, ValuesBetweenRounds_GrowOlder) {
  Terminal terminal(watch_words({"--interval", "3600000"}));
  // Its five lines are drawn anew, though no key is pressed and no round begins.
  EXPECT_TRUE(terminal.shows("\033[5A\033[J  NAME ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("; Ctrl-C ends")) << terminal.shown();
  terminal.press("q");
  EXPECT_EQ(terminal.wait(), 0);
}

// Signals it once it has a handler for the signal.
int stopped(Child& command) {
  const std::string status = "/proc/" + std::to_string(command.pid()) + "/status";
  for (const Clock::time_point end = Clock::now() + kPatience; Clock::now() < end; poll(nullptr, 0, 1)) {
    const std::string text = file_text(status);
    const size_t at = text.find("SigCgt:");
    if (at == std::string::npos) continue;
    if ((std::stoull(text.substr(at + 7, 18), nullptr, 16) & (uint64_t{1} << (SIGINT - 1U))) != 0) break;
  }
  command.signal(SIGINT);
  return command.wait();
}

TEST_F(InterruptTest, WorkOnAHugeFile_EndsAndWritesNothing) {
  std::string tags;
  std::string names;
  for (int i = 0; i < 60000; ++i) {
    tags += "Motor" + std::to_string(i) + ";INT;;;;;;" + std::to_string(i) + ";1;0;0;\n";
    names += "Motor" + std::to_string(i) + ",INT\n";
  }
  write_file("many.csv", tags);
  write_file("names.csv", names);
  const std::vector<std::vector<std::string>> commands = {
      {"check", path("many.csv"), "--fix", path("copy.csv")},
      {"tags", "--new", "--from", path("names.csv"), "--output", path("copy.csv")},
  };
  for (const std::vector<std::string>& words : commands) {
    Child command(host_words(words), path("out"), path("err"));
    EXPECT_EQ(stopped(command), 130) << words[0];
    EXPECT_EQ(file_text(path("err")), "plc-host: interrupted\n") << words[0];
    EXPECT_EQ(file_text(path("out")), "") << words[0];
    EXPECT_FALSE(std::filesystem::exists(path("copy.csv"))) << words[0];
  }
}

}  // namespace
