// Reads registers by their numbers.
#include "number_read.h"

#include <cstring>

#include "value_type.h"

namespace plc_host {
namespace {

TagResult number_result(const Tag& tag, const CallResult& call, GuardedBuffer& buffer) {
  TagResult result;
  result.name = tag.qualified_name;
  result.reference.tag = &tag;
  const ValueKind kind = value_kind(tag.entry);
  if (kind == ValueKind::kText || kind == ValueKind::kRaw) {
    const auto* text = reinterpret_cast<const char*>(buffer.data());
    result.value.text.assign(text, strnlen(text, buffer.size()));
  } else {
    result.value.elements = decode_elements(tag.entry, buffer.data(), call.count);
    if (result.value.elements.size() != 1) result.reference.extents = {result.value.elements.size()};
  }
  return result;
}

}  // namespace

TagResult read_number(DriverSession& session, const TagList& tags, uint32_t register_id, uint32_t offset,
                      uint32_t count) {
  const Tag* tag = find_tag_by_id(tags, register_id);
  GuardedBuffer buffer(read_buffer_bytes(count));
  const CallResult call = session.read(register_id, offset, count, buffer);
  TagResult result;
  if (tag != nullptr && call.ok()) result = number_result(*tag, call, buffer);
  result.name += (result.name.empty() ? "#" : " #") + std::to_string(register_id);
  if (!call.ok()) {
    result.code = call.code;
    result.connection_lost = call.connection_lost;
    result.error = code_text(call.code);
  } else if (tag == nullptr) {
    result.error = "the driver read a value of a variable that its tag file does not have";
  }
  return result;
}

}  // namespace plc_host
