// plc-host, a command-line host of the driver.
#include "tools/plc_host/commands/command_line.h"

int main(int argc, char** argv) { return plc_host::run_command_line(argc, argv); }
