/* A host's own functions, under names that the driver uses inside itself: neither may ever call the other's. */
#pragma once

/* How often the driver called one of the host's functions in place of its own: 0 when all is well. */
int own_calls(void);
