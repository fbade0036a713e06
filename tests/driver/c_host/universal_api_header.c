/* universal_api.h needs nothing before it, and may be included twice. */
#include "universal_api.h"

int universal_api_header_compiles(void);
int universal_api_header_compiles(void) { return 1; }
