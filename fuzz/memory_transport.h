// The driver's system calls, answered from memory: replies come from a fuzz input, requests are checked and dropped,
// tag files are texts. Linked in by wrapping the calls.
#pragma once

#include <cstdint>
#include <string>

#include "fuzz_input.h"

namespace fuzz {

// Replies, failures and closes are taken from this input from now on; it outlives its use.
void feed_replies(Input* input);

// The text of every tag file that is opened from now on.
void set_tag_file(std::string text);

// Requests sent since the process began.
uint64_t sent_requests();

}  // namespace fuzz
