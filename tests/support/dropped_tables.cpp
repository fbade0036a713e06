// For programs that load the driver: tells the leak checker which of its leaks the contract of ev_plc_init wants.

// Each ev_plc_init empties the list of tables without freeing them; a library that is unloaded keeps none either.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() { return "leak:load_table\n"; }
