/* The host of read_value.c with the driver loaded at run time, as a panel's runtime does it.
 *
 *   read_value_dlopen LIBRARY ADDRESS PORT AREA ID TYPE [ELEMENT] */
#include <arpa/inet.h>
#include <dlfcn.h>
#include <plc_driver.h>
#include <stdio.h>
#include <string.h>

#include "number_argument.h"
#include "value_of_type.h"

typedef uint32_t InitFunction(CommSettings* settings);
typedef uint32_t ReadFunction(RegRequest* request, RegValue* value, ConnContext* conn);

/* The driver keeps a pointer to the settings, so they live as long as the program. */
static CommSettings settings;

/* Stores the address of one of the library's functions or tables. Returns 0 when it has none of that name. */
static int find(void* library, const char* name, void* pointer) {
  void* address = dlsym(library, name);
  memcpy(pointer, &address, sizeof address);
  return address != NULL;
}

int main(int argc, char** argv) {
  struct in_addr address;
  if (argc < 7 || argc > 8 || inet_pton(AF_INET, argv[2], &address) != 1) {
    fprintf(stderr, "usage: read_value_dlopen LIBRARY ADDRESS PORT AREA ID TYPE [ELEMENT]\n");
    return 2;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  InitFunction* initialise;
  ReadFunction* read_register;
  const TypeEntry* types;
  if (library == NULL || !find(library, "ev_plc_init", &initialise) || !find(library, "ev_plc_read", &read_register) ||
      !find(library, "type_list", &types)) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  const TypeEntry* type = find_word_type(types, argv[6]);
  if (type == NULL) {
    fprintf(stderr, "%s is not a type of 16 or 32 bits\n", argv[6]);
    return 2;
  }
  long long port, area, id, element = 0;
  if (!number_argument("PORT", argv[3], 1, 65535, &port) || !number_argument("AREA", argv[4], 0, 65535, &area) ||
      !id_argument(argv[5], &id) || (argc == 8 && !number_argument("ELEMENT", argv[7], 0, 65535, &element))) {
    return 2;
  }

  settings.ip_address = ntohl(address.s_addr);
  settings.tcp_port = (uint16_t)port;
  initialise(&settings);

  uint8_t data[4096] = {0};
  RegRequest request = {0};
  request.area = (uint16_t)area;
  request.reg_type = (uint8_t)(id >> 16);
  request.address = (uint32_t)(id & 0xFFFF) << 16 | (uint32_t)element;
  RegValue value = {1, data};
  ConnContext connection = {.socket_fd = -1, .recv_timeout_s = 2};

  const uint32_t result = read_register(&request, &value, &connection);
  if (result != PLC_OK) {
    fprintf(stderr, "read failed: %u\n", result);
    return 1;
  }
  printf("variable %lld element %lld = ", id, element);
  print_value(type, data);
  return 0;
}
