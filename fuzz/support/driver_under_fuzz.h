// The driver as the targets use it: set up over a memory transport, quiet, with host buffers of exactly the promised
// size.
#pragma once

#include <cstdint>
#include <string>

#include "plc_driver.h"

namespace fuzz {

// Silences standard output, initialises the driver and loads a tag file that has every type, shape, scope and device.
// Leaves it connected.
void start_driver();

// The same with this tag file.
void start_driver(std::string tags);

// Number of records in the tag file.
uint32_t tag_count();

// Forgets and frees the loaded tag files and sets the driver up anew, not connected.
void restart_driver();

// The host's record of the connection.
ConnContext* context();

// Ends the process when a transfer's result is none of those that the contract knows.
void check_result(uint32_t result);

// Bytes of RegValue.data that a host must give for this transfer (docs/host_contract.md).
size_t read_buffer_bytes(const TagEntry& tag, uint32_t count);
size_t write_buffer_bytes(const TagEntry& tag, uint32_t count);

// A host buffer of this size, filled with zeros, right before memory that may not be touched. One at a time.
uint8_t* host_buffer(size_t bytes);

// The record of a plain id, null when there is none.
const TagEntry* tag_at(uint32_t id);

// Puts the driver into its connected state, as a transfer that follows a good one finds it.
void connect_driver();

}  // namespace fuzz
