// Programs as children of a test: started with their output in files, waited for with patience.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace plc_host_test {

using Clock = std::chrono::steady_clock;

inline constexpr std::chrono::seconds kPatience{30};  // for what takes milliseconds on an idle machine

struct Outcome {
  int code = -1;
  std::string out;
  std::string err;
};

inline std::string file_text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

inline size_t count_of(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// A child whose output goes to files and whose standard input stays open until it is ended.
class Child {
 public:
  Child(const std::vector<std::string>& words, const std::string& out, const std::string& err) : out_(out), err_(err) {
    int input[2];
    if (pipe2(input, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_ = fork();
    if (pid_ == 0) {
      dup2(input[0], STDIN_FILENO);
      redirect(out, STDOUT_FILENO);
      redirect(err, STDERR_FILENO);
      std::vector<char*> arguments;
      for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
      arguments.push_back(nullptr);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    close(input[0]);
    input_ = input[1];
  }
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close_input();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void close_input() {
    if (input_ >= 0) close(input_);
    input_ = -1;
  }
  pid_t pid() const { return pid_; }
  void signal(int number) { kill(pid_, number); }
  // On its standard input.
  void type(const std::string& text) {
    if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("it takes no input");
    }
  }

  // The exit code; 128 and more for a signal, -1 when it does not end.
  int wait() {
    const Clock::time_point end = Clock::now() + kPatience;
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (Clock::now() > end) return -1;
      poll(nullptr, 0, 2);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  // Waits until its output or its messages hold this text.
  bool wait_for(const std::string& text) const {
    for (const Clock::time_point end = Clock::now() + kPatience; Clock::now() < end; poll(nullptr, 0, 2)) {
      if ((file_text(out_) + file_text(err_)).find(text) != std::string::npos) return true;
    }
    return false;
  }

 private:
  static void redirect(const std::string& path, int descriptor) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, descriptor);
  }

  std::string out_;
  std::string err_;
  pid_t pid_ = -1;
  int input_ = -1;
};

}  // namespace plc_host_test
