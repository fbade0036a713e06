// How late this process is woken: what a measured call may have lost to other processes.
#pragma once

#include <atomic>
#include <thread>

namespace plc_test {

class LatenessWatch {
 public:
  LatenessWatch();
  LatenessWatch(const LatenessWatch&) = delete;
  LatenessWatch& operator=(const LatenessWatch&) = delete;
  ~LatenessWatch();

  void start() { lost_ms_ = 0; }
  // Since start().
  long lost_ms() const { return lost_ms_; }

 private:
  std::atomic<bool> ends_{false};
  std::atomic<long> lost_ms_{0};
  std::thread thread_;
};

}  // namespace plc_test
