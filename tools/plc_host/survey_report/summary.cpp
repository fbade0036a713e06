// Puts what was found into sentences.
#include "tools/plc_host/survey_report/summary.h"

#include <algorithm>

#include "base/text.h"
#include "tools/plc_host/survey_report/report_words.h"

namespace plc_host::survey {
namespace {

using plc_base::plural;

std::string whole_sentence(const SurveyRecord& record) {
  std::string text =
      "The controller at " + controller_text(record.link) + " was surveyed on " + utc_text(record.made) + " for ";
  text += seconds_text(record.took_s);
  if (record.is_whole) return text + ".";
  return text + "; the survey did not come to its end" + (record.ended.empty() ? "" : ": " + record.ended) + ".";
}

// What the survey did itself: it closes a connection before it makes the next one, and controllers take that in later.
std::string limit_note(const Link& link) {
  if (!explains_failures(link)) return {};
  return " The limit of " + plural(*link.most_connections, "connection") + " at a time explains " +
         (link.connect_failures.size() == 1 ? "this failure" : "these failures") +
         ": the controller may still have counted the survey's own connection before.";
}

std::string link_sentence(const Link& link) {
  if (!link.name_problem.empty()) return "Its name could not be resolved: " + link.name_problem + ".";
  if (link.connects_tried == 0) return "Connecting was not tried.";
  std::string text = "It took " + std::to_string(link.connect_ms.size()) + " of ";
  text += plural(link.connects_tried, "connection") + ".";
  if (link.connect_ms.empty()) return text;
  const Spread spread = spread_of(link.connect_ms);
  text +=
      " Half of them were open within " + shown_ms(spread.p50) + ", and all within " + shown_ms(spread.largest) + ".";
  const size_t ended = link.connect_ms.size() + link.connect_failures.size();
  if (ended > link.connects_tried) {
    text += " On " + std::to_string(ended - link.connects_tried) + " of them no directory came.";
  }
  return text + limit_note(link);
}

size_t count_of(const Programs& programs, ProgramFinding::State state) {
  return static_cast<size_t>(std::count_if(programs.findings.begin(), programs.findings.end(),
                                           [state](const ProgramFinding& one) { return one.state == state; }));
}

std::string times_text(uint64_t count) { return count == 1 ? "once" : std::to_string(count) + " times"; }

std::string programs_sentence(const Programs& programs) {
  if (!has_figures(programs.step)) return "Its programs are not known. " + not_measured(programs.step);
  std::string text = "Its directory names " + plural(programs.directory.size(), "program");
  if (is_directory_partial(programs)) text += ", and counts " + std::to_string(programs.announced.value_or(0));
  const auto is_doubtful = [](const ProgramFinding& one) {
    return one.state == ProgramFinding::State::kMissing && !one.other.empty();
  };
  const auto doubtful =
      static_cast<size_t>(std::count_if(programs.findings.begin(), programs.findings.end(), is_doubtful));
  const size_t missing = count_of(programs, ProgramFinding::State::kMissing) - doubtful;
  const size_t cut = count_of(programs, ProgramFinding::State::kCut);
  const size_t unknown = count_of(programs, ProgramFinding::State::kNotKnown);
  const size_t declared = programs.findings.size() - count_of(programs, ProgramFinding::State::kUndeclared);
  const std::string end =
      programs.changes == 0 ? "." : ". It changed between connects, " + times_text(programs.changes) + ".";
  if (declared == 0) return text + "; the tag files name none" + end;
  if (missing + doubtful + cut + unknown == 0) return text + ", and has all that the tag files name" + end;
  std::vector<std::string> parts;
  if (missing > 0) parts.push_back("it lacks " + std::to_string(missing));
  if (unknown > 0) parts.push_back("of " + std::to_string(unknown) + " it is not known whether it has them");
  if (cut > 0) parts.push_back("it cuts the name of " + std::to_string(cut));
  if (doubtful > 0) {
    parts.push_back("of " + std::to_string(doubtful) +
                    " it has only the beginning of the name, which is another program or the name cut");
  }
  text += "; of " + std::to_string(declared) + " that the tag files name, ";
  for (size_t i = 0; i < parts.size(); ++i) text += (i == 0 ? "" : ", ") + parts[i];
  return text + end;
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
  const auto open = static_cast<size_t>(
      std::count_if(variables.findings.begin(), variables.findings.end(), [](const VariableFinding& one) {
        return one.state == State::kGood && one.has_no_value && one.may_go_on && !one.is_compared;
      }));
  const size_t without_value = count_of(variables, State::kGood) - static_cast<size_t>(read) - open;
  text += std::to_string(read) + " were read as declared";
  const auto moving = std::count_if(variables.findings.begin(), variables.findings.end(),
                                    [](const VariableFinding& one) { return is_read(one) && one.changes; });
  if (moving > 0) {
    text += moving == 1 ? " (1 changes by itself)" : " (" + std::to_string(moving) + " change by themselves)";
  }
  if (open > 0) text += ", " + std::to_string(open) + " answered with a text that may go on, and not compared";
  if (without_value > 0) text += ", " + std::to_string(without_value) + " answered without a value that plc-host shows";
  for (const auto& [state, words] :
       {std::pair(State::kRefused, " refused"), std::pair(State::kNotNamed, " not named"),
        std::pair(State::kDifferent, " read with different values"),
        std::pair(State::kNotByDriver, " not read by plc-host's driver"),
        std::pair(State::kShort, " answered with too few bytes"),
        std::pair(State::kLong, " answered with too many bytes"), std::pair(State::kNotTried, " not tried")}) {
    const size_t count = count_of(variables, state);
    if (count > 0) text += ", " + std::to_string(count) + words;
  }
  const std::vector<std::string> not_compared = names_not_compared(variables);
  if (!not_compared.empty()) {
    text += ", " + std::to_string(not_compared.size()) + " not compared with what the driver gives (" +
            some_names(not_compared) + ")";
  }
  const std::string unbatched = unbatched_text(variables);
  return text + (unbatched.empty() ? "." : ". " + unbatched);
}

std::string heads_sentence(const SurveyRecord& record) {
  const HeadCounts& heads = record.heads;
  if (heads.replies == 0) return "No reply came.";
  std::vector<std::string> broken;
  for (const auto& [name, field] : {std::pair("length", heads.length), std::pair("complement", heads.complement),
                                    std::pair("sequence number", heads.sequence),
                                    std::pair("class", heads.request_class), std::pair("command", heads.command)}) {
    if (field.zero + field.other > 0) broken.emplace_back(name);
  }
  std::string text = heads.replies == 1 ? "1 reply came" : std::to_string(heads.replies) + " replies came";
  const char* what = heads.unfinished > 0 ? " had no whole one" : " had none";
  if (heads.replies_unanswered > 0) text += ", " + plural(heads.replies_unanswered, "request") + what;
  const uint64_t limited = at_limit_of_connections(record);
  if (limited > 0) text += " (" + std::to_string(limited) + " of them at the limit of connections)";
  text += strays_text(heads);
  text += broken.empty() ? "; each has the length, sequence number, class and command of its request."
                         : "; not every one has the right " + some_names(broken) + ".";
  const std::string refusals = refusals_text(heads);
  return refusals.empty() ? text : text + " " + refusals + ".";
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

size_t open_neighbours(const Writes& writes) {
  return static_cast<size_t>(std::count_if(writes.findings.begin(), writes.findings.end(),
                                           [](const WriteFinding& one) { return one.has_open_neighbours; }));
}

// Nothing of neighbours that nobody looked at.
std::string neighbours_text(const Writes& writes, size_t good) {
  size_t unchanged = 0;
  size_t watched = 0;
  for (const WriteFinding& one : writes.findings) {
    if (one.neighbours_kept) ++watched;
    if (is_good(one) && one.neighbours_kept) ++unchanged;
  }
  if (watched == 0) return open_neighbours(writes) > 0 ? "." : "; no neighbour was watched.";
  if (unchanged == good) return good == 1 ? " with its neighbours unchanged." : " with their neighbours unchanged.";
  if (unchanged == 0) return std::string("; ") + (good == 1 ? "its" : "their") + " neighbours were not compared.";
  return "; the neighbours of " + std::to_string(unchanged) + " were unchanged, those of " +
         std::to_string(good - unchanged) + " were not compared.";
}

// Of writes behind which the survey ended, or a neighbour did not answer.
std::string unseen_text(const Writes& writes, size_t made) {
  const auto is_unseen = [](const WriteFinding& one) { return one.is_written && !one.read_back; };
  const auto unseen = std::count_if(writes.findings.begin(), writes.findings.end(), is_unseen);
  const size_t open = open_neighbours(writes);
  std::string text;
  if (unseen > 0) {
    text += made == 1 ? " What it did was not looked at."
                      : " What " + std::to_string(unseen) + " of them did was not looked at.";
  }
  if (open > 0) {
    text += made == 1 ? " Its neighbours" : " The neighbours of " + std::to_string(open) + " of them";
    text += " were read before it, and not all of them behind it.";
  }
  return text;
}

std::string writes_sentence(const Writes& writes) {
  if (!has_figures(writes.step)) return "Nothing was written.";
  size_t good = 0;
  size_t made = 0;
  for (const WriteFinding& one : writes.findings) {
    if (is_good(one)) ++good;
    if (one.is_written) ++made;
  }
  const size_t left = writes.findings.size() - made;
  if (made == 0 && left == 0) return "Nothing was written.";
  std::string text = "Of " + plural(made, "write") + ", " + std::to_string(good);
  text += good == 1 ? " was" : " were";
  text += " acknowledged, read back and set back" + neighbours_text(writes, good) + unseen_text(writes, made);
  if (made == 0) text = "Nothing was written.";
  if (left > 0) text += " Not written: " + plural(left, "variable") + ", see the notes.";
  if (!writes.not_set_back.empty()) text += " Not set back: " + some_names(writes.not_set_back) + ".";
  return text;
}

std::string endurance_sentence(const Endurance& endurance) {
  std::string text = "Over the hours, " + losses_text(endurance) + "; " +
                     plural(endurance.slow, endurance.losses > 0 ? "other round" : "round");
  text += endurance.slow == 1 ? " was" : " were";
  text += " slower than the period of " + std::to_string(endurance.period_ms) + " ms.";
  const std::string turns = turns_text(endurance);
  return turns.empty() ? text : text + " " + turns + ".";
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

std::string unbatched_text(const Variables& variables) {
  if (variables.step.state != Step::State::kPartly) return {};
  const auto is_unbatched = [](const VariableFinding& one) {
    return one.state == VariableFinding::State::kGood && !one.is_batched;
  };
  const auto count = std::count_if(variables.findings.begin(), variables.findings.end(), is_unbatched);
  if (count == 0) return {};
  return "The survey ended before " + std::to_string(count) + (count == 1 ? " of them was" : " of them were") +
         " read in a batch too, as hosts read.";
}

std::string strays_text(const HeadCounts& heads) {
  std::string text;
  const auto add = [&text](uint64_t count, const char* one, const char* several) {
    if (count == 0) return;
    text += "; " + std::to_string(count) + (count == 1 ? one : several);
  };
  add(heads.foreign, " reply was none of ours and was dropped", " replies were none of ours and were dropped");
  add(heads.late(), " reply did not come to its end", " replies did not come to their end");
  add(heads.headless, " reply has no head that tells where it ends", " replies have no head that tells where they end");
  add(heads.cut_off, " reply was cut off by the end of its connection",
      " replies were cut off by the end of their connections");
  return text;
}

std::string refusals_text(const HeadCounts& heads) {
  std::string text;
  for (const auto& [what, counts] : {std::pair("read", heads.reads_refused_for_once),
                                     std::pair("request for names", heads.names_refused_for_once)}) {
    if (counts.refused == 0) continue;
    const std::string several = std::string(what) == "read" ? "reads" : "requests for names";
    const bool is_all = counts.refused >= counts.ever;
    const uint64_t ever = is_all ? counts.refused : counts.ever;
    text.append(text.empty() ? "" : "; ").append(std::to_string(ever)).append(" of ");
    text.append(std::to_string(counts.asked)).append(" ").append(several);
    text.append(ever == 1 ? " was" : " were").append(" refused, ");
    text.append(is_all ? "and" : std::to_string(counts.refused) + " of them").append(" answered when asked again");
  }
  return text;
}

bool has_figures(const Step& step) { return step.state != Step::State::kNotDone; }

std::string verdict_sentence(const SurveyRecord& record) {
  const std::string problem = contract_problem(record);
  const bool is_none = record.verdict.usable == Verdict::Usable::kNotUsable && !problem.empty();
  std::string sentence = is_none ? kNeitherBuild + problem + "." : verdict_words(record.verdict.usable);
  if (!is_none && record.verdict.usable == Verdict::Usable::kNotUsable) sentence += pieces_warning(record);
  // What comes later could still break a rule.
  if (record.is_whole || !is_usable(record.verdict.usable)) return sentence;
  return "So far, the" + sentence.substr(sizeof "The" - 1);
}

std::string losses_text(const Endurance& endurance) {
  if (endurance.losses == 0) return plural(endurance.rounds, "round") + " of reads, none lost";
  return std::to_string(endurance.losses) + " of " + plural(endurance.rounds, "round") + " of reads lost, " +
         plural(endurance.lost_values, "value") + " not read, the longest gap " +
         seconds_text(endurance.longest_gap_ms / 1000);
}

std::string turns_text(const Endurance& endurance) {
  if (endurance.left_out == 0) return {};
  return std::to_string(endurance.left_out) + " of " + plural(endurance.rounds + endurance.left_out, "turn") +
         (endurance.left_out == 1 ? " was" : " were") + " left out, because a round lasted longer than the period";
}

std::vector<std::string> found_sentences(const SurveyRecord& record) {
  std::vector<std::string> sentences = {whole_sentence(record), link_sentence(record.link)};
  if (record.link.connect_ms.empty()) return sentences;
  sentences.push_back(programs_sentence(record.programs));
  sentences.push_back(variables_sentence(record.variables));
  sentences.push_back(heads_sentence(record));
  sentences.push_back(times_sentence(record.times, record.times_step));
  sentences.push_back(is_foreign(record.heads)
                          ? "Whether the guarded build can be used here is not known: " + std::string(kForeign) + "."
                          : verdict_sentence(record));
  sentences.push_back(writes_sentence(record.writes));
  if (has_figures(record.endurance.step)) sentences.push_back(endurance_sentence(record.endurance));
  return sentences;
}

std::vector<NamedStep> steps_of(const SurveyRecord& record) {
  return {{"link", record.link.step},     {"programs", record.programs.step}, {"variables", record.variables.step},
          {"heads", record.heads.step},   {"times", record.times_step},       {"limits", record.limits.step},
          {"writes", record.writes.step}, {"hours", record.endurance.step}};
}

}  // namespace plc_host::survey
