// The controller without its network: serves each kind of request from the memory.
#include "tools/plc_sim/controller/controller.h"

#include <algorithm>

#include "tools/plc_sim/controller/judge.h"
#include "tools/plc_sim/controller/reply.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

// A size code that no value has: hosts send it for variables of 8 bits, and no value answers it.
constexpr uint8_t kSizeWithoutValue = 8;

std::string shown_subscripts(const Element& element, const std::string& name) {
  return name + " (" + element.variable->tag.type->name + ")";
}

}  // namespace

Answer Controller::handle(Session& session, const Bytes& frame) {
  Answer answer;
  Findings& findings = answer.findings;
  const Request request = parse_request(frame, findings);
  answer.kind = request.kind;
  if (frame.size() >= wire::kHeadBytes) judge_order(session, request, findings);
  if (session.refusal) {
    refuse(session, request);
    answer.reply = make_reply(frame, *session.refusal, {});
    return answer;
  }
  uint16_t status = wire::kStatusDone;
  switch (request.kind) {
    case RequestKind::kDirectoryStart:
      answer.reply = make_reply(frame, status, {0, 0});
      break;
    case RequestKind::kDirectory:
      answer.reply = make_reply(frame, status, directory_body(store_.directory()));
      break;
    case RequestKind::kResolve:
      answer.reply = serve_resolve(session, request, frame, findings);
      break;
    case RequestKind::kRead:
      answer.reply = serve_read(session, request, frame, findings);
      break;
    case RequestKind::kWrite:
      status = serve_write(session, request, findings);
      break;
    case RequestKind::kMaskedWrite:
      status = serve_masked_write(session, request, findings);
      break;
    case RequestKind::kBit:
      status = serve_bit(session, request, findings);
      break;
    case RequestKind::kUnknown:
      status = wire::kStatusBadRequest;
      break;
  }
  if (answer.reply.empty()) answer.reply = make_reply(frame, status, {});
  return answer;
}

// Nothing is carried out; names that are refused are none.
void Controller::refuse(Session& session, const Request& request) {
  if (request.kind == RequestKind::kResolve) {
    session.names.clear();
    session.has_resolved = true;
    session.names_end_in_missing = false;
    session.word_read.reset();
  }
}

ResolvedName Controller::resolve_name(const NameBlock& block, const std::u16string& units, Findings& findings) {
  const auto program = block.is_local ? std::optional<uint8_t>(block.program) : std::nullopt;
  const std::string name = utf8_from_utf16(units);
  ResolvedName resolved;
  resolved.name = program ? store_.program_text(*program) + "/" + name : name;
  resolved.shown = shown_name(resolved.name);
  resolved.element = store_.resolve(program, name);
  if (resolved.element && is_withheld_ && is_withheld_(*resolved.element->variable)) resolved.element.reset();
  const Asked::What what = resolved.element ? Asked::What::kResolved : Asked::What::kRefused;
  if (observer_) observer_({what, resolved.name, resolved.element ? &*resolved.element : nullptr});
  if (!resolved.element) {
    const std::string other = store_.other_scope_of(program, name);
    findings.refused.push_back("no variable " + resolved.shown +
                               (other.empty() ? "" : "; there is one " + shown_name(other)));
    return resolved;
  }
  resolved.handle = handle_of(resolved.element->place);
  if (!resolved.element->index) {
    findings.outside.push_back("outside the declared bounds: " + shown_subscripts(*resolved.element, resolved.shown));
  }
  return resolved;
}

Bytes Controller::serve_resolve(Session& session, const Request& request, const Bytes& frame, Findings& findings) {
  session.names.clear();
  session.has_resolved = true;
  session.names_end_in_missing = request.announces_missing_name;
  session.word_read.reset();
  if (session.damage == ReplyDamage::kThisReply) session.damage = ReplyDamage::kNone;
  if (request.is_unreadable && session.damage == ReplyDamage::kNone) {
    // The host cannot be blamed for what it makes of a reply to other names than it meant.
    session.damage = ReplyDamage::kThisReply;
  }
  for (const NameBlock& block : request.blocks) {
    for (const std::u16string& units : block.names) session.names.push_back(resolve_name(block, units, findings));
  }
  for (size_t i = wire::kMaxResolveRecords; i < session.names.size(); ++i) {
    findings.refused.push_back("name " + std::to_string(i) + " is beyond one reply: " + session.names[i].shown);
    session.names[i].element.reset();
    session.names[i].handle = {};
  }
  const uint16_t status = !findings.violations.empty() ? wire::kStatusBadRequest
                          : !findings.refused.empty()  ? wire::kStatusUnknownName
                                                       : wire::kStatusDone;
  return make_reply(frame, status, resolve_body(session.names));
}

void Controller::append_value(Bytes& body, const Element& element, uint8_t size) const {
  if (element.variable->tag.type->bits == 8 && size == kSizeWithoutValue) return;
  const Memory& memory = store_.memory();
  const Place& place = element.place;
  const bool is_numeric = !element.variable->is_flag_like() && !element.variable->is_text();
  const uint32_t units = is_numeric || element.variable->is_flag() ? size : std::min<uint32_t>(size, place.units);
  const auto word = [&](uint32_t i) { return memory.word(place.bank, place.part, place.word + i); };
  const size_t end = body.size() + size_t{2} * size;
  if (!element.index && element.variable->is_text()) {
    body.resize(end, 0);
    return;
  }
  for (uint32_t i = 0; i < units; ++i) {
    if (!place.second_char) {
      append_u16(body, word(i));
      continue;
    }
    const unsigned next = i + 1 < place.units ? word(i + 1) : 0U;
    append_u16(body, static_cast<uint16_t>((static_cast<unsigned>(word(i)) << 8U) | (next >> 8U)));
  }
  body.resize(end, 0);
}

