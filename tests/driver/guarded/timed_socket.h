// The guarded driver's socket and clock as a script: bytes, ends and errors that come at stated times, without waiting.
//
// The linker sends the driver's socket calls and its look at the clock here. Time passes only in select, and in
// receives where a test says so.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/bytes.h"

namespace plc_test {

// Something that comes from the controller.
struct Arrival {
  enum class Kind { kBytes, kClose, kError };
  Kind kind = Kind::kBytes;
  Bytes bytes;
  int error = 0;
  int64_t after_ms = 0;  // behind the request that it follows; of what waits before a request, behind the last one
};

inline Arrival piece(Bytes bytes, int64_t after_ms = 0) {
  return {Arrival::Kind::kBytes, std::move(bytes), 0, after_ms};
}
inline Arrival orderly_close(int64_t after_ms = 0) { return {Arrival::Kind::kClose, {}, 0, after_ms}; }
inline Arrival receive_error(int error, int64_t after_ms = 0) { return {Arrival::Kind::kError, {}, error, after_ms}; }

// The socket of this process while it lives; one at a time.
class TimedSocket {
 public:
  static constexpr int kDescriptor = 1000;  // above what a test opens, below FD_SETSIZE
  using Controller = std::function<std::vector<Arrival>(const Bytes& request)>;

  TimedSocket();
  TimedSocket(const TimedSocket&) = delete;
  TimedSocket& operator=(const TimedSocket&) = delete;
  ~TimedSocket();

  // What follows each request from now on.
  void answer_each(Controller controller) { controller_ = std::move(controller); }

  // Waits on the socket already.
  void leave_waiting(Arrival arrival);

  const std::vector<Bytes>& requests() const { return requests_; }
  int64_t now_ms() const { return now_us_ / 1000; }
  void set_now_us(int64_t now_us) { now_us_ = now_us; }
  int connects() const { return connects_; }
  int closes() const { return closes_; }
  bool is_open() const { return connects_ > closes_; }

  // The driver's calls on the socket since forget_calls(), a word each: "select send select recv".
  const std::string& calls() const { return calls_; }
  void forget_calls() { calls_.clear(); }

  // What the wrapped calls do.
  int on_connect();
  int on_select(int64_t timeout_us);
  long on_send(const uint8_t* bytes, size_t length);
  long on_receive(uint8_t* bytes, size_t length, bool is_peek);
  void on_close();
  int64_t now_us() const { return now_us_; }
  int64_t look_ns() { return now_us_ * 1000 + (looked_ns_ += look_takes_ns); }

  // errno of the next connect, which fails at once with it.
  int connect_error = 0;
  // The next select fails.
  bool fail_select = false;
  // The next send fails.
  bool fail_send = false;
  // Each receive takes this long, and each look at the clock.
  int64_t receive_takes_ms = 0;
  int64_t look_takes_ns = 0;

 private:
  void note(const char* call);
  void add(Arrival arrival);
  bool has_arrived() const { return !arrivals_.empty() && arrivals_.front().after_ms * 1000 <= now_us_; }

  Controller controller_;
  std::deque<Arrival> arrivals_;  // after_ms: absolute
  std::vector<Bytes> requests_;
  std::string calls_;
  int64_t now_us_ = 1000000;
  int64_t looked_ns_ = 0;
  int connects_ = 0;
  int closes_ = 0;
};

}  // namespace plc_test
