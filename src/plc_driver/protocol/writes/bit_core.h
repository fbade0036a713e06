// The one mechanism under the named bit writes, and the means by which a bit travels.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/protocol/handles/resolve_request.h"

namespace plc {

// How a resolved bit is written.
enum class BitMeans {
  kSetReset,         // command for the bit's own address
  kDeviceSetReset,   // the same with the device code in place of the handle's lead
  kMask,             // OR or AND mask for the word that holds it
  kReadModifyWrite,  // the word is read, changed and written; bit number in one byte of the resolve reply
  kReadModifyWrite2  // bit number in two bytes
};

// Device codes that the bit writes tell apart.
constexpr uint8_t kBitDeviceDm = 6;
constexpr uint8_t kBitDeviceMr = 17;
constexpr uint8_t kBitDeviceLr = 18;

// One named bit.
struct BitWrite {
  const char* name;
  NameScope scope;
  BitMeans means;
  UnitCount unit_count;
  uint8_t device_kind = 0;  // of kDeviceSetReset
};

// Sets or resets the bit by the first byte of value->data, 1 or 0; any other value sends the request without its
// command or value. Read-modify-write leaves the bits that were read in the first bits of value->data, at most
// value->count of them. Returns 0 or 3.
int32_t write_bit(const RegValue* value, ConnContext* conn, const BitWrite& write);

// A run of elements of a bit array.
struct BitArrayWrite {
  const TagEntry* tag;
  uint32_t shape;
  uint32_t dim1_high;
  NameScope scope;
  bool inside_words;  // members of structures: the words that hold them are read and rewritten
};

// Writes value->count elements, two exchanges or three each; element i is bit i of the first byte of value->data, and
// 0 from the ninth on. The first failure ends the call. Returns 0 or 3.
int32_t write_bit_array(const RegRequest* request, const RegValue* value, ConnContext* conn,
                        const BitArrayWrite& write);

}  // namespace plc
