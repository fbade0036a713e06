// One line on standard error, written over again and again on a terminal.
#include "tools/plc_host/survey/survey_plan.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "tools/plc_host/messages.h"

namespace plc_host::survey {
namespace {

constexpr std::chrono::milliseconds kBetweenLines{250};
constexpr double kSecondsPerMinute = 60;

}  // namespace

std::string time_left_text(double seconds) {
  if (seconds >= 2 * kSecondsPerMinute) {
    return std::to_string(static_cast<long>(std::ceil(seconds / kSecondsPerMinute))) + " min";
  }
  return std::to_string(static_cast<long>(std::ceil(seconds))) + " s";
}

std::string lasting_text(double hours) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%g h", hours);
  return text.data();
}

Progress::Progress(bool is_shown, uint32_t rate)
    : is_shown_(is_shown), is_terminal_(isatty(STDERR_FILENO) == 1), rate_(rate) {}

Progress::~Progress() { clear(); }

void Progress::begin(const std::string& step, uint64_t expected, uint64_t expected_later) {
  step_ = step;
  expected_ = expected;
  later_ = expected_later;
  done_ = 0;
  started_ = shown_ = std::chrono::steady_clock::now();
  if (!is_shown_) return;
  if (is_terminal_) {
    show();
  } else {
    show_message("survey: " + step);
  }
}

void Progress::asked() {
  ++done_;
  const auto now = std::chrono::steady_clock::now();
  if (!is_shown_ || !is_terminal_ || expected_ == 0 || now - shown_ < kBetweenLines) return;
  shown_ = now;
  show();
}

void Progress::set_part(double part, double seconds_left) {
  if (!is_shown_ || !is_terminal_) return;
  shown_ = std::chrono::steady_clock::now();
  show_line(static_cast<uint64_t>(part * 100), seconds_left);
}

void Progress::show() {
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - started_;
  const double each = std::max(1.0 / rate_, done_ == 0 ? 0.0 : passed.count() / static_cast<double>(done_));
  const uint64_t left = later_ + (expected_ > done_ ? expected_ - done_ : 0);
  const uint64_t percent = expected_ == 0 ? 100 : std::min<uint64_t>(100, done_ * 100 / expected_);
  show_line(percent, static_cast<double>(left) * each);
}

void Progress::show_line(uint64_t percent, double seconds_left) {
  std::fprintf(stderr, "\rplc-host: survey: %s, %llu %%, about %s left\x1b[K", step_.c_str(),
               static_cast<unsigned long long>(percent), time_left_text(seconds_left).c_str());
  std::fflush(stderr);
  has_line_ = true;
}

void Progress::clear() {
  if (!has_line_) return;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
  has_line_ = false;
}

}  // namespace plc_host::survey
