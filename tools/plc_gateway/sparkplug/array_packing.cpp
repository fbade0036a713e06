// Arrays as the standard packs them: numbers little-endian one behind the other, BOOLs as bits behind their count.
#include "tools/plc_gateway/model/data_types.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {
namespace {

constexpr unsigned kByteBits = 8;
constexpr size_t kCountBytes = 4;
constexpr uint8_t kFirstBit = 0x80;

void append_little_endian(std::string& out, uint64_t bits, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) out += static_cast<char>(static_cast<uint8_t>(bits >> (kByteBits * i)));
}

uint64_t little_endian(std::string_view bytes) {
  uint64_t bits = 0;
  for (size_t i = bytes.size(); i > 0; --i) bits = bits << kByteBits | static_cast<uint8_t>(bytes[i - 1]);
  return bits;
}

size_t bytes_of_bits(size_t bits) { return bits / kByteBits + (bits % kByteBits != 0 ? 1 : 0); }

std::string pack_bits(const std::vector<uint64_t>& elements) {
  std::string out;
  append_little_endian(out, elements.size(), kCountBytes);
  out.resize(kCountBytes + bytes_of_bits(elements.size()));
  for (size_t i = 0; i < elements.size(); ++i) {
    if (elements[i] == 0) continue;
    char& byte = out[kCountBytes + i / kByteBits];
    byte = static_cast<char>(static_cast<uint8_t>(byte) | kFirstBit >> (i % kByteBits));
  }
  return out;
}

std::optional<std::vector<uint64_t>> unpack_bits(std::string_view bytes) {
  if (bytes.size() < kCountBytes) return std::nullopt;
  const uint64_t count = little_endian(bytes.substr(0, kCountBytes));
  bytes.remove_prefix(kCountBytes);
  if (bytes.size() != bytes_of_bits(count)) return std::nullopt;
  std::vector<uint64_t> elements(count);
  for (size_t i = 0; i < count; ++i) {
    elements[i] = (static_cast<uint8_t>(bytes[i / kByteBits]) & kFirstBit >> (i % kByteBits)) != 0 ? 1 : 0;
  }
  return elements;
}

}  // namespace

std::string pack_array(DataType type, const std::vector<uint64_t>& elements) {
  const TypeFacts& facts = facts_of(type);
  if (facts.kind == ElementKind::kBool) return pack_bits(elements);
  std::string out;
  const size_t bytes = facts.bits / kByteBits;
  out.reserve(elements.size() * bytes);
  for (const uint64_t element : elements) append_little_endian(out, element, bytes);
  return out;
}

std::optional<std::vector<uint64_t>> unpack_array(DataType type, std::string_view bytes) {
  const TypeFacts& facts = facts_of(type);
  if (!facts.is_array || facts.bits == 0) return std::nullopt;
  if (facts.kind == ElementKind::kBool) return unpack_bits(bytes);
  const size_t step = facts.bits / kByteBits;
  if (bytes.size() % step != 0) return std::nullopt;
  std::vector<uint64_t> elements;
  elements.reserve(bytes.size() / step);
  for (; !bytes.empty(); bytes.remove_prefix(step)) elements.push_back(little_endian(bytes.substr(0, step)));
  return elements;
}

}  // namespace plc_gateway
