// Reads the good variables through the driver, a tag file after the other, and looks again at those that differ.
#include "tools/plc_host/survey_steps/driver_word.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>

#include "client/driver/failure.h"
#include "client/plan/batch_transfer.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/survey_steps/ask_variables.h"

namespace plc_host::survey {
namespace {

using VariableState = VariableFinding::State;

constexpr size_t kMostSingly = 300;   // variables; more are read in batches
constexpr unsigned kLooksAgain = 8;   // of a value that the driver gives otherwise
constexpr unsigned kDriverLooks = 3;  // by the driver, between two of the survey's
constexpr unsigned kDriverTries = 3;  // of a variable that the driver does not read
// Until a controller has taken a connection as closed: some have no other.
constexpr std::chrono::milliseconds kUntilClosed{300};
constexpr uint32_t kMostDelayMs = 1000;
constexpr size_t kMostDriverLines = 65536;  // bytes
constexpr char kContract[] = "contract";
constexpr char kGuarded[] = "guarded";

HostOptions options_for(const HostOptions& options, const SurveyPlan& plan, const std::string& tag_file) {
  constexpr uint32_t kExchangesOfRead = 2;
  HostOptions own = options;
  own.sim_tag_file.clear();
  own.address = plan.host;
  own.port = plan.port;
  own.tag_file = tag_file;
  own.quiet = true;
  own.verbosity = 0;
  own.absent_to_guarded.clear();  // what a former survey learnt
  own.absent_to_contract.clear();
  own.delay_ms = std::min(kMostDelayMs, kExchangesOfRead * 1000 / plan.rate);
  return own;
}

// What the driver gives for a variable that the survey has read.
struct Word {
  size_t at = 0;  // in the declarations and the findings
  std::string value;
  std::string problem;
  bool is_impossible = false;
};

class Comparison {
 public:
  Comparison(Conversation& conversation, Declarations& declared)
      : conversation_(conversation), variables_(declared.variables), record_(conversation.record().variables) {
    for (size_t i = 0; i < variables_.size(); ++i) positions_[variables_[i].tag->qualified_name] = i;
  }

  void read_file(const HostOptions& options, const std::string& file, CommandOutput& output);
  // Once all files are read.
  void look_again(const HostOptions& options, CommandOutput& output);

 private:
  std::vector<TagResult> wanted_of(const TagList& tags, const std::string& file, std::vector<size_t>& positions);
  void read_by_driver(DriverSession& session, std::vector<TagResult>& results);
  void read_failed_again(DriverSession& session, std::vector<TagResult>& results);
  void take_result(const TagResult& result, size_t at);
  Word word_of(const TagResult& result, size_t at) const;
  bool is_same(const Word& word) const;
  bool has_moved(const Word& word);
  void erase_moved();
  std::vector<TagResult> unread_at(const TagList& tags, const std::vector<size_t>& places) const;
  void read_words(const HostOptions& options, CommandOutput& output, std::map<size_t, std::string>& values);
  void look_by_driver(const HostOptions& options, CommandOutput& output);
  void take_unread(const Word& word);
  void take_misread(const Word& word);

