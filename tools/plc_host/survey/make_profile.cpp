// A profile of what was measured; what was not measured stays out of it.
#include <algorithm>
#include <cmath>
#include <map>

#include "base/text.h"
#include "client/driver/program_names.h"
#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey/rule_tally.h"
#include "wire/names.h"
#include "wire/wire.h"

namespace plc_host::survey {
namespace {

using plc_profile::Echo;
using plc_profile::Pace;
using plc_profile::Profile;
using plc_profile::Turned;
using Usability = Verdict::Usable;

constexpr int kUsualSegmentBytes = 1460;  // of Ethernet; what is larger is the link's, or loopback

// A few damaged replies do not make it the controller's way; of few replies nothing is known.
std::optional<Echo> echo_of(const HeadCounts::Field& field) {
  const uint64_t wrong = field.zero + field.other;
  if (is_surely_often(wrong, field.right + wrong)) return field.other >= field.zero ? Echo::kOther : Echo::kZero;
  return field.right > wrong ? std::optional<Echo>(Echo::kRight) : std::nullopt;
}

Turned turned_of(Reaction reaction) {
  if (reaction == Reaction::kClosed) return Turned::kClosed;
  return reaction == Reaction::kSilent ? Turned::kSilent : Turned::kRefused;
}

// To what was measured: four digits, and no less than a microsecond.
double rounded(double ms) {
  constexpr double kPerMs = 1000;
  if (ms >= kPerMs) return std::round(ms);
  const double step = ms >= 100 ? 10 : ms >= 10 ? 100 : kPerMs;
  return std::round(ms * step) / step;
}

double p50_to_first_byte(const Times& times) { return spread_of(times.first_ms).p50; }

// Of the fewest names, and by how much each further one makes it longer.
Pace pace_of(const SurveyRecord& record, const std::vector<std::string>& kinds) {
  const Times* fewest = nullptr;
  const Times* most = nullptr;
  for (const Times& times : record.times) {
    if (times.first_ms.empty() || std::find(kinds.begin(), kinds.end(), times.kind) == kinds.end()) continue;
    if (fewest == nullptr || times.names < fewest->names) fewest = &times;
    if (most == nullptr || times.names > most->names) most = &times;
  }
  if (fewest == nullptr) return {};
  const double first_ms = p50_to_first_byte(*fewest);
  Pace pace;
  pace.first_ms = rounded(first_ms);
  if (most->names > fewest->names) {
    const double more = p50_to_first_byte(*most) - first_ms;
    pace.each_ms = rounded(std::max(0.0, more / (most->names - fewest->names)));
  }
  return pace;
}

void take_pieces(const SurveyRecord& record, Profile& profile) {
  const std::optional<size_t> usual = usual_piece_bytes(record);
  if (!usual) return;
  std::vector<double> gaps;
  for (const Split& split : record.splits) gaps.insert(gaps.end(), split.gap_ms.begin(), split.gap_ms.end());
  profile.piece_bytes = static_cast<uint32_t>(*usual);
  profile.piece_gap_ms = rounded(spread_of(gaps).p50);
}

void take_heads(const SurveyRecord& record, Profile& profile) {
  const HeadCounts& heads = record.heads;
  profile.length = echo_of(heads.length);
  profile.complement = echo_of(heads.complement);
  profile.sequence = echo_of(heads.sequence);
  profile.request_class = echo_of(heads.request_class);
  profile.command = echo_of(heads.command);
  profile.status_done = heads.status_done;
  profile.bytes_behind_values = heads.bytes_behind_values;
  profile.refusal_status = heads.refusal_status;
  if (heads.is_refusal_full) profile.shape = *heads.is_refusal_full ? Profile::Shape::kFull : Profile::Shape::kShort;
}

void take_limits(const SurveyRecord& record, Profile& profile) {
  const Link& link = record.link;
  profile.most_connections = link.most_connections;
  if (link.one_more != Reaction::kNotTried) profile.one_more = turned_of(link.one_more);
  profile.answers_half_closed = link.is_answered_when_half_closed;
  if (link.segment_bytes && *link.segment_bytes < kUsualSegmentBytes) {
    profile.segment_bytes = static_cast<uint32_t>(*link.segment_bytes);
  }
  profile.names_per_request = record.limits.names_per_request;
  profile.values_per_request = record.limits.values_per_request;
  if (!record.limits.names_per_request && !record.limits.values_per_request) return;
  if (record.limits.reaction != Reaction::kNotTried) profile.beyond = turned_of(record.limits.reaction);
  profile.status_beyond = record.limits.beyond_status;
}

// Where all names that are cut have the same length. The longest of all tells which names are no cut ones.
void take_programs(const SurveyRecord& record, Profile& profile) {
  for (const std::string& name : record.programs.directory) {
    const auto length = static_cast<uint32_t>(plc_client::core::directory_units(name));
    if (length > profile.longest_name_units.value_or(0)) profile.longest_name_units = length;
  }
  std::optional<size_t> units;
  for (const ProgramFinding& finding : record.programs.findings) {
    if (finding.state != ProgramFinding::State::kCut) continue;
    const auto name = plc_sim::utf16_from_utf8(finding.other);
    if (!name || (units && *units != name->size())) return;
    units = name->size();
  }
  if (units) profile.program_name_units = static_cast<uint32_t>(*units);
}

// A name that was answered is not refused: its value is, with a head or with zeros for it.
Profile::Refused refused_of(const VariableFinding& finding) {
  Profile::Refused refused{finding.own_name, finding.program};
  if (!finding.is_named) return refused;
  refused.what = Profile::Refused::What::kValue;
  const bool is_head = finding.refusal.size() <= plc_sim::wire::kReplyHeadBytes;
  refused.shape = is_head ? Profile::Shape::kShort : Profile::Shape::kFull;
  refused.status = finding.status;
  return refused;
}

std::optional<uint32_t> setting_of(const SurveyRecord& record, const std::string& setting) {
  for (const Recommendation& recommendation : record.recommendations) {
    if (recommendation.setting == setting) return static_cast<uint32_t>(std::stoul(recommendation.value));
  }
  return std::nullopt;
}

// What those who use the profile have to know.
std::string note_of(const SurveyRecord& record) {
  std::string note = record.is_whole ? "" : "the survey did not come to its end: " + record.ended;
  const std::string warning = contract_warning(record);
  if (!warning.empty()) note.append(note.empty() ? "" : ". ").append(warning);
  return note;
}

}  // namespace

plc_profile::Profile::Guarded guarded_of(Verdict::Usable usable) {
  using Guarded = Profile::Guarded;
  switch (usable) {
    case Usability::kYes:
      return Guarded::kUsable;
    case Usability::kWithoutStatus:
      return Guarded::kWithoutStatus;
    case Usability::kWithoutValueEnd:
      return Guarded::kWithoutValueEnd;
    case Usability::kWithoutBoth:
      return Guarded::kWithoutBoth;
    case Usability::kNotUsable:
      return Guarded::kNotUsable;
    case Usability::kUnknown:
      break;
  }
  return Guarded::kUnknown;
}

Profile make_profile(const SurveyRecord& record) {
  Profile profile;
  profile.made = record.made;
  profile.controller = record.link.host + ":" + std::to_string(record.link.port);
  profile.note = note_of(record);
  if (is_foreign(record.heads)) {
    profile.note = kForeign;
    return profile;
  }
  take_limits(record, profile);
  take_heads(record, profile);
  take_pieces(record, profile);
  take_programs(record, profile);
  profile.connect = pace_of(record, {"connect"});
  profile.directory_start = pace_of(record, {"directory start"});
  profile.directory = pace_of(record, {"directory"});
  profile.resolve = pace_of(record, {"resolve"});
  profile.read = pace_of(record, {"read"});
  profile.write = pace_of(record, {"write", "masked write", "bit"});
  for (const VariableFinding& finding : record.variables.findings) {
    if (finding.state != VariableFinding::State::kRefused) continue;
    profile.refused.push_back(refused_of(finding));
  }
  // What comes later could still break a rule.
  const bool is_so_far = !record.is_whole && record.verdict.usable == Usability::kYes;
  profile.guarded = is_so_far ? Profile::Guarded::kUnknown : guarded_of(record.verdict.usable);
  profile.contract_problem = contract_fault(record);
  if (profile.contract_problem.empty()) profile.contract_names = names_in_a_piece(record);
  profile.recv_timeout_s = setting_of(record, "timeout_s");
  profile.delay_ms = setting_of(record, "delay_ms");
  profile.batch_names = setting_of(record, "batch_names");
  profile.poll_ms = setting_of(record, "poll_ms");
  return profile;
}

}  // namespace plc_host::survey
