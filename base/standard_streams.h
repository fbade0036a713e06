// Standard streams that a program was started without.
#pragma once

namespace plc_base {

// Puts the null device where standard input, output or error is closed. Else the next file or connection is opened as
// their number, and what is said to people goes into it. What is written there fails, as it did; input is at its end.
void fill_standard_streams();

}  // namespace plc_base
