// What every transfer does first.
#include "plc_driver/host/transfer.h"

#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/directory.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/tags/tag_table.h"
#include "plc_ethernet.h"

namespace plc {

// Off the road of a transfer.
[[gnu::cold, gnu::noinline]] bool connect_now(ConnContext* conn) {
  if (KV8000_init(conn) != 0) return false;
  init = 1;
  return true;
}

uint32_t open_transfer(ConnContext* conn, const char* failure) {
  if (init == 0 && !connect_now(conn)) {
    print_line(failure);
    return PLC_NO_CONNECT;
  }
  constexpr uint32_t kAlsoNoDelayMs = 3;  // treated like 0 (D38)
  if (conn->delay_ms != 0 && conn->delay_ms != kAlsoNoDelayMs) ev_sleep_ms(conn->delay_ms);
  return PLC_OK;
}

TagTable* load_table(const char* path, const char* file_name, TableLines lines) {
  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
  const uint32_t* counts = build_tagtable(&entries, &groups, path, groupID_table);
  if (counts == nullptr || (counts[0] == 0 && counts[1] == 0)) {
    if (lines == TableLines::kWrites) {
      print_build_failed_line();
    } else {
      print_text("build tag table failed!");
    }
    free_tag_arrays(entries, groups);
    return nullptr;
  }
  if (add_tagtable(&g_plc_tags, file_name, entries, groups, counts) < 0) {
    if (lines == TableLines::kWrites) {
      print_line("add_tagtable failed!");
    } else {
      print_text("add_tagtable failed!");
    }
    free_tag_arrays(entries, groups);
    return nullptr;
  }
  return get_tagtable(&g_plc_tags, file_name);
}

TagTable* open_table(const char* file_name, TableLines lines) {
  TagTable* table = get_tagtable(&g_plc_tags, file_name);
  return table != nullptr ? table : load_table(file_name, file_name, lines);
}

}  // namespace plc
