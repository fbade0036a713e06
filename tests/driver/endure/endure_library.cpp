// A build of the driver, loaded by its path.
#include "tests/driver/endure/endure_library.h"

#include <dlfcn.h>

namespace plc_endure {

template <typename Function>
void Library::find(Function* function, const char* name) {
  *function = reinterpret_cast<Function>(dlsym(handle_, name));
  if (*function == nullptr) {
    std::fprintf(stderr, "the driver has no %s\n", name);
    std::exit(2);
  }
}

Library::Library(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(2);
  }
  const char* (*build_name)() = nullptr;
  find(&build_name, "plc_driver_build");
  build = build_name();
  find(&init, "ev_plc_init");
  find(&read, "ev_plc_read");
  find(&write, "ev_plc_write");
  find(&read_batch, "ev_OMRON_plc_read");
  find(&build_table, "build_tagtable");
}

}  // namespace plc_endure
