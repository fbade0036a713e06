/* plc_driver.h needs nothing before it, and may be included twice. */
#include "plc_driver.h"

int plc_driver_header_compiles(void);
int plc_driver_header_compiles(void) { return 1; }
