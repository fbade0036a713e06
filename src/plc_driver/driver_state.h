// Every module-level variable of the driver: meaning, unit, who writes it, when it is reset. One thread at a time uses
// them; none is exported.
#pragma once

#include <sys/select.h>

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/tags/scope_match.h"
#include "plc_driver_hooks.h"

namespace plc {

// One string read that the host asked for.
struct StringRecord {
  uint32_t reg_id;
  uint32_t aux;     // 0, read by nobody
  uint16_t length;  // as requested, 16-bit units
  uint8_t state;    // 0 requested, 2 value received
};

// One element of a batch.
struct BatchSlot {
  char text[512];  // not used
  uint32_t reg_id;
  uint32_t element;
  uint16_t run;  // consecutive elements that this slot stands for
};

// One name of a classified batch.
struct ReadItem {
  char name[512];
  uint32_t reg_id;
  uint32_t element;
};

constexpr uint32_t kStringRecords = 50;
constexpr uint32_t kBatchSlots = 100;
constexpr uint32_t kGroupIds = 2048;

// Hidden where they are declared, so that panels reach them without a table of addresses.
#pragma GCC visibility push(hidden)

// Connection. init: 1 once connection and directory have been set up; set by a transfer's first step, cleared by a
// failed exchange and by ev_plc_init.
extern uint32_t init;
extern uint32_t ip_addr;            // copies of the settings, taken by ev_plc_init
extern int16_t port;                // ports above 32767 are negative here; the byte swap of the connect mends that
extern uint16_t sid;                // sequence number of the next request; one step per request, reset by ev_plc_init
extern CommSettings* tcp_settings;  // the host's record, null until ev_plc_init
extern uint8_t EmptyBuff[512];      // stale input ends here, never read
extern fd_set stored_sockets;       // descriptors that the driver stored in a context and has not closed

// Directory of the controller's programs; written at each connect, never cleared.
extern LocalRecord LocalInfo[];
extern const uint32_t directory_capacity;  // records that it holds: 50; guarded: all that a directory can announce
extern uint32_t localNum;                  // records of the last directory, at most directory_capacity

// Tag files. The list is emptied by ev_plc_init; the group numbers stay.
extern TagTable g_plc_tags;                // its link pair is the list's head
extern uint32_t groupID_table[kGroupIds];  // by block of 8192 ids: number of the group that starts there

// String reads; never reset.
extern StringRecord StringInfo[kStringRecords];
extern uint32_t string_id;  // records in use

// The batch that is being read; rebuilt by every batch.
extern BatchSlot OMRON_TEMP[kBatchSlots];
extern ReadItem INIT_TAG[kBatchSlots];
extern uint32_t batch_slots;  // slots of the last batch: what the next one clears of both tables
extern uint32_t reg_init_num;
extern uint32_t reg_interact_num;

// Where printed lines go: null is standard output.
extern PlcLineSink line_sink;
extern void* line_context;

#pragma GCC visibility pop

}  // namespace plc
