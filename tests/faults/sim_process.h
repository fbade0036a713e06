// A plc-sim as a child process, told its faults on its standard input, and the time that calls take.
#ifndef TESTS_FAULTS_SIM_PROCESS_H
#define TESTS_FAULTS_SIM_PROCESS_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace plc_test {

class SimProcess {
 public:
  // Ends the process with a message when plc-sim does not start.
  SimProcess(const std::string& program, const std::vector<std::string>& arguments);
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;
  ~SimProcess();

  uint16_t port() const { return port_; }

  // Gives a command and takes its answer, without the closing "ok". Aborts on an error: tests know their commands.
  std::string tell(const std::string& command);

  // One number of the answer to "counts".
  unsigned long count(const std::string& name);

 private:
  std::string read_line();

  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  uint16_t port_ = 0;
  std::string unread_;
};

// How late this process was woken at worst since start(): what a measured call may have lost to other processes.
class LatenessWatch {
 public:
  LatenessWatch();
  LatenessWatch(const LatenessWatch&) = delete;
  LatenessWatch& operator=(const LatenessWatch&) = delete;
  ~LatenessWatch();

  void start() { lost_ms_ = 0; }
  long lost_ms() const { return lost_ms_; }

 private:
  std::atomic<bool> ends_{false};
  std::atomic<long> lost_ms_{0};
  std::thread thread_;
};

}  // namespace plc_test

#endif
