// The sections on answer times, splitting, limits, writes and hours, with their charts.
#include <algorithm>
#include <iterator>

#include "base/page/html.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_host/survey_report/page_parts.h"
#include "tools/plc_host/survey_report/plot.h"
#include "tools/plc_host/survey_report/report_words.h"

namespace plc_host::survey {
namespace {

using plc_base::html_fact;
using plc_base::HtmlTable;
using plc_base::plural;
using plc_base::shown_html;

constexpr size_t kMostCharts = 8;
constexpr size_t kMostBars = 12;

std::vector<std::string> kinds_of(const std::vector<Times>& times) {
  std::vector<std::string> kinds;
  for (const Times& one : times) {
    if (std::find(kinds.begin(), kinds.end(), one.kind) == kinds.end()) kinds.push_back(one.kind);
  }
  return kinds;
}

std::vector<Times> by_kind(const std::vector<Times>& times) {
  std::vector<Times> sorted;
  for (const std::string& kind : kinds_of(times)) {
    const auto first = static_cast<std::ptrdiff_t>(sorted.size());
    std::copy_if(times.begin(), times.end(), std::back_inserter(sorted),
                 [&kind](const Times& one) { return one.kind == kind; });
    std::stable_sort(sorted.begin() + first, sorted.end(),
                     [](const Times& a, const Times& b) { return a.names < b.names; });
  }
  return sorted;
}

// Of each kind of request those with the fewest names.
std::string kinds_chart(const std::vector<Times>& times) {
  std::vector<PlotRange> ranges;
  for (const std::string& kind : kinds_of(times)) {
    const Times* fewest = nullptr;
    for (const Times& one : times) {
      if (one.kind == kind && !one.ms.empty() && (fewest == nullptr || one.names < fewest->names)) fewest = &one;
    }
    if (fewest == nullptr) continue;
    const Spread spread = spread_of(fewest->ms);
    ranges.push_back({shown_html(kind), spread.p50, spread.p99, spread.largest});
  }
  return draw_ranges("Answer times by kind of request, one name", ranges);
}

std::string names_chart(const std::vector<Times>& times, const std::string& kind) {
  LinePlot plot;
  plot.title = "Answer times of " + shown_html(kind) + " by number of names";
  plot.below = "names in the request";
  for (const Times& one : times) {
    if (one.kind != kind || one.ms.empty()) continue;
    const Spread spread = spread_of(one.ms);
    plot.points.push_back({static_cast<double>(one.names), spread.p50, spread.p99, spread.largest});
  }
  std::sort(plot.points.begin(), plot.points.end(), [](const auto& a, const auto& b) { return a.x < b.x; });
  return draw_lines(plot);
}

std::string times_table(const std::vector<Times>& times) {
  HtmlTable table("Answer times", {"request", "names", "measured", "p50", "p99", "slowest", "no answer"}, 1);
  for (const Times& one : by_kind(times)) {
    std::vector<std::string> cells = {shown_html(one.kind), std::to_string(one.names),
                                      one.ms.empty() ? "not measured" : plural(one.ms.size(), "time")};
    for (const std::string& cell : figure_cells(one.ms)) cells.push_back(cell);
    cells.push_back(std::to_string(one.silent + one.lost + one.damaged));
    table.add(cells);
  }
  return table.finish() + "<p class=\"why\">The p99 of fewer than 100 times is the slowest of them.</p>\n";
}

using Way = std::pair<const std::vector<size_t>, uint32_t>;

const Way* usual_way(const Split& split) {
  const auto found = std::max_element(split.pieces.begin(), split.pieces.end(),
                                      [](const Way& a, const Way& b) { return a.second < b.second; });
  return found == split.pieces.end() ? nullptr : &*found;
}

bool is_ever_split(const Split& split) {
  return std::any_of(split.pieces.begin(), split.pieces.end(), [](const Way& way) { return way.first.size() > 1; });
}

// The largest that came whole and those that did not, as many as a chart shows.
std::string splits_chart(const std::vector<Split>& splits) {
  std::vector<PlotBar> bars;
  for (auto split = splits.rbegin(); split != splits.rend() && bars.size() < kMostBars; ++split) {
    const Way* way = usual_way(*split);
    if (way == nullptr) continue;
    bars.push_back({plural(split->reply_bytes, "byte"), way->first});
  }
  std::reverse(bars.begin(), bars.end());
  return draw_bars("The pieces in which replies of each size mostly arrive", bars);
}

// Of replies that are as long as the shortest that came in pieces, or longer.
std::string longer_sentence(const std::vector<Split>& splits, size_t smallest_split) {
  uint64_t all = 0;
  uint64_t split = 0;
  for (const Split& one : splits) {
    for (const Way& way : one.pieces) {
      if (one.reply_bytes < smallest_split) continue;
      all += way.second;
      split += way.first.size() > 1 ? way.second : 0;
    }
  }
  const std::string size = plural(smallest_split, "byte");
  if (split == all) return "Replies of " + size + " and more came in pieces.";
  return std::to_string(split) + " of " + std::to_string(all) + " replies of " + size + " and more came in pieces.";
}

std::string splits_sentence(const std::vector<Split>& splits) {
  size_t largest_whole = 0;
  size_t smallest_split = 0;
  for (const Split& one : splits) {
    if (!is_ever_split(one)) {
      largest_whole = std::max(largest_whole, one.reply_bytes);
    } else if (smallest_split == 0 || one.reply_bytes < smallest_split) {
      smallest_split = one.reply_bytes;
    }
  }
  if (smallest_split == 0) {
    return "<p>Every reply came in one piece, up to " + plural(largest_whole, "byte") + ".</p>\n";
  }
  return "<p>" + longer_sentence(splits, smallest_split) +
         " The contract build takes the first piece alone; the guarded build waits for all of them.</p>\n";
}

std::string splits_table(const std::vector<Split>& splits) {
  HtmlTable table("Splitting", {"reply", "pieces, in bytes", "gap between them, p50", "slowest gap", "replies"}, 2);
  for (const Split& one : splits) {
    const std::vector<std::string> gaps =
        one.gap_ms.empty() ? std::vector<std::string>(3, "no gap") : figure_cells(one.gap_ms);
    for (const Way& way : one.pieces) {
      const bool is_cut = way.first.size() > 1;
      table.add({plural(one.reply_bytes, "byte"), pieces_text(way.first), is_cut ? gaps[0] : "no gap",
                 is_cut ? gaps[2] : "no gap", std::to_string(way.second)});
    }
  }
  return table.finish();
}

std::string met_text(const std::optional<uint32_t>& limit, uint32_t tried, const Reach& reach, bool is_done) {
  if (limit) return std::to_string(*limit);
  if (tried == 0) return "not measured";
  return is_done || reach.is_whole ? "no limit met, " + std::to_string(tried) + " tried" : reach_text(reach);
}

std::string yes_or_no(const std::optional<bool>& is_so) {
  if (!is_so) return "-";
  return *is_so ? "yes" : "<span class=\"wrong\">no</span>";
}

std::string answer_cell(const WriteFinding& finding) {
  if (!finding.refusal) return yes_or_no(finding.acknowledged);
  return "<span class=\"wrong\">refused, status " + status_text(*finding.refusal) + "</span>";
}

std::string hours_chart(const Endurance& endurance) {
  constexpr double kMinuteMs = 60000;
  LinePlot plot;
  plot.title = "Times of a round over the hours";
  plot.below = "minutes from the beginning";
  for (const Endurance::Slice& slice : endurance.slices) {
    const double minute = static_cast<double>(slice.from_ms) / kMinuteMs;
    if (slice.rounds > slice.losses) plot.points.push_back({minute, slice.p50, slice.p99, slice.largest});
    if (slice.losses > 0) plot.marks.push_back(minute);
  }
  return draw_lines(plot);
}

std::string losses_table(const Endurance& endurance) {
  constexpr int64_t kSecondMs = 1000;
  HtmlTable table("When rounds were lost", {"from", "rounds", "lost", "p50", "slowest"}, 1);
  size_t count = 0;
  for (const Endurance::Slice& slice : endurance.slices) {
    if (slice.losses == 0) continue;
    ++count;
    const bool is_measured = slice.rounds > slice.losses;
    table.add({seconds_text(static_cast<double>(slice.from_ms) / kSecondMs), std::to_string(slice.rounds),
               std::to_string(slice.losses), is_measured ? shown_ms(slice.p50) : "not measured",
               is_measured ? shown_ms(slice.largest) : "not measured"});
  }
  return count == 0 ? "<p>No round was lost.</p>\n" : "<h3>When rounds were lost</h3>\n" + table.finish();
}

}  // namespace

std::string times_html(const SurveyRecord& record) {
  std::string html = kinds_chart(record.times);
  size_t charts = 0;
  for (const std::string& kind : kinds_of(record.times)) {
    if (charts++ < kMostCharts) html += names_chart(record.times, kind);
  }
  return step_section("Answer times", record.times_step, html + times_table(record.times));
}

std::string splits_html(const SurveyRecord& record) {
  if (record.splits.empty()) {
    return plc_base::html_section("Splitting of replies", "<p class=\"why\">Not measured.</p>\n");
  }
  return plc_base::html_section("Splitting of replies", splits_sentence(record.splits) + splits_chart(record.splits) +
                                                            splits_table(record.splits));
}

std::string limits_html(const SurveyRecord& record) {
  const Limits& limits = record.limits;
  const bool is_done = limits.step.state == Step::State::kDone;
  const std::string names = met_text(limits.names_per_request, limits.names_tried, limits.names_reach, is_done);
  const std::string values = met_text(limits.values_per_request, limits.values_tried, limits.values_reach, is_done);
  std::string html = "<dl>" + html_fact("names in a request", names) + html_fact("values in a request", values);
  if (!limits.beyond.empty()) html += html_fact("beyond it", shown_html(limits.beyond));
  return step_section("Limits", limits.step, html + "</dl>\n");
}

std::string writes_html(const SurveyRecord& record) {
  const Writes& writes = record.writes;
  HtmlTable table("Writes",
                  {"variable", "type", "kind", "acknowledged", "read back", "neighbours unchanged", "set back", "note"},
                  8);
  for (const WriteFinding& one : writes.findings) {
    table.add({told_html(one.name), shown_html(one.type), shown_html(one.kind), answer_cell(one),
               yes_or_no(one.read_back), yes_or_no(one.neighbours_kept), yes_or_no(one.set_back), shown_html(one.why)});
  }
  std::string html = table.finish();
  if (!writes.neighbours.empty()) {
    html += "<p>Neighbours that were compared behind a write: " + html_list(writes.neighbours) + ".</p>\n";
  }
  if (!writes.neighbours_not_compared.empty()) {
    html += "<p class=\"why\">Neighbours that were read before a write, and not compared behind it: " +
            html_list(writes.neighbours_not_compared) + ".</p>\n";
  }
  return step_section("Writes", writes.step, html);
}

std::string hours_html(const SurveyRecord& record) {
  const Endurance& endurance = record.endurance;
  std::string html = "<dl>" + html_fact("asked for", hours_text(endurance.hours_asked));
  html += html_fact("period", std::to_string(endurance.period_ms) + " ms");
  html += html_fact("rounds", std::to_string(endurance.rounds)) + html_fact("lost", std::to_string(endurance.losses));
  if (endurance.losses > 0) {
    html += html_fact("values not read", std::to_string(endurance.lost_values));
    html += html_fact("longest gap", shown_ms(endurance.longest_gap_ms));
  }
  html += html_fact("slower than the period", std::to_string(endurance.slow));
  html += html_fact("turns left out", std::to_string(endurance.left_out));
  html += html_fact("last round behind its turn", shown_ms(endurance.drift_ms)) + "</dl>\n";
  return step_section("Over hours", endurance.step, html + hours_chart(endurance) + losses_table(endurance));
}

}  // namespace plc_host::survey
