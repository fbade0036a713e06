// The sections on the way to the controller, its programs, its variables and the heads of its replies.
#include <algorithm>

#include "base/page/html.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_host/survey_report/page_parts.h"
#include "tools/plc_host/survey_report/report_words.h"
#include "tools/plc_host/survey_report/summary.h"

namespace plc_host::survey {
namespace {

using plc_base::html_fact;
using plc_base::HtmlTable;
using plc_base::plural;
using plc_base::shown_html;

std::string word_or(const std::string& word, const char* otherwise) {
  return word.empty() ? otherwise : shown_html(word);
}

std::string variable_name(const VariableFinding& one) { return told_html(one.name + one.element); }

std::string place_of(const VariableFinding& one) {
  return shown_html(one.file) + (one.line == 0 ? "" : ":" + std::to_string(one.line));
}

std::string what_happened(const VariableFinding& one) {
  std::string text = word_of(one.state);
  if (one.state == VariableFinding::State::kRefused) text += ", status " + status_text(one.status);
  return one.why.empty() ? text : text + ": " + shown_html(one.why);
}

std::string bad_variables(const Variables& variables) {
  HtmlTable table("Variables that are not as declared", {"variable", "type", "declared in", "what happened", "near"},
                  5);
  size_t count = 0;
  for (const VariableFinding& one : variables.findings) {
    if (one.state == VariableFinding::State::kGood) continue;
    ++count;
    table.add({variable_name(one), shown_html(one.type), place_of(one), what_happened(one), html_list(one.near)});
  }
  if (count > 0) return table.finish();
  if (variables.findings.empty()) return "";
  const bool is_whole = variables.compared_with.empty() || variables.compared >= variables.to_compare;
  return is_whole ? "<p>Every variable has the size that is declared.</p>\n"
                  : "<p>Every variable that was compared has the size that is declared.</p>\n";
}

std::string good_variables(const Variables& variables) {
  HtmlTable table("Variables as declared", {"variable", "type", "value when it was read"}, 3);
  size_t count = 0;
  size_t without_value = 0;
  for (const VariableFinding& one : variables.findings) {
    if (one.state != VariableFinding::State::kGood) continue;
    ++(is_read(one) ? count : without_value);
    const std::string changes = one.changes ? " (changes by itself)" : "";
    table.add({variable_name(one), shown_html(one.type), shown_html(is_read(one) ? one.value : one.why) + changes});
  }
  if (count + without_value == 0) return "";
  std::string title = plural(count, "variable") + " as declared";
  if (without_value > 0) title += ", and " + std::to_string(without_value) + " answered without a value";
  return "<details><summary>" + title + "</summary>" + table.finish() + "</details>\n";
}

// Nothing is known of the elements before the last one.
const char* arrays_text(const Variables& variables) {
  const auto& findings = variables.findings;
  const auto is_array = [](const VariableFinding& one) { return !one.element.empty(); };
  if (std::none_of(findings.begin(), findings.end(), is_array)) return "";
  return "<p>Of an array one element was asked for, the last one, and --write writes that one alone.</p>\n";
}

std::string compared_text(const Variables& variables) {
  if (!variables.compared_with.empty()) {
    const std::string counts = std::to_string(variables.compared) + " of " + plural(variables.to_compare, "value");
    const bool is_whole = variables.not_compared.empty();
    return (is_whole ? "<p>" : "<p class=\"why\">") + counts +
           (variables.to_compare == 1 ? " that the survey read was" : " that the survey read were") +
           " compared with what the driver gives (" + shown_html(variables.compared_with) + ")" +
           (is_whole ? "" : "; " + shown_html(variables.not_compared)) + ".</p>\n";
  }
  const std::string why = variables.not_compared.empty() ? "" : ": " + shown_html(variables.not_compared);
  return "<p class=\"why\">Values were not compared with what the driver gives" + why + ".</p>\n";
}

void add_field(HtmlTable& table, const char* name, const HeadCounts::Field& field) {
  table.add({name, std::to_string(field.right), std::to_string(field.zero), std::to_string(field.other)});
}

std::string fields_table(const HeadCounts& heads) {
  HtmlTable table("Heads of replies", {"field", "that of the request", "zero", "something else"}, 1);
  add_field(table, "length L", heads.length);
  add_field(table, "complement of L", heads.complement);
  add_field(table, "sequence number", heads.sequence);
  add_field(table, "class", heads.request_class);
  add_field(table, "command", heads.command);
  return table.finish();
}

std::string statuses_table(const HeadCounts& heads) {
  HtmlTable table("Statuses", {"status", "in replies to", "replies"}, 2);
  for (const HeadCounts::Status& one : heads.statuses) {
    table.add({"<code>" + status_text(one.status) + "</code>", shown_html(one.request), std::to_string(one.count)});
  }
  return "<h3>Statuses: bytes 12 and 13</h3>\n" + table.finish();
}

// The first frame of each status that is not 0; the verdict shows others.
std::string status_frames(const HeadCounts& heads) {
  std::string frames;
  for (const HeadCounts::Status& one : heads.statuses) {
    if (one.status == 0 || one.first.request.empty()) continue;
    frames += frame_html(
        "The first with status " + status_text(one.status) + " in replies to " + shown_html(one.request), one.first);
  }
  return frames;
}

std::string values_text(const HeadCounts& heads) {
  const uint64_t all = heads.values_exact + heads.values_longer + heads.values_shorter;
  if (all == 0) return "<p class=\"why\">Where replies with values end was not measured.</p>\n";
  std::string text = "<p>Of " + std::to_string(all) + " replies with values, " + std::to_string(heads.values_exact);
  text += " end with them, " + std::to_string(heads.values_longer) + " have more bytes";
  if (heads.values_behind_end > 0) {
    text += " (" + std::to_string(heads.values_behind_end) + " of them behind the end that their head tells)";
  }
  text += ", ";
  text += std::to_string(heads.values_shorter) + " fewer.";
  if (heads.bytes_behind_values && *heads.bytes_behind_values > 0) {
    text += " Each has " + plural(*heads.bytes_behind_values, "byte") + " behind its values.";
  }
  return text + "</p>\n";
}

}  // namespace

namespace {

// Each once, with how often it came.
std::string failures_html(const std::vector<std::string>& failures) {
  std::vector<std::string> told;
  for (auto at = failures.begin(); at != failures.end(); ++at) {
    if (std::find(failures.begin(), at, *at) != at) continue;
    const auto count = std::count(at, failures.end(), *at);
    told.push_back(*at + (count > 1 ? " (" + std::to_string(count) + " times)" : ""));
  }
  return html_list(told);
}

}  // namespace

std::string link_html(const SurveyRecord& record) {
  const Link& link = record.link;
  std::string html;
  if (!link.name_problem.empty()) {
    html += "<p>The name could not be resolved: " + shown_html(link.name_problem) + ".</p>\n";
  }
  html += "<dl>" + html_fact("connections taken",
                             std::to_string(link.connect_ms.size()) + " of " + std::to_string(link.connects_tried));
  const std::vector<std::string> figures = figure_cells(link.connect_ms);
  html += html_fact("connect, p50", figures[0]) + html_fact("connect, slowest", figures[2]);
  html +=
      html_fact("bytes in a packet at most", link.segment_bytes ? std::to_string(*link.segment_bytes) : "not measured");
  const std::string port = link.closed_port_number == 0 ? "" : std::to_string(link.closed_port_number) + ": ";
  html += html_fact("a closed port", port + word_or(link.closed_port, "not tried"));
  html += html_fact("a second connection", word_or(link.second_connection, "not tried"));
  html += html_fact("a half-closed one", word_or(link.half_closed, "not tried"));
  if (link.connections_tried == 0) {
    html += html_fact("connections at a time", "not measured");
  } else if (link.most_connections) {
    html += html_fact("connections at a time", std::to_string(*link.most_connections));
    html += html_fact("one more", reaction_words(link.one_more));
  } else {
    html += html_fact("connections at a time", std::to_string(link.connections_tried) + " and no limit met");
  }
  html += "</dl>\n";
  if (!link.connect_failures.empty()) html += "<p>Failed: " + failures_html(link.connect_failures) + ".</p>\n";
  return step_section("The way to it", link.step, html);
}

std::string programs_html(const SurveyRecord& record) {
  const Programs& programs = record.programs;
  HtmlTable table("Programs", {"program", "what was found", "number"}, 2);
  for (const ProgramFinding& one : programs.findings) {
    std::string what = word_of(one.state);
    if (one.state == ProgramFinding::State::kPrefix) what = "found; " + told_html(one.other) + " begins with its name";
    if (one.state == ProgramFinding::State::kCut) what = "cut: " + told_html(one.other);
    const bool is_known = one.state != ProgramFinding::State::kNotKnown;
    if (!has_number(one)) what = shown_html(missing_words(one));
    table.add({told_html(one.scope), what,
               has_number(one) ? std::to_string(one.number)
               : is_known      ? "none"
                               : "not known"});
  }
  std::string html = programs.findings.empty() ? "<p>The tag files name no program.</p>\n" : table.finish();
  html +=
      "<p>In the directory: " + (programs.directory.empty() ? "nothing" : html_list(programs.directory)) + ".</p>\n";
  return step_section("Programs", programs.step, html);
}

std::string variables_html(const SurveyRecord& record) {
  const Variables& variables = record.variables;
  const std::string unbatched = unbatched_text(variables);
  const std::string note = unbatched.empty() ? "" : "<p class=\"why\">" + unbatched + "</p>\n";
  return step_section(
      "Variables", variables.step,
      arrays_text(variables) + note + compared_text(variables) + bad_variables(variables) + good_variables(variables));
}

std::string heads_html(const SurveyRecord& record) {
  const HeadCounts& heads = record.heads;
  if (heads.replies == 0) return step_section("Heads of replies", heads.step, "<p class=\"why\">No reply came.</p>\n");
  std::string html = "<p>" + std::to_string(heads.replies) + (heads.replies == 1 ? " reply" : " replies");
  const char* what = heads.unfinished > 0 ? " had no whole one" : " had none";
  if (heads.replies_unanswered > 0) html += "; " + plural(heads.replies_unanswered, "request") + what;
  html += strays_text(heads);
  if (heads.bytes_unasked > 0) {
    html += "; " + plural(heads.bytes_unasked, "byte") + " that nobody asked for came behind " +
            std::to_string(heads.with_more_behind) + " of them";
  }
  html += ".</p>\n" + fields_table(heads) + values_text(heads) + statuses_table(heads) + status_frames(heads);
  return step_section("Heads of replies", heads.step, html);
}

}  // namespace plc_host::survey
