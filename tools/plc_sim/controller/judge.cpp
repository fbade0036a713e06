// The strict judge: sequence numbers, handles, size codes, counts and masks against what was resolved last.
#include "tools/plc_sim/controller/judge.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdio>

#include "wire/big_endian.h"

namespace plc_sim {
namespace {

constexpr uint32_t kBitNumberMask = 0x0F;
constexpr uint32_t kLongestOneByteLength = 0xFF;

std::string shown(const Handle& handle) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%02X/%08X", static_cast<unsigned>(handle.area),
                static_cast<unsigned>(handle.address));
  return text.data();
}

// Something that does not follow from the last resolve reply; no violation when that reply never arrived whole.
void mismatch(const Session& session, Findings& findings, std::string text) {
  auto& list = session.damage == ReplyDamage::kNone ? findings.violations : findings.excused;
  list.push_back(std::move(text));
}

bool handle_fits(const ResolvedName& name, const Handle& handle) {
  if (!name.element || !name.element->variable->is_flag()) return handle == name.handle;
  const Handle masked{name.handle.area, name.handle.address & ~kBitNumberMask};
  switch (name.element->variable->road) {
    case BitRoad::kBit:
      return handle == masked;
    case BitRoad::kWord:
      return handle == name.handle;
    case BitRoad::kBoth:
      break;
  }
  return handle == name.handle || handle == masked;
}

bool size_fits(const Element& element, uint8_t size) {
  const TypeInfo& type = *element.variable->tag.type;
  switch (type.bits) {
    case 0:
      return true;  // as long as the host asked for
    case 1:
      return size == 1;
    case 8:
      return size == 8 || size == 1;
    default:
      return size == type.bits / 16;
  }
}

void judge_reference(const Session& session, size_t i, const Reference& reference, Findings& findings) {
  const ResolvedName& name = session.names[i];
  if (!name.element) {
    if (!reference.handle.is_null()) {
      mismatch(session, findings,
               "reference " + std::to_string(i) + " to the refused name " + name.shown + " has the handle " +
                   shown(reference.handle));
    }
    findings.refused.push_back("read of the refused name " + name.shown);
    return;
  }
  if (!handle_fits(name, reference.handle)) {
    mismatch(session, findings,
             "reference " + std::to_string(i) + " has the handle " + shown(reference.handle) + ", " + name.shown +
                 " was given " + shown(name.handle));
  }
  if (!size_fits(*name.element, reference.size)) {
    mismatch(session, findings,
             "reference " + std::to_string(i) + " to " + name.shown + " has the size code " +
                 std::to_string(reference.size));
  }
}

// The one name that bit and word-of-bit requests rest on.
const ResolvedName* only_name(const Session& session, Findings& findings) {
  if (session.names.size() != 1) {
    mismatch(
        session, findings,
        "the request writes one bit, the last resolve request had " + std::to_string(session.names.size()) + " names");
    return nullptr;
  }
  const ResolvedName& name = session.names.front();
  if (!name.element) {
    findings.refused.push_back("write to the refused name " + name.shown);
    return nullptr;
  }
  return &name;
}

bool expect_handle(const Session& session, const ResolvedName& name, const Handle& handle, Findings& findings) {
  if (handle == name.handle) return true;
  mismatch(session, findings,
           "the handle is " + shown(handle) + ", " + name.shown + " was given " + shown(name.handle));
  return false;
}

bool judge_text_write(const Session& session, const Request& request, Findings& findings) {
  const size_t length = request.values.size() + wire::kWriteHeadBytes - wire::kLengthExcludes;
  if (session.names.size() != 1) {
    mismatch(session, findings, "a text is written after " + std::to_string(session.names.size()) + " names");
  }
  if (request.values.size() % 2 != 0 || request.units != ((request.values.size() / 2) & 0xFFU)) {
    findings.violation("byte 17 gives " + std::to_string(request.units) + " units, the request carries " +
                       std::to_string(request.values.size()) + " bytes of text");
  }
  if (length > kLongestOneByteLength && !request.has_one_byte_length) {
    findings.violation("the length of a text write has one byte");
  }
  return findings.violations.empty();
}

bool judge_word_of_flag(const Session& session, const Request& request, const ResolvedName& name, Findings& findings) {
  const Variable& variable = *name.element->variable;
  if (variable.is_flag() && variable.road == BitRoad::kBit) {
    findings.violation(name.shown + " has a bit address of its own, a word is written to it");
    return false;
  }
  const bool has_word = request.values.size() == 2;
  if (session.names.size() != 1 || request.units != 1 || (!has_word && !request.values.empty())) {
    mismatch(session, findings, "the word of a bit is one unit for one name");
    return false;
  }
  if (!has_word) {
    findings.notes.emplace_back("a word is given back without its value: the host's value was neither 0 nor 1");
    return false;
  }
  if (session.word_read) {
    const unsigned word = ByteView(request.values).u16(0);
    if (std::bitset<16>(word ^ *session.word_read).count() > 1) {
      mismatch(session, findings, "the word given back differs from the word read in more than one bit");
    }
  }
  return findings.violations.empty();
}

