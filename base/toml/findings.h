// Where something stands in a file of settings, and the list of what is to be said of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace plc_toml {

// One thing that is wrong, or worth knowing.
struct Finding {
  bool is_error = true;
  std::string file;
  uint32_t line = 0;    // from 1; 0: of the whole file
  uint32_t column = 0;  // from 1
  std::string text;     // a sentence, with the remedy
};

struct Place {
  uint32_t line = 0;    // from 1; 0: of the whole file
  uint32_t column = 0;  // from 1
};

// A text of the file with its place.
struct PlacedText {
  std::string text;
  Place place;
};

class Findings {
 public:
  explicit Findings(std::string file) : file_(std::move(file)) {}

  void error(Place place, const std::string& text) { add(true, place, text); }
  void note(Place place, const std::string& text) { add(false, place, text); }

  // In the order of the file, those of the whole file first; the list is empty afterwards.
  std::vector<Finding> take();

 private:
  void add(bool is_error, Place place, const std::string& text);

  std::string file_;
  std::vector<Finding> list_;
};

}  // namespace plc_toml
