// Protobuf by hand.
#include "tests/tools/plc_gateway/simulation/world/wire.h"

#include "tests/tools/plc_gateway/simulation/world/world.h"

namespace plc_gateway::simulation {
namespace {

enum WireType : unsigned { kVarint = 0, kFixed64 = 1, kLength = 2, kFixed32 = 5 };

class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  // False at the end.
  bool field() {
    if (bytes_.empty()) return false;
    const uint64_t key = varint();
    number = static_cast<unsigned>(key >> 3U);
    type = static_cast<unsigned>(key & 7U);
    switch (type) {
      case kVarint:
        value = varint();
        break;
      case kFixed64:
        value = fixed(8);
        break;
      case kFixed32:
        value = fixed(4);
        break;
      case kLength:
        data = take(varint());
        break;
      default:
        throw Violation("a payload has a field of wire type " + std::to_string(type));
    }
    return true;
  }
  void demand(unsigned wanted) const {
    if (type != wanted) throw Violation("field " + std::to_string(number) + " has the wrong wire type");
  }

  unsigned number = 0;
  unsigned type = 0;
  uint64_t value = 0;
  std::string_view data;

 private:
  uint64_t varint() {
    uint64_t result = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const auto byte = static_cast<unsigned char>(take(1)[0]);
      result |= static_cast<uint64_t>(byte & 0x7FU) << shift;
      if (byte < 0x80) return result;
    }
    throw Violation("a payload has a number of more than ten bytes");
  }
  uint64_t fixed(size_t size) {
    const std::string_view from = take(size);
    uint64_t result = 0;
    for (size_t i = 0; i < size; ++i) result |= static_cast<uint64_t>(static_cast<unsigned char>(from[i])) << (8 * i);
    return result;
  }
  std::string_view take(uint64_t size) {
    if (size > bytes_.size()) throw Violation("a payload ends too soon");
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }

  std::string_view bytes_;
};

void read_properties(std::string_view bytes, Metric& metric) {
  Reader reader(bytes);
  std::vector<std::string_view> keys;
  std::vector<std::string_view> values;
  while (reader.field()) {
    reader.demand(kLength);
    if (reader.number == 1) {
      keys.push_back(reader.data);
    } else if (reader.number == 2) {
      values.push_back(reader.data);
    } else {
      throw Violation("a set of properties has field " + std::to_string(reader.number));
    }
  }
  if (keys.size() != values.size()) throw Violation("a set of properties has keys without values");
  for (size_t i = 0; i < keys.size(); ++i) {
    if (keys[i] != "Quality") throw Violation("a metric has the property " + std::string(keys[i]));
    Reader value(values[i]);
    uint64_t type = 0;
    while (value.field()) {
      value.demand(kVarint);
      if (value.number == 1) type = value.value;
      if (value.number == 3) metric.quality = static_cast<int64_t>(value.value);
    }
    if (type != 3 || !metric.quality) throw Violation("Quality is no Int32");
  }
}

unsigned wire_type_of(unsigned field) {
  if (field == 12) return kFixed32;
  if (field == 13) return kFixed64;
  return field == 1 || field == 9 || field >= 15 ? kLength : kVarint;
}

void read_metric(std::string_view bytes, Metric& metric) {
  Reader reader(bytes);
  while (reader.field()) {
    const unsigned field = reader.number;
    if (field == 0 || field > 16 || field == 8) throw Violation("a metric has field " + std::to_string(field));
    reader.demand(wire_type_of(field));
    if (field == 1) metric.name = reader.data;
    if (field == 2) metric.alias = reader.value;
    if (field == 3) metric.time = reader.value;
    if (field == 4) metric.datatype = reader.value;
    if (field == 5) metric.historical = reader.value != 0;
    if (field == 7) metric.null = reader.value != 0;
    if (field == 9) read_properties(reader.data, metric);
    if (field < 10) continue;
    if (metric.value_field != 0) throw Violation("a metric has two values");
    metric.value_field = field;
    metric.number = reader.value;
    metric.bytes = field >= 15 ? reader.data : std::string_view();
  }
  if (metric.null == (metric.value_field != 0))
    throw Violation("a metric is null with a value, or has none and is not");
}

