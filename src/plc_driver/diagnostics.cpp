// The lines that the driver prints, where they are more than a text.
#include "plc_driver/diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "plc_driver/driver_state.h"

namespace plc {

void print_text(const char* text) {
  if (line_sink != nullptr) {
    line_sink(line_context, text, static_cast<uint32_t>(strlen(text)));
  } else {
    fputs(text, stdout);
  }
}

void print_line(const char* text) {
  print_text(text);
  print_text("\r\n");
}

void print_numbers(const char* format, ...) {
  char text[kFormedBytes];
  va_list numbers;
  va_start(numbers, format);
  vsnprintf(text, sizeof text, format, numbers);
  va_end(numbers);
  print_text(text);
}

void print_server_address(const char* dotted) {
  print_text("server ip = ");
  print_line(dotted);
}

void print_build_table(const char* path) {
  print_text("build tag table for ");
  print_line(path);
}

void print_open_failed(const char* path, int line) {
  print_text("[PLC] open ");
  print_text(path);
  print_numbers(" file failed, at line: %d\r\n", line);
}

void print_file_rejected(const char* path, uint32_t file_line, const char* reason) {
  print_text("[PLC] tag file ");
  print_text(path);
  print_numbers(" rejected, line %u: ", static_cast<unsigned>(file_line));
  print_line(reason);
}

void print_tag_missing(uint32_t id, const char* file, uint32_t max, int line) {
  print_numbers("[PLC] tag id %d is not exist in this tag list ", static_cast<int>(id));
  print_text(file);
  print_numbers(", max:%d, at line: %d\r\n", static_cast<int>(max), line);
}

void print_tag_missing_on_write(uint32_t id, const char* file, uint32_t max) {
  print_numbers("tag id %d is not exist in this tag list ", static_cast<int>(id));
  print_text(file);
  print_numbers(", id_max:%d\n", static_cast<int>(max));
}

void print_structure_bit_name(const char* name) {
  print_text("tagName:");
  print_line(name);
}

void print_send_error() { print_text("send error\n"); }

void print_build_failed_line() { print_text("build tag table failed!\n"); }

void print_hex_dump(const uint8_t* bytes, int32_t length) {
  constexpr uint32_t kBytesPerRow = 20;
  for (int32_t i = 0; i < length; ++i) {
    if (static_cast<uint32_t>(i) % kBytesPerRow == 0) {
      if (i > 0) print_text("\r\n");
      print_numbers("%p (%04d) :\t", static_cast<const void*>(bytes + i), static_cast<int>(i));
    }
    print_numbers("%02x ", bytes[i]);
  }
  print_text("\r\n");
  if (line_sink == nullptr) fflush(stdout);
}

}  // namespace plc
