// Reads registers by their numbers.
#include "client/plan/number_read.h"

#include <cstring>

#include "client/driver/failure.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

// count is that of the call as the driver left it.
TagValue stored_value(const Tag& tag, uint32_t count, GuardedBuffer& buffer) {
  TagValue value;
  const ValueKind kind = value_kind(tag.entry);
  if (kind == ValueKind::kText || kind == ValueKind::kRaw) {
    const auto* text = reinterpret_cast<const char*>(buffer.data());
    value.text.assign(text, strnlen(text, buffer.size()));
  } else {
    value.elements = decode_elements(tag.entry, buffer.data(), count);
  }
  return value;
}

}  // namespace

TagResult read_number(DriverSession& session, const TagList& tags, uint32_t register_id, uint32_t offset,
                      uint32_t count) {
  const Tag* tag = find_tag_by_id(tags, register_id);
  GuardedBuffer buffer(read_buffer_bytes(count));
  const CallResult call = session.read(register_id, offset, count, buffer);
  TagResult result;
  result.name = (tag != nullptr ? tag->qualified_name + " #" : "#") + std::to_string(register_id);
  result.reference.tag = tag;
  if (!call.ok()) {
    result.reading = {explain_failure(call, session.target()), call.time};
  } else if (tag == nullptr) {
    result.reading = {impossible("the driver read a value of a variable that its tag file does not have"), call.time};
  } else {
    const TagValue value = stored_value(*tag, call.count, buffer);
    const ValueKind kind = value_kind(tag->entry);
    const bool is_list = kind != ValueKind::kText && kind != ValueKind::kRaw && value.elements.size() != 1;
    if (is_list) result.reference.extents = {value.elements.size()};
    result.reading = {value, session.quality_of_success(), call.time};
  }
  return result;
}

}  // namespace plc_client::core
