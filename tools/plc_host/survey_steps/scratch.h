// A scratch variable: how the driver writes it, the request that does it, and a value to write that is another one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/plc_host/survey/conversation.h"
#include "tools/plc_host/survey/declared.h"

namespace plc_host::survey {

// How a value gets into its place.
enum class WriteWay { kValues, kSetReset, kMasked, kWordAround, kNone };

WriteWay write_way_of(const TagEntry& entry);

// "write", "set", "reset", "masked write", "read-modify-write", as the value says.
const char* way_words(WriteWay way, bool bit);

struct Scratch {
  Declared variable;  // of an array the element that was named, else the last one
  std::string name;   // with that element
  WriteWay way = WriteWay::kNone;
};

// What the name on the command line means. Throws ReferenceError.
Scratch scratch_of(const Declarations& declarations, const std::string& name);

// Bytes of the value that a write changes: of a long text the first ones.
size_t changed_bytes(const Scratch& scratch);

// Another value of the type, in the order of the wire; of a BOOL its word with the bit turned over.
plc_sim::Bytes other_value(const Scratch& scratch, const plc_sim::Bytes& old_value);

// The elements and variables beside it, by subscript and by what the controller says of their places: known ones alone.
std::vector<Declared> neighbours_of(const Scratch& scratch, const Declarations& declarations);

// The request that writes the value; word is what stands there now, for the ways that write all of it.
plc_sim::Bytes write_request_for(const Scratch& scratch, uint16_t sequence, const plc_sim::Bytes& value,
                                 const plc_sim::Bytes& word);

}  // namespace plc_host::survey
