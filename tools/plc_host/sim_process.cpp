// Starts, listens to and ends the simulator.
#include "tools/plc_host/sim_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>

#include "base/files.h"
#include "base/text.h"
#include "client/driver/driver_library.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/target/tag_files.h"

namespace plc_host {
namespace {

constexpr int kStartWaitMs = 10000;
constexpr int kEndWaitMs = 5000;
constexpr int kPollMs = 10;
constexpr char kSimulatorName[] = "plc-sim";
constexpr char kFirstLine[] = "listening on 127.0.0.1:";

using Clock = std::chrono::steady_clock;

std::string find_simulator(const std::string& program) {
  if (!program.empty()) return program;
  const std::string folder = program_folder();
  std::string beside = folder + "/" + kSimulatorName;
  if (access(beside.c_str(), X_OK) == 0) return beside;
  const std::string built = folder + "/../plc_sim/" + kSimulatorName;
  return is_in_build_tree() && access(built.c_str(), X_OK) == 0 ? built : kSimulatorName;
}

// A pipe of which the child gets one end by name and neither end by accident.
void make_pipe(int (&ends)[2]) {
  if (pipe2(ends, O_CLOEXEC) == 0) return;
  throw HostError(kExitSimulator, std::string("cannot make a pipe for plc-sim: ") + std::strerror(errno) +
                                      ". Try: " + plc_base::kMoreDescriptors);
}

// A group of its own keeps Ctrl-C away from the simulator: it ends with its standard input.
pid_t spawn(const std::vector<std::string>& command, int input, int output) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  pid_t child = -1;
  const int failed = posix_spawnp(&child, words[0], &files, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (failed == 0) return child;
  throw HostError(kExitSimulator,
                  "cannot start " + plc_base::told_name(command[0]) + ": " + std::strerror(failed) + ". Try: " +
                      (failed == EAGAIN ? "more processes for this user, ulimit -u shows how many there may be"
                                        : "--simulator with the path of a plc-sim"));
}

int exit_code_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

}  // namespace

SimProcess::SimProcess(const std::string& program, const std::string& tag_file,
                       const std::vector<std::string>& arguments) {
  // A file that is not there is no failure of the simulator.
  demand_tag_file(tag_file);
  const std::string found = find_simulator(program);
  start(found, tag_file, arguments);
  const std::string line = wait_for_first_line();
  const size_t prefix = std::strlen(kFirstLine);
  const char* digits = line.c_str() + std::min(prefix, line.size());
  const std::from_chars_result end = std::from_chars(digits, line.c_str() + line.size(), port_);
  if (line.compare(0, prefix, kFirstLine) != 0 || end.ec != std::errc() || *end.ptr != '\0') {
    finish();
    close(output_);
    throw HostError(kExitSimulator, "the simulator " + found +
                                        (line.empty() ? " ended before it listened"
                                                      : " said " + plc_base::quoted(line) + " where its port belongs"));
  }
}

SimProcess::~SimProcess() {
  finish();
  close(output_);
}

void SimProcess::start(const std::string& program, const std::string& tag_file,
                       const std::vector<std::string>& arguments) {
  int input[2];
  int output[2];
  make_pipe(input);
  make_pipe(output);
  // The tag file stands before the arguments: the last of them may take any number of words. With a dash in front its
  // name would be an option.
  const std::string named = tag_file.compare(0, 1, "-") == 0 ? "./" + tag_file : tag_file;
  std::vector<std::string> command = {program, "--listen", "127.0.0.1:0", named};
  command.insert(command.end(), arguments.begin(), arguments.end());
  input_ = input[1];
  output_ = output[0];
  try {
    child_ = spawn(command, input[0], output[1]);
  } catch (const HostError&) {
    for (const int end : {input[0], input[1], output[0], output[1]}) close(end);
    throw;
  }
  close(input[0]);
  close(output[1]);
  fcntl(output_, F_SETFL, O_NONBLOCK);
}

std::string SimProcess::wait_for_first_line() {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kStartWaitMs);
  while (Clock::now() < end) {
    struct pollfd readable {
      output_, POLLIN, 0
    };
    poll(&readable, 1, kPollMs);
    std::vector<std::string> lines = take_lines();
    if (!lines.empty()) {
      // What came behind it is for the next caller.
      std::string rest;
      for (size_t i = 1; i < lines.size(); ++i) rest += lines[i] + "\n";
      unread_ = rest + unread_;
      return lines[0];
    }
    if ((readable.revents & POLLHUP) != 0) return {};
  }
  return {};
}

std::vector<std::string> SimProcess::take_lines() {
  char piece[4096];
  for (ssize_t got = 0; (got = ::read(output_, piece, sizeof piece)) > 0;) {
    unread_.append(piece, static_cast<size_t>(got));
  }
  std::vector<std::string> lines;
  for (size_t end = 0; (end = unread_.find('\n')) != std::string::npos;) {
    lines.push_back(unread_.substr(0, end));
    unread_.erase(0, end + 1);
  }
  return lines;
}

int SimProcess::finish() {
  if (child_ < 0) return exit_code_;
  if (input_ >= 0) close(input_);
  input_ = -1;
  wait_for_end();
  return exit_code_;
}

void SimProcess::wait_for_end() {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kEndWaitMs);
  std::string last_words;
  int status = 0;
  while (waitpid(child_, &status, WNOHANG) == 0) {
    if (Clock::now() >= end) {
      kill(child_, SIGKILL);
      waitpid(child_, &status, 0);
      break;
    }
    // Its last lines must have room, or it would not end.
    for (const std::string& line : take_lines()) last_words += line + "\n";
    struct pollfd readable {
      output_, POLLIN, 0
    };
    poll(&readable, 1, kPollMs);
  }
  unread_.insert(0, last_words);
  exit_code_ = exit_code_of(status);
  child_ = -1;
}

}  // namespace plc_host
