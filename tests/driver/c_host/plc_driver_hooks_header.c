/* plc_driver_hooks.h needs nothing before it, and may be included twice. */
#include "plc_driver_hooks.h"

int plc_driver_hooks_header_compiles(void);
int plc_driver_hooks_header_compiles(void) { return 1; }
