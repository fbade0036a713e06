/* A host that loads the library at run time, with functions of its own under names of the driver's, unloads it and
 * loads it again: every load starts from a fresh state. */
#include <dlfcn.h>
#include <plc_driver_hooks.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "tests/driver/c_host/own_functions.h"

typedef uint32_t DriverInfoFunction(DriverInfo* info);
typedef uint32_t InitFunction(CommSettings* settings);
typedef uint32_t ReadFunction(RegRequest* request, RegValue* value, ConnContext* conn);
typedef char* TypeNameFunction(uint32_t code);
typedef int ParseLineFunction(const char* line, TagEntry* entry);
typedef void SetLineSinkFunction(PlcLineSink sink, void* context);
typedef uint32_t LoadTagsFunction(uint32_t ip_address, uint16_t area, const char* path);
typedef uint32_t ConnectFunction(ConnContext* conn);
typedef void ReleaseFunction(ConnContext* conn);

enum { LOADS = 3 };

static int failures;

static void expect(int condition, const char* what, int load) {
  if (!condition) {
    fprintf(stderr, "failed in load %d: %s\n", load, what);
    ++failures;
  }
}

/* A function of the library; POSIX lets a data pointer hold it, C does not say how to convert it. */
static void find(void* library, const char* name, void* function) {
  void* address = dlsym(library, name);
  if (address == NULL) {
    fprintf(stderr, "failed: %s\n", dlerror());
    ++failures;
  }
  memcpy(function, &address, sizeof address);
}

static void use(void* library, int load) {
  DriverInfoFunction* driver_info;
  InitFunction* initialise;
  ReadFunction* read_register;
  TypeNameFunction* type_name;
  ParseLineFunction* parse_line;
  find(library, "ev_plc_driver_info", &driver_info);
  find(library, "ev_plc_init", &initialise);
  find(library, "ev_plc_read", &read_register);
  find(library, "type2str", &type_name);
  find(library, "pase_str", &parse_line);
  if (failures != 0) return;

  /* The settings of the load before are gone with it. */
  RegRequest request = {0};
  RegValue value = {0};
  ConnContext connection = {.socket_fd = -1};
  expect(read_register(&request, &value, &connection) == PLC_FAILED, "a transfer before the settings", load);

  DriverInfo info = {0, 0};
  expect(driver_info(&info) == PLC_OK && info.driver_code == 722 && info.driver_param == 1, "driver info", load);
  CommSettings settings = {.ip_address = 0x7F000001, .tcp_port = 1};
  expect(initialise(&settings) == PLC_OK, "init", load);
  expect(strcmp(type_name(0xCF), "DATE_AND_TIME") == 0, "type name", load);

  TagEntry entry;
  memset(&entry, 0, sizeof entry);
  expect(parse_line("Table[3],INT,,,,,,5,1,0,0,,DM\n", &entry) == 0, "parse", load);
  expect(strcmp(entry.name, "Table[#3]") == 0 && entry.tag_id == 5, "the driver's own insert", load);
  expect(own_calls() == 0, "the driver called one of the host's functions", load);
}

static void collect(void* context, const char* text, uint32_t length) { strncat(context, text, length); }

/* As a program that embeds the driver does. */
static void use_hooks(void* library, int load) {
  InitFunction* initialise;
  SetLineSinkFunction* set_line_sink;
  LoadTagsFunction* load_tags;
  ConnectFunction* connect_driver;
  ReleaseFunction* release;
  find(library, "ev_plc_init", &initialise);
  find(library, "plc_driver_set_line_sink", &set_line_sink);
  find(library, "plc_driver_load_tags", &load_tags);
  find(library, "plc_driver_connect", &connect_driver);
  find(library, "plc_driver_release", &release);
  if (failures != 0) return;

  ConnContext connection = {.socket_fd = -1};
  CommSettings settings = {.ip_address = 0x7F000001, .tcp_port = 1};
  char lines[256] = "";
  set_line_sink(collect, lines);
  expect(initialise(&settings) == PLC_OK, "init", load);
  expect(strcmp(lines, "ev_plc_init ok\r\n") == 0, "the sink's line", load);
  expect(load_tags(settings.ip_address, 0, "/nowhere/tags.csv") == PLC_FAILED, "a missing tag file", load);
  expect(connect_driver(NULL) == PLC_FAILED, "a connect without a record", load);
  release(&connection);
  release(NULL);
  expect(connect_driver(&connection) == PLC_FAILED, "a connect behind the release", load);
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: dlopen_host LIBRARY\n");
    return 2;
  }
  for (int load = 1; load <= LOADS && failures == 0; ++load) {
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
      fprintf(stderr, "%s\n", dlerror());
      return 1;
    }
    use(library, load);
    use_hooks(library, load);
    expect(dlclose(library) == 0, "dlclose", load);
    expect(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == NULL, "the library stayed loaded", load);
  }
  return failures == 0 ? 0 : 1;
}
