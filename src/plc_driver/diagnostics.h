// How the driver prints its lines, on standard output; docs/diagnostics.md has them all. Only this file and guard_lines
// print.
#pragma once

#include <cstdint>

namespace plc {

// One line, ended by carriage return and line feed.
void print_line(const char* text);

// Text without a line end.
void print_text(const char* text);

void print_server_address(const char* dotted);
void print_build_table(const char* path);
void print_open_failed(const char* path, int line);
void print_file_rejected(const char* path, uint32_t file_line, const char* reason);
void print_tag_missing(uint32_t id, const char* file, uint32_t max, int line);
void print_tag_missing_on_write(uint32_t id, const char* file, uint32_t max);
void print_structure_bit_name(const char* name);

// A line feed alone ends these two; no carriage return.
void print_send_error();
void print_build_failed_line();

// Hex dump of FlushBuff, flushed.
void print_hex_dump(const uint8_t* bytes, int32_t length);

}  // namespace plc
