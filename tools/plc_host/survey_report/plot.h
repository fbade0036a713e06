// Charts of milliseconds as SVG: lines over a number, ranges beside names, bars cut into pieces.
#pragma once

#include <string>
#include <vector>

namespace plc_host::survey {

// The three figures of many times at one place of the horizontal axis.
struct PlotPoint {
  double x = 0;
  double p50 = 0;
  double p99 = 0;
  double largest = 0;
};

struct LinePlot {
  std::string title;              // HTML
  std::string below;              // what the horizontal axis counts
  std::vector<PlotPoint> points;  // in the order of x
  std::vector<double> marks;      // places where something was lost
};

// A drawing with its legend; empty when there is nothing to draw a line through.
std::string draw_lines(const LinePlot& plot);

// One line of a chart of ranges, from the middle time to the largest.
struct PlotRange {
  std::string name;  // HTML
  double p50 = 0;
  double p99 = 0;
  double largest = 0;
};

std::string draw_ranges(const std::string& title, const std::vector<PlotRange>& ranges);

// One bar of a chart of pieces, with how many bytes each has.
struct PlotBar {
  std::string name;
  std::vector<size_t> pieces;
};

std::string draw_bars(const std::string& title, const std::vector<PlotBar>& bars);

}  // namespace plc_host::survey