void Controller::refuse_values(const Session& session, const Request& request, Findings& findings) const {
  const size_t count = std::min(request.references.size(), session.names.size());
  for (size_t i = 0; is_value_withheld_ && i < count; ++i) {
    const ResolvedName& name = session.names[i];
    if (!name.element || !is_value_withheld_(*name.element->variable)) continue;
    findings.refused.push_back("read of " + name.shown + ", whose value is refused");
  }
}

Bytes Controller::serve_read(Session& session, const Request& request, const Bytes& frame, Findings& findings) {
  bool is_served = judge_read(session, request, findings);
  const size_t refused_before = findings.refused.size();
  if (is_served) refuse_values(session, request, findings);
  const bool is_refused = findings.refused.size() > refused_before;
  is_served = is_served && !is_refused;
  Bytes body;
  for (size_t i = 0; i < request.references.size(); ++i) {
    const bool has_element = is_served && i < session.names.size() && session.names[i].element;
    if (has_element) {
      append_value(body, *session.names[i].element, request.references[i].size);
      tell(Asked::What::kRead, session.names[i]);
    } else {
      body.resize(body.size() + size_t{2} * request.references[i].size, 0);
    }
  }
  const bool is_one_flag = !is_refused && session.names.size() == 1 && session.names[0].element && body.size() == 2;
  if (is_one_flag) session.word_read = ByteView(body).u16(0);
  if (body.size() > wire::kMaxFrameBytes - wire::kReplyHeadBytes) {
    findings.refused.push_back("values of " + std::to_string(body.size()) + " bytes are beyond one reply");
  }
  const uint16_t status = is_served ? wire::kStatusDone : wire::kStatusBadRequest;
  return make_reply(frame, findings.refused.empty() ? status : wire::kStatusUnknownName, body);
}

void Controller::write_text(const Element& element, const Bytes& values) {
  Memory& memory = store_.memory();
  const Place& place = element.place;
  const size_t room = size_t{2} * place.units - (place.second_char ? 1 : 0);
  for (size_t i = 0; element.index && i < std::min(values.size(), room); ++i) {
    const size_t position = i + (place.second_char ? 1 : 0);
    const auto at = place.word + static_cast<uint32_t>(position / 2);
    const unsigned old = memory.word(place.bank, place.part, at);
    const unsigned value =
        position % 2 == 0 ? (old & 0x00FFU) | (static_cast<unsigned>(values[i]) << 8U) : (old & 0xFF00U) | values[i];
    memory.set_word(place.bank, place.part, at, static_cast<uint16_t>(value));
  }
}

// Values run over the elements in the order in which the last resolve request named them: for arrays whose elements
// lie side by side that is the order of the memory too.
void Controller::write_run(const Session& session, const Bytes& values) {
  Memory& memory = store_.memory();
  size_t at = 0;
  for (const ResolvedName& name : session.names) {
    if (!name.element) continue;
    const Place& place = name.element->place;
    for (uint32_t i = 0; i < name.element->variable->units && at + 1 < values.size(); ++i, at += 2) {
      memory.set_word(place.bank, place.part, place.word + i, ByteView(values).u16(at));
    }
    tell(Asked::What::kWritten, name);
  }
}

uint16_t Controller::serve_write(Session& session, const Request& request, Findings& findings) {
  const bool is_served = judge_write(session, request, findings);
  if (!is_served) return findings.violations.empty() ? wire::kStatusDone : wire::kStatusBadRequest;
  const ResolvedName& first = session.names.front();
  const Element& element = *first.element;
  if (element.variable->is_text()) {
    write_text(element, request.values);
    tell(Asked::What::kWritten, first);
  } else if (element.variable->is_flag_like()) {
    const Place& place = element.place;
    store_.memory().set_word(place.bank, place.part, place.word, ByteView(request.values).u16(0));
    tell(Asked::What::kWritten, first);
  } else {
    write_run(session, request.values);
  }
  return wire::kStatusDone;
}

uint16_t Controller::serve_masked_write(Session& session, const Request& request, Findings& findings) {
  if (judge_masked_write(session, request, findings)) {
    const ResolvedName& name = session.names.front();
    const Place& place = name.element->place;
    Memory& memory = store_.memory();
    const unsigned old = memory.word(place.bank, place.part, place.word);
    const unsigned mask = *request.mask;
    memory.set_word(place.bank, place.part, place.word,
                    static_cast<uint16_t>(request.is_or_mask ? old | mask : old & mask));
    tell(Asked::What::kWritten, name);
  }
  return findings.violations.empty() ? wire::kStatusDone : wire::kStatusBadRequest;
}

uint16_t Controller::serve_bit(Session& session, const Request& request, Findings& findings) {
  if (judge_bit(session, request, findings)) {
    const ResolvedName& name = session.names.front();
    store_.memory().set_bit(name.element->place, *request.bit_value);
    tell(Asked::What::kWritten, name);
  }
  return findings.violations.empty() ? wire::kStatusDone : wire::kStatusBadRequest;
}

void Controller::tell(Asked::What what, const ResolvedName& name) {
  if (observer_ && name.element) observer_({what, name.name, &*name.element});
}

}  // namespace plc_sim
