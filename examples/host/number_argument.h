/* Turns an argument of a command line into a whole number, and refuses every text that is not one. */
#pragma once

#include <stdio.h>
#include <stdlib.h>

/* Stores the number, which is decimal or begins with 0x. Returns 0, after a message, for any other text. */
static int number_argument(const char* name, const char* text, long long least, long long most, long long* number) {
  const char* digits = text[0] == '-' ? text + 1 : text;
  const int base = digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X') ? 16 : 10;
  char* end = NULL;
  *number = strtoll(text, &end, base);
  /* strtoll passes over blanks and a plus. A number that is too large for it is out of range here, too. */
  if (digits[0] >= '0' && digits[0] <= '9' && *end == '\0' && *number >= least && *number <= most) return 1;
  fprintf(stderr, "%s: '%s' is not a whole number from %lld to %lld\n", name, text, least, most);
  return 0;
}

/* The same for the number of a variable: records have 0 to 65535, indexed variables begin at 262144 (0x40000). */
static int id_argument(const char* text, long long* id) {
  if (!number_argument("ID", text, 0, 0xFFFFFF, id)) return 0;
  if (*id <= 0xFFFF || *id >= 0x40000) return 1;
  /* The driver would drop the high half, and reach another variable. */
  fprintf(stderr, "ID: no variable has the number %s: records have 0 to 65535, indexed ids begin at 262144\n", text);
  return 0;
}