uint64_t as_32_bits(int32_t number) {
  const auto bits = static_cast<uint32_t>(number);
  return bits;
}

void append_varint(std::string& to, uint64_t value) {
  for (; value >= 0x80; value >>= 7U) to += static_cast<char>(value | 0x80U);
  to += static_cast<char>(value);
}

}  // namespace

void read_payload(std::string_view bytes, Payload& payload) {
  payload.time.reset();
  payload.seq.reset();
  payload.metrics.clear();
  Reader reader(bytes);
  while (reader.field()) {
    reader.demand(reader.number == 2 ? kLength : kVarint);
    if (reader.number == 1) {
      payload.time = reader.value;
    } else if (reader.number == 2) {
      read_metric(reader.data, payload.metrics.emplace_back());
    } else if (reader.number == 3) {
      payload.seq = reader.value;
    } else {
      throw Violation("a payload has field " + std::to_string(reader.number));
    }
  }
}

void PayloadMaker::number(unsigned field, uint64_t value) {
  append_varint(metric_, field << 3U);
  append_varint(metric_, value);
}

void PayloadMaker::fixed32(unsigned field, uint32_t bits) {
  append_varint(metric_, field << 3U | kFixed32);
  for (unsigned i = 0; i < 4; ++i) metric_ += static_cast<char>(bits >> (8 * i));
}

void PayloadMaker::fixed64(unsigned field, uint64_t bits) {
  append_varint(metric_, field << 3U | kFixed64);
  for (unsigned i = 0; i < 8; ++i) metric_ += static_cast<char>(bits >> (8 * i));
}

void PayloadMaker::text(unsigned field, std::string_view text) {
  append_varint(metric_, field << 3U | kLength);
  append_varint(metric_, text.size());
  metric_ += text;
}

void PayloadMaker::end_metric() {
  append_varint(metrics_, 2U << 3U | kLength);
  append_varint(metrics_, metric_.size());
  metrics_ += metric_;
}

std::string PayloadMaker::finish(uint64_t time) {
  std::string payload;
  append_varint(payload, 1U << 3U);
  append_varint(payload, time);
  payload += metrics_;
  metrics_.clear();
  return payload;
}

bool is_array(DataType type) { return static_cast<int>(type) >= 22; }

unsigned width_of(DataType type) {
  const int code = static_cast<int>(type);
  const int scalar = code >= 22 && code <= 31 ? code - 21 : code;
  if (scalar < 1 || scalar > 10) return 0;
  constexpr unsigned kWidths[] = {1, 2, 4, 8, 1, 2, 4, 8, 4, 8};
  return kWidths[scalar - 1];
}

Expected expected_value(DataType type, uint64_t bits) {
  switch (type) {
    case DataType::kInt8:
      return {10, as_32_bits(static_cast<int8_t>(bits)), false};
    case DataType::kInt16:
      return {10, as_32_bits(static_cast<int16_t>(bits)), false};
    case DataType::kInt32:
    case DataType::kUInt8:
    case DataType::kUInt16:
    case DataType::kUInt32:
      return {10, bits, false};
    case DataType::kInt64:
    case DataType::kUInt64:
      return {11, bits, false};
    case DataType::kFloat:
      return {12, bits, false};
    case DataType::kDouble:
      return {13, bits, false};
    case DataType::kBoolean:
      return {14, bits, false};
    case DataType::kString:
      return {15, 0, true};
    default:
      return {16, 0, true};
  }
}

bool holds(const Metric& metric, DataType type, bool good, uint64_t bits, const std::string& bytes) {
  if (!good) return metric.null;
  if (metric.null) return false;
  const Expected expected = expected_value(type, bits);
  if (metric.value_field != expected.field) return false;
  return expected.is_bytes ? metric.bytes == bytes : metric.number == expected.number;
}

}  // namespace plc_gateway::simulation
