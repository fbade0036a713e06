// A plc-sim as a process of its own, spoken to through its standard streams.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace plc_test {

class SimProcess {
 public:
  // What becomes of its standard error.
  enum class Errors { kShown, kDropped, kKept };

  // Ends this process with a message when plc-sim cannot be started.
  SimProcess(const std::string& program, const std::vector<std::string>& arguments, Errors errors);
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;
  ~SimProcess();

  // From the line "listening on 127.0.0.1:PORT" or "... http://127.0.0.1:PORT/"; 0 when there is none.
  static uint16_t port_in(const std::string& line);

  // The next line of its output without its end; empty behind the last one.
  std::string read_line();

  // Gives a command. The answer's lines without the closing "ok", or with the closing line of an error.
  std::string command(const std::string& line);

  void close_input();
  void send_signal(int number) const;
  // Closes its input and waits for its end. The exit code, or the signal that ended it as a negative number.
  int finish();
  // What it wrote to standard error until its end, if that is kept.
  const std::string& errors() const { return error_text_; }

 protected:
  // Gives a command and adds its answer. False when that did not end with "ok".
  bool ask(const std::string& line, std::string* answer);

 private:
  bool take_line(std::string* line);
  void keep_errors();

  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  std::string unread_;
  std::string error_text_;
};

// An element as "dump --json" writes it.
struct DumpedElement {
  bool declared;
  std::string name;      // with subscripts
  std::string program;   // empty: global
  std::string raw;       // its words, hexadecimal
  std::string variable;  // without subscripts
};

// One that listens when it has been made, for tests that know their commands: what goes wrong ends this process.
class RunningSim : public SimProcess {
 public:
  RunningSim(const std::string& program, const std::vector<std::string>& arguments, Errors errors = Errors::kDropped);

  uint16_t port() const { return port_; }

  // The whole memory. No name and no program may hold a quote.
  std::vector<DumpedElement> dump();

  // Gives a command and takes its answer, without the closing "ok".
  std::string tell(const std::string& line);
  // One number of the answer to "counts".
  unsigned long count(const std::string& name);

 private:
  uint16_t port_;
};

}  // namespace plc_test
