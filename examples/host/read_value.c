/* A small host, linked against the driver: reads one 16- or 32-bit variable of a controller by its number.
 *
 *   read_value ADDRESS PORT AREA ID [ELEMENT]
 *
 * The tag file of the area, PLC<address in hexadecimal>_<area>.csv, is read from the working directory; ID is the
 * variable's line in it, from 0. */
#include <arpa/inet.h>
#include <plc_driver.h>
#include <stdio.h>
#include <stdlib.h>

/* The driver keeps a pointer to the settings, so they live as long as the program. */
static CommSettings settings;

int main(int argc, char** argv) {
  struct in_addr address;
  if (argc < 5 || argc > 6 || inet_pton(AF_INET, argv[1], &address) != 1) {
    fprintf(stderr, "usage: read_value ADDRESS PORT AREA ID [ELEMENT]\n");
    return 2;
  }
  const uint32_t id = (uint32_t)strtoul(argv[4], NULL, 0);
  const uint32_t element = argc == 6 ? (uint32_t)strtoul(argv[5], NULL, 0) : 0;

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
  const uint32_t bits = data[0] | (uint32_t)data[1] << 8 | (uint32_t)data[2] << 16 | (uint32_t)data[3] << 24;
  printf("variable %u element %u = %d\n", id, element, (int32_t)bits);
  return 0;
}
