// Writes the scratch variables that were named and no others, looks at what became of them and of what lies beside
// them, and puts the old values back, also when the survey ends in the middle.
#include <algorithm>

#include "base/text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/survey_steps/ask_variables.h"
#include "tools/plc_host/survey_steps/scratch.h"
#include "tools/plc_host/survey_steps/survey_steps.h"
#include "wire/big_endian.h"

namespace plc_host::survey {
namespace {

using plc_sim::Bytes;

constexpr unsigned kPutBackAttempts = 3;
constexpr char kReadsSo[] = ". It reads so now, but a write was not answered: it may still be carried out";
constexpr unsigned kWordReads = 4;
constexpr char kNotComeTo[] = "the survey ended before it was written";

struct Watched {
  Declared variable;
  Bytes value;
};

std::string neighbour_name(const Watched& one) { return one.variable.tag->qualified_name + one.variable.element; }

class WriteStep {
 public:
  WriteStep(Conversation& conversation, const Declarations& declared)
      : conversation_(conversation), declared_(declared), writes_(conversation.record().writes) {}

  void run();

  // What was written when the survey ended is written back, or told when the controller does not answer.
  void put_back_or_tell();

  // Those that the survey did not come to before it ended.
  void tell_rest();

 private:
  void take(const std::string& name);
  void change(Scratch& scratch);
  void put_back();
  void take_other_way(const Scratch& scratch, const Asked& asked, const Bytes& old_value);
  bool name_again(Declared& variable);
  std::optional<Bytes> word_now(const Declared& variable);
  void watch_neighbours(const Scratch& scratch);
  void open_neighbours(WriteFinding& finding);
  void compare_neighbours(size_t at);
  bool compare_neighbour(Watched& one, std::string& moved);
  Asked write(Scratch& scratch, const Bytes& value);
  bool is_changed_to(const Scratch& scratch, const std::optional<Bytes>& now, const Bytes& wanted) const;
  WriteFinding finding_of(const Scratch& scratch, const Bytes& value) const;
  void take_answer(const Asked& asked, WriteFinding& finding) const;
  std::string attempt_problem(const Asked& asked) const;
  void look_at(Scratch& scratch, const Asked& asked, const Bytes& value, WriteFinding& finding);

