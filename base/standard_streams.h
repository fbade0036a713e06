// Standard streams that a program was started without, or that take no more.
#pragma once

#include <string>

namespace plc_base {

// Puts the null device where standard input, output or error is closed. Else the next file or connection is opened as
// their number, and what is said to people goes into it. What is written there fails, as it did; input is at its end. A
// file at the limit of its size fails in the same way: it ends no program.
void prepare_standard_streams();

// Whether prepare_standard_streams found standard input closed.
bool was_input_closed();

// Writes what stdio holds back of standard output. Empty, or that it cannot be written and why; to be asked right
// behind what was printed, while errno is that of the failure.
std::string problem_with_output();

}  // namespace plc_base
