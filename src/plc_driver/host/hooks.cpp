// What programs that embed the driver use beside the entry points.
#include "plc_driver_hooks.h"

#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/host/transfer.h"
#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/reads/string_copies.h"
#include "plc_driver/tags/tag_table.h"

namespace plc {
namespace {

// Every variable of driver_state as it is in a library just loaded. Memory has been given back, and the sockets, which
// emptied their set.
void clear_state() {
  init = 0;
  ip_addr = 0;
  port = 0;
  sid = 0;
  tcp_settings = nullptr;
  memset(EmptyBuff, 0, sizeof EmptyBuff);
  memset(LocalInfo, 0, directory_capacity * sizeof LocalInfo[0]);
  localNum = 0;
  memset(&g_plc_tags, 0, sizeof g_plc_tags);
  memset(groupID_table, 0, sizeof groupID_table);
  memset(StringInfo, 0, sizeof StringInfo);
  string_id = 0;
  memset(OMRON_TEMP, 0, sizeof OMRON_TEMP);
  memset(INIT_TAG, 0, sizeof INIT_TAG);
  batch_slots = 0;
  reg_init_num = 0;
  reg_interact_num = 0;
  line_sink = nullptr;
  line_context = nullptr;
}

}  // namespace
}  // namespace plc

using namespace plc;

extern "C" {

void plc_driver_set_line_sink(PlcLineSink sink, void* context) {
  line_sink = sink;
  line_context = context;
}

uint32_t plc_driver_load_tags(uint32_t ip_address, uint16_t area, const char* path) {
  if (tcp_settings == nullptr || path == nullptr) return PLC_FAILED;
  char file_name[kFileNameBytes];
  write_file_name(ip_address, area, file_name);
  if (get_tagtable(&g_plc_tags, file_name) != nullptr) return PLC_FAILED;
  return load_table(path, file_name, TableLines::kReads) != nullptr ? PLC_OK : PLC_FAILED;
}

uint32_t plc_driver_connect(ConnContext* conn) {
  if (tcp_settings == nullptr || conn == nullptr) return PLC_FAILED;
  return init != 0 || connect_now(conn) ? PLC_OK : PLC_NO_CONNECT;
}

void plc_driver_release(ConnContext* conn) {
  close_stored_sockets();
  if (conn != nullptr) conn->socket_fd = -1;
  free_tables(&g_plc_tags);
  free_string_copies();
  clear_state();
}
}
