// The library that this program loads: of the one build or the other.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "plc_driver.h"
#include "tests/product/system/panel.h"

namespace plc_test {

const char* const driver_library = PLC_DRIVER_LIBRARY;

}  // namespace plc_test

// The tests ask which build they run against as those do that are linked with it.
const char* plc_driver_build(void) {
  void* const library = dlopen(PLC_DRIVER_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  void* const function = library == nullptr ? nullptr : dlsym(library, "plc_driver_build");
  if (function == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::abort();
  }
  return reinterpret_cast<decltype(&plc_driver_build)>(function)();
}
