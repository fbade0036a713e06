#include "tools/plc_gateway/journal/row_code.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "tools/plc_gateway/journal/sum.h"

namespace plc_gateway {
namespace {

constexpr uint8_t kFormMask = 0x0F;
constexpr uint8_t kMostNumberBytes = 8;  // forms 0 to 8: a number of so many bytes
constexpr uint8_t kFormBytes = 9;
constexpr uint8_t kFormBad = 10;
constexpr uint8_t kOtherTime = 0x10;
constexpr uint8_t kUnguarded = 0x80;  // of the kind
constexpr unsigned kAliasShift = 5;
constexpr uint64_t kMostShortStep = 7;
constexpr size_t kSumBytes = 4;

void put_number(std::string& out, uint64_t number) {
  while (number >= 0x80) {
    out += static_cast<char>(static_cast<uint8_t>(number) | 0x80U);
    number >>= 7U;
  }
  out += static_cast<char>(number);
}

// Small differences of either sign become small numbers.
uint64_t fold(uint64_t difference) { return (difference << 1U) ^ (0 - (difference >> 63U)); }
uint64_t unfold(uint64_t folded) { return (folded >> 1U) ^ (0 - (folded & 1U)); }

// Reads what put_number wrote, and never behind the end: once something was missing, everything is.
class ByteReader {
 public:
  explicit ByteReader(std::string_view bytes) : rest_(bytes) {}

  bool ok() const { return ok_; }
  bool at_end() const { return rest_.empty(); }

  uint8_t byte() {
    if (rest_.empty()) return fail();
    const auto value = static_cast<uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return value;
  }

  uint64_t number() {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const uint8_t next = byte();
      value |= static_cast<uint64_t>(next & 0x7FU) << shift;
      if ((next & 0x80U) == 0) return value;
    }
    return fail();
  }

  uint64_t lowest_first(size_t bytes) {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) value |= static_cast<uint64_t>(byte()) << (8 * i);
    return value;
  }

  std::string_view text() {
    const uint64_t length = number();
    if (length > rest_.size()) {
      fail();
      return {};
    }
    const std::string_view taken = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return taken;
  }

 private:
  uint8_t fail() {
    ok_ = false;
    rest_ = {};
    return 0;
  }

  std::string_view rest_;
  bool ok_ = true;
};

// Of everything that a row says, its number and time too: a page of another row in its place is noticed.
uint32_t sum_of(uint64_t id, Ms time, uint64_t values, std::string_view bytes) {
  Sum sum;
  sum.add(id);
  sum.add(static_cast<uint64_t>(time));
  sum.add(values);
  sum.add_bytes(bytes);
  return sum.value();
}

void pack_value(const Sample& sample, uint8_t head, std::string& out, size_t head_place) {
  uint8_t form = 0;
  if (!sample.good) {
    form = kFormBad;
    out += static_cast<char>(sample.reason);
  } else if (!sample.bytes.empty()) {
    form = kFormBytes;
    put_number(out, sample.bytes.size());
    out += sample.bytes;
  } else {
    for (uint64_t rest = sample.bits; rest != 0; rest >>= 8U, ++form) out += static_cast<char>(rest);
  }
  out[head_place] = static_cast<char>(head | form);
}

bool unpack_value(ByteReader& reader, uint8_t form, Sample& sample) {
  if (form <= kMostNumberBytes) {
    sample.good = true;
    sample.bits = reader.lowest_first(form);
  } else if (form == kFormBytes) {
    sample.good = true;
    sample.bytes = reader.text();
  } else if (form == kFormBad) {
    const uint8_t reason = reader.byte();
    if (reason >= plc_client::kReasons) return false;
    sample.reason = static_cast<plc_client::Reason>(reason);
  } else {
    return false;
  }
  return reader.ok();
}

// What stands before the sum, where the sum is right.
std::optional<std::string_view> summed_body(uint64_t id, Ms time, uint64_t values, std::string_view bytes) {
  if (bytes.size() <= kSumBytes || values > bytes.size()) return std::nullopt;
  const std::string_view body = bytes.substr(0, bytes.size() - kSumBytes);
  const bool is_right = ByteReader(bytes.substr(body.size())).lowest_first(kSumBytes) == sum_of(id, time, values, body);
  return is_right ? std::optional(body) : std::nullopt;
}

}  // namespace

PackedRow pack_row(uint64_t id, JournalRow::Kind kind, Ms time, const std::vector<Sample>& changes,
                   const std::vector<uint64_t>& alias_of) {
  PackedRow row;
  row.id = id;
  row.time = time;
  row.values = changes.size();
  std::string& out = row.bytes;
  out.reserve(changes.size() * 6 + 1 + kSumBytes);
  const bool is_unguarded =
      std::any_of(changes.begin(), changes.end(), [](const Sample& sample) { return sample.unguarded; });
  out += static_cast<char>(static_cast<uint8_t>(kind) | (is_unguarded ? kUnguarded : 0U));
  uint64_t last_alias = 0;
  Ms last_time = time;
  for (const Sample& sample : changes) {
    const size_t head_place = out.size();
    const uint64_t alias = alias_of.empty() ? sample.variable : alias_of[sample.variable];
    const uint64_t step = alias - last_alias;
    const bool is_short = step >= 1 && step <= kMostShortStep;
    auto head = static_cast<uint8_t>((is_short ? step : 0) << kAliasShift);
    out += '\0';
    if (!is_short) put_number(out, fold(step));
    if (sample.time != last_time) {
      head |= kOtherTime;
      put_number(out, fold(static_cast<uint64_t>(sample.time) - static_cast<uint64_t>(last_time)));
    }
    pack_value(sample, head, out, head_place);
    last_alias = alias;
    last_time = sample.time;
  }
  const uint32_t sum = sum_of(id, time, row.values, out);
  for (size_t i = 0; i < kSumBytes; ++i) out += static_cast<char>(sum >> (8 * i));
  return row;
}

bool unpack_row(uint64_t id, Ms time, uint64_t values, std::string_view bytes, JournalRow& row) {
  const std::optional<std::string_view> body = summed_body(id, time, values, bytes);
  if (!body) return false;

  ByteReader reader(*body);
  const uint8_t first = reader.byte();
  const bool is_unguarded = (first & kUnguarded) != 0;
  const auto kind = static_cast<uint8_t>(first & ~kUnguarded);
  if (kind > static_cast<uint8_t>(JournalRow::Kind::kLost)) return false;
  row.id = id;
  row.kind = static_cast<JournalRow::Kind>(kind);
  row.time = time;
  row.changes.clear();
  row.changes.reserve(values);
  uint64_t alias = 0;
  auto moment = static_cast<uint64_t>(time);
  while (!reader.at_end()) {
    const uint8_t head = reader.byte();
    const uint64_t step = head >> kAliasShift;
    alias += step != 0 ? step : unfold(reader.number());
    if ((head & kOtherTime) != 0) moment += unfold(reader.number());
    if (alias == 0 || alias > std::numeric_limits<uint32_t>::max()) return false;
    Sample& sample = row.changes.emplace_back();
    sample.variable = static_cast<uint32_t>(alias);
    sample.time = static_cast<Ms>(moment);
    if (!unpack_value(reader, head & kFormMask, sample)) return false;
    sample.unguarded = is_unguarded && sample.good;
  }
  return reader.ok() && row.changes.size() == values;
}

}  // namespace plc_gateway
