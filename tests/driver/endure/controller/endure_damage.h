// Frames and parts of frames that a controller should not send, made from those that it should.
#pragma once

#include "tests/driver/endure/referee/endure_basics.h"

namespace plc_endure {

bool is_of_directory(const Bytes& frame);
// Makes the head say as many bytes as there are.
void set_length(Bytes* frame);
Bytes part(const Bytes& bytes, size_t from, size_t to);
Bytes joined(Bytes first, const Bytes& second);
// How much an earlier reply resembles this one: in class and command (1), and in the low byte of its number too (2).
uint32_t likeness(const Bytes& earlier, const Bytes& reply);

// A complement, a length or both that no frame has.
void break_head(Random& random, Bytes* reply);
// Any but 0; now and then one of whose bytes one is 0.
void set_status(Random& random, Bytes* reply);
// A status, and a body of any shape: none, zeros, or values that are none.
void refuse(Random& random, Bytes* reply);
// The last bytes are missing, and the head says so.
void shorten(Random& random, Bytes* reply);

}  // namespace plc_endure
