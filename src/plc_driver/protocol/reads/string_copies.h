// Copies of the strings of a batch, for references that stay valid until the next batch and fit 32 bits.
#pragma once

#include <cstdint>

#include "plc_driver/protocol/frames/reply_view.h"

namespace plc {

// Forgets the copies of the last batch.
void begin_string_copies();

// Copies length bytes of the reply from this offset on and ends them with a NUL. Returns the copy's address; 0 when the
// build has no memory below 4 GiB left for it.
uint32_t copy_string(const ReplyBuffer& reply, uint32_t offset, uint32_t length);

// Gives the memory of the copies back; the next copy takes it anew.
void free_string_copies();

}  // namespace plc
