// A plc-sim of a test's own.
#include "simulator.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace plc_test {
namespace {

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::abort();
}

std::vector<uint16_t> parse_words(const std::string& text) {
  std::vector<uint16_t> words;
  const char* at = text.c_str();
  for (char* end = nullptr; *at != '\0'; at = end) {
    words.push_back(static_cast<uint16_t>(std::strtoul(at, &end, 16)));
    if (end == at) break;
  }
  return words;
}

}  // namespace

Simulator::Simulator(const std::string& tag_file) {
  int input[2];
  int output[2];
  if (pipe(input) != 0 || pipe(output) != 0) give_up("pipe");
  process_ = fork();
  if (process_ < 0) give_up("fork");
  if (process_ == 0) {
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    for (const int descriptor : {input[0], input[1], output[0], output[1]}) close(descriptor);
    execl(PLC_SIMULATOR, PLC_SIMULATOR, "--sentinel", tag_file.c_str(), static_cast<char*>(nullptr));
    give_up(PLC_SIMULATOR);
  }
  close(input[0]);
  close(output[1]);
  commands_ = fdopen(input[1], "w");
  answers_ = fdopen(output[0], "r");
  const std::string first = read_line();
  const size_t colon = first.rfind(':');
  if (colon == std::string::npos) give_up("plc-sim");
  port_ = static_cast<uint16_t>(std::strtoul(first.c_str() + colon + 1, nullptr, 10));
}

Simulator::~Simulator() {
  if (process_ > 0) finish();
}

std::string Simulator::read_line() {
  std::string line;
  for (int c = std::fgetc(answers_); c != EOF && c != '\n'; c = std::fgetc(answers_)) line += static_cast<char>(c);
  return line;
}

std::vector<std::string> Simulator::ask(const std::string& command) {
  std::fprintf(commands_, "%s\n", command.c_str());
  std::fflush(commands_);
  std::vector<std::string> lines;
  for (std::string line = read_line(); line != "ok"; line = read_line()) {
    if (line.rfind("error: ", 0) == 0 || std::feof(answers_) != 0) {
      std::fprintf(stderr, "%s: %s\n", command.c_str(), line.c_str());
      std::abort();
    }
    lines.push_back(line);
  }
  return lines;
}

std::map<std::string, SimElement> Simulator::memory() {
  const auto document = nlohmann::json::parse(ask("dump --json").at(0));
  std::map<std::string, SimElement> elements;
  for (const auto& entry : document["elements"]) {
    std::string name = entry["name"];
    if (!entry["program"].is_null() && name.find('/') == std::string::npos) {
      name = entry["program"].get<std::string>() + "/" + name;
    }
    elements[name] = {name, parse_words(entry["raw"])};
  }
  return elements;
}

uint64_t Simulator::count(const std::string& name) {
  return nlohmann::json::parse(ask("counts --json").at(0))[name].get<uint64_t>();
}

int Simulator::finish() {
  std::fclose(commands_);
  int status = 0;
  waitpid(process_, &status, 0);
  std::fclose(answers_);
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace plc_test
