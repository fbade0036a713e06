// Makes the questions: of programs, of variables, of connections, of the form of replies, of times, writes and losses.
#include "tools/plc_host/survey_report/questions.h"

#include <algorithm>
#include <map>

#include "base/text.h"
#include "tools/plc_host/survey_report/report_words.h"
#include "tools/plc_host/survey_report/summary.h"

namespace plc_host::survey {
namespace {

using plc_base::plural;
using Questions = std::vector<Question>;

// "The directory counts 3, and names 2 of them."
std::string directory_counts(const Programs& programs) {
  const size_t counted = programs.announced.value_or(0);
  const size_t named = programs.directory.size();
  if (counted == named) {
    return "The directory names " + std::to_string(named) + ", which is the most that it can count.";
  }
  return "The directory counts " + std::to_string(counted) + ", and names " + std::to_string(named) + " of them.";
}

// The survey asked for a variable of the program of exactly this name.
bool is_asked(const SurveyRecord& record, const std::string& scope) {
  const auto& findings = record.variables.findings;
  return std::any_of(findings.begin(), findings.end(), [&scope](const VariableFinding& one) {
    return one.program == scope && one.state != VariableFinding::State::kNotTried;
  });
}

void ask_of_same_names(const SurveyRecord& record, Questions& all) {
  std::map<std::string, size_t> counts;
  for (const std::string& name : record.programs.directory) ++counts[name];
  for (const auto& [name, count] : counts) {
    if (count < 2) continue;
    all.push_back({name, "Which of the " + std::to_string(count) +
                             " programs of this name is meant? The survey asked " +
                             (is_asked(record, name) ? "the first one of the directory, as the guarded build does."
                                                     : "none of them.")});
  }
}

// Of a tag file's own mistake.
constexpr char kCheckFile[] = "plc-host check FILE tells what to write.";

std::string refusal_of_guarded(const ProgramFinding& one) {
  if (!is_ambiguous(one)) return {};
  return " The guarded build refuses its variables: the directory has the beginning of its name " +
         std::to_string(one.beginnings) + " times, and not the whole.";
}

void ask_of_program(const ProgramFinding& one, Questions& all) {
  if (one.scope.empty() && one.state != ProgramFinding::State::kUndeclared) {
    all.push_back({"tag files", std::string("Which program do local variables without one belong to? ") + kCheckFile});
  } else if (one.state == ProgramFinding::State::kMissing) {
    std::string what = "Is there such a program? The directory does not name it";
    if (!one.other.empty()) {
      what += "; it has " + one.other + ", the beginning of its name: is that another program, or its name cut";
    }
    all.push_back({one.scope, what + (one.other.empty() ? "." : "?") + refusal_of_guarded(one)});
  } else if (one.state == ProgramFinding::State::kCut) {
    all.push_back({one.scope, "Can its name be shorter? The directory cuts it: " + one.other + "."});
  } else if (one.state == ProgramFinding::State::kPrefix) {
    all.push_back({one.scope, "Can one of the two be called otherwise? " + one.other + " begins with this name."});
  }
}

void ask_of_programs(const SurveyRecord& record, Questions& all) {
  const Programs& programs = record.programs;
  if (programs.changes > 0) {
    all.push_back({"directory",
                   "Why does the directory of programs change? It did so from one connect to the next, while "
                   "the survey was made."});
  }
  if (has_figures(programs.step) && is_directory_partial(programs)) {
    all.push_back({"directory", "How many programs are there? " + directory_counts(programs)});
  }
  ask_of_same_names(record, all);
  for (const ProgramFinding& one : programs.findings) ask_of_program(one, all);
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

std::string different_text(const VariableFinding& one) {
  if (one.is_other_in_batch) {
    return "Why has it another value when several variables are asked for at a time? It was " + one.why +
           ". One of the others may be refused with a reply that looks like values.";
  }
  const std::string why = one.why.empty() ? "" : ": " + one.why;
  return "Does it change by itself, and is it " + one.type + "? It was read with different values" + why + ".";
}

Question question_on(const VariableFinding& one) {
  const std::string why = one.why.empty() ? "" : ": " + one.why;
  const std::string place = place_of_question(one);
  const bool is_name_refused = one.state == VariableFinding::State::kRefused && !one.is_named;
  if (one.type.empty() && !is_name_refused) {
    return {one.name, std::string("What type has it? The tag file gives none: ") + kCheckFile + place};
  }
  switch (one.state) {
    case VariableFinding::State::kRefused:
      if (one.is_named) {
        return {one.name, "Is it " + one.type +
                              " in the controller too? Its name was taken, and its value refused, status " +
                              status_text(one.status) + "." + place};
      }
      return {one.name, "Is it there, and under this name? The controller refused it, status " +
                            status_text(one.status) + "." + near_text(one.near) + place};
    case VariableFinding::State::kNotNamed:
      return {one.name,
              "Is it there, and under this name? No place came back for it" + why + "." + near_text(one.near) + place};
    case VariableFinding::State::kNotByDriver:
      return {one.name, "What of it does plc-host's driver not take? It was not read by it" + why + "." + place};
    case VariableFinding::State::kNotCompared:
      return {one.name, "Can the tag file declare it otherwise? The controller answered, and nothing was compared" +
                            why + "." + place};
    case VariableFinding::State::kDifferent:
      return {one.name, different_text(one) + place};
    default:
      return {one.name,
              "Is it " + one.type + " in the controller too? The reply is " + word_of(one.state) + why + "." + place};
  }
}

// One question for all calls that failed.
void ask_of_unread(const Variables& variables, Questions& all) {
  const auto is_unread = [](const VariableFinding& one) { return one.state == VariableFinding::State::kNotByDriver; };
  const auto first = std::find_if(variables.findings.begin(), variables.findings.end(), is_unread);
  if (first == variables.findings.end()) return;
  all.push_back({plural(variables.unread_by_driver, "variable"),
                 "Why do calls of plc-host's driver fail? The first, " + first->name + ": " + first->why + "."});
}

void ask_of_variables(const SurveyRecord& record, Questions& all) {
  const bool are_pieces_reason = !contract_problem(record).empty() && first_piece_bytes(record).has_value();
  const bool fails_often = fails_guarded_build(record.variables);
  size_t explained = 0;
  for (const VariableFinding& one : record.variables.findings) {
    if (one.state == VariableFinding::State::kGood || one.state == VariableFinding::State::kNotTried) continue;
    if (are_pieces_reason && one.is_other_by_driver) {
      ++explained;
    } else if (!fails_often || one.state != VariableFinding::State::kNotByDriver) {
      all.push_back(question_on(one));
    }
  }
  if (fails_often) ask_of_unread(record.variables, all);
  if (explained == 0) return;
  all.push_back({plural(explained, "variable"),
                 "Nothing to ask: the contract build gave other values, or none, because replies come in pieces."});
}

void ask_of_connections(const Link& link, Questions& all) {
  if (!link.connect_failures.empty() && !explains_failures(link)) {
    all.push_back({"connections", "Why did " + std::to_string(link.connect_failures.size()) + " of " +
                                      plural(link.connects_tried, "connection") +
                                      " fail? The first: " + link.connect_failures.front() + "."});
  }
  if (link.most_connections) {
    all.push_back({"connections", "How many may be open at a time, and which of them are taken by others? It served " +
                                      std::to_string(*link.most_connections) + "; one more was " +
                                      reaction_words(link.one_more) + "."});
  }
  if (link.is_answered_when_half_closed == false) {
    all.push_back({"connections",
                   "Does it drop a request behind which the other side ends its half of the connection? "
                   "Such a connection was " +
                       link.half_closed + "."});
  }
}

void ask_of_pieces(const SurveyRecord& record, Questions& all) {
  const std::string pieces = pieces_sentence(record);
  if (pieces.empty()) return;
  all.push_back({"pieces", "Can the controller, or what is between, send each reply in one piece? " + pieces + "."});
}

struct FieldQuestion {
  const char* about;
  const HeadCounts::Field& field;
  const char* what;
};

void ask_of_fields(const HeadCounts& heads, Questions& all) {
  const FieldQuestion fields[] = {
      {"length", heads.length, "Can the controller write the length of a reply into its bytes 0 to 3?"},
      {"complement", heads.complement, "Can the controller write the complement of the length into bytes 4 to 7?"},
      {"sequence numbers", heads.sequence,
       "Can the controller be set so that a reply repeats the sequence number of its request? Nothing else tells a "
       "late "
       "reply from the one that is waited for."},
      {"class", heads.request_class, "Can the controller be set so that a reply repeats the class of its request?"},
      {"command", heads.command, "Can the controller be set so that a reply repeats the command of its request?"}};
  for (const FieldQuestion& one : fields) {
    const uint64_t others = one.field.zero + one.field.other;
    // A few of them are asked about as what else answers.
    if (others == 0 || (&one.field == &heads.sequence && strays_taken(heads) > 0)) continue;
    const std::string counts = std::to_string(others) + " of " + std::to_string(one.field.right + others);
    all.push_back({one.about, std::string(one.what) + " It is not so in " + counts + " replies."});
  }
}

// Some requests were refused with this status.
bool refuses_others(const HeadCounts& heads, uint16_t status) {
  return std::any_of(heads.statuses.begin(), heads.statuses.end(), [status](const HeadCounts::Status& one) {
    return one.status == status && one.request.find(", refused") != std::string::npos;
  });
}

void ask_of_refusals(const HeadCounts& heads, Questions& all) {
  if (heads.directories_refused > 0) {
    all.push_back({"directory of programs", "Why does the controller refuse it, status " +
                                                status_text(heads.directory_status.value_or(0)) + "? It did so " +
                                                directory_refusals(heads) + "."});
  }
  if (heads.refusals_untold > 0) {
    all.push_back({"refusals", "Can the controller refuse a name that it does not have with a status? " +
                                   plural(heads.refusals_untold, "time") +
                                   " nothing told a refused name from an answered one."});
  }
  const std::string for_once = refusals_text(heads);
  if (!for_once.empty()) {
    all.push_back({"refusals that come and go",
                   "Why does the controller refuse what it answers at other times? " + for_once + "."});
  }
  if (heads.status_done.value_or(0) != 0) {
    all.push_back({"status", "What does status " + status_text(*heads.status_done) +
                                 " mean? Answers that are no refusal have it."});
  }
  for (const HeadCounts::Status& one : heads.statuses) {
    if (!is_odd_answer(one) || one.status == heads.status_done) continue;
    if (refuses_others(heads, one.status)) {
      all.push_back({"refusals", "Why does the controller refuse it now and then? " +
                                     (one.count == 1 ? "1 reply" : std::to_string(one.count) + " replies") + " to " +
                                     one.request + " came with status " + status_text(one.status) +
                                     ", with which it refuses other requests."});
      continue;
    }
    all.push_back({"status", "What does status " + status_text(one.status) + " mean? " +
                                 (one.count == 1 ? "1 reply" : std::to_string(one.count) + " replies") + " to " +
                                 one.request +
                                 " came with it, and refused nothing. A profile has one status for all answers: it "
                                 "cannot tell this one."});
  }
}

void ask_of_ends(const HeadCounts& heads, Questions& all) {
  // Those behind a whole reply are asked about below.
  const uint64_t longer = heads.values_longer - std::min(heads.values_longer, heads.values_behind_end);
  if (longer > 0) {
    all.push_back({"bytes behind values",
                   "What are the bytes that come behind the values in " + std::to_string(longer) + " of the replies?"});
  }
  if (heads.values_shorter > 0) {
    all.push_back({"values that are missing", "Why did " + std::to_string(heads.values_shorter) +
                                                  " of the replies have fewer values than were asked for?"});
  }
  if (heads.names_shorter > 0) {
    all.push_back({"names that are missing",
                   "Why did " + std::to_string(heads.names_shorter) +
                       " of the replies to names lack a part of what was asked for, and refuse nothing?"});
  }
  if (heads.with_more_behind > 0) {
    all.push_back({"bytes behind replies", "What else answers, or what are the bytes that come behind " +
                                               std::to_string(heads.with_more_behind) + " of the replies, " +
                                               std::to_string(heads.bytes_unasked) +
                                               " in all? A call of the guarded build fails when it meets them."});
  }
  if (heads.foreign > 0) {
    all.push_back({"doubled replies",
                   "What else answers, or why does the controller, or what is between, send a reply twice, or one that "
                   "nobody asked for? " +
                       std::to_string(heads.foreign + strays_taken(heads)) + " came, and " +
                       plural(heads.replies - strays_taken(heads), "answer") +
                       ". A call of the guarded build may fail when it meets one."});
  }
}

// Answers that are late now and then, by a measure that a busy network does not reach.
void ask_of_times(const SurveyRecord& record, Questions& all) {
  constexpr double kLateMs = 500;
  constexpr double kTimesLonger = 10;
  const Times* latest = nullptr;
  Spread longest;
  for (const Times& one : record.times) {
    const Spread spread = spread_of(one.ms);
    if (spread.largest < kLateMs || spread.largest < kTimesLonger * spread.p50) continue;
    if (latest != nullptr && spread.largest <= longest.largest) continue;
    latest = &one;
    longest = spread;
  }
  if (latest != nullptr) {
    all.push_back({"late answers", "What else does the controller do when it answers late? An answer (" + latest->kind +
                                       ", " + plural(latest->names, "name") + ") took " + shown_ms(longest.largest) +
                                       ", half of them no longer than " + shown_ms(longest.p50) + "."});
  }
  const Unanswered unanswered = unanswered_of(record);
  const char* why = record.heads.late() > 0 ? "Why does the controller not answer, or not wholly? "
                                            : "Why does the controller not answer? ";
  if (unanswered.silent > 0) {
    all.push_back({"requests without an answer", std::string(why) + plural(unanswered.silent, "request") + " had " +
                                                     no_answer_words(record) + " within " +
                                                     seconds_text(record.wait_ms / 1000.0) + "."});
  }
  if (unanswered.damaged > 0) {
    all.push_back({"damaged replies", "What damages replies, or what else answers? " +
                                          plural(unanswered.damaged, "request") +
                                          " got bytes without the head of a reply."});
  }
  if (unanswered.lost > 0) {
    all.push_back({"connections that end", "Why does the controller, or what is between, end connections? " +
                                               plural(unanswered.lost, "request") +
                                               " met an end in place of an answer."});
  }
}

void ask_of_limits(const Limits& limits, Questions& all) {
  if (!limits.names_per_request && !limits.values_per_request) return;
  std::string met;
  if (limits.names_per_request) met = plural(*limits.names_per_request, "name");
  if (limits.values_per_request) {
    met.append(met.empty() ? "" : " and ").append(plural(*limits.values_per_request, "value"));
  }
  all.push_back({"limits", "Are these the limits of the controller, and do they stay? A request may have " + met +
                               "; of one more, this becomes: " + limits.beyond + "."});
}

// What went wrong first.
std::string write_question(const WriteFinding& one) {
  const std::string its = " Its " + one.kind + " ";
  const std::string why = one.why.empty() ? "" : ": " + one.why;
  if (one.refusal) return "May it be written?" + its + "was " + (one.why.empty() ? "refused" : one.why);
  if (one.keeps_former) return "Can it be written?" + its + "was " + one.why;
  if (one.acknowledged == false) return "Is it written, or is it not?" + its + "had no answer" + why;
  if (one.read_back == false) {
    return "What else writes it?" + its + "was acknowledged, and another value was there afterwards" + why;
  }
  if (one.neighbours_kept == false) {
    return "What else writes its neighbours? Behind its " + one.kind + " they had other values" + why;
  }
  if (!one.set_back_problem.empty()) {
    return "Why does its former value not come back?" + its + "was acknowledged, and " + one.set_back_problem;
  }
  return "What else writes it?" + its + "was acknowledged, and its former value did not stay when it was set back" +
         why;
}

void ask_of_writes(const Writes& writes, Questions& all) {
  for (const WriteFinding& one : writes.findings) {
    // Of a write behind which the survey ended there is nothing to ask.
    const bool is_judged = one.refusal || one.read_back;
    if (!one.is_written || !is_judged || is_good(one)) continue;
    all.push_back({one.name, write_question(one) + "."});
  }
}

void ask_of_hours(const Endurance& hours, Questions& all) {
  if (hours.losses == 0) return;
  all.push_back({"hours", "What happens at the controller and in the network at those times? " + losses_text(hours) +
                              "; the report has the times."});
}

}  // namespace

std::vector<Question> questions(const SurveyRecord& record) {
  Questions all;
  const bool is_controller = !is_foreign(record.heads);
  if (is_controller) ask_of_programs(record, all);
  ask_of_connections(record.link, all);
  if (is_controller) {
    ask_of_pieces(record, all);
    ask_of_fields(record.heads, all);
    ask_of_refusals(record.heads, all);
    ask_of_ends(record.heads, all);
  }
  ask_of_times(record, all);
  ask_of_limits(record.limits, all);
  ask_of_writes(record.writes, all);
  ask_of_hours(record.endurance, all);
  // The last ones: there may be more of them than a page shows.
  ask_of_variables(record, all);
  return all;
}

}  // namespace plc_host::survey
