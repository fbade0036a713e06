// A chart of one value over time, drawn with characters.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace plc_host {

class Chart {
 public:
  // title stands above the chart; at most kSamples samples are kept.
  explicit Chart(std::string title);

  // Nothing for a round without a value: it leaves a gap.
  void add(std::optional<double> sample);

  // The title and rows lines of columns characters each: the newest sample at the right, the scale from the smallest
  // to the largest sample shown. Fewer columns than the scale needs give the title alone.
  std::vector<std::string> draw(size_t columns, size_t rows) const;

 private:
  std::string title_;
  std::deque<std::optional<double>> samples_;
};

}  // namespace plc_host
