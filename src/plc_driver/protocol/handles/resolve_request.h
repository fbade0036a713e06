// Names -> handles: the request that asks the controller for a short reference per element name.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/protocol/frames/frame_writer.h"
#include "plc_driver/tags/element_name.h"

namespace plc {

// Who owns a variable, as requests tell it.
struct NameScope {
  bool is_global;
  uint8_t local_index;  // the program's number, of local variables only
};

// How a name's unit count is written: some writes store its low byte alone, the high byte stays 0 (D19).
enum class UnitCount { kBothBytes, kLowByte };

// A tag name of at most 255 bytes with one element's subscripts, and a terminator.
constexpr uint32_t kElementNameBytes = PLC_NAME_BYTES + kSubscriptTextBytes;

// A tag name converted once, for as many element names as are needed.
class NameEncoder {
 public:
  // Keeps a pointer to the name, which is NUL-terminated; more than kElementNameBytes - 1 bytes are not read.
  explicit NameEncoder(const char* name);

  // Appends the name followed by its subscripts: unit count, then the units.
  void append(const Subscripts& subscripts, FrameWriter* request, UnitCount unit_count = UnitCount::kBothBytes) const;

  // The same by way of one text, converted as a whole. append falls back on it for a name whose last sequence is cut:
  // such a sequence takes in what follows it.
  void append_plain(const Subscripts& subscripts, FrameWriter* request,
                    UnitCount unit_count = UnitCount::kBothBytes) const;

 private:
  const char* name_;
  uint32_t name_length_;
  uint32_t unit_count_ = 0;
  bool whole_ = true;  // the name ends with its last sequence
  uint8_t units_[2 * kElementNameBytes];
};

// Begins a resolve request for one scope, up to and with the count of names (low 16 bits).
void begin_resolve(FrameWriter* request, NameScope scope, uint32_t name_count);

// Head of a batch request's resolve frame, up to and with its count of sub-blocks.
constexpr uint32_t kSubBlockCountOffset = 13;
void begin_batch_resolve(FrameWriter* request);

// A batch's sub-block up to and with its count of names: 4 bytes for the globals, 10 for a program.
void append_sub_block(FrameWriter* request, NameScope scope, uint32_t name_count);

}  // namespace plc
