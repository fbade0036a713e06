/* Turns the bytes that the driver stores for one value of 16 or 32 bits into the number that its type makes of them. */
#pragma once

#include <plc_driver.h>
#include <stdio.h>
#include <string.h>

enum { CODE_INT = 0xC3, CODE_DINT = 0xC4, CODE_REAL = 0xCA, CODE_END = 0xFFFF };

/* The row of the driver's type table with this name, when the type has 16 or 32 bits; else NULL. */
static const TypeEntry* find_word_type(const TypeEntry* types, const char* name) {
  for (const TypeEntry* type = types; type->code != CODE_END; ++type) {
    if (strcmp(type->name, name) == 0) return type->bits == 16 || type->bits == 32 ? type : NULL;
  }
  return NULL;
}

/* A value of 16 bits fills two bytes of the buffer. Only its type says whether their highest bit is a sign. */
static void print_value(const TypeEntry* type, const uint8_t* data) {
  const uint32_t low = data[0] | (uint32_t)data[1] << 8;
  const uint32_t bits = type->bits == 16 ? low : low | (uint32_t)data[2] << 16 | (uint32_t)data[3] << 24;
  float real;
  switch (type->code) {
    case CODE_INT:
      printf("%d\n", (int16_t)bits);
      break;
    case CODE_DINT:
      printf("%d\n", (int32_t)bits);
      break;
    case CODE_REAL:
      memcpy(&real, &bits, sizeof real);
      printf("%g\n", (double)real);
      break;
    default:
      printf("%u\n", bits);
  }
}
