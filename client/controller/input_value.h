// Turns what a program wants to write into the bits of a variable.
#pragma once

#include "client/plc_client.h"
#include "client/tags/tag_reference.h"
#include "client/values/value_text.h"

namespace plc_client {

// Throws TypeMismatch or OutOfRange, both with the variable's name.
core::TagValue value_of(const core::TagReference& reference, const Input& input);

}  // namespace plc_client
