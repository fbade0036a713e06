// Puts the page together: what matters to whoever was not there comes first, the figures behind it.
#include "tools/plc_host/survey_report/report_page.h"

#include <algorithm>
#include <vector>

#include "base/page/html.h"
#include "base/shown_text.h"
#include "tools/plc_host/survey_report/page_parts.h"
#include "tools/plc_host/survey_report/questions.h"
#include "tools/plc_host/survey_report/report_style.h"
#include "tools/plc_host/survey_report/report_words.h"
#include "tools/plc_host/survey_report/summary.h"

namespace plc_host::survey {
namespace {

using plc_base::html_element;
using plc_base::html_fact;
using plc_base::html_section;
using plc_base::HtmlTable;
using plc_base::shown_html;

// What comes later could still break a rule: of a part of a survey nothing is good.
const char* verdict_class(const SurveyRecord& record) {
  if (record.verdict.usable == Verdict::Usable::kNotUsable) return "bad";
  return record.is_whole && is_usable(record.verdict.usable) ? "good" : "unknown";
}

std::string badge(const char* style, const std::string& text) {
  return std::string("<p class=\"verdict ") + style + "\">" + shown_html(text) + "</p>\n";
}

std::string head_html(const SurveyRecord& record) {
  std::string html = "<header><h1>Survey of the controller at " + shown_html(controller_text(record.link)) + "</h1>\n";
  html += badge(verdict_class(record), verdict_sentence(record));
  if (!record.is_whole) {
    html += badge("bad", "The survey is not whole" + (record.ended.empty() ? "" : ": " + record.ended) + ".");
  }
  if (!record.capture_problem.empty()) {
    html += badge("bad", "survey.pcapng is cut, and lacks what came later: " + record.capture_problem + ".");
  }
  for (const std::string& one : record.writes.not_set_back) {
    html += "<p class=\"alarm\">Not set back, look after it now: " + shown_html(one) + "</p>\n";
  }
  html +=
      "<dl>" + html_fact("made", shown_html(utc_text(record.made))) + html_fact("took", seconds_text(record.took_s));
  html += html_fact("plc-host", shown_html(record.version));
  html += html_fact("driver", record.driver_build.empty() ? "none was called" : shown_html(record.driver_build));
  html += html_fact("tag files", record.tag_files.empty() ? "none" : html_list(record.tag_files));
  return html + "</dl></header>\n";
}

std::string found_html(const SurveyRecord& record) {
  std::string text;
  for (const std::string& sentence : found_sentences(record)) text += (text.empty() ? "" : " ") + shown_html(sentence);
  return html_section("What was found", "<p class=\"found\">" + text + "</p>\n");
}

// A profile names no driver of a guarded build that is usable so far.
std::string profile_words(const SurveyRecord& record) {
  constexpr char kReaders[] = "for plc-host, the client library and the gateway";
  const Verdict::Usable usable = record.verdict.usable;
  if (record.is_whole || (usable != Verdict::Usable::kYes && usable != Verdict::Usable::kUnknown)) {
    return std::string("profile.toml holds all of it, ") + kReaders + ";";
  }
  const auto is_driver = [](const Recommendation& one) { return one.setting == "driver"; };
  const bool has_driver = std::any_of(record.recommendations.begin(), record.recommendations.end(), is_driver);
  return std::string("profile.toml holds these settings") + (has_driver ? " but for driver, " : ", ") + kReaders +
         ". Of the guarded build it has usable = \"unknown\", as the survey did not come to its end;";
}

// Each with the data that it lacks.
std::string left_out_html(const SurveyRecord& record) {
  std::string html;
  for (const LeftOut& one : record.left_out) {
    html += "<p class=\"why\"><code>" + shown_html(one.setting) + "</code> is not set: " + shown_html(one.because) +
            ".</p>\n";
  }
  return html;
}

std::string settings_html(const SurveyRecord& record) {
  if (record.recommendations.empty()) {
    return html_section("What to set", "<p class=\"why\">Nothing is recommended: too little was measured.</p>\n" +
                                           left_out_html(record));
  }
  HtmlTable table("What to set", {"setting", "value", "because"}, 3);
  for (const Recommendation& one : record.recommendations) {
    table.add({"<code>" + shown_html(one.setting) + "</code>", html_element("strong", shown_html(one.value)),
               shown_html(one.because)});
  }
  const std::string warning = contract_warning(record);
  const std::string lacking = lacking_note(record);
  std::string warned = warning.empty() ? "" : badge("bad", warning);
  if (!lacking.empty()) warned += badge("bad", lacking);
  return html_section("What to set", warned + table.finish() + left_out_html(record) + "<p>" + profile_words(record) +
                                         " plc-sim --profile imitates this controller with it.</p>\n");
}

bool is_untried(const VariableFinding& one) { return one.state == VariableFinding::State::kNotTried; }

// What is not tried here is not tried in the summary either, whatever the reason.
std::string no_questions(const Variables& variables, bool is_whole) {
  const auto& findings = variables.findings;
  const bool has_untried = std::any_of(findings.begin(), findings.end(), is_untried);
  if (variables.step.state == Step::State::kDone) {
    return std::string("<p>Nothing that replies show") + (is_whole ? "" : " so far") + ": every variable " +
           (has_untried ? "that was tried " : "") +
           "has the size that is declared, and replies are as expected. "
           "No reply tells types of one size apart: compare the declarations with the program.</p>\n";
  }
  if (findings.empty() || has_untried) {
    return "<p class=\"why\">Nothing yet: not every variable was tried.</p>\n";
  }
  return "<p class=\"why\">Nothing yet: every variable was tried, and not every value was compared.</p>\n";
}

std::string questions_html(const SurveyRecord& record) {
  const char* title = "What to ask the controller&#39;s programmer";
  const std::vector<Question> all = questions(record);
  if (all.empty()) {
    return html_section(title, no_questions(record.variables, record.is_whole));
  }
  std::string items;
  for (size_t i = 0; i < std::min(all.size(), HtmlTable::kMostRows); ++i) {
    items +=
        html_element("li", html_element("strong", shown_html(all[i].about)) + ": " + shown_html(all[i].what)) + "\n";
  }
  if (all.size() > HtmlTable::kMostRows) {
    items += html_element("li", "and " + std::to_string(all.size() - HtmlTable::kMostRows) + " more");
  }
  return html_section(title, "<ul class=\"questions\">" + items + "</ul>\n");
}

std::string holds_text(const Verdict::Rule& rule) {
  if (rule.kept + rule.broken == 0) return "not measured";
  if (!rule.is_known) return "not known: too few replies";
  if (rule.holds && rule.broken > 0) return "with exceptions";
  return rule.holds ? "holds" : "<span class=\"wrong\">does not hold</span>";
}

// An exchange that is evidence, once for all rules that it is shown for.
struct Evidence {
  const Frame* frame;
  std::string shows;
};

void add_evidence(std::vector<Evidence>& all, const Verdict::Rule& rule, const Frame& frame) {
  const bool is_kept = rule.holds && !frame.breaks_rule;
  const std::string shows = is_kept ? "keeps the rule \"" + rule.rule + "\"" : frame.title;
  const auto same = std::find_if(all.begin(), all.end(), [&frame](const Evidence& one) {
    return frame.packet > 0 && one.frame->packet == frame.packet;
  });
  if (same == all.end()) {
    all.push_back({&frame, shows});
  } else {
    same->shows += "; " + shows;
  }
}

std::string evidence_html(const Verdict& verdict) {
  std::vector<Evidence> all;
  for (const Verdict::Rule& rule : verdict.rules) {
    for (const Frame& frame : rule.evidence) add_evidence(all, rule, frame);
  }
  std::string html;
  for (size_t i = 0; i < all.size(); ++i) {
    Frame shown = *all[i].frame;
    shown.title = all[i].shows;
    html += frame_html("Evidence " + std::to_string(i + 1), shown);
  }
  return html.empty() ? html : "<h3>Evidence</h3>\n" + html;
}

std::string verdict_html(const SurveyRecord& record) {
  std::string html = "<p>" + shown_html(verdict_sentence(record));
  if (!record.verdict.because.empty()) html += " " + shown_html(record.verdict.because);
  html += "</p>\n";
  HtmlTable table("Rules of the guarded build", {"rule", "found", "replies that keep it", "that break it"}, 2);
  for (const Verdict::Rule& rule : record.verdict.rules) {
    const bool is_measured = rule.kept + rule.broken > 0;
    table.add({shown_html(rule.rule), holds_text(rule), is_measured ? std::to_string(rule.kept) : "not measured",
               is_measured ? std::to_string(rule.broken) : "not measured"});
  }
  if (!record.verdict.rules.empty()) html += table.finish();
  return html_section("The guarded build", html + evidence_html(record.verdict));
}

std::string not_done_html(const SurveyRecord& record) {
  HtmlTable table("What was not done", {"step", "state", "why"}, 3);
  size_t count = 0;
  for (const NamedStep& one : steps_of(record)) {
    if (one.step.state == Step::State::kDone) continue;
    ++count;
    table.add({one.name, word_of(one.step.state), one.step.why.empty() ? "not said" : shown_html(one.step.why)});
  }
  return html_section("What was not done, and why", count == 0 ? "<p>Everything was done.</p>\n" : table.finish());
}

std::string told_html(const SurveyRecord& record) {
  std::string html = "<h3>Command</h3><p><code>" + shown_html(record.command) + "</code></p>\n";
  if (!record.messages.empty()) {
    html += "<h3>Messages</h3><ul>";
    for (const std::string& one : record.messages) html += html_element("li", shown_html(one));
    html += "</ul>\n";
  }
  if (!record.driver_lines.empty()) {
    std::string lines;
    for (size_t at = 0; at < record.driver_lines.size();) {
      const size_t end = std::min(record.driver_lines.find('\n', at), record.driver_lines.size());
      lines += shown_html(record.driver_lines.substr(at, end - at)) + "\n";
      at = end + 1;
    }
    html += "<details><summary>What the driver printed</summary><pre>" + lines + "</pre></details>\n";
  }
  return html_section("How it was made", html);
}

}  // namespace

std::string report_page(const SurveyRecord& record) {
  std::string page = head_html(record) + "<main>\n" + found_html(record) + settings_html(record);
  page += questions_html(record) + verdict_html(record) + "<div class=\"figures\">\n";
  page += link_html(record) + programs_html(record) + variables_html(record) + heads_html(record);
  page += times_html(record) + splits_html(record) + limits_html(record) + writes_html(record) + hours_html(record);
  page += "</div>\n" + not_done_html(record) + told_html(record) + "</main>\n<footer><p>Written by plc-host ";
  page +=
      shown_html(record.version) + ". report.json holds the same for programs, survey.pcapng " +
      (record.capture_problem.empty() ? "every byte" : "its beginning only: " + shown_html(record.capture_problem)) +
      ".</p></footer>\n";
  return plc_base::html_page("Survey of " + shown_html(controller_text(record.link)), kSurveyStyle, page);
}

}  // namespace plc_host::survey
