// The one mechanism under the named write functions.
//
//   write request:  10    11    12   13     14 15 16   17      18          22
//                  | 1E | 01 | 00 | lead | 00 00 00 | units | reference | values ...
#include "plc_driver/protocol/writes/write_core.h"

#include "plc_driver/protocol/frames/value_order.h"

namespace plc {
namespace {

constexpr uint32_t kQuadUnits = 4;
constexpr uint32_t kTextLimitUnits = (kWriteRequestBytes - kWriteValueOffset) / 2;

// Which elements a write names, and how many units it announces.
struct ElementSpan {
  uint32_t first;
  uint32_t count;
  uint32_t announced_units;
};

ElementSpan span_of(const RegRequest* request, const RegValue* value, const WordWrite& write) {
  if (write.shape == PLC_SCALAR) return {0, 1, write.units_per_element};
  const uint32_t first = element_index(request);
  if (write.units_per_element == kQuadUnits) {
    // The host counts 64-bit elements in 32-bit units: half an element is dropped, yet announced (D23).
    return {first / 2, value->count / 2, value->count * 2};
  }
  return {first, value->count, value->count * write.units_per_element};
}

bool resolve_elements(WriteExchange* write_exchange, const TagEntry* tag, const WordWrite& write,
                      const ElementSpan& span) {
  WriteRequest request;
  begin_resolve(&request, write.scope, span.count & 0xFF);
  const NameEncoder name(tag->name);
  const UnitCount unit_count = write.shape == PLC_SCALAR ? UnitCount::kLowByte : UnitCount::kBothBytes;
  for (uint32_t i = 0; i < span.count && !request.failed; ++i) {
    Subscripts subscripts;
    if (!form_word_write_subscripts(*tag, write.shape, write.dim1_high, span.first + i, &subscripts)) return false;
    name.append(subscripts, &request, unit_count);
  }
  return exchange(&request, &write_exchange->reply, kLeastReplyBytes, write_exchange->conn);
}

}  // namespace

int32_t write_elements(const RegRequest* request, const RegValue* value, ConnContext* conn, const TagEntry* tag,
                       const WordWrite& write) {
  const ElementSpan span = span_of(request, value, write);
  if (span.count > kWriteUnitsLimit / write.units_per_element) return PLC_FAILED;
  WriteExchange writing(conn);
  if (!resolve_elements(&writing, tag, write, span)) return PLC_FAILED;
  WriteRequest values;
  begin_write_request(&values, resolved_handle(writing), span.announced_units);
  const uint32_t units = span.count * write.units_per_element;
  uint8_t* block = values.reserve(2 * units);
  if (block != nullptr) copy_units_to_wire(value->data, units, block);
  return exchange(&values, &writing.reply, write.least_ack_bytes, conn) ? PLC_OK : PLC_FAILED;
}

int32_t write_text(const RegRequest* request, const RegValue* value, ConnContext* conn, const TagEntry* tag,
                   NameScope scope) {
  const uint32_t units = value->count;
  if (units > kTextLimitUnits) return PLC_FAILED;
  WriteExchange writing(conn);
  // The host counts in units of two characters, the controller's subscript in characters.
  const Subscripts position = form_single_subscript(2 * element_index(request));
  if (!resolve_name(&writing, scope, NameEncoder(tag->name), position, UnitCount::kLowByte)) return PLC_FAILED;
  WriteRequest text;
  begin_write_request(&text, resolved_handle(writing), units);
  text.put_bytes(value->data, 2 * units);  // as it lies in memory: no byte pair is swapped (D24)
  // The length is written as one byte, also for texts whose length needs two (D25).
  return exchange(&text, text.counted_bytes() & 0xFF, &writing.reply, kLeastReplyBytes, conn) ? PLC_OK : PLC_FAILED;
}

bool resolve_name(WriteExchange* writing, NameScope scope, const NameEncoder& name, const Subscripts& subscripts,
                  UnitCount unit_count) {
  WriteRequest request;
  begin_resolve(&request, scope, 1);
  name.append(subscripts, &request, unit_count);
  return exchange(&request, &writing->reply, kLeastReplyBytes, writing->conn);
}

NameHandle resolved_handle(const WriteExchange& writing) { return handle_at(NameCursor(writing.reply)); }

void begin_write_request(FrameWriter* request, const NameHandle& handle, uint32_t units) {
  request->put_command(kClassData, kCommandWrite);
  request->put(0);
  request->put(handle.lead);
  request->put_zeros(3);
  request->put(static_cast<uint8_t>(units));
  request->put_bytes(handle.reference, sizeof handle.reference);
}

}  // namespace plc
