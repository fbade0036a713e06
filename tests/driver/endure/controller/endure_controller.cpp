// The controller of the endurance program.
#include "tests/driver/endure/controller/endure_controller.h"

#include "tools/plc_sim/controller/reply.h"

namespace plc_endure {
namespace {

namespace wire = plc_sim::wire;

constexpr size_t kNamesOfGlobalAt = 18;
constexpr size_t kNamesOfLocalAt = 24;
constexpr size_t kWriteAddressAt = 18;

plc_sim::Handle handle_at(const Bytes& request, size_t area_at, size_t address_at) {
  return {request[area_at], big_endian32(request.data() + address_at)};
}

// Texts of more than 121 units have one byte of their length.
bool has_right_form(const Bytes& request) {
  if (request.size() < wire::kHeadBytes + 2 || request.size() > wire::kMaxFrameBytes) return false;
  const uint32_t length = big_endian32(request.data());
  const auto counted = static_cast<uint32_t>(request.size() - wire::kLengthExcludes);
  const bool is_long_text = kind_of(request) == Kind::kWrite && counted > 0xFF && length == (counted & 0xFFU);
  return big_endian32(request.data() + 4) == ~length && (length == counted || is_long_text);
}

}  // namespace

Kind kind_of(const Bytes& request) {
  const uint8_t first = request[wire::kClassAt];
  const uint8_t second = request[wire::kCommandAt];
  if (first == wire::kClassNames) {
    return second == wire::kResolve          ? Kind::kResolve
           : second == wire::kDirectory      ? Kind::kDirectory
           : second == wire::kDirectoryStart ? Kind::kDirectoryStart
                                             : Kind::kUnknown;
  }
  if (first == wire::kClassValues && second == wire::kRead) return Kind::kRead;
  const bool is_value_write = first == wire::kClassValues && (second == wire::kWrite || second == wire::kMaskedWrite);
  const bool is_bit_write = (first == wire::kClassSet || first == wire::kClassReset) && second == 0;
  return is_value_write || is_bit_write ? Kind::kWrite : Kind::kUnknown;
}

void Controller::serve(const Bytes& request, const Meaning& meaning, bool carry_out, Bytes* reply) {
  reply->assign(wire::kReplyHeadBytes, 0);
  uint16_t status = wire::kStatusDone;
  const Kind kind = has_right_form(request) ? kind_of(request) : Kind::kUnknown;
  switch (kind) {
    case Kind::kDirectoryStart:
      reply->resize(wire::kReplyHeadBytes + 2);
      break;
    case Kind::kDirectory: {
      std::vector<plc_sim::Program> programs = book_.programs();
      for (plc_sim::Program& program : programs) program.number = number_of(program.number);
      const Bytes body = plc_sim::directory_body(programs);
      reply->insert(reply->end(), body.begin(), body.end());
      break;
    }
    case Kind::kResolve:
      status = serve_resolve(request, reply);
      break;
    case Kind::kRead:
      status = serve_read(request, reply);
      break;
    case Kind::kWrite:
      status = carry_out ? serve_write(request, meaning) : wire::kStatusBadRequest;
      memory_->end_of_request();
      break;
    case Kind::kUnknown:
      status = wire::kStatusBadRequest;
      rules_->count(Rule::kHarm, "a request that is none");
      break;
  }
  store32(reply->data(), static_cast<uint32_t>(reply->size() - wire::kLengthExcludes));
  store32(reply->data() + 4, ~static_cast<uint32_t>(reply->size() - wire::kLengthExcludes));
  std::copy(request.begin() + wire::kSequenceAt, request.begin() + wire::kHeadBytes,
            reply->begin() + wire::kSequenceAt);
  store16(reply->data() + wire::kStatusAt, status);
}

uint8_t Controller::number_of(uint8_t number) const {
  const std::vector<plc_sim::Program>& programs = book_.programs();
  for (size_t i = 0; is_renumbered_ && i < programs.size(); ++i) {
    if (programs[i].number == number) return programs[programs.size() - 1 - i].number;
  }
  return number;
}

// One block of names: no call of this program has more.
uint16_t Controller::serve_resolve(const Bytes& request, Bytes* reply) const {
  const bool is_local = request[wire::kBlocksAt] == 1;
  const int program = is_local ? number_of(request[wire::kBlocksAt + 3]) : -1;
  const size_t names_at = is_local ? kNamesOfLocalAt : kNamesOfGlobalAt;
  if (request.size() < names_at || request[wire::kBlocksAt - 1] != 1) return wire::kStatusBadRequest;
  const uint32_t count = big_endian16(request.data() + names_at - 2);
  static const NameRecord unknown = {Bytes(wire::kResolveRecordBytes, 0), wire::kResolveRecordBytes};
  std::vector<const NameRecord*> records;
  uint16_t status = wire::kStatusDone;
  size_t at = names_at;
  for (uint32_t i = 0; i < count && i < wire::kMaxResolveRecords; ++i) {
    const size_t bytes = at + 2 <= request.size() ? size_t{2} * big_endian16(request.data() + at) : request.size();
    if (at + 2 + bytes > request.size()) return wire::kStatusBadRequest;
    const NameRecord* record = book_.find_name(program, request.data() + at + 2, bytes);
    status = record == nullptr ? wire::kStatusUnknownName : status;
    records.push_back(record == nullptr ? &unknown : record);
    at += 2 + bytes;
  }
  size_t total = wire::kResolveHeadBytes;
  for (const NameRecord* record : records) total += record->with_dimensions.size();
  reply->push_back(1);
  reply->push_back(static_cast<uint8_t>(count >> 8U));
  reply->push_back(static_cast<uint8_t>(count));
  for (const NameRecord* record : records) {
    const bool is_plain = total > wire::kMaxFrameBytes;
    const auto bytes = static_cast<std::ptrdiff_t>(is_plain ? record->plain_bytes : record->with_dimensions.size());
    reply->insert(reply->end(), record->with_dimensions.begin(), record->with_dimensions.begin() + bytes);
    if (is_plain) reply->back() = 0;  // no dimensions follow
  }
  return status;
}

void Controller::append_words(const plc_sim::Handle& handle, uint32_t units, Bytes* reply, bool* is_there) const {
  plc_sim::Place place;
  uint32_t cell = 0;
  const size_t end = reply->size() + size_t{2} * units;
  uint32_t there = units;
  // Behind the end of the memory stand zeros.
  while (there > 0 && !book_.find_cells(handle, there, &place, &cell)) --there;
  *is_there = *is_there && (there > 0 || units == 0);
  for (uint32_t i = 0; i < there; ++i) {
    uint16_t word = memory_->word(cell + i);
    if (place.second_char) {
      const unsigned next =
          i + 1 < there || book_.find_cells(handle, i + 2, &place, &cell) ? memory_->word(cell + i + 1) : 0U;
      word = static_cast<uint16_t>(static_cast<unsigned>(word) << 8U | next >> 8U);
    }
    reply->push_back(static_cast<uint8_t>(word >> 8U));
    reply->push_back(static_cast<uint8_t>(word));
  }
  reply->resize(end, 0);
}

uint16_t Controller::serve_read(const Bytes& request, Bytes* reply) const {
  bool is_there = true;
  for (size_t at = wire::kReadHeadBytes; at + wire::kReferenceBytes <= request.size(); at += wire::kReferenceBytes) {
    const uint32_t units = request[at + 3];
    if (reply->size() + 2 * units > wire::kMaxFrameBytes) return wire::kStatusTooMuch;
    append_words(handle_at(request, at + 1, at + 4), units, reply, &is_there);
  }
  return is_there ? wire::kStatusDone : wire::kStatusBadRequest;
}

void Controller::give(const Meaning& meaning, uint32_t cell, uint16_t mask, uint16_t value) {
  rules_->carried_out(meaning, cell, mask, value);
  const unsigned old = memory_->word(cell);
  memory_->set(cell, static_cast<uint16_t>((old & ~mask) | (value & mask)));
}

uint16_t Controller::serve_words(const Bytes& request, const Meaning& meaning) {
  if (request.size() < wire::kWriteHeadBytes) return wire::kStatusBadRequest;
  const auto words = static_cast<uint32_t>((request.size() - wire::kWriteHeadBytes) / 2);
  plc_sim::Place place;
  uint32_t first = 0;
  if (words == 0 || !book_.find_cells(handle_at(request, 13, kWriteAddressAt), words, &place, &first) ||
      place.second_char) {
    return wire::kStatusBadRequest;
  }
  for (uint32_t i = 0; i < words; ++i) {
    give(meaning, first + i, 0xFFFF, big_endian16(request.data() + wire::kWriteHeadBytes + 2 * i));
  }
  return wire::kStatusDone;
}

uint16_t Controller::serve_mask(const Bytes& request, const Meaning& meaning) {
  constexpr size_t kOperationAt = 19;
  plc_sim::Place place;
  uint32_t cell = 0;
  if (request.size() != wire::kMaskedWriteBytes || !book_.find_cells(handle_at(request, 14, 15), 1, &place, &cell)) {
    return wire::kStatusBadRequest;
  }
  const uint16_t mask = big_endian16(request.data() + kOperationAt + 1);
  if (request[kOperationAt] == 1) {
    give(meaning, cell, mask, mask);
  } else {
    give(meaning, cell, static_cast<uint16_t>(~mask), 0);
  }
  return wire::kStatusDone;
}

uint16_t Controller::serve_bit(const Bytes& request, const Meaning& meaning) {
  plc_sim::Place place;
  uint32_t cell = 0;
  if (request.size() != wire::kBitRequestBytes) return wire::kStatusBadRequest;
  const plc_sim::Handle handle = {request[13], big_endian16(request.data() + 14)};
  if (!book_.find_cells(handle, 1, &place, &cell) || place.part != plc_sim::Part::kBitAddressed) {
    return wire::kStatusBadRequest;
  }
  const auto mask = static_cast<uint16_t>(1U << place.bit);
  give(meaning, cell, mask, request[wire::kClassAt] == wire::kClassSet ? mask : uint16_t{0});
  return wire::kStatusDone;
}

uint16_t Controller::serve_write(const Bytes& request, const Meaning& meaning) {
  if (request[wire::kClassAt] != wire::kClassValues) return serve_bit(request, meaning);
  return request[wire::kCommandAt] == wire::kMaskedWrite ? serve_mask(request, meaning) : serve_words(request, meaning);
}

}  // namespace plc_endure
