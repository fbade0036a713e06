/* A driver library from before libraries said which build they are: every call is done, nothing is transferred. */
#include "plc_driver.h"

uint32_t ev_plc_driver_info(DriverInfo* info) {
  info->driver_code = 722;
  info->driver_param = 1;
  return PLC_OK;
}

uint32_t ev_plc_init(CommSettings* settings) {
  (void)settings;
  return PLC_OK;
}

uint32_t ev_OMRON_plc_register(void) { return PLC_OK; }

uint32_t ev_plc_read(RegRequest* request, RegValue* value, ConnContext* conn) {
  (void)request;
  (void)value;
  (void)conn;
  return PLC_OK;
}

uint32_t ev_plc_write(RegRequest* request, RegValue* value, ConnContext* conn) {
  (void)request;
  (void)value;
  (void)conn;
  return PLC_OK;
}

uint32_t ev_OMRON_plc_read(BatchReadRequest* elements, int32_t count, ConnContext* conn) {
  (void)elements;
  (void)count;
  (void)conn;
  return PLC_OK;
}
