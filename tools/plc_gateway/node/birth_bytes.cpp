// Lengths of messages, and the longest DBIRTH that a configuration can have.
#include "tools/plc_gateway/node/birth_bytes.h"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "base/text.h"
#include "tools/plc_gateway/model/data_types.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {
namespace {

constexpr unsigned kBitsOfByte = 8;
constexpr uint64_t kLongestAlias = std::numeric_limits<uint32_t>::max();  // the journal counts from 1
constexpr uint64_t kLongestSeq = 255;

// Bytes of the length that MQTT puts before a message.
size_t length_bytes(size_t length) {
  size_t bytes = 1;
  for (; length >= 128; length /= 128) ++bytes;
  return bytes;
}

// "STRING(20)" has 20.
size_t declared_text_bytes(const std::string& declared_type) {
  const size_t at = declared_type.find('(');
  return at == std::string::npos ? 0 : std::strtoull(declared_type.c_str() + at + 1, nullptr, 10);
}

// Of a text, or of an array as the standard packs it.
size_t most_value_bytes(const Variable& variable) {
  constexpr size_t kCountBytes = 4;  // before elements of BOOL
  const TypeFacts& facts = facts_of(variable.type);
  if (facts.kind == ElementKind::kBytes) return 0;  // they have no value
  const size_t text = declared_text_bytes(variable.declared_type);
  if (!facts.is_array) return facts.kind == ElementKind::kText ? text : 0;
  size_t elements = 1;
  for (const size_t length : variable.shape) elements *= length;
  if (facts.kind == ElementKind::kText) return elements * (text + 1);
  return kCountBytes + (elements * facts.bits + kBitsOfByte - 1) / kBitsOfByte;
}

}  // namespace

size_t message_bytes(const std::string& topic, size_t payload_bytes, int qos) {
  const size_t number = qos > 0 ? 2 : 0;
  const size_t length = 2 + topic.size() + number + 1 + payload_bytes;
  return 1 + length_bytes(length) + length;
}

std::string message_name(const std::string& topic) {
  constexpr std::string_view kStandard = "spBv1.0/";
  if (topic.compare(0, kStandard.size(), kStandard) != 0) return topic;
  const size_t at = topic.find('/', kStandard.size()) + 1;
  return topic.substr(at, topic.find('/', at) - at);
}

size_t most_device_birth_bytes(const std::string& topic, const std::vector<Variable>& variables) {
  constexpr Ms kLatest = std::numeric_limits<uint32_t>::max() * Ms{1000};  // as long in bytes as any of these centuries
  PayloadWriter writer;
  Sample sample;
  sample.good = sample.unguarded = true;
  sample.time = kLatest;
  sample.bits = std::numeric_limits<uint64_t>::max();
  size_t bytes = 0;
  for (const Variable& variable : variables) {
    sample.bytes.assign(most_value_bytes(variable), '\0');
    writer.birth(variable, kLongestAlias, &sample, kLatest);
    // Its own time and number are left: what was written of the others need not be kept.
    if (writer.bytes() < kLongBirthBytes) continue;
    bytes += writer.bytes();
    writer = {};
  }
  return message_bytes(topic, bytes + writer.finish(kLatest, kLongestSeq).size(), 0);
}

std::string room_for_message(size_t bytes) {
  return "let the broker take messages of " + plc_base::plural(bytes, "byte") +
         ": see message_size_limit and max_packet_size in mosquitto's configuration";
}

}  // namespace plc_gateway
