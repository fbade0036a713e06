// The thread of lateness_watch.h.
#include "tests/driver/faults/lateness_watch.h"

#include <chrono>

namespace plc_test {

LatenessWatch::LatenessWatch() {
  thread_ = std::thread([this] {
    constexpr auto kPeriod = std::chrono::milliseconds(2);
    while (!ends_) {
      const auto due = std::chrono::steady_clock::now() + kPeriod;
      std::this_thread::sleep_until(due);
      const auto late = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - due);
      lost_ms_ = lost_ms_ + static_cast<long>(late.count());
    }
  });
}

LatenessWatch::~LatenessWatch() {
  ends_ = true;
  thread_.join();
}

}  // namespace plc_test
