// Imitates a controller that was surveyed.
#include "tools/plc_sim/controller/imitation.h"

#include <algorithm>

#include "tools/plc_sim/controller/reply.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

using plc_profile::Echo;
using plc_profile::Pace;
using plc_profile::Profile;
using plc_profile::Turned;

constexpr uint8_t kFiller = 0xEE;
constexpr uint8_t kHighestBit = 0x80;
// The end of the host's side comes right behind its request, but not with it.
constexpr double kHalfClosedMs = 5;
constexpr unsigned kOwnNumbers = 0x4000;  // far from those that hosts begin with
constexpr size_t kDimensionBytes = 4;
constexpr uint16_t kUsualStatusBeyond = 0x0011;
constexpr uint16_t kUsualRefusalStatus = 0x0004;

double paced(const Pace& pace, size_t items) {
  return pace.first_ms.value_or(0) + pace.each_ms.value_or(0) * static_cast<double>(std::max<size_t>(items, 1) - 1);
}

bool is_of(const Profile::Refused& refused, const Variable& variable) {
  if (refused.name != variable.tag.name) return false;
  return variable.tag.is_global ? refused.program.empty() : refused.program == variable.owner();
}

// Null where the profile refuses nothing of the kind.
const Profile::Refused* refusal_of(const Profile& profile, Profile::Refused::What what, const Variable& variable) {
  const auto found = std::find_if(profile.refused.begin(), profile.refused.end(), [&](const Profile::Refused& refused) {
    return refused.what == what && is_of(refused, variable);
  });
  return found == profile.refused.end() ? nullptr : &*found;
}

// Of a surrogate pair that the cut parts, nothing is left.
std::string cut_name(const std::string& name, size_t units) {
  std::u16string whole = utf16_from_utf8(name).value_or(u"");
  if (whole.size() <= units) return name;
  whole.resize(units);
  constexpr char16_t kSurrogates = 0xFC00;
  if (!whole.empty() && (whole.back() & kSurrogates) == 0xD800) whole.pop_back();
  return utf8_from_utf16(whole);
}

// The first byte of a refused name's record is no zero where nobody imitates another controller.
void clear_marks(const std::vector<ResolvedName>& names, Bytes& reply) {
  size_t at = wire::kResolveHeadBytes;
  for (size_t i = 0; i < names.size() && at + wire::kResolveRecordBytes <= reply.size(); ++i) {
    if (!names[i].element) reply[at] = 0;
    at += wire::kResolveRecordBytes + kDimensionBytes * reply[at + wire::kRecordDimensionsAt];
  }
}

void put_length(Bytes& reply) {
  const auto length = static_cast<uint32_t>(reply.size() - wire::kLengthExcludes);
  put_u32(reply, 0, length);
  put_u32(reply, 4, ~length);
}

bool is_wrong(const std::optional<Echo>& echo) { return echo.value_or(Echo::kRight) != Echo::kRight; }

uint8_t echoed(uint8_t byte, const std::optional<Echo>& echo) {
  if (!is_wrong(echo)) return byte;
  return echo == Echo::kZero ? uint8_t{0} : static_cast<uint8_t>(byte ^ kHighestBit);
}

}  // namespace

Imitation::Imitation(const Profile& profile, Controller& controller, VariableStore& store)
    : profile_(profile), controller_(controller), store_(store) {
  using What = Profile::Refused::What;
  const auto is_refused = [this](What what) {
    return [this, what](const Variable& variable) { return refusal_of(profile_, what, variable) != nullptr; };
  };
  controller_.withhold(is_refused(What::kName));
  controller_.withhold_values(is_refused(What::kValue));
}

std::vector<std::string> Imitation::problems() const {
  std::vector<std::string> problems;
  for (const Profile::Refused& refused : profile_.refused) {
    const auto& variables = store_.variables();
    const bool is_there = std::any_of(variables.begin(), variables.end(),
                                      [&](const auto& variable) { return is_of(refused, *variable); });
    if (is_there) continue;
    const std::string name = refused.program.empty() ? refused.name : refused.program + "/" + refused.name;
    problems.push_back("the profile refuses " + shown_name(name) + ", which no tag file declares");
  }
  constexpr double kLeastTold = 1;
  if (profile_.connect.first_ms.value_or(0) >= kLeastTold) {
    problems.emplace_back("the profile's connect_ms is not imitated: this machine answers a connect by itself");
  }
  return problems;
}

Imitation::Load Imitation::load_of(const Session& session, const Request& request) const {
  if (request.kind == RequestKind::kRead) {
    const size_t items = request.references.size();
    return {items, profile_.values_per_request && items > *profile_.values_per_request};
  }
  if (request.kind != RequestKind::kResolve) return {session.names.size(), false};
  size_t items = 0;
  for (const NameBlock& block : request.blocks) items += block.names.size();
  return {items, profile_.names_per_request && items > *profile_.names_per_request};
}

double Imitation::wait_ms(RequestKind kind, size_t items) const {
  switch (kind) {
    case RequestKind::kDirectoryStart:
      return profile_.directory_start.first_ms.value_or(0);
    case RequestKind::kDirectory:
      return profile_.directory.first_ms.value_or(0);
    case RequestKind::kResolve:
      return paced(profile_.resolve, items);
    case RequestKind::kRead:
      return paced(profile_.read, items);
    case RequestKind::kWrite:
    case RequestKind::kMaskedWrite:
    case RequestKind::kBit:
      return paced(profile_.write, items);
    case RequestKind::kUnknown:
      break;
  }
  return 0;
}

