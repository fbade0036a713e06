// Programs in a terminal whose keys a test presses.
#pragma once

#include <gtest/gtest.h>
#include <pty.h>

#include "tests/tools/plc_host/program_child.h"

namespace plc_host_test {

// A program in a terminal of 80 columns and, unless told otherwise, 24 lines.
class Terminal {
 public:
  explicit Terminal(const std::vector<std::string>& words, unsigned short rows = 24) {
    struct winsize size {};
    size.ws_col = 80;
    size.ws_row = rows;
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

}  // namespace plc_host_test
