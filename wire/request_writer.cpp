// Writes requests, each as docs/wire_protocol.md draws it.
#include "wire/request_writer.h"

#include <initializer_list>
#include <string_view>

#include "base/utf8.h"
#include "wire/big_endian.h"

namespace plc_sim {
namespace {

constexpr size_t kMostNameUnits = 511;

void append(Bytes& frame, std::initializer_list<uint8_t> bytes) { frame.insert(frame.end(), bytes); }

// Length and complement are filled in by finished.
Bytes begun(uint16_t sequence, uint8_t request_class, uint8_t command) {
  Bytes frame(wire::kSequenceAt, 0);
  append_u16(frame, sequence);
  append(frame, {request_class, command});
  return frame;
}

Bytes finished(Bytes frame) {
  const auto length = static_cast<uint32_t>(frame.size() - wire::kLengthExcludes);
  put_u32(frame, 0, length);
  put_u32(frame, 4, ~length);
  return frame;
}

Bytes directory_frame(uint16_t sequence, uint8_t command) {
  Bytes frame = begun(sequence, wire::kClassNames, command);
  append_u32(frame, 0);
  return finished(std::move(frame));
}

// A unit for each character; a byte that begins none is one by itself.
std::vector<uint16_t> units_of(std::string_view name) {
  std::vector<uint16_t> units;
  while (!name.empty() && units.size() < kMostNameUnits) {
    const auto character = plc_base::first_code_point(name);
    units.push_back(character ? static_cast<uint16_t>(character->value) : static_cast<uint8_t>(name.front()));
    name.remove_prefix(character ? character->bytes : 1);
  }
  return units;
}

}  // namespace

Bytes directory_start_request() { return directory_frame(0, wire::kDirectoryStart); }

Bytes directory_request() { return directory_frame(1, wire::kDirectory); }

Bytes resolve_request(uint16_t sequence, std::optional<uint8_t> program, const std::vector<std::string>& names) {
  Bytes frame = begun(sequence, wire::kClassNames, wire::kResolve);
  append(frame, {0, 1});
  if (program) {
    append(frame, {1, 1, 0, *program, 0, 0, 0, 0});
  } else {
    append(frame, {0, 0});
  }
  append_u16(frame, static_cast<uint16_t>(names.size()));
  for (const std::string& name : names) {
    const std::vector<uint16_t> units = units_of(name);
    append_u16(frame, static_cast<uint16_t>(units.size()));
    for (const uint16_t unit : units) append_u16(frame, unit);
  }
  return finished(std::move(frame));
}

Bytes value_request(uint16_t sequence, const std::vector<Reference>& references) {
  Bytes frame = begun(sequence, wire::kClassValues, wire::kRead);
  append(frame, {0});
  append_u16(frame, static_cast<uint16_t>(references.size()));
  append(frame, {0, 0, 0});
  for (const Reference& reference : references) {
    append(frame, {0, reference.handle.area, 0, reference.size});
    append_u32(frame, reference.handle.address);
  }
  return finished(std::move(frame));
}

Bytes write_request(uint16_t sequence, const Handle& handle, const Bytes& values) {
  Bytes frame = begun(sequence, wire::kClassValues, wire::kWrite);
  append(frame, {0, handle.area, 0, 0, 0, static_cast<uint8_t>(values.size() / 2)});
  append_u32(frame, handle.address);
  frame.insert(frame.end(), values.begin(), values.end());
  return finished(std::move(frame));
}

Bytes masked_write_request(uint16_t sequence, const Handle& handle, unsigned bit, bool value) {
  const unsigned mask = 1U << (bit & 0xFU);
  Bytes frame = begun(sequence, wire::kClassValues, wire::kMaskedWrite);
  append(frame, {0, 1, handle.area});
  append_u32(frame, handle.address);
  append(frame, {static_cast<uint8_t>(value ? 1 : 0)});
  append_u16(frame, static_cast<uint16_t>(value ? mask : 0xFFFFU - mask));
  return finished(std::move(frame));
}

Bytes bit_request(uint16_t sequence, uint8_t area, uint32_t address, bool value) {
  Bytes frame = begun(sequence, value ? wire::kClassSet : wire::kClassReset, 0);
  append(frame, {1, area});
  append_u16(frame, static_cast<uint16_t>(address));
  return finished(std::move(frame));
}

}  // namespace plc_sim
