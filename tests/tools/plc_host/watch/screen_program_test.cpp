// Tests of the watch command in a terminal whose keys are pressed.
#include <pty.h>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

// plc-host in a terminal of 80 columns and 24 lines.
class Terminal {
 public:
  explicit Terminal(const std::vector<std::string>& words) {
    struct winsize size {};
    size.ws_col = 80;
    size.ws_row = 24;
    pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (pid_ != 0) return;
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  ~Terminal() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(terminal_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void press(const std::string& keys) {
    shown_.clear();
    ASSERT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // Whether the text is shown, from the last key on.
  bool shows(const std::string& text) {
    for (const Clock::time_point end = Clock::now() + kPatience; Clock::now() < end;) {
      if (shown_.find(text) != std::string::npos) return true;
      struct pollfd ready {
        terminal_, POLLIN, 0
      };
      poll(&ready, 1, 100);
      char piece[4096];
      const ssize_t got = ready.revents != 0 ? read(terminal_, piece, sizeof piece) : 0;
      if (got < 0) return false;
      shown_.append(piece, static_cast<size_t>(got));
    }
    return false;
  }

  int wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  const std::string& shown() const { return shown_; }

 private:
  pid_t pid_ = -1;
  int terminal_ = -1;
  std::string shown_;
};

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

}  // namespace
