// The samples of a journal's row as bytes: as few as possible, for a day of them has to fit, and any bytes are safe to
// be read.
//
// A sample is a head byte and what the head says: bits 0 to 3 the form of the value, bit 4 that its time differs from
// the one before (the first: from the row's), bits 5 to 7 how much its alias is above the one before, 0: by how much
// follows. Behind the head: the difference of the alias, that of the time, the value. A number has as few bytes as hold
// it, the lowest first; a text its length and its bytes; what is not good the reason. In front of all stands the kind
// of the row, its highest bit where the values are unguarded: one driver has read them all. At the end stands a sum of
// the row, for a database notices a damaged page only when the page no longer makes sense.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_gateway/journal/journal.h"

namespace plc_gateway {

// A row with its samples as bytes.
struct PackedRow {
  uint64_t id = 0;
  Ms time = 0;
  uint64_t values = 0;
  std::string bytes;
};

// `alias_of` has an alias for each variable that the samples name; empty: they name aliases already.
PackedRow pack_row(uint64_t id, JournalRow::Kind kind, Ms time, const std::vector<Sample>& changes,
                   const std::vector<uint64_t>& alias_of);

// What the bytes hold, with the alias of each sample in place of its variable's index. False when the row is damaged.
bool unpack_row(uint64_t id, Ms time, uint64_t values, std::string_view bytes, JournalRow& row);

}  // namespace plc_gateway