  Conversation& conversation_;
  std::vector<Declared>& variables_;
  Variables& record_;
  std::map<std::string, size_t> positions_;
  std::vector<Word> others_;  // that are not what the survey read
};

Word Comparison::word_of(const TagResult& result, size_t at) const {
  Word word;
  word.at = at;
  if (result.ok()) {
    word.value = format_value(variables_[at].tag->entry, *result.reading.value(), {});
    return word;
  }
  word.problem = result.reading.failure().reason;
  word.is_impossible = result.reading.failure().quality == Quality::kImpossible;
  return word;
}

// Of a long text the survey has the first part.
bool Comparison::is_same(const Word& word) const {
  const std::string& own = record_.findings[word.at].value;
  if (!word.problem.empty()) return false;
  if (value_kind(variables_[word.at].tag->entry) == ValueKind::kText) {
    const std::string beginning = own.substr(0, own.empty() ? 0 : own.size() - 1);  // the last character is a quote
    return word.value.compare(0, beginning.size(), beginning) == 0;
  }
  return word.value == own;
}

void Comparison::read_file(const HostOptions& options, const std::string& file, CommandOutput& output) {
  Host host(options_for(options, conversation_.plan(), file), output);
  std::string& lines = conversation_.record().driver_lines;
  host.session().set_line_sink([&lines](const std::string& line) {
    if (lines.size() < kMostDriverLines) lines.append(line).append("\n");
  });
  record_.compared_with = host.library().build;
  std::vector<size_t> positions;
  std::vector<TagResult> results = wanted_of(host.tags(), file, positions);
  read_by_driver(host.session(), results);
  read_failed_again(host.session(), results);
  // The driver would keep its connection, and controllers have few.
  if (host.session().is_connected()) ::close(host.session().connection().socket_fd);
  for (size_t i = 0; i < results.size(); ++i) take_result(results[i], positions[i]);
}

void Comparison::read_by_driver(DriverSession& session, std::vector<TagResult>& results) {
  const auto stop = [] { return stop_requested(); };
  if (results.size() > kMostSingly) {
    read_tags_batched(session, results, stop);
  } else {
    read_tags(session, results, stop, [this](const TagResult&) { conversation_.progress().asked(); });
  }
}

// The call succeeded, and what the driver stored is no value that could be shown.
bool is_without_value(const TagResult& result) {
  return result.reading.quality() == Quality::kIncomplete && result.reading.failure().code == PLC_OK;
}

// It may succeed another time; what cannot be asked for, or is shown without a value, is so each time.
bool has_failed(const TagResult& result) {
  return !result.ok() && result.reading.quality() != Quality::kImpossible && !is_without_value(result);
}

// Places of the results that failed less often than they are tried: those first whose turn did not come.
std::vector<size_t> failed_places(const std::vector<TagResult>& results, std::vector<unsigned>& tries) {
  std::vector<size_t> places;
  for (const bool is_taken : {false, true}) {
    for (size_t i = 0; i < results.size(); ++i) {
      if (!has_failed(results[i]) || results[i].reading.is_taken() != is_taken) continue;
      if (tries[i] < kDriverTries) places.push_back(i);
    }
  }
  return places;
}

// Whether the call came as far as the controller.
bool has_reached(const TagResult& result) {
  return result.reading.is_taken() && (result.ok() || result.reading.failure().code != PLC_NO_CONNECT);
}

// A further look at these places.
struct FurtherRound {
  std::vector<size_t> places;
  std::vector<TagResult> results;  // one per place
};

FurtherRound further_round(const std::vector<TagResult>& results, std::vector<size_t> places) {
  FurtherRound round;
  for (const size_t place : places) round.results.push_back(unread(results[place].reference));
  round.places = std::move(places);
  return round;
}

// What a call did not come to leaves the earlier result as it is.
void take_round(const FurtherRound& round, std::vector<TagResult>& results, std::vector<unsigned>& tries) {
  for (size_t i = 0; i < round.places.size(); ++i) {
    const size_t place = round.places[i];
    const bool is_taken = round.results[i].reading.is_taken();
    if (is_taken) ++tries[place];
    if (is_taken || !results[place].reading.is_taken()) results[place] = round.results[i];
  }
}

// One call that fails says nothing of its variable: it is made again, by itself.
void Comparison::read_failed_again(DriverSession& session, std::vector<TagResult>& results) {
  std::vector<unsigned> tries(results.size(), 0);
  for (size_t i = 0; i < results.size(); ++i) tries[i] = results[i].reading.is_taken() ? 1 : 0;
  unsigned fruitless = 0;
  while (fruitless < kDriverTries && !stop_requested()) {
    FurtherRound round = further_round(results, failed_places(results, tries));
    if (round.places.empty()) return;
    if (!session.is_connected()) wait_for_stop(kUntilClosed);
    read_by_driver(session, round.results);
    // Without a connection no call says more than the one before it.
    fruitless = std::any_of(round.results.begin(), round.results.end(), has_reached) ? 0 : fruitless + 1;
    take_round(round, results, tries);
  }
}

// The good variables of the file; positions: of each in the findings.
std::vector<TagResult> Comparison::wanted_of(const TagList& tags, const std::string& file,
                                             std::vector<size_t>& positions) {
  std::vector<TagResult> results;
  for (const Tag& tag : tags.tags) {
    const auto at = positions_.find(tag.qualified_name);
    if (at == positions_.end() || variables_[at->second].file != file || !variables_[at->second].is_good) continue;
    try {
      results.push_back(unread(last_element(tag)));
      positions.push_back(at->second);
    } catch (const ReferenceError& error) {
      record_.findings[at->second].why = std::string("plc-host read cannot ask for it: ") + error.what();
    }
  }
  return results;
}

void Comparison::take_result(const TagResult& result, size_t at) {
  // What ends the survey ends the driver's calls too, and says nothing of the variable.
  if (!result.ok() && stop_requested()) {
    record_.not_compared = std::string("not all of them were read by the driver: ") + kInterruptedWord;
    if (!record_.findings[at].has_no_value) {
      record_.findings[at].why = std::string("not compared: ") + kInterruptedWord;
    }
    return;
  }
  if (!result.ok() && !result.reading.is_taken()) {
    record_.not_compared = "not all of them were read by the driver: " + result.reading.failure().reason;
    return;
  }
  const Word word = word_of(result, at);
  if (word.problem.empty()) ++record_.compared;
  VariableFinding& finding = record_.findings[at];
  finding.is_compared = true;
  if (word.is_impossible) {
    finding.why = "plc-host read cannot ask for it: " + word.problem;
    return;
  }
  // Of a type without a width, or of a text that goes on behind what reads reach.
  if (!result.ok() && is_without_value(result)) {
    finding.has_no_value = true;
    finding.why = kNoValueShown + word.problem;
    finding.value.clear();
    return;
  }
  if (is_same(word)) {
    finding.value = word.value;
  } else {
    others_.push_back(word);
  }
}

// Not read by the driver at all, each time.
void Comparison::take_unread(const Word& word) {
  VariableFinding& finding = record_.findings[word.at];
  finding.is_other_by_driver = true;
  // That is what the driver refuses.
  if (is_unfit(finding)) {
    finding.why += "; " + record_.compared_with + ", tried " + std::to_string(kDriverTries) + " times: " + word.problem;
    finding.value.clear();
    return;
  }
  finding.state = VariableState::kNotByDriver;
  ++record_.unread_by_driver;
  finding.why = "the survey read " + value_text(variables_[word.at], variables_[word.at].value) + "; " +
                record_.compared_with + ", tried " + std::to_string(kDriverTries) + " times: " + word.problem;
  finding.value.clear();
}

void Comparison::take_misread(const Word& word) {
  VariableFinding& finding = record_.findings[word.at];
  finding.state = VariableState::kDifferent;
  finding.is_other_by_driver = true;
  ++record_.misread;
  finding.why = "read " + finding.value + ", by plc-host read (" + record_.compared_with + ") " + word.value;
  finding.value.clear();
}

// A value that the survey itself reads otherwise now has moved, and says nothing of the driver.
bool Comparison::has_moved(const Word& word) {
  Declared& declared = variables_[word.at];
  const std::optional<plc_sim::Bytes> again = read_again(conversation_, declared);
  if (!again || is_same_value(declared, declared.value, *again)) return false;
  declared.value = *again;
  record_.findings[word.at].value = value_text(declared, declared.value);
  record_.findings[word.at].changes = true;
  return true;
}

void Comparison::erase_moved() {
  const auto moved = [this](const Word& word) { return has_moved(word); };
  others_.erase(std::remove_if(others_.begin(), others_.end(), moved), others_.end());
}

// The variables of these places, in their order.
std::vector<TagResult> Comparison::unread_at(const TagList& tags, const std::vector<size_t>& places) const {
  std::vector<TagResult> results;
  for (const size_t at : places) {
    const std::string& name = variables_[at].tag->qualified_name;
    const auto tag = std::find_if(tags.tags.begin(), tags.tags.end(),
                                  [&name](const Tag& one) { return one.qualified_name == name; });
    if (tag != tags.tags.end()) results.push_back(unread(last_element(*tag)));
  }
  return results;
}

// What the driver gives now for those that differ, by their places. Leaves no connection.
void Comparison::read_words(const HostOptions& options, CommandOutput& output, std::map<size_t, std::string>& values) {
  std::map<std::string, std::vector<size_t>> files;
  for (const Word& word : others_) files[variables_[word.at].file].push_back(word.at);
  conversation_.close();
  for (const auto& [file, places] : files) {
    Host host(options_for(options, conversation_.plan(), file), output);
    std::vector<TagResult> results = unread_at(host.tags(), places);
    read_by_driver(host.session(), results);
    if (host.session().is_connected()) ::close(host.session().connection().socket_fd);
    for (size_t i = 0; i < std::min(results.size(), places.size()); ++i) {
      if (results[i].ok()) values[places[i]] = word_of(results[i], places[i]).value;
    }
  }
}

// A variable that changes seldom had one value when the driver read it, and has the former one again. The driver is
// right where it gives, each time, what the survey reads before and after. The contract build may also have taken
// another reply for the value's, once: what it gave then stays a finding.
void Comparison::look_by_driver(const HostOptions& options, CommandOutput& output) {
  const std::string& build = record_.compared_with;
  if (build.substr(build.rfind(' ') + 1) != "guarded") return;
  std::vector<Word> wrong;
  for (unsigned i = 0; i < kDriverLooks && !others_.empty(); ++i) {
    std::map<size_t, std::string> values;
    read_words(options, output, values);
    erase_moved();
    const auto right = [&](const Word& word) {
      const auto value = values.find(word.at);
      return value != values.end() && is_same({word.at, value->second, "", false});
    };
    std::vector<Word> left;
    for (const Word& word : others_) (right(word) ? left : wrong).push_back(word);
    others_ = std::move(left);
  }
  for (const Word& word : others_) record_.findings[word.at].changes = true;
  others_ = std::move(wrong);
}

void Comparison::look_again(const HostOptions& options, CommandOutput& output) {
  if (stop_requested()) {
    for (const Word& word : others_) record_.findings[word.at].why = std::string("not compared: ") + kInterruptedWord;
    conversation_.wait_for_turn();  // which ends the survey
  }
  const auto unread =
      std::stable_partition(others_.begin(), others_.end(), [](const Word& word) { return word.problem.empty(); });
  std::for_each(unread, others_.end(), [this](const Word& word) { take_unread(word); });
  others_.erase(unread, others_.end());
  for (unsigned i = 0; i < kLooksAgain && !others_.empty(); ++i) erase_moved();
  try {
    look_by_driver(options, output);
  } catch (const ClientError& error) {
    record_.not_compared = error.what();
  } catch (const HostError& error) {
    record_.not_compared = error.what();
  }
  for (const Word& word : others_) take_misread(word);
}

// The build is not installed where programs look for it. Of two with one name the loader takes the first for both.
bool lacks_build(const char* build, bool is_guarded) {
  try {
    return load_driver_library(build).is_guarded != is_guarded;
  } catch (const ClientError&) {
    return true;
  }
}

// The tag files of the good variables, which are counted.
std::vector<std::string> files_to_compare(const Declarations& declared, Variables& record) {
  std::vector<std::string> files;
  for (const Declared& variable : declared.variables) {
    if (!variable.is_good) continue;
    ++record.to_compare;
    if (std::find(files.begin(), files.end(), variable.file) == files.end()) files.push_back(variable.file);
  }
  return files;
}

// The build to compare with; nothing where the one that reads here is not installed, which is recorded.
std::optional<std::string> build_to_compare_with(const std::string& given, bool is_guarded_usable, Variables& record) {
  const bool is_named_contract = !load_driver_library(given).is_guarded;
  if (is_named_contract && lacks_build(kGuarded, true)) record.lacking_build = kGuarded;
  if (!is_named_contract && lacks_build(kContract, false)) record.lacking_build = kContract;
  if (is_guarded_usable || is_named_contract) return given;
  if (record.lacking_build != kContract) return kContract;
  record.not_compared = "no contract build of the driver is installed here, and the guarded one does not read it";
  return std::nullopt;
}

}  // namespace

void compare_with_driver(Conversation& conversation, Declarations& declared, const HostOptions& options,
                         CommandOutput& output) {
  Variables& record = conversation.record().variables;
  const Verdict::Usable usable = conversation.rules().verdict().usable;
  const bool is_guarded_usable = usable == Verdict::Usable::kYes || usable == Verdict::Usable::kUnknown;
  HostOptions own = options;
  std::vector<std::string> files = files_to_compare(declared, record);
  conversation.close();
  wait_for_stop(kUntilClosed);
  Comparison comparison(conversation, declared);
  try {
    const std::optional<std::string> build = build_to_compare_with(own.driver, is_guarded_usable, record);
    if (!build) files.clear();
    own.driver = build.value_or(own.driver);
    own.most_names_of_contract = names_in_a_piece(conversation.record()).value_or(own.most_names);
    for (const std::string& file : files) comparison.read_file(own, file, output);
  } catch (const ClientError& error) {
    record.not_compared = error.what();
  } catch (const HostError& error) {
    record.not_compared = error.what();
  }
  comparison.look_again(own, output);
}

}  // namespace plc_host::survey
