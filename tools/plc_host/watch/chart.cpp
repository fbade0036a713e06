// Draws samples as columns of block characters.
#include "tools/plc_host/watch/chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "base/shown_text.h"

namespace plc_host {
namespace {

constexpr size_t kSamples = 1000;  // more than a terminal is wide
constexpr size_t kScaleColumns = 12;
constexpr int kLevelsPerRow = 8;
constexpr const char* kBlocks[kLevelsPerRow + 1] = {" ",
                                                    "\xE2\x96\x81",
                                                    "\xE2\x96\x82",
                                                    "\xE2\x96\x83",
                                                    "\xE2\x96\x84",
                                                    "\xE2\x96\x85",
                                                    "\xE2\x96\x86",
                                                    "\xE2\x96\x87",
                                                    "\xE2\x96\x88"};

struct Scale {
  double low;
  double high;
  bool empty;
};

using Samples = std::vector<std::optional<double>>;

Scale scale_of(const Samples& samples) {
  Scale scale{0, 0, true};
  for (const std::optional<double>& sample : samples) {
    if (!sample) continue;
    scale.low = scale.empty ? *sample : std::min(scale.low, *sample);
    scale.high = scale.empty ? *sample : std::max(scale.high, *sample);
    scale.empty = false;
  }
  return scale;
}

std::string scale_text(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%10.5g |", number);
  return std::string(text).substr(0, kScaleColumns);
}

std::string no_label() { return std::string(kScaleColumns - 1, ' ') + "|"; }

// Height of a sample in eighths of a row, at least one: the smallest value is a line and not a gap.
int level_of(double sample, const Scale& scale, size_t rows) {
  const double levels = static_cast<double>(rows) * kLevelsPerRow;
  // Halves keep a spread beyond the largest number finite.
  const double part = (sample / 2 - scale.low / 2) / (scale.high / 2 - scale.low / 2);
  return std::clamp(static_cast<int>(std::lround(part * levels)), 1, static_cast<int>(levels));
}

std::string blocks_of_row(const Samples& samples, const Scale& scale, size_t row, size_t rows) {
  const int floor = static_cast<int>(rows - row - 1) * kLevelsPerRow;
  std::string blocks;
  for (const std::optional<double>& sample : samples) {
    const int level = sample ? level_of(*sample, scale, rows) : 0;
    blocks += kBlocks[std::clamp(level - floor, 0, kLevelsPerRow)];
  }
  return blocks;
}

// A value that does not move is a line in the middle, with its number beside it: a column has no height without another
// value to compare it with.
std::vector<std::string> with_flat_line(std::vector<std::string> lines, const Samples& samples, const Scale& scale,
                                        size_t rows) {
  constexpr const char* kLine = kBlocks[1];
  for (size_t row = 0; row < rows; ++row) {
    const bool is_middle = row == rows / 2;
    std::string line = is_middle ? scale_text(scale.low) : no_label();
    for (const std::optional<double>& sample : samples) line += is_middle && sample ? kLine : kBlocks[0];
    lines.push_back(line);
  }
  return lines;
}

}  // namespace

Chart::Chart(std::string title) : title_(std::move(title)) {}

void Chart::add(std::optional<double> sample) {
  if (sample && !std::isfinite(*sample)) sample.reset();
  samples_.push_back(sample);
  if (samples_.size() > kSamples) samples_.pop_front();
}

std::vector<std::string> Chart::draw(size_t columns, size_t rows) const {
  std::vector<std::string> lines = {plc_base::shown_first(title_)};
  if (columns <= kScaleColumns || rows == 0) return lines;
  const size_t shown = std::min(columns - kScaleColumns, samples_.size());
  const Samples samples(samples_.end() - static_cast<std::ptrdiff_t>(shown), samples_.end());
  const Scale scale = scale_of(samples);
  if (!scale.empty && scale.low == scale.high) return with_flat_line(std::move(lines), samples, scale, rows);
  for (size_t row = 0; row < rows; ++row) {
    const bool labelled = !scale.empty && (row == 0 || row + 1 == rows);
    const std::string label = labelled ? scale_text(row == 0 ? scale.high : scale.low) : no_label();
    lines.push_back(label + blocks_of_row(samples, scale, row, rows));
  }
  return lines;
}

}  // namespace plc_host
