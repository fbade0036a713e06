// The named string writes: one statement each.
#include "plc_driver/protocol/writes/write_core.h"
#include "plc_driver/protocol/writes/write_functions.h"

extern "C" {

int32_t ev_plc_write_string(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return plc::write_text(request, value, conn, tag, plc::kGlobal);
}

int32_t ev_plc_write_string_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                  uint8_t local_index) {
  return plc::write_text(request, value, conn, tag, plc::local_scope(local_index));
}
}
