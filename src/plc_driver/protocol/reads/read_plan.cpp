// Classification of a batch.
#include "plc_driver/protocol/reads/read_plan.h"

#include <cstring>

#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/tags/element_name.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/tags/tag_lookup.h"

namespace plc {
namespace {

constexpr uint16_t kRunLimit = 50;  // merging stops here

void print_out_of_range() { print_line("Index out of range!"); }

// The slot's record. Without one the pass ends; the line is printed for indexed ids alone.
const TagEntry* find_slot_entry(const TagTable& table, const BatchSlot& slot) {
  const TagEntry* entry = find_entry(table, groupID_table, slot.reg_id);
  if (entry == nullptr && slot.reg_id >= kFirstIndexedId) print_out_of_range();
  return entry;
}

// Lowers reg_init_num by one when some neighbours share an id. False when the pass ends here.
bool scan_neighbours(const TagTable& table, uint32_t slots) {
  for (uint32_t i = 0; i + 1 < slots; ++i) {
    const BatchSlot& slot = OMRON_TEMP[i];
    if (slot.reg_id >= kFirstIndexedId && find_slot_entry(table, slot) == nullptr) return false;
    if (slot.reg_id == OMRON_TEMP[i + 1].reg_id) {
      reg_init_num = slots - 1;
      return true;
    }
  }
  return true;
}

void make_item(uint32_t item, const BatchSlot& slot, const char* name, const SubscriptText& text) {
  ReadItem& made = INIT_TAG[item];
  const size_t name_length = strlen(name);
  memcpy(made.name, name, name_length);
  memcpy(made.name + name_length, text.data(), text.length());
  made.name[name_length + text.length()] = '\0';
  made.reg_id = slot.reg_id;
  made.element = slot.element;
}

// Merges the slots that continue the run of the first one.
void merge_run(uint32_t first, uint32_t slots) {
  BatchSlot& head = OMRON_TEMP[first];
  for (uint32_t i = first; head.run < kRunLimit && i + 1 < slots; ++i) {
    const BatchSlot& next = OMRON_TEMP[i + 1];
    if (next.reg_id != OMRON_TEMP[i].reg_id || next.element != OMRON_TEMP[i].element + 1) return;
    --reg_interact_num;
    ++head.run;
  }
}

bool has_item(uint32_t items, const char* name) {
  for (uint32_t i = 0; i < items; ++i) {
    if (strcmp(INIT_TAG[i].name, name) == 0) return true;
  }
  return false;
}

// Makes the item of the slot at *at, if it makes one, and moves on. False when the pass ends here.
bool classify_slot(const TagTable& table, uint32_t slots, uint32_t* at, uint32_t* items) {
  BatchSlot& slot = OMRON_TEMP[*at];
  const TagEntry* entry = find_slot_entry(table, slot);
  if (entry == nullptr) return false;
  if (entry->dim1_high == 0 && entry->string_length == 0) {
    make_item((*items)++, slot, entry->name, SubscriptText({}, false));
    ++*at;
    return true;
  }
  if (entry->bit_width == 1) {
    Subscripts subscripts;
    if (!form_item_subscripts(*entry, slot.element, &subscripts)) {
      print_out_of_range();
      return false;
    }
    make_item((*items)++, slot, entry->name, SubscriptText(subscripts, false));
    ++*at;
    return true;
  }
  merge_run(*at, slots);
  if (!has_item(*items, entry->name)) make_item((*items)++, slot, entry->name, SubscriptText({}, false));
  *at += slot.run;
  return slot.run > 0;
}

}  // namespace
}  // namespace plc

using namespace plc;

extern "C" {

void Reg_Classify_Sort(TagTable* table, int32_t slotCount) {
  reg_init_num = static_cast<uint32_t>(slotCount);
  reg_interact_num = static_cast<uint32_t>(slotCount);
  if (slotCount <= 0) return;
  const uint32_t given = static_cast<uint32_t>(slotCount);
  const uint32_t slots = given < kBatchSlots ? given : kBatchSlots;
  if (!scan_neighbours(*table, slots)) return;
  uint32_t items = 0;
  for (uint32_t at = 0; at < slots;) {
    if (!classify_slot(*table, slots, &at, &items)) return;
  }
}
}
