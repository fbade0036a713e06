// The list of loaded tag files.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Makes head an empty list. Nodes that were in it are dropped without being freed: whoever holds one keeps it (D8).
PLC_PRIVATE_API void init_tag(TagTable* head);

// Copies name into a new node, which takes over entries and groups, and links it at the front. counts is the pair that
// build_tagtable returns. Returns 1; -1 or -2 behind a message when memory runs out, the arrays then stay the caller's.
PLC_PRIVATE_API int add_tagtable(TagTable* head, const char* name, TagEntry* entries, IndexedTagEntry* groups,
                                 const uint32_t* counts);

// The first table from the front with this name, or null.
PLC_PRIVATE_API TagTable* get_tagtable(TagTable* head, const char* name);

// Write the tag file's name, "PLC", the address in upper-case hexadecimal, "_", the area in decimal, ".csv", into out
// (22 bytes) and return its length.
PLC_PRIVATE_API int get_csv_name(const CommSettings* settings, const RegRequest* request, char* out);
PLC_PRIVATE_API int get_csv_name_batch(const CommSettings* settings, const BatchReadRequest* elements, char* out);
}

namespace plc {

constexpr uint32_t kFileNameBytes = 22;  // PLCFFFFFFFF_65535.csv and its terminator

// What both of them write, from the address and the area.
int write_file_name(uint32_t ip_address, uint16_t area, char* out);

// Frees the tables of a list, also of one that init_tag has not made yet, which it then is.
void free_tables(TagTable* head);

}  // namespace plc
