// How the driver prints its lines, on standard output or into the sink that a program has set; docs/diagnostics.md has
// them all. Only this file prints.
#pragma once

#include <cstdint>

namespace plc {

// One line, ended by carriage return and line feed.
void print_line(const char* text);

// Text without a line end.
void print_text(const char* text);

// Room for a formed text and its terminator, on the stack.
constexpr uint32_t kFormedBytes = 128;

// As printf, for numbers among fixed words, which fit the room. Names and paths are texts: they may be longer.
void print_numbers(const char* format, ...) __attribute__((format(printf, 1, 2)));

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