  Conversation& conversation_;
  const Declarations& declared_;
  Writes& writes_;
  std::optional<Scratch> open_;  // written, and not put back yet
  Bytes old_value_;
  std::vector<Watched> watched_;  // the neighbours of what is written
  size_t begun_ = 0;              // of the names to write
  size_t findings_before_ = 0;    // this one
};

WriteFinding WriteStep::finding_of(const Scratch& scratch, const Bytes& value) const {
  WriteFinding finding;
  finding.name = scratch.name;
  finding.type = declared_type(scratch.variable.tag->entry);
  const bool is_on = ((unsigned{plc_sim::ByteView(value).u16(0)} >> bit_of(scratch.variable)) & 1U) != 0;
  finding.kind = way_words(scratch.way, is_on);
  return finding;
}

// The name is resolved before every write, as the driver does.
bool WriteStep::name_again(Declared& variable) {
  const NamesAnswer names = ask_names(conversation_, {&variable});
  if (!names.is_complete) return false;
  variable.handle = names.records.front().handle;
  variable.bit_number = names.records.front().bit_number;
  return true;
}

void add_once(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

std::string joined(const std::string& first, const std::string& second) {
  return first.empty() || second.empty() ? first + second : first + "; " + second;
}

// Those whose values stay the same by themselves.
void WriteStep::watch_neighbours(const Scratch& scratch) {
  watched_.clear();
  for (Declared& neighbour : neighbours_of(scratch, declared_)) {
    const std::optional<Bytes> first = read_again(conversation_, neighbour);
    const std::optional<Bytes> second = first ? read_again(conversation_, neighbour) : std::nullopt;
    if (!first || !second || !is_same_value(neighbour, *first, *second)) continue;
    watched_.push_back({neighbour, *second});
  }
}

// They were read before this write, and are to be compared behind it.
void WriteStep::open_neighbours(WriteFinding& finding) {
  finding.has_open_neighbours = !watched_.empty();
  for (const Watched& one : watched_) add_once(writes_.neighbours_not_compared, neighbour_name(one));
}

// False without an answer. moved: "Motor.Speed was 12 and is 13".
bool WriteStep::compare_neighbour(Watched& one, std::string& moved) {
  const std::string name = neighbour_name(one);
  const std::optional<Bytes> now = read_again(conversation_, one.variable);
  if (!now) return false;
  std::vector<std::string>& open = writes_.neighbours_not_compared;
  open.erase(std::remove(open.begin(), open.end(), name), open.end());
  // A BOOL is written twice, and two variables may have the same neighbour.
  add_once(writes_.neighbours, name);
  if (is_same_value(one.variable, one.value, *now)) return true;
  moved =
      joined(moved, name + " was " + value_text(one.variable, one.value) + " and is " + value_text(one.variable, *now));
  one.value = *now;
  return true;
}

// What is compared for the finding at this place may end in the middle: then it says so.
void WriteStep::compare_neighbours(size_t at) {
  if (watched_.empty()) return;
  const std::string why = writes_.findings[at].why;
  writes_.findings[at].why = joined(why, "the survey ended before all of its neighbours were compared");
  std::string moved;
  std::vector<std::string> silent;
  for (Watched& one : watched_) {
    if (!compare_neighbour(one, moved)) silent.push_back(neighbour_name(one));
  }
  WriteFinding& finding = writes_.findings[at];
  finding.has_open_neighbours = !silent.empty();
  if (!moved.empty()) {
    finding.neighbours_kept = false;
  } else if (silent.empty()) {
    finding.neighbours_kept = true;
  }
  finding.why = joined(why, moved);
  if (!silent.empty()) finding.why = joined(finding.why, "not answered behind it: " + some_names(silent));
}

// What is written around has to be certain: two reads in a row give it.
std::optional<Bytes> WriteStep::word_now(const Declared& variable) {
  std::optional<Bytes> last;
  for (unsigned i = 0; i < kWordReads; ++i) {
    const ValuesAnswer now = ask_values(conversation_, {&variable});
    if (!now.is_complete()) return std::nullopt;
    if (last == now.values.front()) return last;
    last = now.values.front();
  }
  return std::nullopt;
}

Asked WriteStep::write(Scratch& scratch, const Bytes& value) {
  Asked nothing;
  if (!name_again(scratch.variable)) return nothing;
  Bytes word;
  if (scratch.way == WriteWay::kWordAround) {
    const std::optional<Bytes> now = word_now(scratch.variable);
    if (!now) return nothing;
    word = *now;
  }
  const Bytes request = write_request_for(scratch, conversation_.next_sequence(), value, word);
  const char* kind = scratch.way == WriteWay::kSetReset ? "bit"
                     : scratch.way == WriteWay::kMasked ? "masked write"
                                                        : "write";
  open_ = scratch;
  WriteFinding& finding = writes_.findings.back();
  if (!finding.is_written) {
    finding.is_written = true;
    finding.why = "the survey ended behind the write";
    open_neighbours(finding);
  }
  return conversation_.try_asking(kind, 1, request);
}

bool WriteStep::is_changed_to(const Scratch& scratch, const std::optional<Bytes>& now, const Bytes& wanted) const {
  if (!now) return false;
  Bytes part = *now;
  Bytes expected = wanted;
  part.resize(changed_bytes(scratch));
  expected.resize(changed_bytes(scratch));
  return is_same_value(scratch.variable, part, expected);
}

// An answer with another status than that of success refuses.
void WriteStep::take_answer(const Asked& asked, WriteFinding& finding) const {
  finding.acknowledged = asked.is_answered();
  finding.refusal.reset();
  if (!asked.is_answered()) return;
  const uint16_t status = status_of(asked.answer.bytes);
  if (status == conversation_.rules().status_of_success()) return;
  finding.acknowledged = false;
  finding.refusal = status;
}

std::string answer_problem(const WriteFinding& finding) {
  if (finding.acknowledged == true) return {};
  return finding.refusal ? "refused, status " + plc_base::hexadecimal(*finding.refusal, 4).substr(2)
                         : "no acknowledgment";
}

// What was carried out was not refused, whatever its status is.
void take_as_done(WriteFinding& finding) {
  if (!finding.refusal) return;
  finding.acknowledged = true;
  finding.refusal.reset();
}

// What became of the variable.
void WriteStep::look_at(Scratch& scratch, const Asked& asked, const Bytes& value, WriteFinding& finding) {
  take_answer(asked, finding);
  const std::optional<Bytes> now = read_again(conversation_, scratch.variable);
  finding.read_back = is_changed_to(scratch, now, value);
  conversation_.rules().judge_write(asked, *finding.read_back);
  if (*finding.read_back) take_as_done(finding);
  finding.why = answer_problem(finding);
  if (*finding.read_back) return;
  finding.keeps_former = finding.acknowledged == true && is_changed_to(scratch, now, old_value_);
  if (finding.keeps_former) {
    finding.why =
        "acknowledged, but not written: its former value " + value_text(scratch.variable, *now) + " is still there";
    return;
  }
  finding.why.append(finding.why.empty() ? "" : "; ").append("read back ");
  finding.why += now ? value_text(scratch.variable, *now) : "without an answer";
}

void WriteStep::change(Scratch& scratch) {
  std::optional<Bytes> old_value = read_again(conversation_, scratch.variable);
  const std::optional<Bytes> second = old_value ? read_again(conversation_, scratch.variable) : std::nullopt;
  const bool is_same = second && is_same_value(scratch.variable, *old_value, *second);
  const bool is_other = second && !is_same;
  if (!is_same) old_value.reset();
  const Bytes value = old_value ? other_value(scratch, *old_value) : Bytes{};
  WriteFinding finding = finding_of(scratch, value);
  if (!old_value) {
    finding.why = std::string(is_other ? "two reads gave two values" : "its value cannot be read") +
                  ": it is not written, for it could not be put back";
    writes_.findings.push_back(finding);
    return;
  }
  old_value_ = *old_value;
  watch_neighbours(scratch);
  const size_t at = writes_.findings.size();
  finding.why = kNotComeTo;
  writes_.findings.push_back(finding);
  const Asked asked = write(scratch, value);
  if (!writes_.findings[at].is_written) {
    writes_.findings[at].why = "its name or its value was not answered again";
    return;
  }
  WriteFinding looked_at = writes_.findings[at];
  take_answer(asked, writes_.findings[at]);
  look_at(scratch, asked, value, looked_at);
  writes_.findings[at] = looked_at;
  compare_neighbours(at);
  put_back();
  // A BOOL is set back by a write of its own.
  if (writes_.findings.size() > at + 1) compare_neighbours(at + 1);
}

// Of one write of the former value, which did not bring it back.
std::string WriteStep::attempt_problem(const Asked& asked) const {
  if (asked.request.empty()) return "not sent, for its name or its value was not answered";
  WriteFinding attempt;
  take_answer(asked, attempt);
  if (attempt.refusal) return answer_problem(attempt);
  return attempt.acknowledged == true ? "acknowledged, and not carried out" : "not answered";
}

// "the write that sets it back was refused, status 0005, three times"
std::string set_back_text(const std::vector<std::string>& problems) {
  const std::string what = "the write that sets it back was ";
  if (std::count(problems.begin(), problems.end(), problems.front()) == kPutBackAttempts) {
    return what + problems.front() + ", three times";
  }
  std::string text = what;
  for (size_t i = 0; i < problems.size(); ++i) text.append(i == 0 ? "" : ", then ").append(problems[i]);
  return text;
}

void WriteStep::put_back() {
  if (!open_) return;
  Scratch scratch = *open_;
  const Bytes old_value = old_value_;
  Asked asked;
  std::vector<std::string> problems;
  bool reads_so = false;
  for (unsigned i = 0; i < kPutBackAttempts && !(reads_so && asked.is_answered()); ++i) {
    asked = write(scratch, old_value);
    const std::optional<Bytes> now = read_again(conversation_, scratch.variable);
    reads_so = now && is_same_value(scratch.variable, *now, old_value);
    // What was never changed is back without a write.
    conversation_.rules().judge_write(asked, reads_so && writes_.findings.back().read_back == true);
    problems.push_back(attempt_problem(asked));
  }
  WriteFinding& changed = writes_.findings.back();
  if (!reads_so || !asked.is_answered()) {
    changed.set_back_problem = set_back_text(problems);
    changed.why.append(changed.why.empty() ? "" : "; ").append(changed.set_back_problem);
  }
  // What was not answered may be carried out behind the write of the former value.
  changed.set_back = reads_so && asked.is_answered() && !is_unanswered(changed);
  if (!*changed.set_back) {
    const std::string was = scratch.name + ": it was " + value_text(scratch.variable, old_value);
    writes_.not_set_back.push_back(reads_so ? was + kReadsSo : was);
  }
  if (reads_so && scratch.way == WriteWay::kSetReset) take_other_way(scratch, asked, old_value);
  open_.reset();
}

// A BOOL is set back by the other one of the two requests, which is a write of its own.
void WriteStep::take_other_way(const Scratch& scratch, const Asked& asked, const Bytes& old_value) {
  const WriteFinding& changed = writes_.findings.back();
  WriteFinding back = finding_of(scratch, old_value);
  back.is_written = true;
  take_answer(asked, back);
  if (changed.read_back == true) {
    back.read_back = true;
    take_as_done(back);
  }
  back.why = answer_problem(back);
  back.set_back = changed.set_back;
  open_neighbours(back);
  writes_.findings.push_back(back);
}

void WriteStep::take(const std::string& name) {
  Scratch scratch = scratch_of(declared_, name);
  WriteFinding finding = finding_of(scratch, {});
  if (scratch.way == WriteWay::kNone) {
    finding.why = "the survey writes no values of this type";
  } else if (!scratch.variable.is_asked) {
    finding.why = scratch.variable.is_program_known
                      ? "the controller has no program of its scope"
                      : "whether the controller has the program of its scope is not known";
  } else {
    change(scratch);
    return;
  }
  writes_.findings.push_back(finding);
}

void WriteStep::run() {
  const std::vector<std::string>& names = conversation_.plan().written;
  for (begun_ = 0; begun_ < names.size(); ++begun_) {
    findings_before_ = writes_.findings.size();
    take(names[begun_]);
  }
}

void WriteStep::tell_rest() {
  const std::vector<std::string>& names = conversation_.plan().written;
  for (size_t i = begun_ + (writes_.findings.size() > findings_before_ ? 1 : 0); i < names.size(); ++i) {
    WriteFinding finding = finding_of(scratch_of(declared_, names[i]), {});
    finding.why = kNotComeTo;
    writes_.findings.push_back(finding);
  }
}

void WriteStep::put_back_or_tell() {
  if (!open_) return;
  std::string was = open_->name + ": it was " + value_text(open_->variable, old_value_);
  if (is_unanswered(writes_.findings.back())) {
    was += ". The write was not answered: it may have been carried out or not";
  }
  try {
    put_back();
  } catch (const SurveyEnded&) {
    writes_.not_set_back.push_back(was);
  }
}

}  // namespace

void survey_writes(Conversation& conversation, const Declarations& declared) {
  Writes& writes = conversation.record().writes;
  if (conversation.plan().written.empty()) {
    writes.step.why = "--write names no variable";
    return;
  }
  run_step(writes.step, [&] {
    WriteStep step(conversation, declared);
    try {
      step.run();
    } catch (const SurveyEnded&) {
      conversation.ignore_stop();
      step.put_back_or_tell();
      step.tell_rest();
      throw;
    }
  });
}

}  // namespace plc_host::survey
