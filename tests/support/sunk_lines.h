// What the driver hands to a sink for its lines, piece by piece, and the same bytes from standard output.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "plc_driver_hooks.h"
#include "tests/support/captured_output.h"

namespace plc_test {

// The driver's sink while it lives; standard output is the sink's successor. One at a time.
class SunkLines {
 public:
  SunkLines() { plc_driver_set_line_sink(take, this); }
  SunkLines(const SunkLines&) = delete;
  SunkLines& operator=(const SunkLines&) = delete;
  ~SunkLines() { plc_driver_set_line_sink(nullptr, nullptr); }

  const std::vector<std::string>& pieces() const { return pieces_; }

  std::string text() const {
    std::string all;
    for (const std::string& piece : pieces_) all += piece;
    return all;
  }

 private:
  static void take(void* context, const char* text, uint32_t length) {
    static_cast<SunkLines*>(context)->pieces_.emplace_back(text, length);
  }

  std::vector<std::string> pieces_;
};

// What an action prints, once on standard output and once into a sink.
struct PrintedTwice {
  std::string output;
  std::vector<std::string> pieces;
  std::string sunk;
  std::string output_beside_sink;
};

template <typename Action>
PrintedTwice print_twice(Action&& action) {
  PrintedTwice printed;
  printed.output = capture_output(action);
  const SunkLines sink;
  printed.output_beside_sink = capture_output(action);
  printed.pieces = sink.pieces();
  printed.sunk = sink.text();
  return printed;
}

}  // namespace plc_test
