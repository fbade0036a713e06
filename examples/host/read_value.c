/* A small host, linked against the driver: reads one 16- or 32-bit variable of a controller by its number.
 *
 *   read_value ADDRESS PORT AREA ID TYPE [ELEMENT]
 *
 * The tag file of the area, PLC<address in hexadecimal>_<area>.csv, is read from the working directory; ID is the
 * variable's line in it, from 0, and TYPE the type of that line: the driver passes bytes on, and the host knows what
 * they mean. */
#include <arpa/inet.h>
#include <plc_driver.h>
#include <stdio.h>
#include <stdlib.h>

#include "value_of_type.h"

/* The driver keeps a pointer to the settings, so they live as long as the program. */
static CommSettings settings;

int main(int argc, char** argv) {
  struct in_addr address;
  const TypeEntry* type = argc < 6 ? NULL : find_word_type(type_list, argv[5]);
  if (type == NULL || argc > 7 || inet_pton(AF_INET, argv[1], &address) != 1) {
    fprintf(stderr, "usage: read_value ADDRESS PORT AREA ID TYPE [ELEMENT]\n");
    return 2;
  }
  const uint32_t id = (uint32_t)strtoul(argv[4], NULL, 0);
  const uint32_t element = argc == 7 ? (uint32_t)strtoul(argv[6], NULL, 0) : 0;

  settings.ip_address = ntohl(address.s_addr);
  settings.tcp_port = (uint16_t)strtoul(argv[2], NULL, 10);
  ev_plc_init(&settings);

  /* Room for what one element can become: a whole reply. */
  uint8_t data[4096] = {0};
  RegRequest request = {0};
  request.area = (uint16_t)strtoul(argv[3], NULL, 10);
  request.reg_type = (uint8_t)(id >> 16);
  request.address = (id & 0xFFFF) << 16 | (element & 0xFFFF);
  RegValue value = {1, data};
  ConnContext connection = {.socket_fd = -1, .recv_timeout_s = 2};

  /* The first transfer connects. After a failure the next one connects again. */
  const uint32_t result = ev_plc_read(&request, &value, &connection);
  if (result != PLC_OK) {
    fprintf(stderr, "read failed: %u\n", result);
    return 1;
  }
  printf("variable %u element %u = ", id, element);
  print_value(type, data);
  return 0;
}
