// Counts calls and failures, and paces the attempts to connect.
#include "client/controller/link.h"

#include <algorithm>
#include <cstdlib>

#include "base/shown_text.h"
#include "client/driver/failure.h"

namespace plc_client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kDropped[] = " late replies dropped";
constexpr char kGuard[] = "guard: ";

// "[PLC] guard: 3 late replies dropped": 3.
uint64_t drops_in(const std::string& line) {
  const size_t guard = line.find(kGuard);
  if (guard == std::string::npos || line.find(kDropped) == std::string::npos) return 0;
  return std::strtoull(line.c_str() + guard + sizeof kGuard - 1, nullptr, 10);
}

Reason reason_of(core::Quality quality) {
  switch (quality) {
    case core::Quality::kGood:
    case core::Quality::kUnguarded:
      return Reason::kNone;
    case core::Quality::kRefused:
      return Reason::kRefused;
    case core::Quality::kIncomplete:
      return Reason::kIncomplete;
    case core::Quality::kNoAnswer:
      return Reason::kNoAnswer;
    case core::Quality::kLost:
      return Reason::kLost;
    case core::Quality::kNoConnection:
      return Reason::kNoConnection;
    case core::Quality::kForeign:
      return Reason::kForeign;
    case core::Quality::kImpossible:
      return Reason::kImpossible;
    case core::Quality::kDifferent:
      return Reason::kDifferent;
    case core::Quality::kFailed:
      return Reason::kFailed;
    case core::Quality::kNotRead:
    case core::Quality::kNotWritten:
      return Reason::kNotTried;
  }
  return Reason::kFailed;
}

}  // namespace

const char* reason_word(Reason reason) {
  static constexpr const char* kWords[kReasons] = {"",          "refused",       "incomplete", "no-answer",
                                                   "lost",      "no-connection", "foreign",    "impossible",
                                                   "different", "failed",        "not-tried"};
  const auto place = static_cast<size_t>(reason);
  return place < kReasons ? kWords[place] : "";
}

Problem problem_of(const core::Failure& failure) {
  return {reason_of(failure.quality), plc_base::shown_line(failure.reason), plc_base::shown_line(failure.advice)};
}

Link::Link(const Options& options, const core::Target& target) : options_(options), target_(target) {
  state_.since = std::chrono::system_clock::now();
}

void Link::note(const core::CallResult& call) {
  ++state_.calls;
  for (const std::string& line : call.lines) state_.drops += drops_in(line);
  if (call.ok()) return;
  state_.last_error = problem_of(core::explain_failure(call, target_));
  state_.last_error_time = call.time;
  ++state_.failures[static_cast<size_t>(state_.last_error.reason)];
}

void Link::note_connected(bool is_connected) {
  if (is_connected == state_.connected) return;
  state_.connected = is_connected;
  state_.since = std::chrono::system_clock::now();
  if (is_connected) ++state_.connects;
  if (options_.on_state) options_.on_state(state_);
}

void Link::end_use(bool is_connected, bool has_not_connected) {
  constexpr unsigned kMostDoublings = 20;
  if (is_connected) failed_uses_ = 0;
  if (is_connected || !has_not_connected) return;
  const milliseconds longest = std::max(options_.longest_pause, milliseconds(0));
  milliseconds pause = std::clamp(options_.first_pause, milliseconds(0), longest);
  for (unsigned i = 0; i < std::min(failed_uses_, kMostDoublings) && pause < longest; ++i) {
    pause = std::min(2 * pause, longest);
  }
  ++failed_uses_;
  next_try_ = steady_clock::now() + pause;
}

milliseconds Link::pause_left() const {
  if (failed_uses_ == 0) return milliseconds(0);
  const auto left = std::chrono::duration_cast<milliseconds>(next_try_ - steady_clock::now());
  return std::max(left, milliseconds(0));
}

void Link::end_pause() { next_try_ = {}; }

}  // namespace plc_client
