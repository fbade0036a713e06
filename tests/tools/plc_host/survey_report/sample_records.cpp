// Fills records by hand.
#include "tests/tools/plc_host/survey_report/sample_records.h"

#include <cmath>

#include "tests/support/bytes.h"

namespace survey_test {
namespace {

using namespace plc_host::survey;
using plc_test::from_hex;

const Step kDone{Step::State::kDone, ""};

Frame sequence_frame() {
  return {"reply to resolve of Motor.Speed: sequence number 0 in place of 17", 214,
          from_hex("00 00 00 16 FF FF FF E9 00 11 0C 28 00 01 00 00 00 01 00 0B 00 4D 00 6F 00 74 00 6F 00 72 00 2E"),
          from_hex("00 00 00 1F FF FF FF E0 00 00 0C 28 00 00 01 00 01 00 10 00 00 06 01 02 00 00 00 00 00 00 00 00")};
}

Frame refusal_frame() {
  return {"reply to resolve of Motor.Speeed: status 0004", 388,
          from_hex("00 00 00 0C FF FF FF F3 00 29 0C 28 00 01 00 00 00 01 00 01 00 44"),
          from_hex("00 00 00 04 FF FF FF FB 00 29 0C 28 00 04")};
}

// So many times around a middle, with a few that are larger.
std::vector<double> times_around(double middle, size_t count) {
  std::vector<double> times;
  for (size_t i = 0; i < count; ++i) {
    const double wave = std::sin(static_cast<double>(i) * 1.7) * middle / 8;
    times.push_back(middle + wave + (i % 25 == 24 ? middle : 0));
  }
  return times;
}

void fill_link(Link& link) {
  link.step = kDone;
  link.host = "192.168.0.10";
  link.address = 0xC0A8000A;
  link.port = 8500;
  link.connects_tried = 20;
  link.connect_ms = times_around(0.62, 20);
  link.segment_bytes = 1448;
  link.closed_port_number = 8501;
  link.closed_port = "refused";
  link.second_connection = "accepted and answered";
  link.half_closed = "answered";
  link.connections_tried = 4;
  link.most_connections = 3;
  link.one_more = Reaction::kRefused;
  link.is_answered_when_half_closed = true;
}

void fill_programs(Programs& programs) {
  using State = ProgramFinding::State;
  programs.step = kDone;
  programs.directory = {"MAIN", "MAIN2", "ConveyorStationNorth", "SAFETY"};
  programs.findings = {{"MAIN", 1, State::kPrefix, "MAIN2"},
                       {"MAIN2", 2, State::kFound, ""},
                       {"ConveyorStationNorthSide", 3, State::kCut, "ConveyorStationNorth"},
                       {"Recipes", 0, State::kMissing, ""},
                       {"SAFETY", 4, State::kUndeclared, ""}};
}

VariableFinding variable(const std::string& name, const std::string& type, uint32_t line, const std::string& value) {
  VariableFinding finding;
  finding.name = name;
  finding.own_name = name;
  finding.type = type;
  finding.file = "PLCC0A8000A_0.csv";
  finding.line = line;
  finding.area = 0;
  finding.state = VariableFinding::State::kGood;
  finding.value = value;
  return finding;
}

void fill_variables(Variables& variables) {
  using State = VariableFinding::State;
  variables.step = kDone;
  variables.compared_with = "1.1.0 contract";
  variables.findings = {variable("Motor.Speed", "DINT", 3, "1450"),
                        variable("Motor.Current", "REAL", 4, "3.25"),
                        variable("Limit", "INT", 5, "90"),
                        variable("MAIN/Count", "UDINT", 6, "88231"),
                        variable("Recipe.Name", "STRING", 7, "Soda"),
                        variable("Ready", "BOOL", 8, "true")};
  variables.findings.push_back(variable("Motor.Speeed", "DINT", 9, ""));
  VariableFinding& refused = variables.findings.back();
  refused.state = State::kRefused;
  refused.status = 0x0004;
  refused.refusal = from_hex("00 00 00 04 FF FF FF FB 00 29 0C 28 00 04");
  refused.near = {"Motor.Speed"};
  variables.findings.push_back(variable("Table", "DINT", 10, ""));
  variables.findings.back().state = State::kShort;
  variables.findings.back().element = "[9]";
  variables.findings.back().why = "the reply has 2 bytes where DINT takes 4";
  variables.findings.push_back(variable("Ticks", "UINT", 11, ""));
  variables.findings.back().state = State::kDifferent;
  variables.findings.back().why = "read singly 512, in a batch 514";
}

void fill_heads(HeadCounts& heads) {
  heads.step = kDone;
  heads.replies = 1284;
  heads.length = heads.complement = heads.request_class = heads.command = {1284, 0, 0};
  heads.sequence = {2, 1282, 0};
  heads.statuses = {{0x0000, "directory", 22, {}},
                    {0x0000, "resolve", 640, sequence_frame()},
                    {0x0004, "resolve, refused", 3, refusal_frame()},
                    {0x0011, "resolve of more names than the limit, refused", 1, {}}};
  heads.values_exact = 600;
  heads.status_done = 0;
  heads.refusal_status = 0x0004;
  heads.is_refusal_full = false;
}

void fill_verdict(Verdict& verdict) {
  verdict.usable = Verdict::Usable::kNotUsable;
  verdict.because = "Replies do not carry the sequence number of their request.";
  verdict.rules = {{"length", true, 1284, 0, {}},
                   {"complement", true, 1284, 0, {}},
                   {"sequence number", false, 2, 1282, {sequence_frame()}},
                   {"class", true, 1284, 0, {}},
                   {"command", true, 1284, 0, {}},
                   {"nothing behind the frame", true, 1284, 0, {}},
                   {"status 0 unless refused", true, 1280, 0, {}},
                   {"refusals have a status", true, 4, 0, {refusal_frame()}},
                   {"values end the reply", true, 600, 0, {}}};
}

void fill_times(SurveyRecord& record) {
  record.times_step = kDone;
  record.times = {{"connect", 1, times_around(0.62, 20)},
                  {"directory start", 1, times_around(1.1, 20)},
                  {"directory", 1, times_around(6.5, 20)}};
  for (const uint32_t names : {1U, 2U, 5U, 10U, 20U, 50U}) {
    record.times.push_back({"resolve", names, times_around(1.2 + 0.09 * names, 60)});
    record.times.push_back({"read", names, times_around(0.9 + 0.02 * names, 60)});
  }
  record.times.push_back({"write", 1, times_around(1.4, 6)});
  record.times.push_back({"bit", 1, times_around(1.3, 6)});
  record.splits = {{14, {{{14}, 40}}, {}},
                   {41, {{{41}, 300}}, {}},
                   {616, {{{536, 80}, 58}, {{616}, 2}}, {0.8, 1.2}},
                   {1216, {{{536, 536, 144}, 60}}, {0.7, 0.9, 1.4}}};
  record.limits.step = kDone;
  record.limits.names_per_request = 50;
  record.limits.names_tried = 50;
  record.limits.values_tried = 50;
  record.limits.names_reach = {64, 50, 51, true};
  record.limits.values_reach = {50, 50, 0, true};
  record.limits.reaction = Reaction::kRefused;
  record.limits.beyond = "51 names were refused, status 0011";
  record.limits.beyond_status = 0x0011;
}

void fill_writes(Writes& writes) {
  writes.step = kDone;
  writes.findings = {
      {"Scratch.Word", "INT", "write", true, true, true, true, true, ""},
      {"Scratch.Bit", "BOOL", "set", true, true, true, true, true, ""},
      {"Scratch.Bit", "BOOL", "reset", true, true, true, true, true, ""},
      {"Scratch.Flag", "BOOL", "masked write", true, true, false, true, false, "read back false after true"}};
  writes.not_set_back = {"Scratch.Flag: it was true"};
  writes.neighbours = {"Limit", "Motor.Speed"};
}

void fill_hours(Endurance& endurance) {
  constexpr int64_t kMinuteMs = 60000;
  endurance.step = kDone;
  endurance.hours_asked = 2;
  endurance.period_ms = 200;
  endurance.rounds = 36000;
  endurance.losses = 2;
  endurance.lost_values = 12;
  endurance.longest_gap_ms = 612.5;
  endurance.slow = 5;
  endurance.drift_ms = 0.4;
  for (int i = 0; i < 60; ++i) {
    const double wave = std::sin(i * 0.3) * 0.4;
    endurance.slices.push_back(
        {i * 2 * kMinuteMs, 2.1 + wave, 4.5 + wave, i == 37 ? 310.0 : 9 + wave, 600, i == 37 ? 2U : 0U});
  }
}

}  // namespace

SurveyRecord full_record() {
  SurveyRecord record;
  record.made = "2026-11-22T09:30:00Z";
  record.version = "1.1.0";
  record.driver_build = "1.1.0 contract";
  record.tag_files = {"PLCC0A8000A_0.csv"};
  record.command = "plc-host survey --address 192.168.0.10 --tags PLCC0A8000A_0.csv --output survey --hours 2";
  record.took_s = 7512;
  record.is_whole = true;
  fill_link(record.link);
  fill_programs(record.programs);
  fill_variables(record.variables);
  fill_heads(record.heads);
  fill_verdict(record.verdict);
  fill_times(record);
  fill_writes(record.writes);
  fill_hours(record.endurance);
  record.recommendations = {{"driver", "contract", "the guarded build is not usable here"},
                            {"timeout_s", "2", "the longest answer took 13 ms; a time-out is counted in whole seconds"},
                            {"delay_ms", "0", "requests one behind the other were answered as fast as paced ones"},
                            {"batch_names", "50", "51 names were refused, status 0011"},
                            {"poll_ms", "50", "the 6 variables of the poll list took 9.4 ms (p99)"}};
  record.driver_lines = "[PLC] connected\n[PLC] programs: 4";
  return record;
}

SurveyRecord interrupted_record() {
  const Step stopped{Step::State::kNotDone, "interrupted"};
  SurveyRecord record = full_record();
  record.is_whole = false;
  record.ended = "interrupted";
  record.took_s = 48.5;
  record.variables.step = {Step::State::kPartly, "interrupted"};
  record.variables.findings.resize(3);
  record.variables.findings.push_back(variable("Later", "INT", 12, ""));
  record.variables.findings.back().state = VariableFinding::State::kNotTried;
  record.heads.step = {Step::State::kPartly, "interrupted"};
  record.heads.values_exact = 0;
  record.heads.status_done.reset();
  record.verdict = {};
  record.verdict.rules = {{"length", true, 1284, 0, {}}, {"values end the reply", false, 0, 0, {}}};
  record.times_step = record.limits.step = record.endurance.step = stopped;
  record.writes = {{Step::State::kNotDone, "--write names no variable"}, {}, {}, {}, {}};
  record.times = {{"connect", 1, record.link.connect_ms}, {"read", 1, {}}};
  record.splits.clear();
  record.limits = {};
  record.limits.step = stopped;
  record.endurance = {};
  record.endurance.step = stopped;
  record.endurance.hours_asked = 2;
  record.recommendations.clear();
  return record;
}

SurveyRecord empty_record() {
  const Step none{Step::State::kNotDone, "the controller's name is not known"};
  SurveyRecord record;
  record.made = "2026-11-22T09:30:00Z";
  record.version = "1.1.0";
  record.command = "plc-host survey --address press7 --output survey";
  record.ended = "the controller's name is not known";
  record.took_s = 1.4;
  record.link.host = "press7";
  record.link.port = 8500;
  record.link.name_problem = "Name or service not known";
  record.link.step = record.programs.step = record.variables.step = record.heads.step = none;
  record.times_step = record.limits.step = record.writes.step = record.endurance.step = none;
  return record;
}

SurveyRecord hostile_record() {
  const std::string hostile = "</td><script>window.wasRun=1</script>&\"'\x1b[2J\n\xE2\x80\xAE\xff";
  SurveyRecord record = full_record();
  record.command += hostile;
  record.tag_files = {hostile};
  record.driver_build = record.ended = record.version = record.made = hostile;
  record.is_whole = false;
  record.link.host = record.link.closed_port = record.link.second_connection = record.link.half_closed = hostile;
  record.link.connect_failures = {hostile};
  record.programs.directory.push_back(hostile);
  for (ProgramFinding& one : record.programs.findings) one.scope = one.other = hostile;
  for (VariableFinding& one : record.variables.findings) {
    one.name = one.type = one.file = one.why = one.element = one.value = hostile;
    one.near = {hostile};
  }
  record.variables.step = {Step::State::kPartly, hostile};
  record.variables.not_compared = record.variables.compared_with = hostile;
  for (HeadCounts::Status& one : record.heads.statuses) one.request = one.first.title = hostile;
  record.verdict.because = hostile;
  for (Verdict::Rule& one : record.verdict.rules) {
    one.rule = hostile;
    for (Frame& frame : one.evidence) frame.title = hostile;
  }
  for (Times& one : record.times) one.kind = hostile;
  record.limits.beyond = hostile;
  for (Recommendation& one : record.recommendations) one.setting = one.value = one.because = hostile;
  for (WriteFinding& one : record.writes.findings) one.name = one.type = one.kind = one.why = hostile;
  record.writes.not_set_back = record.writes.neighbours = {hostile};
  record.endurance.step = {Step::State::kPartly, hostile};
  record.driver_lines = hostile;
  record.messages = {hostile};
  return record;
}

SurveyRecord large_record() {
  constexpr uint32_t kVariables = 10000;
  SurveyRecord record = full_record();
  record.variables.findings.clear();
  for (uint32_t i = 0; i < kVariables; ++i) {
    record.variables.findings.push_back(variable("Line.Cell" + std::to_string(i), "INT", i + 1, "7"));
    if (i % 5 == 0) {
      record.variables.findings.back().state = VariableFinding::State::kRefused;
      record.variables.findings.back().status = 4;
    }
  }
  return record;
}

}  // namespace survey_test
