// The one mechanism under the named write functions: a name is resolved, then its values are written.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/protocol/handles/resolve_request.h"
#include "plc_driver/protocol/handles/value_request.h"
#include "plc_driver/protocol/link/exchange.h"

namespace plc {

constexpr NameScope kGlobal = {true, 0};
constexpr NameScope local_scope(uint8_t local_index) { return {false, local_index}; }

// All in which the word, double-word and quad-word writes differ.
struct WordWrite {
  uint32_t units_per_element;  // 16-bit units: 1, 2 or 4
  uint32_t shape;              // PLC_SCALAR, PLC_ARRAY1, PLC_ARRAY2 or PLC_ARRAY3
  NameScope scope;
  uint32_t dim1_high = 0;                      // of two dimensions
  int32_t least_ack_bytes = kLeastReplyBytes;  // shortest acknowledgment that counts
};

// Writes the element, or value->count elements from the request's element index on. Returns 0 or 3.
int32_t write_elements(const RegRequest* request, const RegValue* value, ConnContext* conn, const TagEntry* tag,
                       const WordWrite& write);

// Writes 2 * value->count bytes of text from character 2 * element index on. Returns 0 or 3.
int32_t write_text(const RegRequest* request, const RegValue* value, ConnContext* conn, const TagEntry* tag,
                   NameScope scope);

// What one write call needs for its exchanges.
struct WriteExchange {
  ConnContext* conn;
  ReplyBuffer reply;

  explicit WriteExchange(ConnContext* context) : conn(context) {}
};

// Asks for the handle of one name. False when the exchange failed or its reply is empty.
bool resolve_name(WriteExchange* writing, NameScope scope, const NameEncoder& name, const Subscripts& subscripts,
                  UnitCount unit_count);

// The handle that the last resolve reply holds.
NameHandle resolved_handle(const WriteExchange& writing);

// Begins a write request for this many 16-bit units (low 8 bits), up to where the values begin.
void begin_write_request(FrameWriter* request, const NameHandle& handle, uint32_t units);

// First element index of a request.
inline uint32_t element_index(const RegRequest* request) { return request->address & 0xFFFF; }

}  // namespace plc
