// Says of a call that failed what happened and what to try.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "client/driver/driver_session.h"
#include "client/values/reading.h"

namespace plc_client::core {

// From what the driver returned and the lines that it printed meanwhile.
Failure explain_failure(const CallResult& call, const Target& target);

// The reason of what a stop signal ended or left out.
inline constexpr char kInterruptedWord[] = "interrupted";

// The same failure of a call that was to write; progress: what calls before it wrote. Without a connection nothing was
// sent.
Failure interrupted_write(const Failure& call, const std::string& progress);

// A write after whose failure nobody knows what the controller has.
bool leaves_write_open(const Failure& failure);

// A text of which reads reach the first bytes alone.
Failure text_out_of_reach(size_t bytes);

// What the driver makes of a type without a width.
inline constexpr char kCutAtZero[] =
    "the driver stores a value of this type up to its first zero byte, and what follows is not known";

// A value of a type without a width, of which the driver stored these bytes: nobody knows whether others followed.
Failure cut_at_zero(std::string_view stored);
// Of an array, whose elements are cut each.
Failure cut_at_zeros();

// The advice on a program of which nothing more is known.
inline constexpr char kProgramAdvice[] =
    "Correct column 12 of its line: plc-host check FILE --live names similar programs.";

// A local variable of a program that the controller does not have; answer: what its directory has of the name.
Failure missing_program(const TagEntry& entry, const ProgramAnswer& answer = {});

// What neither tag file nor driver can ask for.
Failure impossible(const std::string& reason);

// What was left out after a failure that would have repeated itself, or after a stop signal.
Failure not_read(const std::string& why);
Failure not_written(const std::string& why);

}  // namespace plc_client::core
