// Draws the charts: a scale for milliseconds, and the marks that tell the three figures apart without colours.
#include "tools/plc_host/survey_report/plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "base/page/svg.h"

namespace plc_host::survey {
namespace {

using plc_base::svg_label;
using plc_base::svg_number;
using plc_base::svg_rectangle;

constexpr double kWidth = 720;
constexpr double kRight = 700;  // where drawings end
constexpr double kTop = 12;
constexpr double kLineLeft = 72;  // of the drawing, behind the numbers
constexpr double kLineBottom = 190;
constexpr double kLineHeight = 236;
constexpr double kNameLeft = 190;  // behind names
constexpr double kRowHeight = 30;
constexpr double kNumberRoom = 40;  // at the right edge

constexpr const char* kFigures[] = {"p50", "p99", "largest"};

// Milliseconds along a line. Where they are far apart each power of ten has the same room.
class Scale {
 public:
  Scale(double least, double most, double from, double to) : from_(from), to_(to) {
    constexpr double kFarApart = 30;
    constexpr double kLeast = 0.001;
    least = std::max(least, kLeast);
    most = std::max(most, least);
    is_logarithmic_ = most / least > kFarApart;
    low_ = is_logarithmic_ ? std::pow(10, std::floor(std::log10(least))) : 0;
    high_ = is_logarithmic_ ? std::pow(10, std::ceil(std::log10(most))) : round_up(most);
  }

  bool is_logarithmic() const { return is_logarithmic_; }

  double at(double ms) const {
    const double part = is_logarithmic_ ? std::log10(std::max(ms, low_) / low_) / std::log10(high_ / low_) : ms / high_;
    return from_ + part * (to_ - from_);
  }

  std::vector<double> ticks() const {
    if (!is_logarithmic_) return {0, high_ / 2, high_};
    std::vector<double> ticks;
    const int powers = static_cast<int>(std::lround(std::log10(high_ / low_)));
    for (int i = 0; i <= powers; ++i) ticks.push_back(low_ * std::pow(10, i));
    return ticks;
  }

 private:
  // One, two or five times a power of ten.
  static double round_up(double least) {
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
      if (power * factor >= least) return power * factor;
    }
    return 10 * power;
  }

  double from_;
  double to_;
  bool is_logarithmic_;
  double low_;
  double high_;
};

std::string tick_text(double value) {
  std::array<char, 32> text{};
  constexpr double kLong = 100;
  std::snprintf(text.data(), text.size(), value < kLong ? "%.3g" : "%.6g", value);
  return text.data();
}

std::string mark(size_t figure, double x, double y) {
  const std::string at = svg_number(x) + " " + svg_number(y);
  constexpr const char* kShapes[] = {"m-4 0a4 4 0 1 0 8 0a4 4 0 1 0 -8 0z", "m-3.5 -3.5h7v7h-7z", "m0 -5l5 9h-10z"};
  return std::string("<path class=\"") + kFigures[figure] + "\" d=\"M" + at + kShapes[figure] + "\"/>";
}

std::string lost_mark(double x, double y) {
  return "<path class=\"lost\" d=\"M" + svg_number(x) + " " + svg_number(y) + "m-5 -5l10 10m0 -10l-10 10\"/>";
}

std::string key(const std::string& drawing, const std::string& name) {
  return "<li><svg class=\"key\" viewBox=\"-6 -6 12 12\" aria-hidden=\"true\">" + drawing + "</svg> " + name + "</li>";
}

std::string legend(bool has_lost) {
  std::string items = key(mark(0, 0, 0), "p50: half are no slower") +
                      key(mark(1, 0, 0), "p99: 99 of 100 are no slower") + key(mark(2, 0, 0), "the slowest");
  if (has_lost) items += key(lost_mark(0, 0), "lost");
  return "<ul class=\"legend\">" + items + "</ul>";
}

std::string figure(const std::string& title, double height, const std::string& drawn, const std::string& more) {
  return "<figure><figcaption>" + title + "</figcaption><svg class=\"chart\" viewBox=\"0 0 " + svg_number(kWidth) +
         " " + svg_number(height) + "\" role=\"img\" aria-label=\"" + title + "; the numbers are in the table\">" +
         drawn + "</svg>" + more + "</figure>\n";
}

std::string with_scale(const std::string& title, const Scale& scale) {
  return title + (scale.is_logarithmic() ? ", in ms; each line ten times the one before" : ", in ms");
}

double figure_of(const PlotPoint& point, size_t which) {
  return which == 0 ? point.p50 : which == 1 ? point.p99 : point.largest;
}

// Where a place of the horizontal axis is drawn.
class Across {
 public:
  explicit Across(const std::vector<PlotPoint>& points) : first_(points.front().x), last_(points.back().x) {}
  double at(double x) const {
    constexpr double kEdge = 10;
    const double span = std::max(last_ - first_, 1e-9);
    return kLineLeft + kEdge + (x - first_) / span * (kRight - kLineLeft - 2 * kEdge);
  }

