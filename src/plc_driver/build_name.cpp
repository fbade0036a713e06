// Tells hosts which build of the driver they have loaded.
#include "plc_driver.h"
#include "plc_driver/build_kind.h"

extern "C" const char* plc_driver_build(void) {
  return plc::kGuarded ? PLC_DRIVER_VERSION " guarded" : PLC_DRIVER_VERSION " contract";
}
