// The driver's system calls on its socket, answered from memory: replies come from a fuzz input, requests are checked
// and dropped. Linked in by wrapping the calls.
#pragma once

#include <cstdint>

#include "fuzz_input.h"

namespace fuzz {

// Replies, failures and closes are taken from this input from now on; it outlives its use.
void feed_replies(Input* input);

// Requests sent since the process began.
uint64_t sent_requests();

}  // namespace fuzz
