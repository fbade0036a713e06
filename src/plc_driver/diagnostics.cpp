// The lines that the driver prints, where they are more than a text.
#include "plc_driver/diagnostics.h"

#include <cstdio>

namespace plc {

void print_line(const char* text) {
  fputs(text, stdout);
  fputs("\r\n", stdout);
}

void print_text(const char* text) { fputs(text, stdout); }

void print_server_address(const char* dotted) { printf("server ip = %s\r\n", dotted); }

void print_build_table(const char* path) { printf("build tag table for %s\r\n", path); }

void print_open_failed(const char* path, int line) { printf("[PLC] open %s file failed, at line: %d\r\n", path, line); }

void print_file_rejected(const char* path, uint32_t file_line, const char* reason) {
  printf("[PLC] tag file %s rejected, line %u: %s\r\n", path, static_cast<unsigned>(file_line), reason);
}

void print_tag_missing(uint32_t id, const char* file, uint32_t max, int line) {
  printf("[PLC] tag id %d is not exist in this tag list %s, max:%d, at line: %d\r\n", static_cast<int>(id), file,
         static_cast<int>(max), line);
}

void print_tag_missing_on_write(uint32_t id, const char* file, uint32_t max) {
  printf("tag id %d is not exist in this tag list %s, id_max:%d\n", static_cast<int>(id), file, static_cast<int>(max));
}

void print_structure_bit_name(const char* name) {
  fputs("tagName:", stdout);
  print_line(name);
}

void print_send_error() { puts("send error"); }

void print_build_failed_line() { puts("build tag table failed!"); }

void print_hex_dump(const uint8_t* bytes, int32_t length) {
  constexpr int32_t kBytesPerRow = 20;
  for (int32_t i = 0; i < length; ++i) {
    if (i % kBytesPerRow == 0) {
      if (i > 0) fputs("\r\n", stdout);
      printf("%p (%04d) :\t", static_cast<const void*>(bytes + i), static_cast<int>(i));
    }
    printf("%02x ", bytes[i]);
  }
  fputs("\r\n", stdout);
  fflush(stdout);
}

}  // namespace plc
