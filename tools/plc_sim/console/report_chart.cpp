// Draws the chart as SVG; its colours are those of the page.
#include "tools/plc_sim/console/report_chart.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/page/svg.h"
#include "base/text.h"

namespace plc_sim {
namespace {

using plc_base::svg_label;
using plc_base::svg_number;
using plc_base::svg_rectangle;

constexpr double kWidth = 720;
constexpr double kHeight = 226;
constexpr double kLeft = 62;  // of the drawing, behind the numbers
constexpr double kTop = 12;
constexpr double kBottom = 160;  // where the bars stand
constexpr double kFaultsAt = 176;
constexpr double kViolationsAt = 192;

struct Scale {
  double slot_width;
  double per_request;
  uint64_t most;
};

std::string bars(const TimeSlot& slot, double x, const Scale& scale) {
  std::string drawn;
  double y = kBottom;
  for (size_t kind = 0; kind < slot.by_kind.size(); ++kind) {
    if (slot.by_kind[kind] == 0) continue;
    const double height = static_cast<double>(slot.by_kind[kind]) * scale.per_request;
    y -= height;
    drawn +=
        svg_rectangle(chart_class(static_cast<RequestKind>(kind)), x, y, std::max(1.0, scale.slot_width - 1), height);
  }
  return drawn;
}

std::string marks(const TimeSlot& slot, double x, const Scale& scale) {
  const double middle = x + scale.slot_width / 2;
  std::string drawn;
  if (slot.faults > 0) {
    drawn +=
        "<path class=\"fault\" d=\"M" + svg_number(middle) + " " + svg_number(kFaultsAt - 5) + "l5 5l-5 5l-5 -5z\"/>";
  }
  if (slot.violations > 0) {
    drawn +=
        "<path class=\"violation\" d=\"M" + svg_number(middle) + " " + svg_number(kViolationsAt - 5) + "l5 9h-10z\"/>";
  }
  return drawn;
}

std::string axes(const RunLog& run, const Scale& scale) {
  const double right = kLeft + scale.slot_width * static_cast<double>(run.slots().size());
  std::string drawn;
  for (const uint64_t part : {uint64_t{0}, scale.most / 2, scale.most}) {
    const double y = kBottom - static_cast<double>(part) * scale.per_request;
    drawn += svg_rectangle("grid", kLeft, y, kWidth - kLeft, 0.5);
    if (part > 0 || scale.most / 2 > 0) drawn += svg_label("end", kLeft - 6, y + 4, std::to_string(part));
  }
  drawn += svg_label("start", kLeft, kHeight - 6, "0 s");
  drawn += svg_label("end", right, kHeight - 6, duration_text(run.slot_ms() * run.slots().size()));
  return drawn;
}

std::string legend(const RunLog& run) {
  std::string items;
  for (const RequestKind kind : kAllRequestKinds) {
    if (run.requests(kind) == 0) continue;
    items += "<li><svg class=\"key\" viewBox=\"0 0 10 10\" aria-hidden=\"true\">" +
             svg_rectangle(chart_class(kind), 0, 0, 10, 10) + "</svg> " + name_of(kind) + "</li>";
  }
  if (run.all_faults() > 0) {
    items +=
        "<li><svg class=\"key\" viewBox=\"0 0 10 10\" aria-hidden=\"true\"><path class=\"fault\" d=\"M5 0l5 5l-5 "
        "5l-5 -5z\"/></svg> fault</li>";
  }
  if (run.all_violations() > 0) {
    items +=
        "<li><svg class=\"key\" viewBox=\"0 0 10 10\" aria-hidden=\"true\"><path class=\"violation\" d=\"M5 0l5 "
        "9h-10z\"/></svg> violation</li>";
  }
  return "<ul class=\"legend\">" + items + "</ul>";
}

}  // namespace

std::string chart_class(RequestKind kind) { return "kind" + std::to_string(static_cast<unsigned>(kind)); }

std::string duration_text(uint64_t ms) {
  constexpr uint64_t kMinute = 60000;
  constexpr uint64_t kHour = 60 * kMinute;
  if (ms >= kHour) return std::to_string(ms / kHour) + " h " + std::to_string(ms % kHour / kMinute) + " min";
  if (ms >= kMinute) return std::to_string(ms / kMinute) + " min " + std::to_string(ms % kMinute / 1000) + " s";
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%llu.%03llu s", static_cast<unsigned long long>(ms / 1000),
                static_cast<unsigned long long>(ms % 1000));
  return text.data();
}

std::string report_chart(const RunLog& run) {
  const std::vector<TimeSlot>& slots = run.slots();
  if (slots.empty()) return {};
  uint64_t most = 1;
  for (const TimeSlot& slot : slots) most = std::max(most, slot.requests());
  Scale scale{};
  scale.most = plc_base::round_number(most);
  // A short run is not drawn as one broad bar.
  constexpr size_t kLeastSlots = 20;
  scale.slot_width = (kWidth - kLeft) / static_cast<double>(std::max(slots.size(), kLeastSlots));
  scale.per_request = (kBottom - kTop) / static_cast<double>(scale.most);
  const std::string what = "Requests in each " + duration_text(run.slot_ms());
  std::string drawn = "<figure><figcaption>" + what + "</figcaption><svg class=\"chart\" viewBox=\"0 0 " +
                      svg_number(kWidth) + " " + svg_number(kHeight) + "\" role=\"img\" aria-label=\"" + what + ", " +
                      std::to_string(most) + " at most; the numbers by kind are in the table below\">" +
                      axes(run, scale);
  for (size_t i = 0; i < slots.size(); ++i) {
    const double x = kLeft + scale.slot_width * static_cast<double>(i);
    drawn += bars(slots[i], x, scale) + marks(slots[i], x, scale);
  }
  return drawn + "</svg>" + legend(run) + "</figure>\n";
}

}  // namespace plc_sim
