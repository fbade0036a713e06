// Register id -> record.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// Ids up to here are tested against the number of plain records by the range checks; 0x3FFFF passes them (D9).
constexpr uint32_t kLastCheckedPlainId = 0x3FFFE;

// How the range checks judge an id.
enum class IdRange { kInside, kPlainMissing, kIndexedMissing };

IdRange check_id(const TagTable& table, uint32_t id);

// The record of the id, or null: an index outside its group, a group that the table does not have, or a plain id that
// is not below the number of records. group_ids is the table of groups by block of ids, 2048 words; id is below 2^24.
TagEntry* find_entry(const TagTable& table, const uint32_t* group_ids, uint32_t id);

}  // namespace plc
