// What every transfer does first: connect lazily, pause, find the tag table.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// Connects and sets the connection flag. False when that fails.
bool connect_now(ConnContext* conn);

// Connects when the connection flag is 0, then pauses. Returns 0, or 2 behind the line failure.
uint32_t open_transfer(ConnContext* conn, const char* failure);

// How the lines about a tag file that cannot be had end.
enum class TableLines { kReads, kWrites };

// Loads the file at path as the table of this name; null behind a printed line.
TagTable* load_table(const char* path, const char* file_name, TableLines lines);

// The loaded table of this file, loaded on first use; null behind a printed line.
TagTable* open_table(const char* file_name, TableLines lines);

}  // namespace plc
