// The limits of one call, and how elements are shared out to calls within them.
#include "client/plan/transfer_plan.h"

#include <algorithm>
#include <cstring>

#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

constexpr size_t kReadRequestBytes = 4096;
constexpr size_t kWriteRequestBytes = 1024;
constexpr size_t kRequestHeadBytes = 24;    // of a local variable, the longer one
constexpr uint32_t kElementsPerRead = 100;  // their references fit one reply of 4096 bytes
constexpr uint32_t kBoolsPerRead = 64;
constexpr uint32_t kUnitsPerWrite = 255;        // 16-bit units, counted in one byte
constexpr uint32_t kBitsPerWrite = 8;           // from the ninth element on the driver resets the bit
constexpr uint32_t kUnitsPerStringRead = 255;   // counted in one byte
constexpr uint32_t kUnitsPerStringWrite = 120;  // from 122 on the driver states a wrong length
constexpr uint32_t kLastStringOffset = 512;     // beyond it a read names nothing

uint32_t read_limit(const TagEntry& entry, const RequestRules& rules) {
  if (value_kind(entry) == ValueKind::kRaw) return 1;
  const uint32_t limit = rules.names(entry.bit_width == 1 ? kBoolsPerRead : kElementsPerRead);
  if (rules.is_guarded) return limit;
  const size_t name = kResolvedNameBytes + kBytesPerSubscript * declared_ranges(entry).size();
  return std::min(limit, static_cast<uint32_t>((kSegmentBytes - kResolveHeadBytes) / name));
}

uint32_t write_limit(const TagEntry& entry) {
  if (entry.bit_width >= 16) return kUnitsPerWrite / (entry.bit_width / 16U);
  // Most of these are read, changed and written as words, the bit's place being that of the first element; the guarded
  // build takes none of them together.
  return entry.name_kind != 1 || is_on_em(entry) ? 1 : kBitsPerWrite;
}

void check_writable(const TagEntry& entry) {
  if (!has_known_type(entry)) {
    throw PlanError("its line in the tag file has no type. Try: plc-host check with that file");
  }
  if (value_kind(entry) == ValueKind::kRaw) {
    throw PlanError(std::string("the driver writes no ") + type_name(entry.type_code));
  }
  if (entry.bit_width == 8) {
    throw PlanError("the driver writes no 8-bit values: it would send a command that sets or resets one bit");
  }
}

// One element with the offset at which the driver asks for it.
struct PlacedElement {
  uint32_t offset;
  int64_t place;  // in the order in which the controller holds the elements
  size_t bytes;   // of its name
};

int64_t place_in_controller(const std::vector<SubscriptRange>& ranges, const Subscripts& subscripts) {
  int64_t place = 0;
  for (size_t i = 0; i < ranges.size(); ++i) {
    place = place * (int64_t{ranges[i].high} - int64_t{ranges[i].low} + 1) + (subscripts[i] - int64_t{ranges[i].low});
  }
  return place;
}

// Bits of a structure in two dimensions: the driver names the element's word, and takes the bit's number in it from the
// offset. With lower bounds, that is the number of another element.
bool reaches_own_bit(const TagEntry& entry, Direction direction, uint32_t offset, int64_t place) {
  constexpr uint32_t kWordBits = 16;
  const bool is_bit = direction == Direction::kWrite && entry.bit_width == 1;
  if (!is_bit || entry.shape != PLC_ARRAY2 || entry.name_kind == 1 || is_em_bit_array(entry)) return true;
  return offset % kWordBits == static_cast<uint64_t>(place) % kWordBits;
}

std::string unplaced_message(const TagReference& reference, Direction direction, const Subscripts& first, size_t count,
                             size_t all) {
  std::string text =
      direction == Direction::kRead ? "no offset makes the driver read " : "no offset makes the driver write ";
  text += reference.tag->qualified_name + subscript_text(first);
  if (count > 1) text += " and " + std::to_string(count - 1) + " more of " + std::to_string(all) + " elements";
  return text + ": its rule for " + declared_type(reference.tag->entry) + " names other elements";
}

