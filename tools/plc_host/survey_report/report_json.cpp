// Makes the object, a function for each of its members.
#include "tools/plc_host/survey_report/report_json.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/plc_host/survey_report/questions.h"
#include "tools/plc_host/survey_report/report_words.h"
#include "tools/plc_host/survey_report/summary.h"
#include "wire/reply_parts.h"

namespace plc_host::survey {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1;  // grows when a reader of the one before could not read it

std::string hex_of(const std::vector<uint8_t>& bytes) { return wire_trace::hex_text(bytes, bytes.size()); }

// Milliseconds to the microsecond.
Json ms_json(double ms) { return std::round(ms * 1000) / 1000; }

Json ms_list(const std::vector<double>& times) {
  Json list = Json::array();
  for (const double ms : times) list.push_back(ms_json(ms));
  return list;
}

template <typename Value>
Json or_null(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

Json or_null(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json status_or_null(const std::optional<uint16_t>& status) { return status ? Json(status_text(*status)) : Json(); }

// A number that stands for nothing unless it was measured.
Json if_measured(bool is_measured, const Json& value) { return is_measured ? value : Json(); }

Json step_json(const Step& step) { return {{"state", word_of(step.state)}, {"why", or_null(step.why)}}; }

Json spread_json(const std::vector<double>& times) {
  if (times.empty()) return {{"p50", nullptr}, {"p99", nullptr}, {"largest", nullptr}};
  const Spread spread = spread_of(times);
  return {{"p50", ms_json(spread.p50)}, {"p99", ms_json(spread.p99)}, {"largest", ms_json(spread.largest)}};
}

Json frame_json(const Frame& frame) {
  return {{"title", frame.title},
          {"packet", frame.packet == 0 ? Json() : Json(frame.packet)},
          {"request", hex_of(frame.request)},
          {"reply", hex_of(frame.reply)}};
}

Json link_json(const Link& link) {
  const bool is_tried = link.connects_tried > 0;
  Json object = {{"step", step_json(link.step)},
                 {"host", link.host},
                 {"port", link.port},
                 {"name_problem", or_null(link.name_problem)},
                 {"connects_tried", link.connects_tried},
                 {"connects_made", if_measured(is_tried, link.connect_ms.size())}};
  object["connect"] = spread_json(link.connect_ms);
  object["connect"]["ms"] = ms_list(link.connect_ms);
  object["connect_failures"] = link.connect_failures;
  object["segment_bytes"] = or_null(link.segment_bytes);
  object["closed_port_number"] = link.closed_port_number == 0 ? Json() : Json(link.closed_port_number);
  object["closed_port"] = or_null(link.closed_port);
  object["second_connection"] = or_null(link.second_connection);
  object["half_closed"] = or_null(link.half_closed);
  object["answered_when_half_closed"] = or_null(link.is_answered_when_half_closed);
  object["connections_tried"] = link.connections_tried;
  object["most_connections"] = or_null(link.most_connections);
  object["one_more"] = reaction_words(link.one_more);
  return object;
}

Json programs_json(const Programs& programs) {
  Json findings = Json::array();
  for (const ProgramFinding& one : programs.findings) {
    findings.push_back({{"scope", one.scope},
                        {"number", has_number(one) ? Json(one.number) : Json()},
                        {"state", word_of(one.state)},
                        {"other", or_null(one.other)}});
  }
  return {{"step", step_json(programs.step)},
          {"directory", if_measured(has_figures(programs.step), programs.directory)},
          {"findings", findings}};
}

Json variables_json(const Variables& variables) {
  Json findings = Json::array();
  for (const VariableFinding& one : variables.findings) {
    const bool is_refused = one.state == VariableFinding::State::kRefused;
    findings.push_back({{"name", one.name},
                        {"program", or_null(one.program)},
                        {"element", or_null(one.element)},
                        {"type", one.type},
                        {"file", one.file},
                        {"line", one.line},
                        {"state", word_of(one.state)},
                        {"why", or_null(one.why)},
                        {"status", is_refused ? Json(status_text(one.status)) : Json()},
                        {"refusal", or_null(hex_of(one.refusal))},
                        {"near", one.near},
                        {"changes", one.changes},
                        {"value", is_read(one) ? Json(one.value) : Json()}});
  }
  return {{"step", step_json(variables.step)},
          {"compared_with", or_null(variables.compared_with)},
          {"not_compared", or_null(variables.not_compared)},
          {"to_compare", if_measured(!variables.compared_with.empty(), variables.to_compare)},
          {"compared", if_measured(!variables.compared_with.empty(), variables.compared)},
          {"findings", findings}};
}

Json field_json(const HeadCounts::Field& field) {
  return {{"right", field.right}, {"zero", field.zero}, {"other", field.other}};
}

Json statuses_json(const HeadCounts& heads) {
  Json statuses = Json::array();
  for (const HeadCounts::Status& one : heads.statuses) {
    statuses.push_back({{"status", status_text(one.status)},
                        {"request", one.request},
                        {"count", one.count},
                        {"first", frame_json(one.first)}});
  }
  return statuses;
}

Json heads_json(const HeadCounts& heads) {
  const bool is_measured = heads.replies > 0;
  const bool has_values = heads.values_exact + heads.values_longer + heads.values_shorter > 0;
  const Json fields = {{"length", field_json(heads.length)},
                       {"complement", field_json(heads.complement)},
                       {"sequence", field_json(heads.sequence)},
                       {"class", field_json(heads.request_class)},
                       {"command", field_json(heads.command)}};
  const Json values = {
      {"exact", heads.values_exact}, {"longer", heads.values_longer}, {"shorter", heads.values_shorter}};
  const Json for_once = {{"names", heads.names_refused_for_once.refused},
                         {"names_asked", heads.names_refused_for_once.asked},
                         {"reads", heads.reads_refused_for_once.refused},
                         {"reads_asked", heads.reads_refused_for_once.asked}};
  return {{"step", step_json(heads.step)},
          {"replies", heads.replies},
          {"unanswered", heads.replies_unanswered},
          {"foreign", heads.foreign},
          {"unfinished", heads.unfinished},
          {"fields", if_measured(is_measured, fields)},
          {"statuses", statuses_json(heads)},
          {"values", if_measured(has_values, values)},
          {"names_shorter", if_measured(is_measured, heads.names_shorter)},
          {"refused_for_once", if_measured(is_measured, for_once)},
          {"bytes_unasked", if_measured(is_measured, heads.bytes_unasked)},
          {"bytes_behind_values", or_null(heads.bytes_behind_values)},
          {"status_done", status_or_null(heads.status_done)},
          {"refusal_status", status_or_null(heads.refusal_status)},
          {"refusal_is_full", or_null(heads.is_refusal_full)}};
}

Json guarded_json(const SurveyRecord& record) {
  const Verdict& verdict = record.verdict;
  Json rules = Json::array();
  for (const Verdict::Rule& one : verdict.rules) {
    Json evidence = Json::array();
    for (const Frame& frame : one.evidence) evidence.push_back(frame_json(frame));
    const bool is_measured = one.kept + one.broken > 0;
    rules.push_back({{"rule", one.rule},
                     {"holds", if_measured(is_measured && one.is_known, one.holds)},
                     {"kept", one.kept},
                     {"broken", one.broken},
                     {"evidence", evidence}});
  }
  return {{"usable", word_of(verdict.usable)},
          {"says", verdict_sentence(record)},
          {"because", or_null(verdict.because)},
          {"warning", or_null(contract_warning(record))},
          {"rules", rules}};
}

Json times_json(const std::vector<Times>& times) {
  Json list = Json::array();
  for (const Times& one : times) {
    Json object = {{"kind", one.kind}, {"names", one.names}, {"measured", one.ms.size()}};
    object.update(spread_json(one.ms));
    object["ms"] = ms_list(one.ms);
    object["silent"] = one.silent;
    object["lost"] = one.lost;
    object["damaged"] = one.damaged;
    list.push_back(object);
  }
  return list;
}

Json splits_json(const std::vector<Split>& splits) {
  Json list = Json::array();
  for (const Split& one : splits) {
    Json ways = Json::array();
    for (const auto& [sizes, count] : one.pieces) ways.push_back({{"pieces", sizes}, {"replies", count}});
    list.push_back({{"reply_bytes", one.reply_bytes}, {"ways", ways}, {"gap", spread_json(one.gap_ms)}});
  }
  return list;
}

Json limits_json(const Limits& limits) {
  return {{"step", step_json(limits.step)},
          {"names_tried", limits.names_tried},
          {"names_answered", limits.names_reach.answered},
          {"names_per_request", or_null(limits.names_per_request)},
          {"values_tried", limits.values_tried},
          {"values_answered", limits.values_reach.answered},
          {"values_per_request", or_null(limits.values_per_request)},
          {"reaction", reaction_words(limits.reaction)},
          {"beyond", or_null(limits.beyond)},
          {"beyond_status", status_or_null(limits.beyond_status)}};
}

Json writes_json(const Writes& writes) {
  Json findings = Json::array();
  for (const WriteFinding& one : writes.findings) {
    findings.push_back({{"name", one.name},
                        {"type", one.type},
                        {"kind", one.kind},
                        {"written", one.is_written},
                        {"acknowledged", or_null(one.acknowledged)},
                        {"status", status_or_null(one.refusal)},
                        {"read_back", or_null(one.read_back)},
                        {"neighbours_kept", or_null(one.neighbours_kept)},
                        {"set_back", or_null(one.set_back)},
                        {"why", or_null(one.why)}});
  }
  return {{"step", step_json(writes.step)},
          {"findings", findings},
          {"not_set_back", writes.not_set_back},
          {"neighbours", writes.neighbours},
          {"neighbours_not_compared", writes.neighbours_not_compared}};
}

Json slice_json(const Endurance::Slice& slice) {
  const bool is_measured = slice.rounds > slice.losses;
  return {{"from_ms", slice.from_ms},
          {"rounds", slice.rounds},
          {"losses", slice.losses},
          {"p50", if_measured(is_measured, ms_json(slice.p50))},
          {"p99", if_measured(is_measured, ms_json(slice.p99))},
          {"largest", if_measured(is_measured, ms_json(slice.largest))}};
}

Json hours_json(const Endurance& endurance) {
  const bool is_measured = has_figures(endurance.step);
  Json slices = Json::array();
  for (const Endurance::Slice& slice : endurance.slices) slices.push_back(slice_json(slice));
  return {{"step", step_json(endurance.step)},
          {"hours_asked", if_measured(endurance.hours_asked > 0, endurance.hours_asked)},
          {"period_ms", if_measured(endurance.period_ms > 0, endurance.period_ms)},
          {"rounds", if_measured(is_measured, endurance.rounds)},
          {"losses", if_measured(is_measured, endurance.losses)},
          {"lost_values", if_measured(is_measured, endurance.lost_values)},
          {"longest_gap_ms", if_measured(endurance.losses > 0, ms_json(endurance.longest_gap_ms))},
          {"left_out", if_measured(is_measured, endurance.left_out)},
          {"slow", if_measured(is_measured, endurance.slow)},
          {"drift_ms", if_measured(is_measured, ms_json(endurance.drift_ms))},
          {"slices", slices}};
}

Json left_out_json(const SurveyRecord& record) {
  Json all = Json::array();
  for (const LeftOut& one : record.left_out) all.push_back({{"setting", one.setting}, {"because", one.because}});
  return all;
}

Json recommendations_json(const SurveyRecord& record) {
  Json list = Json::array();
  for (const Recommendation& one : record.recommendations) {
    list.push_back({{"setting", one.setting}, {"value", one.value}, {"because", one.because}});
  }
  return list;
}

Json questions_json(const SurveyRecord& record) {
  Json list = Json::array();
  for (const Question& one : questions(record)) list.push_back({{"about", one.about}, {"question", one.what}});
  return list;
}

Json not_done_json(const SurveyRecord& record) {
  Json list = Json::array();
  for (const NamedStep& one : steps_of(record)) {
    if (one.step.state == Step::State::kDone) continue;
    list.push_back({{"step", one.name}, {"state", word_of(one.step.state)}, {"why", or_null(one.step.why)}});
  }
  return list;
}

}  // namespace

Json report_json(const SurveyRecord& record) {
  Json object = {{"report", "plc-host survey"},
                 {"format", kFormat},
                 {"made", record.made},
                 {"version", record.version},
                 {"driver", or_null(record.driver_build)},
                 {"command", record.command},
                 {"tag_files", record.tag_files},
                 {"took_s", ms_json(record.took_s)},
                 {"whole", record.is_whole},
                 {"ended", or_null(record.ended)},
                 {"capture_cut", or_null(record.capture_problem)}};
  object["found"] = found_sentences(record);
  object["recommendations"] = recommendations_json(record);
  object["left_out"] = left_out_json(record);
  object["questions"] = questions_json(record);
  object["guarded"] = guarded_json(record);
  object["link"] = link_json(record.link);
  object["programs"] = programs_json(record.programs);
  object["variables"] = variables_json(record.variables);
  object["heads"] = heads_json(record.heads);
  object["times"] = {{"step", step_json(record.times_step)},
                     {"measured", times_json(record.times)},
                     {"splits", splits_json(record.splits)}};
  object["limits"] = limits_json(record.limits);
  object["writes"] = writes_json(record.writes);
  object["hours"] = hours_json(record.endurance);
  object["not_done"] = not_done_json(record);
  object["driver_lines"] = or_null(record.driver_lines);
  object["messages"] = record.messages;
  return object;
}

}  // namespace plc_host::survey
