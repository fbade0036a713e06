// What a program does when there is no memory left: it says so and ends, and needs none for it.
#pragma once

namespace plc_base {

// From now on, memory that cannot be had ends the process at once with this line on standard error and this exit code.
// For programs between whose callers and callees lies code that no exception may pass. The text stays the caller's.
void end_without_memory(const char* line, int exit_code);

// From now on, an error that nobody takes ends the process likewise: memory that is out where nothing may be thrown.
void end_when_unhandled(const char* line, int exit_code);

// The line on standard error.
void say_without_memory(const char* line);

}  // namespace plc_base
