// Puts what was found into sentences.
#include "tools/plc_host/survey_report/summary.h"

#include <algorithm>

#include "base/text.h"
#include "tools/plc_host/survey_report/report_words.h"

namespace plc_host::survey {
namespace {

using plc_base::plural;

// "one, two and 3 more"
std::string some_names(const std::vector<std::string>& names) {
  constexpr size_t kMost = 5;
  std::string text;
  for (size_t i = 0; i < std::min(names.size(), kMost); ++i) {
    if (i > 0) text += ", ";
    text += names[i];
  }
  if (names.size() > kMost) text += " and " + std::to_string(names.size() - kMost) + " more";
  return text;
}

std::string whole_sentence(const SurveyRecord& record) {
  std::string text =
      "The controller at " + controller_text(record.link) + " was surveyed on " + utc_text(record.made) + " for ";
  text += seconds_text(record.took_s);
  if (record.is_whole) return text + ".";
  return text + "; the survey did not come to its end" + (record.ended.empty() ? "" : ": " + record.ended) + ".";
}

std::string link_sentence(const Link& link) {
  if (!link.name_problem.empty()) return "Its name could not be resolved: " + link.name_problem + ".";
  if (link.connects_tried == 0) return "Connecting was not tried.";
  std::string text = "It took " + std::to_string(link.connect_ms.size()) + " of ";
  text += plural(link.connects_tried, "connection");
  if (link.connect_ms.empty()) return text + ".";
  const Spread spread = spread_of(link.connect_ms);
  return text + ", in " + shown_ms(spread.p50) + " (p50), " + shown_ms(spread.largest) + " at most.";
}

size_t count_of(const Programs& programs, ProgramFinding::State state) {
  return static_cast<size_t>(std::count_if(programs.findings.begin(), programs.findings.end(),
                                           [state](const ProgramFinding& one) { return one.state == state; }));
}

std::string programs_sentence(const Programs& programs) {
  if (!has_figures(programs.step)) return "Its programs are not known. " + not_measured(programs.step);
  std::string text = "Its directory names " + plural(programs.directory.size(), "program");
  const size_t missing = count_of(programs, ProgramFinding::State::kMissing);
  const size_t cut = count_of(programs, ProgramFinding::State::kCut);
  const size_t declared = programs.findings.size() - count_of(programs, ProgramFinding::State::kUndeclared);
  if (declared == 0) return text + "; the tag files name none.";
  if (missing + cut == 0) return text + ", and has all that the tag files name.";
  text += "; of " + std::to_string(declared) + " that the tag files name, it lacks " + std::to_string(missing);
  return text + " and cuts the name of " + std::to_string(cut) + ".";
}

size_t count_of(const Variables& variables, VariableFinding::State state) {
  return static_cast<size_t>(std::count_if(variables.findings.begin(), variables.findings.end(),
                                           [state](const VariableFinding& one) { return one.state == state; }));
}

std::string variables_sentence(const Variables& variables) {
  using State = VariableFinding::State;
  const size_t tried = variables.findings.size() - count_of(variables, State::kNotTried);
  if (!has_figures(variables.step) || tried == 0) return "No variable was read. " + not_measured(variables.step);
  std::string text = "Of " + plural(variables.findings.size(), "declared variable") + ", ";
  const auto read = std::count_if(variables.findings.begin(), variables.findings.end(), is_read);
  const size_t without_value = count_of(variables, State::kGood) - static_cast<size_t>(read);
  text += std::to_string(read) + " were read as declared";
  if (without_value > 0) text += ", " + std::to_string(without_value) + " answered without a value that plc-host shows";
  for (const auto& [state, words] :
       {std::pair(State::kRefused, " refused"), std::pair(State::kNotNamed, " not named"),
        std::pair(State::kDifferent, " read with different values"),
        std::pair(State::kShort, " answered with too few bytes"),
        std::pair(State::kLong, " answered with too many bytes"), std::pair(State::kNotTried, " not tried")}) {
    const size_t count = count_of(variables, state);
    if (count > 0) text += ", " + std::to_string(count) + words;
  }
  return text + ".";
}

std::string heads_sentence(const HeadCounts& heads) {
  if (heads.replies == 0) return "No reply came.";
  std::vector<std::string> broken;
  for (const auto& [name, field] : {std::pair("length", heads.length), std::pair("complement", heads.complement),
                                    std::pair("sequence number", heads.sequence),
                                    std::pair("class", heads.request_class), std::pair("command", heads.command)}) {
    if (field.zero + field.other > 0) broken.emplace_back(name);
  }
  std::string text = heads.replies == 1 ? "1 reply came" : std::to_string(heads.replies) + " replies came";
  if (heads.replies_unanswered > 0) text += ", " + plural(heads.replies_unanswered, "request") + " had none";
  if (broken.empty()) return text + "; each has the length, sequence number, class and command of its request.";
  return text + "; not every one has the right " + some_names(broken) + ".";
}

std::string times_sentence(const std::vector<Times>& times, const Step& step) {
  for (const char* kind : {"read", "resolve", "directory"}) {
    for (const Times& one : times) {
      if (one.kind != kind || one.names != 1 || one.ms.empty()) continue;
      const Spread spread = spread_of(one.ms);
      std::string text = "A request of one name (" + one.kind + ") is answered in " + shown_ms(spread.p50);
      text += " (p50), " + shown_ms(spread.p99) + " (p99) and " + shown_ms(spread.largest) + " at most, of ";
      return text + plural(one.ms.size(), "measurement") + ".";
    }
  }
  return "How long answers take is not known. " + not_measured(step);
}

std::string writes_sentence(const Writes& writes) {
  if (!has_figures(writes.step)) return "Nothing was written.";
  size_t good = 0;
  for (const WriteFinding& one : writes.findings) {
    good += one.acknowledged && one.read_back && one.neighbours_kept && one.set_back ? 1 : 0;
  }
  std::string text = "Of " + plural(writes.findings.size(), "write") + ", " + std::to_string(good);
  text += " were acknowledged, read back and set back with their neighbours unchanged.";
  if (!writes.not_set_back.empty()) text += " Not set back: " + some_names(writes.not_set_back) + ".";
  return text;
}

std::string endurance_sentence(const Endurance& endurance) {
  std::string text = "The poll list was read " + plural(endurance.rounds, "time");
  text += ": " + std::to_string(endurance.losses) + " lost, " + std::to_string(endurance.slow);
  return text + " slower than the period of " + std::to_string(endurance.period_ms) + " ms.";
}

std::string near_text(const std::vector<std::string>& near) {
  return near.empty() ? "" : " Names that are near: " + some_names(near) + ".";
}

// "machine_2.csv:14", "PLCC0A8000A_2.csv:14, area 2"; "" where nobody knows.
std::string place_of_question(const VariableFinding& one) {
  if (one.file.empty() || one.line == 0) return {};
  const std::string name = one.file.substr(one.file.rfind('/') + 1);  // npos + 1 is 0
  std::string place = name + ":" + std::to_string(one.line);
  if (one.area) place += ", area " + std::to_string(*one.area);
  return " It is declared in " + place + ".";
}

Question question_on(const VariableFinding& one) {
  const std::string why = one.why.empty() ? "" : ": " + one.why;
  const std::string place = place_of_question(one);
  switch (one.state) {
    case VariableFinding::State::kRefused:
      return {one.name, "Is it there, and under this name? The controller refused it, status " +
                            status_text(one.status) + "." + near_text(one.near) + place};
    case VariableFinding::State::kNotNamed:
      return {one.name,
              "Is it there, and under this name? No place came back for it" + why + "." + near_text(one.near) + place};
    case VariableFinding::State::kDifferent:
      return {one.name, "Does it change by itself, and is it " + one.type + "? It was read with different values" +
                            why + "." + place};
    default:
      return {one.name,
              "Is it " + one.type + " in the controller too? The reply is " + word_of(one.state) + why + "." + place};
  }
}

// What explains all that the contract build gave otherwise; "" where replies come whole.
std::string pieces_question(const SurveyRecord& record) {
  const std::optional<size_t> piece = usual_piece_bytes(record);
  if (!piece) return {};
  return "Can the controller, or what is between, send each reply in one piece? Replies come in pieces of " +
         plural(*piece, "byte") + ": that is why plc-host read gave other values, or none.";
}

std::string verdict_words(Verdict::Usable usable) {
  switch (usable) {
    case Verdict::Usable::kYes:
      return "The guarded build can be used here, with all of its checks.";
    case Verdict::Usable::kWithoutStatus:
      return "The guarded build can be used here when it is built without its check of the status "
             "(-DPLC_GUARD_STATUS=OFF).";
    case Verdict::Usable::kWithoutValueEnd:
      return "The guarded build can be used here when it is built without its check of the end of values "
             "(-DPLC_GUARD_VALUE_END=OFF).";
    case Verdict::Usable::kWithoutBoth:
      return "The guarded build can be used here when it is built without its checks of the status and of the end of "
             "values (-DPLC_GUARD_STATUS=OFF -DPLC_GUARD_VALUE_END=OFF).";
    case Verdict::Usable::kNotUsable:
      return "The guarded build cannot be used here: use the contract build.";
    default:
      return "Whether the guarded build can be used here is not known.";
  }
}

}  // namespace

bool has_figures(const Step& step) { return step.state != Step::State::kNotDone; }

std::string verdict_sentence(const SurveyRecord& record) {
  const std::string problem = contract_problem(record);
  const bool is_none = record.verdict.usable == Verdict::Usable::kNotUsable && !problem.empty();
  std::string sentence = is_none ? kNeitherBuild + problem + "." : verdict_words(record.verdict.usable);
  // What comes later could still break a rule.
  if (record.is_whole || !is_usable(record.verdict.usable)) return sentence;
  return "So far, the" + sentence.substr(sizeof "The" - 1);
}

std::vector<std::string> found_sentences(const SurveyRecord& record) {
  std::vector<std::string> sentences = {whole_sentence(record), link_sentence(record.link)};
  if (record.link.connect_ms.empty()) return sentences;
  sentences.push_back(programs_sentence(record.programs));
  sentences.push_back(variables_sentence(record.variables));
  sentences.push_back(heads_sentence(record.heads));
  sentences.push_back(times_sentence(record.times, record.times_step));
  sentences.push_back(is_foreign(record.heads)
                          ? "Whether the guarded build can be used here is not known: " + std::string(kForeign) + "."
                          : verdict_sentence(record));
  sentences.push_back(writes_sentence(record.writes));
  if (has_figures(record.endurance.step)) sentences.push_back(endurance_sentence(record.endurance));
  return sentences;
}

std::vector<Question> questions(const SurveyRecord& record) {
  std::vector<Question> all;
  for (const ProgramFinding& one : record.programs.findings) {
    if (one.state == ProgramFinding::State::kMissing) {
      all.push_back({one.scope, "Is there such a program? The directory does not name it."});
    } else if (one.state == ProgramFinding::State::kCut) {
      all.push_back({one.scope, "Can its name be shorter? The directory cuts it: " + one.other + "."});
    } else if (one.state == ProgramFinding::State::kPrefix) {
      all.push_back({one.scope, "Can one of the two be called otherwise? " + one.other + " begins with this name."});
    }
  }
  const std::string pieces = contract_problem(record).empty() ? "" : pieces_question(record);
  size_t explained = 0;
  for (const VariableFinding& one : record.variables.findings) {
    if (one.state == VariableFinding::State::kGood || one.state == VariableFinding::State::kNotTried) continue;
    if (!pieces.empty() && one.is_other_by_driver) {
      ++explained;
    } else {
      all.push_back(question_on(one));
    }
  }
  if (explained > 0) all.push_back({plural(explained, "variable"), pieces});
  return all;
}

std::vector<NamedStep> steps_of(const SurveyRecord& record) {
  return {{"link", record.link.step},     {"programs", record.programs.step}, {"variables", record.variables.step},
          {"heads", record.heads.step},   {"times", record.times_step},       {"limits", record.limits.step},
          {"writes", record.writes.step}, {"hours", record.endurance.step}};
}

}  // namespace plc_host::survey