std::vector<PlacedElement> place_elements(const TagReference& reference, Direction direction) {
  const TagEntry& entry = reference.tag->entry;
  const std::vector<SubscriptRange> ranges = declared_ranges(entry);
  const std::vector<Subscripts> elements = chosen_elements(reference);
  std::vector<PlacedElement> placed;
  uint32_t hint = 0;
  size_t unplaced = 0;
  const Subscripts* first_unplaced = nullptr;
  for (const Subscripts& element : elements) {
    // One failed search is the answer for the call; the others are only counted, in arrays where that is quick.
    if (unplaced > 0 && elements.size() > kElementsPerRead) break;
    const std::optional<uint32_t> offset = find_element_offset(entry, direction, element, hint);
    const int64_t place = place_in_controller(ranges, element);
    if (!offset || !reaches_own_bit(entry, direction, *offset, place)) {
      ++unplaced;
      if (first_unplaced == nullptr) first_unplaced = &element;
      continue;
    }
    placed.push_back({*offset, place, name_bytes(entry, element)});
    hint = *offset + 1;
  }
  if (first_unplaced != nullptr) {
    throw PlanError(unplaced_message(reference, direction, *first_unplaced, unplaced, elements.size()));
  }
  return placed;
}

}  // namespace

size_t name_bytes(const TagEntry& entry, const Subscripts& subscripts) {
  // UTF-16 takes two bytes for a character that UTF-8 needs at least one for; the driver adds a '#' per subscript.
  const size_t characters = std::strlen(entry.name) + subscript_text(subscripts).size() + subscripts.size();
  return 2 + 2 * characters;
}

std::vector<ElementRun> plan_elements(const TagReference& reference, Direction direction, const RequestRules& rules) {
  const TagEntry& entry = reference.tag->entry;
  const bool reading = direction == Direction::kRead;
  if (!reading) check_writable(entry);
  const uint32_t limit = reading ? read_limit(entry, rules) : rules.names(write_limit(entry));
  const size_t request_bytes = reading ? kReadRequestBytes : kWriteRequestBytes;
  std::vector<ElementRun> runs;
  int64_t next_place = 0;
  size_t bytes = 0;
  for (const PlacedElement& element : place_elements(reference, direction)) {
    const bool follows = !runs.empty() && element.offset == runs.back().offset + runs.back().count &&
                         (reading || element.place == next_place);
    if (follows && runs.back().count < limit && bytes + element.bytes <= request_bytes) {
      ++runs.back().count;
    } else {
      runs.push_back({element.offset, 1});
      bytes = kRequestHeadBytes;
    }
    bytes += element.bytes;
    next_place = element.place + 1;
  }
  return runs;
}

size_t exchanges_per_bit(const TagEntry& entry) {
  constexpr size_t kByAddress = 2;
  constexpr size_t kInWord = 3;
  constexpr uint8_t kPlainName = 1;
  constexpr uint8_t kMemberName = 2;
  if (is_em_bit_array(entry)) return kInWord;
  if (entry.shape == PLC_ARRAY3 || entry.name_kind == kPlainName) return kByAddress;
  if (entry.shape != PLC_SCALAR || entry.is_global != 1) return kInWord;
  const std::string device = device_name(entry.device_kind);
  const bool has_address = device == "MR" || device == (entry.name_kind == kMemberName ? "LR" : "DM");
  return has_address ? kByAddress : kInWord;
}

std::vector<StringPiece> plan_string_read(const TagEntry& entry) {
  const auto length = static_cast<uint32_t>(std::max(entry.string_length, 1));
  const uint32_t units = length / 2 + length % 2;
  std::vector<StringPiece> pieces;
  for (uint32_t offset = 0; offset < units && offset <= kLastStringOffset; offset += kUnitsPerStringRead) {
    pieces.push_back({offset, std::min(units - offset, kUnitsPerStringRead)});
  }
  return pieces;
}

size_t reachable_text_bytes(const TagEntry& entry) {
  constexpr uint32_t kUnitsInReach = (kLastStringOffset / kUnitsPerStringRead + 1) * kUnitsPerStringRead;
  return std::min(static_cast<size_t>(std::max(entry.string_length, 1)), 2 * size_t{kUnitsInReach});
}

bool goes_on_out_of_reach(const TagEntry& entry, const std::string& text) {
  const size_t reach = reachable_text_bytes(entry);
  return text.size() >= reach && reach < static_cast<size_t>(std::max(entry.string_length, 1));
}

std::vector<StringPiece> plan_string_write(uint32_t units) {
  std::vector<StringPiece> pieces;
  for (uint32_t offset = 0; offset < units; offset += kUnitsPerStringWrite) {
    pieces.push_back({offset, std::min(units - offset, kUnitsPerStringWrite)});
  }
  return pieces;
}

}  // namespace plc_client::core
