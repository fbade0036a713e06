// Every module-level variable of the driver.
#include "plc_driver/driver_state.h"

namespace plc {

uint32_t init;
uint32_t ip_addr;
int16_t port;
uint16_t sid;
CommSettings* tcp_settings;
uint8_t EmptyBuff[512];
fd_set stored_sockets;

uint32_t localNum;

TagTable g_plc_tags;
uint32_t groupID_table[kGroupIds];

StringRecord StringInfo[kStringRecords];
uint32_t string_id;

BatchSlot OMRON_TEMP[kBatchSlots];
ReadItem INIT_TAG[kBatchSlots];
uint32_t batch_slots;
uint32_t reg_init_num;
uint32_t reg_interact_num;

PlcLineSink line_sink;
void* line_context;

}  // namespace plc