 private:
  double first_;
  double last_;
};

std::string line(const std::vector<PlotPoint>& points, size_t which, const Across& across, const Scale& scale) {
  constexpr size_t kMostMarked = 20;
  std::string path;
  std::string marks;
  for (const PlotPoint& point : points) {
    const double x = across.at(point.x);
    const double y = scale.at(figure_of(point, which));
    path += path.empty() ? "M" : "L";
    path += svg_number(x);
    path += " ";
    path += svg_number(y);
    if (points.size() <= kMostMarked) marks += mark(which, x, y);
  }
  return std::string("<path class=\"line ") + kFigures[which] + "-line\" d=\"" + path + "\"/>" + marks;
}

// Numbers below a chart of lines, as many as there is room for.
std::string numbers_below(const LinePlot& plot, const Across& across) {
  constexpr double kLeastApart = 44;
  std::string drawn;
  double behind = 0;
  for (const PlotPoint& point : plot.points) {
    const double x = across.at(point.x);
    if (!drawn.empty() && x < behind + kLeastApart) continue;
    drawn += svg_label("middle", x, kLineBottom + 18, tick_text(point.x));
    behind = x;
  }
  return drawn + svg_label("end", kRight, kLineHeight - 4, plot.below);
}

}  // namespace

std::string draw_lines(const LinePlot& plot) {
  if (plot.points.size() < 2) return {};
  double least = plot.points[0].p50;
  double most = 0;
  for (const PlotPoint& point : plot.points) {
    least = std::min(least, point.p50);
    most = std::max(most, point.largest);
  }
  const Scale scale(least, most, kLineBottom, kTop);
  const Across across(plot.points);
  std::string drawn;
  for (const double tick : scale.ticks()) {
    drawn += svg_rectangle("grid", kLineLeft, scale.at(tick), kRight - kLineLeft, 0.5);
    drawn += svg_label("end", kLineLeft - 8, scale.at(tick) + 4, tick_text(tick));
  }
  for (const size_t which : {2U, 1U, 0U}) drawn += line(plot.points, which, across, scale);
  for (const double x : plot.marks) drawn += lost_mark(across.at(x), kLineBottom - 8);
  return figure(with_scale(plot.title, scale), kLineHeight, drawn + numbers_below(plot, across),
                legend(!plot.marks.empty()));
}

std::string draw_ranges(const std::string& title, const std::vector<PlotRange>& ranges) {
  if (ranges.empty()) return {};
  double least = ranges[0].p50;
  double most = 0;
  for (const PlotRange& range : ranges) {
    least = std::min(least, range.p50);
    most = std::max(most, range.largest);
  }
  const Scale scale(least, most, kNameLeft, kRight - 10);
  const double bottom = kTop + kRowHeight * static_cast<double>(ranges.size());
  std::string drawn;
  for (const double tick : scale.ticks()) {
    const double x = scale.at(tick);
    drawn += svg_rectangle("grid", x, kTop, 0.5, bottom - kTop);
    // On a telephone the letters are large: the last number would end outside.
    const bool is_last = x > kRight - kNumberRoom;
    drawn += svg_label(is_last ? "end" : "middle", is_last ? kRight : x, bottom + 20, tick_text(tick));
  }
  double y = kTop + kRowHeight / 2;
  for (const PlotRange& range : ranges) {
    drawn += svg_label("end", kNameLeft - 12, y + 4, range.name);
    drawn += svg_rectangle("range", scale.at(range.p50), y - 1, scale.at(range.largest) - scale.at(range.p50), 2);
    drawn += mark(2, scale.at(range.largest), y);
    drawn += mark(1, scale.at(range.p99), y);
    drawn += mark(0, scale.at(range.p50), y);
    y += kRowHeight;
  }
  return figure(with_scale(title, scale), bottom + 34, drawn, legend(false));
}

std::string draw_bars(const std::string& title, const std::vector<PlotBar>& bars) {
  size_t most = 1;
  for (const PlotBar& bar : bars) {
    size_t bytes = 0;
    for (const size_t piece : bar.pieces) bytes += piece;
    most = std::max(most, bytes);
  }
  if (bars.empty()) return {};
  constexpr double kGap = 3;
  std::string drawn;
  double y = kTop;
  for (const PlotBar& bar : bars) {
    drawn += svg_label("end", kNameLeft - 12, y + kRowHeight / 2 + 4, bar.name);
    double x = kNameLeft;
    for (const size_t piece : bar.pieces) {
      const double width = static_cast<double>(piece) / static_cast<double>(most) * (kRight - kNameLeft);
      drawn += svg_rectangle("piece", x, y + 6, std::max(1.0, width - kGap), kRowHeight - 12);
      x += width;
    }
    y += kRowHeight;
  }
  return figure(title, y + 4, drawn, "");
}

}  // namespace plc_host::survey
