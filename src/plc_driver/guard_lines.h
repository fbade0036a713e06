// The lines that the guarded build prints beside those of diagnostics; each tells why a call failed or what was
// dropped.
#pragma once

#include <cstdint>

namespace plc {

// "[PLC] guard: ", the text, then carriage return and line feed.
void print_guard(const char* text);

// Why a connect failed, by the system's error number.
void print_connect_error(int error);

void print_cut_off(uint32_t received);
void print_connection_lost(int error);
void print_dropped(uint32_t replies);
void print_incomplete_names(uint32_t whole, uint32_t asked);
void print_wrong_values(uint32_t received_bytes, uint32_t asked_bytes);
void print_incomplete_directory(uint32_t whole, uint32_t announced);

// What names the refused request: "the names".
void print_refused(const char* request, uint32_t status);

}  // namespace plc
