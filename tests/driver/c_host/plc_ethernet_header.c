/* plc_ethernet.h needs nothing before it, and may be included twice. */
#include "plc_ethernet.h"

int plc_ethernet_header_compiles(void);
int plc_ethernet_header_compiles(void) { return 1; }