Answer Imitation::handle(Session& session, const Bytes& frame) {
  Findings of_form;
  const Request request = parse_request(frame, of_form);
  const Load load = load_of(session, request);
  Answer answer =
      load.is_beyond && !session.refusal ? answer_beyond(session, frame, load) : controller_.handle(session, frame);
  if (!load.is_beyond && !session.refusal) change_answer(session, frame, answer);
  change_head(session, answer.reply);
  const double least_ms = profile_.answers_half_closed.value_or(true) ? 0 : kHalfClosedMs;
  // Down to whole milliseconds: what this machine itself takes comes on top.
  answer.manner.wait_ms = static_cast<unsigned>(std::max(wait_ms(answer.kind, load.items), least_ms));
  answer.manner.piece_bytes = profile_.piece_bytes.value_or(0);
  answer.manner.gap_ms = static_cast<unsigned>(profile_.piece_gap_ms.value_or(0));
  return answer;
}

// The host cannot be blamed for what it makes of an answer that it did not get.
Answer Imitation::answer_beyond(Session& session, const Bytes& frame, const Load& load) {
  session.refusal = profile_.status_beyond.value_or(kUsualStatusBeyond);
  Answer answer = controller_.handle(session, frame);
  session.refusal.reset();
  const bool is_resolve = answer.kind == RequestKind::kResolve;
  answer.findings.notes.push_back(std::to_string(load.items) + (is_resolve ? " names" : " values") +
                                  " in a request are beyond the profile's limit");
  answer.manner.damage = ReplyDamage::kThisReply;
  const Turned beyond = profile_.beyond.value_or(Turned::kRefused);
  answer.manner.is_withheld = beyond != Turned::kRefused;
  if (beyond == Turned::kClosed) {
    answer.manner.then = AfterDelivery::kClose;
    answer.manner.damage = ReplyDamage::kTheStream;
  }
  return answer;
}

void Imitation::change_answer(const Session& session, const Bytes& frame, Answer& answer) const {
  if (answer.reply.size() < wire::kReplyHeadBytes) return;
  if (answer.kind == RequestKind::kDirectory && most_name_units()) answer.reply = cut_directory(frame);
  if (!answer.findings.refused.empty()) {
    change_refusal(session, frame, answer);
  } else if (ByteView(answer.reply).u16(wire::kStatusAt) == wire::kStatusDone) {
    put_u16(answer.reply, wire::kStatusAt, profile_.status_done.value_or(wire::kStatusDone));
    if (answer.kind != RequestKind::kRead) return;
    const size_t bytes = answer.reply.size() + profile_.bytes_behind_values.value_or(0);
    answer.reply.resize(std::min(bytes, wire::kMaxFrameBytes), kFiller);
    put_length(answer.reply);
  }
}

// Where nobody knows whether names are cut, no name is longer all the same.
std::optional<uint32_t> Imitation::most_name_units() const {
  return profile_.program_name_units ? profile_.program_name_units : profile_.longest_name_units;
}

Bytes Imitation::cut_directory(const Bytes& frame) const {
  std::vector<Program> programs = store_.directory();
  for (Program& program : programs) program.name = cut_name(program.name, *most_name_units());
  return make_reply(frame, wire::kStatusDone, directory_body(programs));
}

// What a value request is refused for; null where it is for a name.
const Profile::Refused* Imitation::refused_value(const Session& session) const {
  for (const ResolvedName& name : session.names) {
    if (!name.element) return nullptr;
    const Variable& variable = *name.element->variable;
    const Profile::Refused* refused = refusal_of(profile_, Profile::Refused::What::kValue, variable);
    if (refused != nullptr) return refused;
  }
  return nullptr;
}

void Imitation::change_refusal(const Session& session, const Bytes& frame, Answer& answer) const {
  const Profile::Refused* value = answer.kind == RequestKind::kRead ? refused_value(session) : nullptr;
  const auto own_status = value != nullptr && value->status ? value->status : profile_.refusal_status;
  const auto own_shape = value != nullptr && value->shape ? value->shape : profile_.shape;
  const uint16_t status = own_status.value_or(kUsualRefusalStatus);
  if (own_shape.value_or(Profile::Shape::kFull) == Profile::Shape::kShort) {
    answer.reply = make_reply(frame, status, {});
    // Of the names beside the refused one the host has no handle.
    if (session.names.size() > 1) answer.manner.damage = ReplyDamage::kThisReply;
    return;
  }
  put_u16(answer.reply, wire::kStatusAt, status);
  if (answer.kind == RequestKind::kResolve) clear_marks(session.names, answer.reply);
}

void Imitation::change_head(const Session& session, Bytes& reply) const {
  if (reply.size() < wire::kReplyHeadBytes) return;
  const auto length = static_cast<uint32_t>(reply.size() - wire::kLengthExcludes);
  if (is_wrong(profile_.length)) {
    put_u32(reply, 0, profile_.length == Echo::kZero ? 0 : static_cast<uint32_t>(reply.size()));
  }
  if (is_wrong(profile_.complement)) put_u32(reply, 4, profile_.complement == Echo::kZero ? 0 : length);
  if (is_wrong(profile_.sequence)) {
    const unsigned own = kOwnNumbers + session.requests;
    put_u16(reply, wire::kSequenceAt, profile_.sequence == Echo::kZero ? 0 : own);
  }
  reply[wire::kClassAt] = echoed(reply[wire::kClassAt], profile_.request_class);
  reply[wire::kCommandAt] = echoed(reply[wire::kCommandAt], profile_.command);
}

}  // namespace plc_sim
