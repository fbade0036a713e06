// Whether a transfer of a local variable reaches its own program.
#pragma once

#include <optional>

#include "client/driver/driver_session.h"
#include "client/tags/tag_list.h"
#include "client/values/reading.h"

namespace plc_client::core {

// Which of the controller's programs the driver takes for that of a variable. Controllers cut names short, so some
// transfers take one whose name is the beginning; the others go by the number of the line then.
enum class ProgramRule { kWhole, kBeginning };

inline constexpr ProgramRule kRuleOfBatches = ProgramRule::kWhole;
// Writes of indexed variables would take a beginning too: what cannot be read is not written.
ProgramRule rule_of_singles(const Tag& tag);

// Why a transfer of the variable is none of it: the controller does not have its program, or cannot be asked. Nothing
// where the variable is global, its line names no program, or the driver cannot tell.
std::optional<Failure> program_hindrance(DriverSession& session, const Tag& tag, ProgramRule rule);

// A directory may have two programs of one name, as of two that are cut short. Then the driver alone knows that it does
// not know which of them it is.
std::optional<Failure> unclear_program(const Tag& tag, const Reading& reading);

// The reading of a variable that was read singly, or why it is none of this variable. A refusal too: another program
// was asked.
Reading of_own_program(DriverSession& session, const Tag& tag, Reading reading);

}  // namespace plc_client::core
