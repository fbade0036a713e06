// The order of the steps, and what follows when they are over.
#include "tools/plc_host/survey_steps/survey.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "base/text.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey/rule_tally.h"
#include "tools/plc_host/survey_steps/driver_word.h"
#include "tools/plc_host/survey_steps/survey_steps.h"

namespace plc_host::survey {
namespace {

// Requests of a scratch variable: named, read, its neighbours looked at, written and put back.
constexpr uint64_t kRequestsOfScratch = 40;
constexpr char kNotComparedText[] =
    "the text fills its declared length and may go on behind it; it was not compared with what the driver gives";

struct NextStep {
  const char* title;
  uint64_t requests;
  std::function<void()> work;
};

// Those that did not get their turn say why.
void tell_steps(SurveyRecord& record) {
  const std::array<Step*, 8> steps = {&record.link.step,      &record.programs.step, &record.variables.step,
                                      &record.times_step,     &record.limits.step,   &record.writes.step,
                                      &record.endurance.step, &record.heads.step};
  for (Step* step : steps) {
    if (step->state == Step::State::kNotDone && step->why.empty()) step->why = record.ended;
  }
}

// What does not speak the protocol has said no value, and has neither programs nor limits.
void take_values_back(SurveyRecord& record) {
  const auto is_of_protocol = [](const Times& one) { return one.kind != "connect"; };
  record.times.erase(std::remove_if(record.times.begin(), record.times.end(), is_of_protocol), record.times.end());
  record.splits.clear();
  record.programs = {};
  record.limits = {};
  record.programs.step.why = record.limits.step.why = kForeign;
  for (VariableFinding& one : record.variables.findings) {
    one.state = VariableFinding::State::kNotTried;
    one.why = kForeign;
    one.value.clear();
    one.near.clear();
  }
  record.variables.step = {Step::State::kPartly, kForeign};
}

// Why the guarded build may fail or mislead here although replies keep every rule; "" where nothing says so.
std::string doubt_of(const SurveyRecord& record) {
  const std::string fault = batches_fault(record.variables);
  if (!fault.empty()) return fault + ".";
  const HeadCounts& heads = record.heads;
  if (is_surely_often(heads.foreign, heads.replies + heads.foreign)) {
    return "so many replies that are none of ours make calls of the guarded build fail, now and then or always.";
  }
  const Variables& variables = record.variables;
  if (!fails_guarded_build(variables)) return {};
  return "the guarded build did not read " + std::to_string(variables.unread_by_driver) + " of " +
         plc_base::plural(variables.to_compare, "variable") + " that the survey read, each tried three times.";
}

// The contract build takes what makes the guarded one fail for answers, so that it is no way out: nothing is
// recommended.
void weigh_comparison(SurveyRecord& record) {
  if (!is_usable(record.verdict.usable)) return;
  const std::string doubt = doubt_of(record);
  if (doubt.empty()) return;
  record.verdict.usable = Verdict::Usable::kUnknown;
  record.verdict.because += " But " + doubt;
}

// Of a text that may go on behind what was read the survey alone knows no value.
void take_beginnings_back(Variables& variables) {
  for (VariableFinding& one : variables.findings) {
    if (!one.may_go_on || one.is_compared || !is_read(one)) continue;
    one.has_no_value = true;
    one.value.clear();
    one.why = kNotComparedText;
  }
}

// What plc-host read cannot ask for is not as declared: nobody compared what the survey read of it. An interruption
// says nothing of a variable.
void tell_uncompared(SurveyRecord& record) {
  for (VariableFinding& one : record.variables.findings) {
    const bool is_told = is_read(one) && !one.why.empty() && record.is_whole;
    if (!is_told) continue;
    one.state = VariableFinding::State::kNotCompared;
    one.value.clear();
  }
}

// A type that does not fit is a mistake of the tag file, or of the program, and none of the controller's way to answer.
void tell_unfit(SurveyRecord& record) {
  std::vector<std::string> names;
  for (const VariableFinding& one : record.variables.findings) {
    if (is_unfit(one)) names.push_back(one.name);
  }
  if (names.empty() || record.verdict.usable != Verdict::Usable::kYes) return;
  record.verdict.because += " The guarded build refuses " + some_names(names) + ", and each request for " +
                            (names.size() == 1 ? "it" : "them") + " with others, until the tag file declares " +
                            (names.size() == 1 ? "it" : "them") + " with the size that the controller has.";
}

// What no reply shows: a call for such a variable fails before anything is sent.
void tell_ambiguous(SurveyRecord& record) {
  std::vector<std::string> scopes;
  for (const ProgramFinding& one : record.programs.findings) {
    if (is_ambiguous(one)) scopes.push_back(one.scope);
  }
  if (scopes.empty() || !is_usable(record.verdict.usable)) return;
  record.verdict.because += " The guarded build refuses the variables of " + some_names(scopes) +
                            ": the directory has several beginnings of " +
                            (scopes.size() == 1 ? "this name, and not the whole." : "these names, and not the whole.");
}

void finish(Conversation& conversation, SurveyRecord& record) {
  conversation.finish();
  record.heads.names_refused_for_once = conversation.refusals().refused_for_once("resolve");
  record.heads.reads_refused_for_once = conversation.refusals().refused_for_once("read");
  if (is_foreign(record.heads)) take_values_back(record);
  record.verdict = conversation.rules().verdict();
  take_beginnings_back(record.variables);
  tell_uncompared(record);
  tell_unfit(record);
  tell_ambiguous(record);
  weigh_comparison(record);
  if (record.heads.replies > 0) {
    record.heads.step.state = record.is_whole ? Step::State::kDone : Step::State::kPartly;
    record.heads.step.why = record.ended;
  }
  tell_steps(record);
  record.recommendations = recommend(record);
  record.left_out = left_out(record);
}

// "25 variables, about 430 requests, 20 a second at most: about 22 s, and then 8 hours"
std::string start_text(const Declarations& declared, const SurveyPlan& plan, uint64_t requests) {
  std::string text = "survey: " + plc_base::plural(declared.variables.size(), "variable") + ", about " +
                     plc_base::grouped_number(requests) + " requests, " + std::to_string(plan.rate) +
                     " a second at most: about " + time_left_text(static_cast<double>(requests) / plan.rate) +
                     " and more where answers are slow";
  if (plan.hours > 0) text += ", and then " + lasting_text(plan.hours);
  return text;
}

}  // namespace

bool make_survey(const SurveyPlan& plan, Declarations& declared, const HostOptions& options, CommandOutput& output,
                 plc_sim::PcapngWriter& capture, SurveyRecord& record) {
  const auto start = std::chrono::steady_clock::now();
  Progress progress(!options.quiet, plan.rate);
  Conversation conversation(plan, capture, record, progress);
  const uint64_t variables = declared.variables.size();
  record.variables.declared = variables;
  record.wait_ms = plan.timeout_ms;
  record.rate = plan.rate;
  const std::vector<NextStep> steps = {
      {"step 1 of 7, connections", link_requests(plan), [&] { survey_link(conversation); }},
      {"step 2 of 7, programs", 1, [&] { survey_programs(conversation, declared); }},
      {"step 3 of 7, variables", variable_requests(declared), [&] { survey_variables(conversation, declared); }},
      {"step 4 of 7, the driver's values", variables,
       [&] { run_step(record.variables.step, [&] { compare_with_driver(conversation, declared, options, output); }); }},
      {"step 5 of 7, times and limits", time_requests(plan), [&] { survey_times(conversation, declared); }},
      {"step 6 of 7, writes", plan.written.size() * kRequestsOfScratch, [&] { survey_writes(conversation, declared); }},
      {"step 7 of 7, hours", 0, [&] { survey_hours(conversation, declared); }},
  };
  uint64_t later = 0;
  for (const NextStep& step : steps) later += step.requests;
  if (!options.quiet) show_message(start_text(declared, plan, later));
  bool is_interrupted = false;
  try {
    for (const NextStep& step : steps) {
      later -= step.requests;
      progress.begin(step.title, step.requests, later);
      step.work();
    }
    record.is_whole = true;
  } catch (const SurveyEnded& ended) {
    record.ended = ended.what();
    is_interrupted = ended.is_interrupted();
  }
  finish(conversation, record);
  record.took_s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return is_interrupted;
}

}  // namespace plc_host::survey
