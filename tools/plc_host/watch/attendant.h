// A thread that does something again and again while the program waits for a call of the driver.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace plc_host {

class Attendant {
 public:
  // attend is called between begin and end, a few times a second. Without a thread, or without memory, it is not.
  explicit Attendant(std::function<void()> attend);
  ~Attendant();
  Attendant(const Attendant&) = delete;
  Attendant& operator=(const Attendant&) = delete;

  void begin();
  // Nothing is attended to any more when it returns.
  void end();

  // As long as this is held, attend is not called.
  std::unique_lock<std::mutex> hold() { return std::unique_lock<std::mutex>(mutex_); }

 private:
  void run();

  const std::function<void()> attend_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool is_wanted_ = false;
  bool is_over_ = false;
  std::thread thread_;
};

}  // namespace plc_host
