// One tag file -> its arrays of records, in two passes over its text.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Reads the file and stores its plain records and its groups of indexed records (null when it has none) through the out
// pointers; the caller owns both and gives them back with plc::free_tag_arrays. Writes the number of each group but the
// first into group_ids (2048 words) at the block of 8192 ids in which the group starts; entries of a file that turns
// out to be bad stay. Returns a static pair: number of plain records, largest indexed id (0 without groups). Returns
// null behind a printed line when the file cannot be opened, is rejected, or memory runs out; nothing is stored then.
PLC_PRIVATE_API uint32_t* build_tagtable(TagEntry** entries_out, IndexedTagEntry** groups_out, const char* path,
                                         uint32_t* group_ids);
}

namespace plc {

constexpr uint32_t kFirstIndexedId = 0x40000;
constexpr uint32_t kIdBlockShift = 13;  // a block holds 8192 ids
constexpr uint32_t kFirstIdBlock = 32;  // kFirstIndexedId >> kIdBlockShift
constexpr uint32_t kIdBlocks = 2048;
static_assert(kFirstIndexedId >> kIdBlockShift == kFirstIdBlock);

void free_tag_arrays(TagEntry* entries, IndexedTagEntry* groups);

}  // namespace plc
