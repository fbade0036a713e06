// The driver's own state as tests take it back: its tables, its sockets, its module variables.
#pragma once

namespace plc_test {

// Frees the driver's tag tables, which it keeps for the life of the process, and empties its list.
void free_driver_tables();

// Closes the sockets that the driver stored in a context and has not closed.
void close_stored_sockets();

// Frees the tables and sets every module variable as it is after loading, so that no test sees what another left.
void reset_driver_state();

}  // namespace plc_test
