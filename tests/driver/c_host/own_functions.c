/* A host's own functions, under names that the driver uses inside itself. */
#include "tests/driver/c_host/own_functions.h"

static int calls;

int own_calls(void) { return calls; }

/* The dynamic linker compares names only, so that the driver's argument lists are not repeated here. */
void insert(void);
void md5(void);
void init(void);
void port(void);
void crc16(void);
void pase_str(void);
void get_tagtable(void);

void insert(void) { ++calls; }
void md5(void) { ++calls; }
void init(void) { ++calls; }
void port(void) { ++calls; }
void crc16(void) { ++calls; }
void pase_str(void) { ++calls; }
void get_tagtable(void) { ++calls; }
