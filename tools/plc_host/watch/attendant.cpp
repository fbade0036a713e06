// Keeps the thread asleep until a round begins.
#include "tools/plc_host/watch/attendant.h"

#include <signal.h>

#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

namespace plc_host {
namespace {

constexpr std::chrono::milliseconds kBetweenLooks{200};

}  // namespace

Attendant::Attendant(std::function<void()> attend) : attend_(std::move(attend)) {
  // Signals are for the thread that calls the driver: they end its wait.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    // The screen is drawn between the rounds alone.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Attendant::~Attendant() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Attendant::begin() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_wanted_ = true;
  }
  changed_.notify_one();
}

void Attendant::end() {
  const std::lock_guard<std::mutex> lock(mutex_);
  is_wanted_ = false;
}

void Attendant::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!is_over_) {
    changed_.wait(lock, [this] { return is_wanted_ || is_over_; });
    changed_.wait_for(lock, kBetweenLooks, [this] { return is_over_; });
    if (!is_wanted_ || is_over_) continue;
    try {
      attend_();
    } catch (const std::exception&) {
      // There was no memory for it. The next time may have some.
    }
  }
}

}  // namespace plc_host
