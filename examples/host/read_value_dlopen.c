/* The host of read_value.c with the driver loaded at run time, as a panel's runtime does it.
 *
 *   read_value_dlopen LIBRARY ADDRESS PORT AREA ID [ELEMENT] */
#include <arpa/inet.h>
#include <dlfcn.h>
#include <plc_driver.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint32_t InitFunction(CommSettings* settings);
typedef uint32_t ReadFunction(RegRequest* request, RegValue* value, ConnContext* conn);

/* The driver keeps a pointer to the settings, so they live as long as the program. */
static CommSettings settings;

/* Stores the address of one of the library's functions. Returns 0 when it has none of that name. */
static int find(void* library, const char* name, void* function) {
  void* address = dlsym(library, name);
  memcpy(function, &address, sizeof address);
  return address != NULL;
}

int main(int argc, char** argv) {
  struct in_addr address;
  if (argc < 6 || argc > 7 || inet_pton(AF_INET, argv[2], &address) != 1) {
    fprintf(stderr, "usage: read_value_dlopen LIBRARY ADDRESS PORT AREA ID [ELEMENT]\n");
    return 2;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  InitFunction* initialise;
  ReadFunction* read_register;
  if (library == NULL || !find(library, "ev_plc_init", &initialise) || !find(library, "ev_plc_read", &read_register)) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  const uint32_t id = (uint32_t)strtoul(argv[5], NULL, 0);
  const uint32_t element = argc == 7 ? (uint32_t)strtoul(argv[6], NULL, 0) : 0;

  settings.ip_address = ntohl(address.s_addr);
  settings.tcp_port = (uint16_t)strtoul(argv[3], NULL, 10);
  initialise(&settings);

  uint8_t data[4096] = {0};
  RegRequest request = {0};
  request.area = (uint16_t)strtoul(argv[4], NULL, 10);
  request.reg_type = (uint8_t)(id >> 16);
  request.address = (id & 0xFFFF) << 16 | (element & 0xFFFF);
  RegValue value = {1, data};
  ConnContext connection = {.socket_fd = -1, .recv_timeout_s = 2};

  const uint32_t result = read_register(&request, &value, &connection);
  if (result != PLC_OK) {
    fprintf(stderr, "read failed: %u\n", result);
    return 1;
  }
  const uint32_t bits = data[0] | (uint32_t)data[1] << 8 | (uint32_t)data[2] << 16 | (uint32_t)data[3] << 24;
  printf("variable %u element %u = %d\n", id, element, (int32_t)bits);
  return 0;
}
