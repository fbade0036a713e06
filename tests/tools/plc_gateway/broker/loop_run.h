// A loop of libuv that runs until something is so.
#pragma once

#include <uv.h>

#include <functional>

namespace gateway_test {

class TestLoop {
 public:
  TestLoop() { uv_loop_init(&loop_); }
  TestLoop(const TestLoop&) = delete;
  TestLoop& operator=(const TestLoop&) = delete;
  // What lived in it has to be gone.
  ~TestLoop() {
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
  }

  uv_loop_t* get() { return &loop_; }

  // False when it did not become so within half a minute, far longer than it takes.
  bool run_until(const std::function<bool()>& is_so) {
    constexpr uint64_t kTurnMs = 10;  // a turn of the loop may become so and wait behind it
    constexpr int kTurns = 3000;
    int turns = 0;
    uv_timer_t timer;
    uv_timer_init(&loop_, &timer);
    timer.data = &turns;
    uv_timer_start(
        &timer, [](uv_timer_t* turn) { ++*static_cast<int*>(turn->data); }, kTurnMs, kTurnMs);
    while (!is_so() && turns < kTurns) uv_run(&loop_, UV_RUN_ONCE);
    bool is_closed = false;
    timer.data = &is_closed;
    uv_close(reinterpret_cast<uv_handle_t*>(&timer),
             [](uv_handle_t* closed) { *static_cast<bool*>(closed->data) = true; });
    while (!is_closed) uv_run(&loop_, UV_RUN_NOWAIT);
    return is_so();
  }

 private:
  uv_loop_t loop_{};
};

}  // namespace gateway_test
