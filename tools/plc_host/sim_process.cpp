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
#include <utility>

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
constexpr char kNoSimulator[] = ". Try: --simulator with the path of a plc-sim";
constexpr char kMoreProcesses[] = ". Try: more processes for this user, ulimit -u shows how many there may be";
constexpr size_t kMostFirstLineBytes = 4096;
// Of what it prints: the most that is taken at once, and kept of its last words and of a line without an end.
constexpr size_t kMostKeptBytes = size_t{1} << 20U;

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
  throw HostError(kExitSimulator, "cannot start " + plc_base::told_name(command[0]) + ": " + std::strerror(failed) +
                                      (failed == EAGAIN ? kMoreProcesses : kNoSimulator));
}

std::string no_port(const std::string& first_line) {
  return " named no port: its first line is " + first_line + kNoSimulator;
}

bool take_port(const std::string& line, uint16_t& port) {
  const size_t prefix = std::strlen(kFirstLine);
  if (line.compare(0, prefix, kFirstLine) != 0) return false;
  const char* line_end = line.data() + line.size();
  const std::from_chars_result end = std::from_chars(line.data() + prefix, line_end, port);
  return end.ec == std::errc() && end.ptr == line_end && port != 0;
}

int exit_code_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

}  // namespace

SimProcess::SimProcess(const std::string& program, const std::string& tag_file,
                       const std::vector<std::string>& arguments) {
  // A file that is not there is no failure of the simulator.
  demand_tag_file(tag_file);
  const std::string found = find_simulator(program);
  start(found, tag_file, arguments);
  const std::string problem = wait_for_port();
  if (problem.empty()) return;
  // Whatever it prints without an end, it has no reader now.
  close(output_);
  output_ = -1;
  finish();
  throw HostError(kExitSimulator, "the simulator " + found + problem);
}

SimProcess::~SimProcess() {
  finish();
  if (output_ >= 0) close(output_);
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

std::string SimProcess::wait_for_port() {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kStartWaitMs);
  while (Clock::now() < end) {
    struct pollfd readable {
      output_, POLLIN, 0
    };
    poll(&readable, 1, kPollMs);
    take_bytes();
    const size_t line_end = unread_.find('\n');
    if (std::min(line_end, unread_.size()) > kMostFirstLineBytes) {
      return no_port("longer than " + std::to_string(kMostFirstLineBytes) + " bytes");
    }
    if (line_end != std::string::npos) {
      const std::string line = unread_.substr(0, line_end);
      unread_.erase(0, line_end + 1);
      return take_port(line, port_) ? "" : no_port(plc_base::quoted(line));
    }
    if ((readable.revents & POLLHUP) != 0) return " ended before it listened";
  }
  return " named no port within " + std::to_string(kStartWaitMs / 1000) + " seconds" + kNoSimulator;
}

// Of a pipe that is never empty no more than has room; the rest is for the next call.
void SimProcess::take_bytes() {
  char piece[4096];
  while (unread_.size() < kMostKeptBytes) {
    const ssize_t got = ::read(output_, piece, sizeof piece);
    if (got <= 0) return;
    unread_.append(piece, static_cast<size_t>(got));
  }
}

std::vector<std::string> SimProcess::take_lines() {
  take_bytes();
  std::vector<std::string> lines;
  size_t begin = 0;
  for (size_t end = 0; (end = unread_.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(unread_.substr(begin, end - begin));
  }
  unread_.erase(0, begin);
  if (unread_.size() >= kMostKeptBytes) lines.push_back(std::exchange(unread_, {}));
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
    for (const std::string& line : take_lines()) {
      if (last_words.size() < kMostKeptBytes) last_words.append(line).append("\n");
    }
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
