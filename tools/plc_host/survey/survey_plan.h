// What a survey was asked to do, and the progress that it shows.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace plc_host::survey {

struct SurveyPlan {
  std::string host;  // as it was given
  uint32_t address = 0;
  uint16_t port = 0;
  uint32_t timeout_ms = 2000;
  uint32_t rate = 20;  // requests a second at most
  bool is_gentle = false;
  std::vector<std::string> written;  // names of scratch variables
  double hours = 0;
  uint32_t period_ms = 1000;
  std::string folder;  // where the files go
};

// "2 min", "40 s"
std::string time_left_text(double seconds);

// "8 h", "0.5 h"
std::string lasting_text(double hours);

// Tells on standard error which step is under way, on a terminal with the part of it that is done and the time left.
class Progress {
 public:
  Progress(bool is_shown, uint32_t rate);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // expected: requests of this step, about.
  void begin(const std::string& step, uint64_t expected, uint64_t expected_later);
  void asked();
  // Of a step that lasts for a time, the part of it that is over.
  void set_part(double part, double seconds_left);
  // Takes its line away, so that others can speak.
  void clear();

 private:
  void show();
  void show_line(uint64_t percent, double seconds_left);

  bool is_shown_;
  bool is_terminal_;
  bool has_line_ = false;
  uint32_t rate_;
  std::string step_;
  uint64_t expected_ = 0;
  uint64_t later_ = 0;
  uint64_t done_ = 0;
  std::chrono::steady_clock::time_point started_{};
  std::chrono::steady_clock::time_point shown_{};
};

}  // namespace plc_host::survey
