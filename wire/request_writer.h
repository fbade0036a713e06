// Requests as the driver sends them, for programs that ask a controller by themselves.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "wire/handle.h"
#include "wire/request.h"
#include "wire/wire.h"

namespace plc_sim {

// The two requests behind every connect. They carry 0 and 1, whatever the running number is.
Bytes directory_start_request();
Bytes directory_request();

// One block of names in UTF-8 with the '#' before each subscript, at most 65535 of them; those of one program carry its
// number. A name is cut at 511 units.
Bytes resolve_request(uint16_t sequence, std::optional<uint8_t> program, const std::vector<std::string>& names);

// At most 509 references: a frame holds no more.
Bytes value_request(uint16_t sequence, const std::vector<Reference>& references);

// values in the order of the wire, two bytes for each unit, at most 255 units.
Bytes write_request(uint16_t sequence, const Handle& handle, const Bytes& values);

// Sets or clears one of the sixteen bits of a word.
Bytes masked_write_request(uint16_t sequence, const Handle& handle, unsigned bit, bool value);

// Set or reset. The area is the handle's, or the device code of a bit in a structure.
Bytes bit_request(uint16_t sequence, uint8_t area, uint32_t address, bool value);

}  // namespace plc_sim
