// Type names, CIP type codes and bit widths, with the look-ups by code.
#include "plc_driver/tags/data_types.h"

#include <cstring>

#include "plc_driver/diagnostics.h"

static constexpr uint16_t kEndCode = 0xFFFF;

// Name of the last type2str; type2bits clears it.
static char type_str[50];

extern "C" {

// Not in code order: 0xCE and 0xCF stand behind STRING2, and the first match of a search decides (D3).
const TypeEntry type_list[22] = {
    {"BOOL", 1, 0xC1},          {"SINT", 8, 0xC2},   {"INT", 16, 0xC3},    {"DINT", 32, 0xC4},
    {"LINT", 64, 0xC5},         {"USINT", 8, 0xC6},  {"UINT", 16, 0xC7},   {"UDINT", 32, 0xC8},
    {"ULINT", 64, 0xC9},        {"REAL", 32, 0xCA},  {"LREAL", 64, 0xCB},  {"STIME", 0, 0xCC},
    {"DATE", 0, 0xCD},          {"STRING", 0, 0xD0}, {"BYTE", 8, 0xD1},    {"WORD", 16, 0xD2},
    {"DWORD", 32, 0xD3},        {"LWORD", 64, 0xD4}, {"STRING2", 0, 0xD5}, {"TIME_OF_DAY", 0, 0xCE},
    {"DATE_AND_TIME", 0, 0xCF}, {"", 0, kEndCode},
};

const uint32_t pow_val[2] = {1, 10};
}

// The row with this code, or null behind the message.
static const TypeEntry* find_code(uint32_t code) {
  memset(type_str, 0, sizeof type_str);
  for (const TypeEntry* row = type_list; row->code != kEndCode; ++row) {
    if (row->code == code) return row;
  }
  plc::print_text("don't find this type id");
  return nullptr;
}

extern "C" {

char* type2str(uint32_t code) {
  const TypeEntry* row = find_code(code);
  if (row == nullptr) return nullptr;
  memcpy(type_str, row->name, strlen(row->name));
  return type_str;
}

// Clears the name buffer although it returns no name: the buffer never holds the name of another look-up (D4).
uint32_t type2bits(uint32_t code) {
  const TypeEntry* row = find_code(code);
  return row == nullptr ? 0 : row->bits;
}

int32_t keyence_gettype(int32_t bits, int32_t fallback) {
  switch (bits) {
    case 0:
      return fallback;
    case 1:
    case 16:
      return 1;
    case 32:
      return 2;
    case 64:
      return 4;
    default:
      return bits;
  }
}

int32_t keyence_getnum(int32_t bits, int32_t count) {
  switch (bits) {
    case 0:
      return 1;
    case 1:
    case 8:
      return count;
    case 16:
      return count / 2;
    case 32:
      return count / 4;
    case 64:
      return count / 8;
    default:
      return bits;
  }
}
}

namespace plc {

const TypeEntry* find_type(const char* name, uint32_t length) {
  for (const TypeEntry& row : type_list) {
    if (row.name[0] != name[0]) continue;
    if (strncmp(row.name, name, length) == 0 && row.name[length] == '\0') return &row;
  }
  return nullptr;
}

}  // namespace plc
