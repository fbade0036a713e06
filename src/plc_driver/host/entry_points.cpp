// The exported entry points.
#include <signal.h>

#include <cstring>

#include "plc_driver.h"
#include "plc_driver/build_kind.h"
#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/host/batch_limits.h"
#include "plc_driver/host/program_choice.h"
#include "plc_driver/host/register_id.h"
#include "plc_driver/host/transfer.h"
#include "plc_driver/protocol/reads/read_batch.h"
#include "plc_driver/protocol/reads/read_plan.h"
#include "plc_driver/protocol/reads/read_single.h"
#include "plc_driver/protocol/writes/write_dispatch.h"
#include "plc_driver/tags/scope_match.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/tags/tag_lookup.h"
#include "plc_driver/tags/tag_table.h"

namespace plc {
namespace {

// A controller that is switched off must not end the host by a signal; a handler of the host's own stays.
void ignore_broken_pipes() {
  struct sigaction action = {};
  // One place holds both kinds of handler, and the default action is none, whatever the flags say.
  if (sigaction(SIGPIPE, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
  action.sa_flags = 0;
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}

bool can_transfer(const RegRequest* request, const RegValue* value, const ConnContext* conn) {
  return tcp_settings != nullptr && request != nullptr && value != nullptr && value->data != nullptr && conn != nullptr;
}

// The limit that the reads' range message names, and whether the id is past it.
bool is_missing(const TagTable& table, uint32_t id, uint32_t* max) {
  const IdRange range = check_id(table, id);
  *max = range == IdRange::kIndexedMissing ? table.max_indexed_id : table.tag_count;
  return range != IdRange::kInside;
}

// The scope of a single read: plain variables match their program by prefix, indexed ones as a whole (D39).
NameScope read_scope(const TagEntry& entry, uint32_t id) {
  if (entry.is_global == 1) return {true, 0};
  const LocalRecord* program = id < kFirstIndexedId ? choose_program(entry.scope_name)
                                                    : match_scope_whole(LocalInfo, localNum, entry.scope_name);
  return {false, program != nullptr ? static_cast<uint8_t>(program->number) : entry.local_index};
}

// Clears what the last batch left in both tables.
void clear_slots() {
  for (uint32_t i = 0; i < batch_slots; ++i) {
    OMRON_TEMP[i].reg_id = 0;
    OMRON_TEMP[i].element = 0;
    OMRON_TEMP[i].run = 0;
    memset(INIT_TAG[i].name, 0, strlen(INIT_TAG[i].name));
    INIT_TAG[i].reg_id = 0;
    INIT_TAG[i].element = 0;
  }
}

// Fills one slot per element. Returns the sum of the counts.
uint32_t fill_slots(BatchReadRequest* elements, uint32_t count) {
  clear_slots();
  batch_slots = count;
  uint32_t total = 0;
  for (uint32_t i = 0; i < count; ++i) {
    OMRON_TEMP[i].reg_id = take_register_id(&elements[i].reg_type, elements[i].address);
    OMRON_TEMP[i].element = element_offset(elements[i].address);
    OMRON_TEMP[i].run = elements[i].count;
    total += elements[i].count;
  }
  return total;
}

// The first slot that is out of range prints its line.
bool are_slots_inside(const TagTable& table, const char* file_name, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t max = 0;
    if (is_missing(table, OMRON_TEMP[i].reg_id, &max)) {
      print_tag_missing(OMRON_TEMP[i].reg_id, file_name, max, __LINE__);
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace plc

using namespace plc;

extern "C" {

uint32_t ev_plc_driver_info(DriverInfo* info) {
  if (info == nullptr) return PLC_FAILED;
  info->driver_code = 722;
  info->driver_param = 1;
  return PLC_OK;
}

uint32_t ev_plc_init(CommSettings* settings) {
  if (settings == nullptr) return PLC_FAILED;
  ip_addr = settings->ip_address;
  port = static_cast<int16_t>(settings->tcp_port);
  sid = 0;
  init = 0;
  tcp_settings = settings;
  init_tag(&g_plc_tags);
  ignore_broken_pipes();
  print_line("ev_plc_init ok");
  return PLC_OK;
}

uint32_t ev_OMRON_plc_register(void) { return PLC_OK; }

uint32_t ev_plc_read(RegRequest* request, RegValue* value, ConnContext* conn) {
  if (!can_transfer(request, value, conn)) return PLC_FAILED;
  const uint32_t opened = open_transfer(conn, "ev_plc_read init fail");
  if (opened != PLC_OK) return opened;
  const uint32_t id = take_register_id(&request->reg_type, request->address);
  char file_name[kFileNameBytes];
  get_csv_name(tcp_settings, request, file_name);
  TagTable* table = open_table(file_name, TableLines::kReads);
  if (table == nullptr) return PLC_FAILED;
  uint32_t max = 0;
  if (is_missing(*table, id, &max)) {
    print_tag_missing(id, file_name, max, __LINE__);
    return PLC_FAILED;
  }
  const TagEntry* entry = find_entry(*table, groupID_table, id);
  if (entry == nullptr) return PLC_FAILED;
  if (id < kFirstIndexedId && !has_one_program(*entry)) return PLC_FAILED;
  return read_register(*entry, read_scope(*entry, id), id, element_offset(request->address), value, conn);
}

uint32_t ev_plc_write(RegRequest* request, RegValue* value, ConnContext* conn) {
  if (!can_transfer(request, value, conn)) return PLC_FAILED;
  const uint32_t opened = open_transfer(conn, "ev_plc_write init fail");
  if (opened != PLC_OK) return opened;
  const uint32_t id = take_register_id(&request->reg_type, request->address);
  char file_name[kFileNameBytes];
  get_csv_name(tcp_settings, request, file_name);
  TagTable* table = open_table(file_name, TableLines::kWrites);
  if (table == nullptr) return PLC_FAILED;
  if (check_id(*table, id) != IdRange::kInside) {
    print_tag_missing_on_write(id, file_name, table->tag_count);  // also for an indexed id (D40)
    return PLC_FAILED;
  }
  const TagEntry* entry = find_entry(*table, groupID_table, id);
  if (entry == nullptr) return PLC_FAILED;
  if (!has_one_program(*entry)) return PLC_FAILED;
  TagEntry tag = *entry;
  // Writes match every variable's program by prefix, indexed ones too (D41).
  const LocalRecord* program = choose_program(tag.scope_name);
  if (program != nullptr) tag.local_index = static_cast<uint8_t>(program->number);
  return static_cast<uint32_t>(dispatch_write(request, value, conn, &tag));
}

uint32_t ev_OMRON_plc_read(BatchReadRequest* elements, int32_t count, ConnContext* conn) {
  if (tcp_settings == nullptr || elements == nullptr || conn == nullptr) return PLC_FAILED;
  const uint32_t opened = open_transfer(conn, "ev_plc_read init fail");  // the single read's line, as it is (D42)
  if (opened != PLC_OK) return opened;
  if (count <= 0) return PLC_OK;
  if (count > static_cast<int32_t>(kBatchSlots)) return PLC_FAILED;
  const uint32_t slots = static_cast<uint32_t>(count);
  const uint32_t total = fill_slots(elements, slots);
  char file_name[kFileNameBytes];
  get_csv_name_batch(tcp_settings, elements, file_name);
  TagTable* table = open_table(file_name, TableLines::kReads);
  if (table == nullptr || !are_slots_inside(*table, file_name, slots)) return PLC_FAILED;
  if constexpr (kGuarded) {
    if (!can_batch_be_right(*table, slots)) return PLC_FAILED;
  }
  Reg_Classify_Sort(table, count);
  return read_batch(table, elements, slots, total, conn);
}
}
