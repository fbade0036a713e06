// Names -> handles: the resolve request.
//
//   global:  12     13   14  15   16     18
//           | 00 | 01 | 00 | 00 | count | names ...
//   local:   12     13   14  15   16   17        18             22     24
//           | 00 | 01 | 01 | 01 | 00 | program | 00 00 00 00 | count | names ...
//
// 13 is the number of sub-blocks, which begin at 14; only a batch has more than one. A name is its count of UTF-16
// units, then the units.
#include "plc_driver/protocol/handles/resolve_request.h"

#include "plc_driver/text/bounded_text.h"
#include "plc_driver/text/utf16.h"

namespace plc {
namespace {

constexpr uint32_t kNameUnitsLimit = 512;
// A formed name or a name and its subscripts, and the six zero bytes that the converter wants behind a text.
constexpr uint32_t kElementTextBytes = kElementNameBytes + 6;
static_assert(kElementTextBytes < kNameUnitsLimit, "no element name is cut by the converter");

void store_unit_count(uint8_t* at, uint32_t units, UnitCount unit_count) {
  store16(at, unit_count == UnitCount::kLowByte ? units & 0xFF : units);
}

}  // namespace

NameEncoder::NameEncoder(const char* name)
    : name_(name), name_length_(static_cast<uint32_t>(strnlen(name, kElementNameBytes - 1))) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(name);
  uint8_t* out = units_;
  for (uint32_t at = 0; at < name_length_; ++unit_count_, out += 2) {
    uint32_t value = bytes[at];
    uint32_t length = 1;
    if (value >= 0x80) {
      length = utf8_sequence_length(bytes[at]);
      if (at + length > name_length_) {
        whole_ = false;
        return;
      }
      utf8ToUnicodeChar(bytes + at, &value);
    }
    store16(out, value);
    at += length;
  }
}

void NameEncoder::append(const Subscripts& subscripts, FrameWriter* request, UnitCount unit_count) const {
  if (!whole_) {
    append_plain(subscripts, request, unit_count);
    return;
  }
  const SubscriptUnits text(subscripts, true);
  uint8_t* out = request->reserve(2 * (1 + unit_count_ + text.length()));
  if (out == nullptr) return;
  store_unit_count(out, unit_count_ + text.length(), unit_count);
  memcpy(out + 2, units_, 2 * unit_count_);
  memcpy(out + 2 * (1 + unit_count_), text.data(), 2 * text.length());
}

void NameEncoder::append_plain(const Subscripts& subscripts, FrameWriter* request, UnitCount unit_count) const {
  BoundedText<kElementTextBytes> text;
  const SubscriptText subscript_text(subscripts, true);
  text.append(name_, name_length_);
  text.append(reinterpret_cast<const char*>(subscript_text.data()), subscript_text.length());
  uint16_t units[kNameUnitsLimit];
  const uint32_t count = static_cast<uint32_t>(utf8ToUnicode(text.bytes, units, kNameUnitsLimit));
  uint8_t* out = request->reserve(2 * (1 + count));
  if (out == nullptr) return;
  store_unit_count(out, count, unit_count);
  for (uint32_t i = 0; i < count; ++i) store16(out + 2 + 2 * i, units[i]);
}

void begin_batch_resolve(FrameWriter* request) {
  request->put_command(kClassName, kCommandResolve);
  request->put(0);
  request->put(0);
}

void begin_resolve(FrameWriter* request, NameScope scope, uint32_t name_count) {
  request->put_command(kClassName, kCommandResolve);
  request->put(0);
  request->put(1);
  append_sub_block(request, scope, name_count);
}

void append_sub_block(FrameWriter* request, NameScope scope, uint32_t name_count) {
  if (scope.is_global) {
    request->put16(0);
  } else {
    request->put(1);
    request->put(1);
    request->put(0);
    request->put(scope.local_index);
    request->put_zeros(4);
  }
  request->put16(name_count);
}

}  // namespace plc
