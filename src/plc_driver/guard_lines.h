// The lines that the guarded build prints beside those of diagnostics; each tells why a call failed or what was
// dropped.
#pragma once

namespace plc {

// "[PLC] guard: ", the text formatted as printf does, then carriage return and line feed.
__attribute__((format(printf, 1, 2))) void print_guard(const char* format, ...);

// Why a connect failed, by the system's error number.
void print_connect_error(int error);

}  // namespace plc
