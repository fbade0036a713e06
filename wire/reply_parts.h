// What stands in replies: head, directory, handles, values. Readers are total: what was not received reads as 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "wire/handle.h"
#include "wire/recording.h"
#include "wire/request.h"

namespace wire_trace {

struct ReplyHead {
  bool is_reply = false;   // a length with its complement behind it
  uint64_t announced = 0;  // bytes of the whole reply; more than a size_t of 32 bits tells
  uint16_t sequence = 0;   // should be that of the request
  uint8_t request_class = 0;
  uint8_t command = 0;
  std::optional<uint16_t> status;  // nothing when the reply ends before it
};

ReplyHead head_of(const Bytes& reply);

// Whether the head carries the sequence number, the class and the command of the request.
bool answers(const ReplyHead& head, const Bytes& request);

struct Program {
  uint8_t number;
  std::string name;
};

// The complete records of a directory reply.
std::vector<Program> programs_of(const Bytes& reply);

// The same of a whole directory; nothing of one that announces more records than it has.
std::optional<std::vector<Program>> whole_directory(const Bytes& reply);

// What a resolve reply says of one name.
struct NameRecord {
  bool is_received = false;  // the record ends within the reply
  plc_sim::Handle handle;
  uint16_t bit_number = 0;
};

std::vector<NameRecord> records_of(const Bytes& reply, size_t names);

// The bytes of the value that belongs to a reference of a value request; as many of them as were received.
Bytes value_of(const plc_sim::Request& request, const Bytes& reply, size_t reference);

// Bytes of the values that the references of a value request ask for.
size_t values_bytes(const plc_sim::Request& request);

// Values in the host's memory order: the bytes of each 16-bit unit change places.
Bytes in_host_order(Bytes value);

// "area 06, address 00010000"
std::string handle_text(const plc_sim::Handle& handle);

// "00 00 00 06 FF", at most so many bytes and then how many more there are.
std::string hex_text(const Bytes& bytes, size_t most);

}  // namespace wire_trace
