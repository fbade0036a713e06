/* A small host that writes: gives one DINT of a controller a whole number, and reads it back.
 *
 *   write_value ADDRESS PORT AREA ID VALUE */
#include <arpa/inet.h>
#include <plc_driver.h>
#include <stdio.h>

#include "number_argument.h"

static CommSettings settings;
static ConnContext connection = {.socket_fd = -1, .recv_timeout_s = 2};

/* A request is made anew for each transfer, because transfers change it. */
static RegRequest request_of(long long area, long long id) {
  RegRequest request = {0};
  request.area = (uint16_t)area;
  request.reg_type = (uint8_t)(id >> 16);
  request.address = (uint32_t)(id & 0xFFFF) << 16;
  return request;
}

int main(int argc, char** argv) {
  struct in_addr address;
  if (argc != 6 || inet_pton(AF_INET, argv[1], &address) != 1) {
    fprintf(stderr, "usage: write_value ADDRESS PORT AREA ID VALUE\n");
    return 2;
  }
  long long port, area, id, number;
  if (!number_argument("PORT", argv[2], 1, 65535, &port) || !number_argument("AREA", argv[3], 0, 65535, &area) ||
      !id_argument(argv[4], &id) || !number_argument("VALUE", argv[5], INT32_MIN, INT32_MAX, &number)) {
    return 2;
  }
  const uint32_t wanted = (uint32_t)number;

  settings.ip_address = ntohl(address.s_addr);
  settings.tcp_port = (uint16_t)port;
  ev_plc_init(&settings);

  /* Values in the buffer are little-endian, whatever the processor is. */
  uint8_t data[4] = {(uint8_t)wanted, (uint8_t)(wanted >> 8), (uint8_t)(wanted >> 16), (uint8_t)(wanted >> 24)};
  RegRequest request = request_of(area, id);
  RegValue value = {1, data};
  const uint32_t written = ev_plc_write(&request, &value, &connection);
  if (written != PLC_OK) {
    /* After PLC_FAILED the controller may have carried it out all the same: its reply may be what is missing. */
    fprintf(stderr, "write failed: %u\n", written);
    return 1;
  }

  uint8_t back[4] = {0};
  request = request_of(area, id);
  value = (RegValue){1, back};
  if (ev_plc_read(&request, &value, &connection) != PLC_OK) {
    fprintf(stderr, "written, but not read back\n");
    return 1;
  }
  const uint32_t found = back[0] | (uint32_t)back[1] << 8 | (uint32_t)back[2] << 16 | (uint32_t)back[3] << 24;
  printf("variable %lld = %d\n", id, (int32_t)found);
  return found == wanted ? 0 : 1;
}
