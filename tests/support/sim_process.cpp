// The child process of sim_process.h.
#include "tests/support/sim_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

extern char** environ;

namespace plc_test {
namespace {

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "plc-sim: %s\n", what.c_str());
  std::abort();
}

struct Pipe {
  int read_end;
  int write_end;
};

Pipe make_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) die("no pipe");
  return {ends[0], ends[1]};
}

void close_if_open(int* descriptor) {
  if (*descriptor >= 0) {
    close(*descriptor);
    *descriptor = -1;
  }
}

// Reads the elements of a dump by their keys, in the order in which plc-sim writes them. A library of JSON needs most
// of the time of a test that looks at the whole memory.
class DumpReader {
 public:
  explicit DumpReader(std::string dump) : dump_(std::move(dump)) {}

  // Stands behind the next place of text; false when there is none.
  bool pass(const char* text) {
    const size_t found = dump_.find(text, at_);
    if (found == std::string::npos) return false;
    at_ = found + std::strlen(text);
    return true;
  }

  // What stands behind the next place of a key, up to end.
  std::string text_behind(const char* key, char end) {
    const size_t from = pass(key) ? at_ : std::string::npos;
    at_ = from == std::string::npos ? from : dump_.find(end, from);
    if (at_ == std::string::npos) die("no " + std::string(key) + " in the dump " + dump_.substr(0, 1000));
    return dump_.substr(from, at_ - from);
  }

 private:
  std::string dump_;
  size_t at_ = 0;
};

}  // namespace

SimProcess::SimProcess(const std::string& program, const std::vector<std::string>& arguments, Errors errors) {
  Pipe in = make_pipe();
  Pipe out = make_pipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.read_end, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.write_end, STDOUT_FILENO);
  int error_end = -1;
  if (errors == Errors::kKept) {
    const Pipe err = make_pipe();
    errors_ = err.read_end;
    error_end = err.write_end;
    posix_spawn_file_actions_adddup2(&actions, error_end, STDERR_FILENO);
  } else if (errors == Errors::kDropped) {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) die("cannot start " + program);
  posix_spawn_file_actions_destroy(&actions);
  close(in.read_end);
  close(out.write_end);
  close_if_open(&error_end);
  input_ = in.write_end;
  output_ = out.read_end;
}

void SimProcess::send_signal(int number) const {
  if (kill(pid_, number) != 0) die("it takes no signal");
}

SimProcess::~SimProcess() {
  if (pid_ > 0) finish();
  close_if_open(&output_);
  close_if_open(&errors_);
}

bool SimProcess::take_line(std::string* line) {
  // A dump is one line of megabytes: no byte of it is looked at twice.
  for (size_t looked_at = 0;;) {
    const size_t end = unread_.find('\n', looked_at);
    if (end != std::string::npos) {
      *line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return true;
    }
    looked_at = unread_.size();
    std::array<char, 65536> buffer{};
    const ssize_t count = read(output_, buffer.data(), buffer.size());
    if (count <= 0) return false;
    unread_.append(buffer.data(), static_cast<size_t>(count));
  }
}

std::string SimProcess::read_line() {
  std::string line;
  return take_line(&line) ? line : std::string();
}

uint16_t SimProcess::port_in(const std::string& line) {
  const size_t colon = line.rfind(':');
  return colon == std::string::npos ? uint16_t{0} : static_cast<uint16_t>(std::strtoul(&line[colon + 1], nullptr, 10));
}

bool SimProcess::ask(const std::string& line, std::string* answer) {
  const std::string text = line + "\n";
  if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) die("it takes no commands");
  std::string next;
  while (take_line(&next)) {
    if (next == "ok") return true;
    *answer += next + "\n";
    if (next.rfind("error: ", 0) == 0) return false;
  }
  return false;
}

std::string SimProcess::command(const std::string& line) {
  std::string answer;
  ask(line, &answer);
  return answer;
}

void SimProcess::close_input() { close_if_open(&input_); }

void SimProcess::keep_errors() {
  std::array<char, 4096> buffer{};
  for (ssize_t count = 1; count > 0 && errors_ >= 0;) {
    count = read(errors_, buffer.data(), buffer.size());
    error_text_.append(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
  }
}

int SimProcess::finish() {
  close_input();
  keep_errors();
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

RunningSim::RunningSim(const std::string& program, const std::vector<std::string>& arguments, Errors errors)
    : SimProcess(program, arguments, errors) {
  const std::string line = read_line();
  port_ = port_in(line);
  if (port_ == 0) die("no port in '" + line + "'");
}

std::string RunningSim::tell(const std::string& line) {
  std::string answer;
  if (!ask(line, &answer)) die(line + ": " + answer);
  return answer;
}

std::vector<DumpedElement> RunningSim::dump() {
  DumpReader reader(tell("dump --json"));
  std::vector<DumpedElement> elements;
  while (reader.pass("{\"declared\":")) {
    DumpedElement element;
    element.declared = reader.text_behind("", ',') == "true";
    element.name = reader.text_behind("\"name\":\"", '"');
    const std::string program = reader.text_behind("\"program\":", ',');
    if (program != "null") element.program = program.substr(1, program.size() - 2);
    element.raw = reader.text_behind("\"raw\":\"", '"');
    element.variable = reader.text_behind("\"variable\":\"", '"');
    elements.push_back(std::move(element));
  }
  return elements;
}

unsigned long RunningSim::count(const std::string& name) {
  const std::string counts = "\n" + tell("counts");
  const size_t at = counts.find("\n" + name + " ");
  if (at == std::string::npos) die("it does not count " + name);
  return std::strtoul(&counts[at + name.size() + 2], nullptr, 10);
}

}  // namespace plc_test