bool judge_run(const Session& session, const Request& request, const ResolvedName& first, Findings& findings) {
  const Variable& variable = *first.element->variable;
  const size_t units = variable.units * session.names.size();
  // 64-bit arrays are counted in halves of 32 bits: an odd count says one half more than there is.
  const bool odd_halves = variable.units == 4 && variable.is_array() && request.units == units + 2;
  if (request.units != units && !odd_halves) {
    mismatch(session, findings,
             "byte 17 gives " + std::to_string(request.units) + " units, " + std::to_string(session.names.size()) +
                 " names of " + variable.tag.type->name + " take " + std::to_string(units));
  }
  if (request.values.size() != 2 * units) {
    mismatch(session, findings,
             "the request carries " + std::to_string(request.values.size()) + " bytes of values, its names take " +
                 std::to_string(2 * units));
  }
  for (const ResolvedName& name : session.names) {
    if (name.element && name.element->variable != &variable) {
      findings.violation("a run goes from " + first.shown + " to another variable, " + name.shown);
    }
  }
  return findings.violations.empty() && findings.excused.empty();
}

bool judge_write_of_nothing(const Session& session, const Request& request, Findings& findings) {
  const bool nothing = request.handle.is_null() && request.values.empty() && (request.units == 0 || request.units == 2);
  if (!nothing) mismatch(session, findings, "a write after a resolve request without names carries something");
  return false;
}

// The directory is asked for once, in two requests, before everything else on its connection.
void judge_directory_order(Session& session, const Request& request, Findings& findings) {
  const bool is_start = request.kind == RequestKind::kDirectoryStart;
  const bool is_in_order = is_start ? session.requests == 1 : session.directory_started && !session.directory_sent;
  if (!is_in_order) findings.violation("the directory is asked for out of its order");
  if (request.sequence != (is_start ? 0 : 1)) {
    findings.violation("a directory request has the sequence number " + std::to_string(request.sequence));
  }
  (is_start ? session.directory_started : session.directory_sent) = true;
}

}  // namespace

void judge_order(Session& session, const Request& request, Findings& findings) {
  ++session.requests;
  if (request.kind == RequestKind::kDirectoryStart || request.kind == RequestKind::kDirectory) {
    judge_directory_order(session, request, findings);
    return;
  }
  if (!session.directory_sent) mismatch(session, findings, "a transfer starts before the directory was asked for");
  if (session.next_sequence && request.sequence != *session.next_sequence) {
    findings.violation("the sequence number is " + std::to_string(request.sequence) + ", expected " +
                       std::to_string(*session.next_sequence));
  }
  session.next_sequence = static_cast<uint16_t>(request.sequence + 1);
  if (request.kind != RequestKind::kResolve && !session.has_resolved) {
    mismatch(session, findings, "a transfer starts without resolving its names");
  }
}

bool judge_read(const Session& session, const Request& request, Findings& findings) {
  if (session.names_end_in_missing) {
    const bool one_null = request.references.size() == 1 && request.references[0].handle.is_null();
    if (!one_null) mismatch(session, findings, "a read after a missing name does not have one empty reference");
    findings.notes.emplace_back("a read of a text position that cannot be named");
    return one_null;
  }
  if (request.references.size() != session.names.size()) {
    mismatch(session, findings,
             "the read has " + std::to_string(request.references.size()) +
                 " references, the last resolve request had " + std::to_string(session.names.size()) + " names");
    return false;
  }
  for (size_t i = 0; i < request.references.size(); ++i) judge_reference(session, i, request.references[i], findings);
  return findings.violations.empty() && findings.excused.empty();
}

bool judge_write(const Session& session, const Request& request, Findings& findings) {
  if (session.names.empty()) return judge_write_of_nothing(session, request, findings);
  const ResolvedName& first = session.names.front();
  if (!first.element) {
    findings.refused.push_back("write to the refused name " + first.shown);
    return false;
  }
  if (!expect_handle(session, first, request.handle, findings)) return false;
  const Variable& variable = *first.element->variable;
  if (variable.is_text()) return judge_text_write(session, request, findings);
  if (request.has_one_byte_length) {
    findings.violation("only the length of a text write has one byte");
    return false;
  }
  return variable.is_flag_like() ? judge_word_of_flag(session, request, first, findings)
                                 : judge_run(session, request, first, findings);
}

bool judge_masked_write(const Session& session, const Request& request, Findings& findings) {
  const ResolvedName* name = only_name(session, findings);
  if (name == nullptr || !expect_handle(session, *name, request.handle, findings) || !request.mask) return false;
  const Variable& variable = *name->element->variable;
  if (!variable.is_flag_like() || (variable.is_flag() && variable.road == BitRoad::kBit)) {
    findings.violation("a masked write to " + name->shown + ", which is not a bit of a word");
    return false;
  }
  const unsigned bit = 1U << name->element->place.bit;
  const unsigned expected = request.is_or_mask ? bit : 0xFFFFU - bit;
  if (*request.mask != expected) {
    mismatch(session, findings,
             "the mask is " + std::to_string(*request.mask) + ", the bit of " + name->shown + " takes " +
                 std::to_string(expected));
  }
  return findings.violations.empty() && findings.excused.empty();
}

bool judge_bit(const Session& session, const Request& request, Findings& findings) {
  const ResolvedName* name = only_name(session, findings);
  if (name == nullptr) return false;
  const bool fits = request.area == name->handle.area && request.low_address == (name->handle.address & 0xFFFFU);
  if (!fits) {
    mismatch(session, findings,
             "the bit's address is " + shown({request.area, request.low_address}) + ", " + name->shown + " was given " +
                 shown(name->handle));
    return false;
  }
  const Variable& variable = *name->element->variable;
  if (!variable.is_flag_like() || (variable.is_flag() && variable.road == BitRoad::kWord)) {
    findings.violation("a bit is set at " + name->shown + ", which has no bit address");
    return false;
  }
  return request.bit_value.has_value();
}

}  // namespace plc_sim
