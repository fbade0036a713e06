/* A host that is linked against the library and has functions of its own under names of the driver's: the driver loads
 * a tag file and computes a digest without touching them. */
#include <plc_driver.h>
#include <plc_ethernet.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/driver/c_host/own_functions.h"

int32_t CalcFileMD5(char* path, char* out);

static int failures;

static void expect(int condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
  }
}

static int write_file(const char* path, const char* text) {
  FILE* file = fopen(path, "w");
  if (file == NULL) return 0;
  const int written = fputs(text, file) >= 0;
  return fclose(file) == 0 && written;
}

/* A bound port that does not listen: connects to it are refused, and nobody else can take it. */
static uint16_t refusing_port(int* holder) {
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  socklen_t length = sizeof address;
  *holder = socket(AF_INET, SOCK_STREAM, 0);
  if (bind(*holder, (struct sockaddr*)&address, length) != 0) return 0;
  if (getsockname(*holder, (struct sockaddr*)&address, &length) != 0) return 0;
  return ntohs(address.sin_port);
}

int main(void) {
  DriverInfo info = {0, 0};
  expect(ev_plc_driver_info(&info) == PLC_OK && info.driver_code == 722 && info.driver_param == 1, "driver info");
  expect(ev_OMRON_plc_register() == PLC_OK, "register");

  char path[] = "linked_host.digest";
  char digest[33] = "";
  expect(write_file(path, "abc"), "file for the digest");
  expect(CalcFileMD5(path, digest) == 1 && strcmp(digest, "900150983cd24fb0d6963f7d28e17f72") == 0, "digest");

  int holder = -1;
  static CommSettings settings;
  settings.ip_address = 0x7F000001;
  settings.tcp_port = refusing_port(&holder);
  expect(settings.tcp_port != 0, "refusing port");
  expect(write_file("PLC7F000001_7.csv", "Table[3],INT,,,,,,0,1,0,0,,DM\n"), "tag file");
  expect(ev_plc_init(&settings) == PLC_OK, "init");

  uint8_t buffer[64] = {0};
  RegRequest request = {.area = 7};
  RegValue value = {.count = 1, .data = buffer};
  ConnContext connection = {.socket_fd = -1, .recv_timeout_s = 1};
  /* A refused connect counts as connected; the tag file is loaded before the first exchange fails. */
  expect(ev_plc_read(&request, &value, &connection) == PLC_FAILED, "read from a port that refuses");
  expect(strcmp(type2str(0xC1), "BOOL") == 0, "type name");

  expect(own_calls() == 0, "the driver called one of the host's functions");
  close(holder);
  return failures == 0 ? 0 : 1;
}
