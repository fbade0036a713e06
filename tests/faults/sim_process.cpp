// The child process of sim_process.h.
#include "faults/sim_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

extern char** environ;

namespace plc_test {
namespace {

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "plc-sim: %s\n", what.c_str());
  std::abort();
}

}  // namespace

SimProcess::SimProcess(const std::string& program, const std::vector<std::string>& arguments) {
  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) {
    die("no pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
    die("cannot start " + program);
  }
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  input_ = in[1];
  output_ = out[0];
  const std::string line = read_line();
  const size_t colon = line.rfind(':');
  if (colon == std::string::npos) {
    die("no port in '" + line + "'");
  }
  port_ = static_cast<uint16_t>(std::strtoul(&line[colon + 1], nullptr, 10));
}

SimProcess::~SimProcess() {
  close(input_);
  close(output_);
  waitpid(pid_, nullptr, 0);
}

std::string SimProcess::read_line() {
  for (;;) {
    const size_t end = unread_.find('\n');
    if (end != std::string::npos) {
      const std::string line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return line;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = read(output_, buffer.data(), buffer.size());
    if (count <= 0) {
      die("it has ended");
    }
    unread_.append(buffer.data(), static_cast<size_t>(count));
  }
}

std::string SimProcess::tell(const std::string& command) {
  const std::string text = command + "\n";
  if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    die("it takes no commands");
  }
  std::string answer;
  for (;;) {
    const std::string line = read_line();
    if (line == "ok") {
      return answer;
    }
    if (line.rfind("error: ", 0) == 0) {
      die(command + ": " + line);
    }
    answer += line + "\n";
  }
}

unsigned long SimProcess::count(const std::string& name) {
  const std::string counts = "\n" + tell("counts");
  const size_t at = counts.find("\n" + name + " ");
  if (at == std::string::npos) {
    die("it does not count " + name);
  }
  return std::strtoul(&counts[at + name.size() + 2], nullptr, 10);
}

LatenessWatch::LatenessWatch() {
  thread_ = std::thread([this] {
    constexpr auto kPeriod = std::chrono::milliseconds(2);
    while (!ends_) {
      const auto due = std::chrono::steady_clock::now() + kPeriod;
      std::this_thread::sleep_until(due);
      const auto late = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - due);
      lost_ms_ = lost_ms_ + static_cast<long>(late.count());
    }
  });
}

LatenessWatch::~LatenessWatch() {
  ends_ = true;
  thread_.join();
}

}  // namespace plc_test
