// Figures and words that every reader of the record needs alike.
#include "tools/plc_host/survey/survey_record.h"

#include <algorithm>

#include "base/text.h"

namespace plc_host::survey {
namespace {

constexpr char kContractRisk[] =
    "The contract build may take a late reply for the reply to the next request. A read then shows, and a write "
    "reaches, another variable, with result 0. Set delay_ms above the answer times, and read back what you write.";
constexpr uint64_t kChance = 1;

// How often a piece of each size was followed by another one of its reply.
std::map<size_t, uint64_t> followed_pieces(const SurveyRecord& record) {
  std::map<size_t, uint64_t> sizes;
  for (const Split& split : record.splits) {
    for (const auto& [pieces, count] : split.pieces) {
      for (size_t i = 0; i + 1 < pieces.size(); ++i) sizes[pieces[i]] += count;
    }
  }
  return sizes;
}

// Replies that are longer than a piece, by how they arrived.
struct Arrivals {
  uint64_t whole = 0;
  uint64_t split = 0;
};

Arrivals arrivals_beyond(const SurveyRecord& record, size_t piece) {
  Arrivals arrivals;
  for (const Split& split : record.splits) {
    for (const auto& [pieces, count] : split.pieces) {
      if (split.reply_bytes > piece) (pieces.size() > 1 ? arrivals.split : arrivals.whole) += count;
    }
  }
  return arrivals;
}

bool is_usual_piece(const SurveyRecord& record, size_t piece) {
  const Arrivals arrivals = arrivals_beyond(record, piece);
  return arrivals.split > arrivals.whole;
}

constexpr char kKeptBuild[] =
    ". Hosts keep the guarded build, which fails where the contract build would show wrong values with result 0.";

}  // namespace

Spread spread_of(std::vector<double> values) {
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  // The smallest value that so many of a hundred do not exceed.
  const auto at = [&values](size_t hundredths) {
    return values[std::min(values.size() - 1, (values.size() * hundredths + 99) / 100 - 1)];
  };
  return {at(50), at(99), values.back()};
}

bool is_odd_answer(const HeadCounts::Status& status) {
  return status.status != 0 && status.request.find(',') == std::string::npos;
}

uint64_t strays_taken(const HeadCounts& heads) {
  constexpr uint64_t kTenth = 10;
  const uint64_t others = heads.sequence.zero + heads.sequence.other;
  return heads.foreign > 0 && others * kTenth <= heads.sequence.right ? others : 0;
}

bool is_directory_refused(const HeadCounts& heads) { return heads.directories_refused * 2 > heads.directories; }

std::string directory_refusals(const HeadCounts& heads) {
  return std::to_string(heads.directories_refused) + " of " + plc_base::plural(heads.directories, "time");
}

bool is_foreign(const HeadCounts& heads) {
  const uint64_t alike = heads.length.right + heads.complement.right + heads.request_class.right + heads.command.right;
  return heads.replies > 0 && heads.spoken == 0 && (alike == 0 || heads.unspoken > 0);
}

std::string batches_fault(const Variables& variables) {
  const auto& findings = variables.findings;
  const auto others = static_cast<uint64_t>(std::count_if(
      findings.begin(), findings.end(), [](const VariableFinding& one) { return one.is_other_in_batch; }));
  if (others == 0) return {};
  return plc_base::plural(others, "variable") + (others == 1 ? " has" : " have") +
         " another value in a batch than singly, each time: no build of the driver tells which one is wrong";
}

bool fails_guarded_build(const Variables& variables) {
  constexpr uint64_t kTenth = 10;
  const std::string& build = variables.compared_with;
  return build.substr(build.rfind(' ') + 1) == "guarded" && variables.unread_by_driver > 0 &&
         variables.unread_by_driver * kTenth >= variables.to_compare;
}

bool is_read(const VariableFinding& finding) {
  return finding.state == VariableFinding::State::kGood && !finding.has_no_value;
}

std::vector<std::string> names_not_compared(const Variables& variables) {
  std::vector<std::string> names;
  for (const VariableFinding& one : variables.findings) {
    if (one.state == VariableFinding::State::kNotCompared) names.push_back(one.name);
  }
  return names;
}

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

bool is_directory_partial(const Programs& programs) {
  constexpr size_t kMostCounted = 255;
  const std::optional<size_t>& announced = programs.announced;
  return announced && (*announced != programs.directory.size() || *announced == kMostCounted);
}

bool is_unfit(const VariableFinding& finding) {
  return finding.state == VariableFinding::State::kShort || finding.state == VariableFinding::State::kLong;
}

bool is_unanswered(const WriteFinding& finding) { return finding.acknowledged == false && !finding.refusal; }

bool is_good(const WriteFinding& finding) {
  return finding.acknowledged == true && finding.read_back == true && finding.neighbours_kept != false &&
         finding.set_back == true;
}

std::string reach_text(const Reach& reach) {
  if (reach.asked == 0) return "not measured";
  std::string text = reach.answered == 0 ? "" : "answered up to " + std::to_string(reach.answered) + "; ";
  if (reach.failed == 0) {
    return text + "the survey ended before an answer to " + std::to_string(reach.asked) + ", and more was not tried";
  }
  text += std::to_string(reach.failed) + (reach.failed == 1 ? " was" : " were") + " not answered";
  return text + (reach.failed > reach.answered + 1 ? ", and the survey ended before the limit was found" : "");
}

bool is_usable(Verdict::Usable usable) {
  return usable != Verdict::Usable::kNotUsable && usable != Verdict::Usable::kUnknown;
}

const char* reaction_words(Reaction reaction) {
  switch (reaction) {
    case Reaction::kAnswered:
      return "accepted and answered";
    case Reaction::kRefused:
      return "refused";
    case Reaction::kClosed:
      return "accepted, then closed";
    case Reaction::kSilent:
      return "accepted, never answered";
    case Reaction::kNotTried:
      break;
  }
  return "not tried";
}

bool is_ambiguous(const ProgramFinding& finding) { return finding.beginnings > 1; }

bool explains_failures(const Link& link) {
  if (!link.most_connections || link.connect_failures.empty()) return false;
  // A refused connection is none that was taken, the others are.
  const bool are_refused = link.connect_ms.size() + link.connect_failures.size() <= link.connects_tried;
  return are_refused == (link.one_more == Reaction::kRefused);
}

namespace {

bool is_beyond_limit(const Times& times, const Limits& limits) {
  std::optional<uint32_t> limit;
  if (times.kind == "resolve") limit = limits.names_per_request;
  if (times.kind == "read") limit = limits.values_per_request;
  return limit && times.names > *limit;
}

// Of first requests, on one connection too many.
Unanswered limited_of(const Times& times, const Link& link) {
  Unanswered limited;
  if (times.kind != "directory start" || !link.most_connections) return limited;
  if (link.one_more == Reaction::kSilent) limited.silent = times.silent;
  if (link.one_more == Reaction::kClosed) limited.lost = times.lost;
  return limited;
}

}  // namespace

Unanswered unanswered_of(const SurveyRecord& record) {
  Unanswered unanswered;
  for (const Times& times : record.times) {
    if (is_beyond_limit(times, record.limits)) continue;
    const Unanswered limited = limited_of(times, record.link);
    unanswered.silent += times.silent - limited.silent;
    unanswered.lost += times.lost - limited.lost;
    unanswered.damaged += times.damaged;
  }
  return unanswered;
}

uint64_t at_limit_of_connections(const SurveyRecord& record) {
  uint64_t limited = 0;
  for (const Times& times : record.times) limited += limited_of(times, record.link).all();
  return limited;
}

std::optional<size_t> usual_piece_bytes(const SurveyRecord& record) {
  const std::map<size_t, uint64_t> sizes = followed_pieces(record);
  const auto is_rarer = [](const auto& one, const auto& other) { return one.second < other.second; };
  const auto usual = std::max_element(sizes.begin(), sizes.end(), is_rarer);
  if (usual == sizes.end() || usual->second <= kChance || !is_usual_piece(record, usual->first)) return std::nullopt;
  return usual->first;
}

std::optional<size_t> first_piece_bytes(const SurveyRecord& record) {
  // Hosts ask the contract build for no more than a segment of Ethernet takes, with or without options of TCP.
  constexpr size_t kWholeSegment = 1400;
  std::optional<size_t> least;
  for (const auto& [bytes, count] : followed_pieces(record)) {
    if (count > kChance && bytes < kWholeSegment && !least) least = bytes;
  }
  return least;
}

std::string pieces_words(const SurveyRecord& record) {
  const std::optional<size_t> piece = first_piece_bytes(record);
  if (!piece) return {};
  const std::string size = plc_base::plural(*piece, "byte");
  if (is_usual_piece(record, *piece)) return "replies come in pieces of " + size;
  const Arrivals all = arrivals_beyond(record, 0);
  return std::to_string(all.split) + " of " + std::to_string(all.whole + all.split) +
         " replies came in pieces, the smallest first one of " + size;
}

std::string pieces_sentence(const SurveyRecord& record) {
  std::string text = pieces_words(record);
  if (text.empty()) return text;
  if (text.front() == 'r') text.front() = 'R';
  return text + ", and the contract build takes the first one alone";
}

std::optional<uint32_t> names_in_a_piece(const SurveyRecord& record) {
  constexpr size_t kHeadBytes = 17;  // of a reply to names; the shortest with everything for one name has 41
  constexpr size_t kLeastReply = 41;
  const std::optional<size_t> piece = first_piece_bytes(record);
  if (!piece) return std::nullopt;
  size_t longest = kLeastReply;
  for (const VariableFinding& one : record.variables.findings) longest = std::max(longest, one.name_reply_bytes);
  return static_cast<uint32_t>((*piece - std::min(*piece, kHeadBytes)) / (longest - kHeadBytes));
}

namespace {

// Why a piece is too small for what the contract build asks for at least; "" where it is not.
std::string piece_problem(const SurveyRecord& record) {
  constexpr uint32_t kLeastNames = 2;  // those of a BOOL in a batch
  const std::optional<size_t> piece = first_piece_bytes(record);
  if (!piece) return {};
  std::string pieces = pieces_words(record);
  if (names_in_a_piece(record).value_or(0) < kLeastNames) return pieces;
  if (record.programs.reply_bytes > *piece) {
    return pieces + ", and that with the names of the programs has " + std::to_string(record.programs.reply_bytes);
  }
  const auto is_longer = [&piece](const VariableFinding& one) {
    return std::max(one.name_reply_bytes, one.value_reply_bytes) > *piece;
  };
  const auto& findings = record.variables.findings;
  const auto longer = static_cast<uint64_t>(std::count_if(findings.begin(), findings.end(), is_longer));
  if (longer == 0) return {};
  return pieces + ", and those with the values of " + std::to_string(longer) + " of " +
         plc_base::plural(findings.size(), "variable") + " are longer";
}

}  // namespace

std::string contract_fault(const SurveyRecord& record) {
  const Variables& variables = record.variables;
  std::string problem = piece_problem(record);
  if (problem.empty()) problem = batches_fault(variables);
  if (!problem.empty()) return problem;
  const std::string& build = variables.compared_with;
  if (variables.misread == 0 || build.substr(build.rfind(' ') + 1) != "contract") return {};
  return "the contract build gave other values than the controller for " + std::to_string(variables.misread) + " of " +
         plc_base::plural(variables.compared, "variable");
}

std::string contract_problem(const SurveyRecord& record) {
  if (record.verdict.usable == Verdict::Usable::kYes || record.verdict.usable == Verdict::Usable::kUnknown) return {};
  return contract_fault(record);
}

bool takes_contract_build(const SurveyRecord& record) {
  const Verdict::Usable usable = record.verdict.usable;
  return usable != Verdict::Usable::kYes && usable != Verdict::Usable::kUnknown && contract_problem(record).empty();
}

std::string lacking_note(const SurveyRecord& record) {
  const std::string& build = record.variables.lacking_build;
  const bool is_wanted = build == "guarded" ? record.verdict.usable == Verdict::Usable::kYes
                                            : build == "contract" && takes_contract_build(record);
  if (!is_wanted) return {};
  return "No " + build +
         " build of the driver is installed here, and none was tried: install it before you set it, or " +
         "give the path of one as the driver (--driver PATH).";
}

const char* no_answer_words(const SurveyRecord& record) {
  return record.heads.late() > 0 ? "no whole answer" : "no answer";
}

std::string pieces_warning(const SurveyRecord& record) {
  const std::optional<uint32_t> names = names_in_a_piece(record);
  if (!names) return {};
  return " " + pieces_sentence(record) + ": ask for no more than " + std::to_string(*names) +
         " names at a time. A BOOL in a batch is two names.";
}

std::string contract_warning(const SurveyRecord& record) {
  const std::string problem = contract_problem(record);
  if (!problem.empty()) return kNeitherBuild + problem + kKeptBuild;
  if (!takes_contract_build(record)) return {};
  std::string warning = kContractRisk + pieces_warning(record);
  if (record.verdict.usable == Verdict::Usable::kNotUsable) return warning;
  return "Hosts take the contract build here, unless a guarded one that is built so is named. " + warning;
}

}  // namespace plc_host::survey
