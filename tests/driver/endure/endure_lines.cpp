// The lines that the driver prints, counted by what they say.
#include "tests/driver/endure/endure_lines.h"

#include <sys/types.h>

#include <cctype>
#include <cstdio>
#include <cstring>

namespace plc_endure {
namespace {

class Counter {
 public:
  explicit Counter(LineCount (*counts)[kLineKinds]) : counts_(counts) {}

  void take(const char* text, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) take(text[i]);
  }

 private:
  void take(char character) {
    if (character == '\n') {
      end_line();
    } else if (length_ + 1 < sizeof line_ && character != '\r') {
      const bool is_digit = std::isdigit(static_cast<unsigned char>(character)) != 0;
      // A status is four hexadecimal digits.
      const bool is_in_number =
          length_ > 0 && line_[length_ - 1] == '#' && std::isxdigit(static_cast<unsigned char>(character)) != 0;
      const bool begins_status = length_ >= 7 && std::strncmp(line_ + length_ - 7, "status ", 7) == 0;
      if (is_digit || is_in_number || begins_status) character = '#';
      if (character != '#' || length_ == 0 || line_[length_ - 1] != '#') line_[length_++] = character;
    }
  }

  void end_line() {
    line_[length_] = '\0';
    length_ = 0;
    size_t kind = 0;
    while (kind + 1 < kLineKinds && (*counts_)[kind].count > 0 && std::strcmp((*counts_)[kind].text, line_) != 0) {
      ++kind;
    }
    std::memcpy((*counts_)[kind].text, line_, sizeof line_);
    ++(*counts_)[kind].count;
  }

  LineCount (*counts_)[kLineKinds];
  char line_[LineCount::kTextBytes] = {};
  size_t length_ = 0;
};

ssize_t take_output(void* counter, const char* text, size_t bytes) {
  static_cast<Counter*>(counter)->take(text, bytes);
  return static_cast<ssize_t>(bytes);
}

}  // namespace

bool count_lines(LineCount (*counts)[kLineKinds]) {
  static Counter counter(counts);
  std::FILE* counted = fopencookie(&counter, "w", {nullptr, take_output, nullptr, nullptr});
  if (counted == nullptr) return false;
  stdout = counted;
  return true;
}

}  // namespace plc_endure
