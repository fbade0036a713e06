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

#include "number_argument.h"
#include "value_of_type.h"

/* The driver keeps a pointer to the settings, so they live as long as the program. */
static CommSettings settings;

int main(int argc, char** argv) {
  struct in_addr address;
  if (argc < 6 || argc > 7 || inet_pton(AF_INET, argv[1], &address) != 1) {
    fprintf(stderr, "usage: read_value ADDRESS PORT AREA ID TYPE [ELEMENT]\n");
    return 2;
  }
  const TypeEntry* type = find_word_type(type_list, argv[5]);
  if (type == NULL) {
    fprintf(stderr, "%s is not a type of 16 or 32 bits\n", argv[5]);
    return 2;
  }
  long long port, area, id, element = 0;
  if (!number_argument("PORT", argv[2], 1, 65535, &port) || !number_argument("AREA", argv[3], 0, 65535, &area) ||
      !id_argument(argv[4], &id) || (argc == 7 && !number_argument("ELEMENT", argv[6], 0, 65535, &element))) {
    return 2;
  }

  settings.ip_address = ntohl(address.s_addr);
  settings.tcp_port = (uint16_t)port;
  ev_plc_init(&settings);

  /* Room for what one element can become: a whole reply. */
  uint8_t data[4096] = {0};
  RegRequest request = {0};
  request.area = (uint16_t)area;
  request.reg_type = (uint8_t)(id >> 16);
  request.address = (uint32_t)(id & 0xFFFF) << 16 | (uint32_t)element;
  RegValue value = {1, data};
  ConnContext connection = {.socket_fd = -1, .recv_timeout_s = 2};

  /* The first transfer connects. After a failure the next one connects again. */
  const uint32_t result = ev_plc_read(&request, &value, &connection);
  if (result != PLC_OK) {
    fprintf(stderr, "read failed: %u\n", result);
    return 1;
  }
  printf("variable %lld element %lld = ", id, element);
  print_value(type, data);
  return 0;
}
