// Tests of the watch command in a terminal whose keys are pressed.
#include "tests/tools/plc_host/program_fixture.h"
#include "tests/tools/plc_host/terminal.h"

namespace {

using namespace plc_host_test;

TEST_F(ProgramTest, KeysInATerminal_ScrollFilterAndLookBack) {
  std::string tags;
  for (int i = 0; i < 500; ++i) tags += "Motor" + std::to_string(i) + ",INT,,,,,," + std::to_string(i) + ",1,0,0,\n";
  write_file("many.csv", tags);
  // One round: what is shown behind it is an answer to keys.
  Terminal terminal(host_words({"watch", "--all", "--batch", "--interval", "3600000", "--sim", path("many.csv"),
                                "--simulator", PLC_HOST_SIMULATOR, "--color", "never"}));
  ASSERT_TRUE(terminal.shows("1-20 of 500;")) << terminal.shown();
  terminal.press("\x1b[6~");
  EXPECT_TRUE(terminal.shows("> Motor20 ")) << terminal.shown();
  terminal.press("/r49\r");
  EXPECT_TRUE(terminal.shows("1-11 of 11, filter /r49;")) << terminal.shown();
  terminal.press("\r");
  EXPECT_TRUE(terminal.shows("Motor49  INT, newest first")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("Z  good  0")) << terminal.shown();
  terminal.press("\x03");
  EXPECT_TRUE(terminal.shows(" calls, 0 failures")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(ProgramTest, TerminalOfFewRows_ShowsTheMarkedVariable) {
  for (const unsigned short rows : std::vector<unsigned short>{1, 2, 3}) {
    Terminal terminal(host_words({"watch", "Speed", "Total", "--chart", "Speed", "--interval", "3600000", "--sim",
                                  path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR, "--color", "never"}),
                      rows);
    ASSERT_TRUE(terminal.shows("> Speed  INT ")) << rows << terminal.shown();
    EXPECT_EQ(terminal.shown().find("NAME"), std::string::npos) << "the heading has no room: " << terminal.shown();
    if (rows == 1) {
      EXPECT_EQ(terminal.shown().find('\n'), std::string::npos) << terminal.shown();
    }
    terminal.press("j");
    EXPECT_TRUE(terminal.shows("> Total  DINT ")) << rows << terminal.shown();
    terminal.press("\r");
    EXPECT_TRUE(terminal.shows("Total  20")) << "the newest change: " << rows << terminal.shown();
    terminal.press("\r/pee\r");
    EXPECT_TRUE(terminal.shows(rows < 3 ? "/pee > Speed  INT " : ", filter /pee;")) << rows << terminal.shown();
    terminal.press("q");
    EXPECT_TRUE(terminal.shows(" calls, 0 failures")) << terminal.shown();
    EXPECT_EQ(terminal.wait(), 0);
  }
}

TEST_F(ProgramTest, ChartInALowTerminal_GivesWayToTheTable) {
  Terminal terminal(host_words({"watch", "Speed", "--chart", "Speed", "--interval", "3600000", "--sim",
                                path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR, "--color", "never"}),
                    10);
  ASSERT_TRUE(terminal.shows("the chart takes 14 rows of a terminal")) << terminal.shown();
  ASSERT_TRUE(terminal.shows("> Speed  INT ")) << terminal.shown();
  terminal.press("q");
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(ProgramTest, LetterQInATerminal_EndsWatch) {
  Terminal terminal(host_words({"watch", "Speed", "--interval", "3600000", "--sim", path("machine.csv"), "--simulator",
                                PLC_HOST_SIMULATOR, "--color", "never"}));
  ASSERT_TRUE(terminal.shows("q ends")) << terminal.shown();
  terminal.press("q");
  EXPECT_TRUE(terminal.shows("1 call, 0 failures")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(ProgramTest, QuitInATerminal_ShowsTheCursorAgain) {
  std::vector<std::string> words = {"/bin/sh", "-c", "ulimit -c 0; \"$@\"; stty -a; echo the shell again", "sh"};
  for (const std::string& word : host_words({"watch", "Speed", "--interval", "3600000", "--sim", path("machine.csv"),
                                             "--simulator", PLC_HOST_SIMULATOR, "--color", "never"})) {
    words.push_back(word);
  }
  words[2].insert(0, "trap : QUIT; ");
  Terminal terminal(words);
  ASSERT_TRUE(terminal.shows("q ends")) << terminal.shown();
  terminal.press("\x1c");
  EXPECT_TRUE(terminal.shows("\033[?25h")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("isig icanon ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("the shell again")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(ProgramTest, TerminalThatOnlyTypesOn_GetsLines) {
  std::vector<std::string> words = {"/usr/bin/env", "TERM=dumb"};
  for (const std::string& word : host_words(
           {"watch", "Speed", "--rounds", "1", "--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR})) {
    words.push_back(word);
  }
  Terminal terminal(words);
  EXPECT_TRUE(terminal.shows(" good Speed = 0")) << terminal.shown();
  EXPECT_EQ(terminal.shown().find('\033'), std::string::npos) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

// A shell with jobs of its own: who has none to go back to is not stopped.
TEST_F(ProgramTest, CtrlZInATerminal_GivesItBackUntilTheProgramGoesOn) {
  std::vector<std::string> words = {"/bin/sh", "-m", "-c",
                                    "\"$@\"; stty -a; read line; bg; echo behind it; read line; fg; stty -a; "
                                    "echo the shell again",
                                    "sh"};
  for (const std::string& word : host_words({"watch", "Speed", "--interval", "3600000", "--sim", path("machine.csv"),
                                             "--simulator", PLC_HOST_SIMULATOR, "--color", "never"})) {
    words.push_back(word);
  }
  Terminal terminal(words);
  ASSERT_TRUE(terminal.shows("\n> Speed ")) << terminal.shown();
  ASSERT_TRUE(terminal.shows("Ctrl-C ends")) << terminal.shown();
  terminal.press("\x1a");
  EXPECT_TRUE(terminal.shows("\033[?25h")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("isig icanon ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows(" echo ")) << terminal.shown();
  terminal.press("\n");
  EXPECT_TRUE(terminal.shows("behind it")) << terminal.shown();
  terminal.press("\n");
  EXPECT_TRUE(terminal.shows("\033[?25l  NAME")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("\n> Speed ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("Ctrl-C ends")) << terminal.shown();
  // One key, without Return: the terminal is in the mode for them.
  terminal.press("/");
  EXPECT_TRUE(terminal.shows("1-1 of 1, filter /")) << terminal.shown();
  terminal.press("\x03");
  EXPECT_TRUE(terminal.shows("1 call, 0 failures")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("isig icanon ")) << terminal.shown();
  EXPECT_TRUE(terminal.shows("the shell again")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

}  // namespace
