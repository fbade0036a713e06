// A simulated controller as a child process: started on a free port of the loopback address, ended with this process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace plc_host {

class SimProcess {
 public:
  // Starts the program with the tag file and waits for the line that tells its port. program empty: plc-sim beside this
  // program, in the build tree, or on PATH. Throws HostError.
  SimProcess(const std::string& program, const std::string& tag_file, const std::vector<std::string>& arguments);
  // Ends it as finish does.
  ~SimProcess();
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  uint16_t port() const { return port_; }

  // Lines that it has printed since the last call; never waits. To be called now and then: a simulator whose pipe is
  // full stands still.
  std::vector<std::string> take_lines();

  // Ends it by closing its standard input; kills it when that does not end it. Returns its exit code, 128 and more for
  // a signal. Later calls return the same.
  int finish();

 private:
  void start(const std::string& program, const std::string& tag_file, const std::vector<std::string>& arguments);
  // Takes port_ from its first line. Empty when done, else what it did instead.
  std::string wait_for_port();
  void take_bytes();
  void wait_for_end();

  pid_t child_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string unread_;
  uint16_t port_ = 0;
  int exit_code_ = -1;
};

}  // namespace plc_host
