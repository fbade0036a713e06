// One request frame taken apart, with everything that its form alone allows to judge.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "wire/findings.h"
#include "wire/handle.h"
#include "wire/wire.h"

namespace plc_sim {

enum class RequestKind { kUnknown, kDirectoryStart, kDirectory, kResolve, kRead, kWrite, kMaskedWrite, kBit };

struct NameBlock {
  bool is_local = false;
  uint8_t program = 0;
  unsigned count = 0;
  std::vector<std::u16string> names;
};

struct Reference {
  Handle handle;
  uint8_t size = 0;  // 16-bit units asked for
};

struct Request {
  RequestKind kind = RequestKind::kUnknown;
  uint16_t sequence = 0;

  std::vector<NameBlock> blocks;
  bool announces_missing_name = false;  // one name announced, none there: a text position that cannot be named
  bool ends_inside_names = false;
  bool is_unreadable = false;  // a batch that its own count has spoilt

  std::vector<Reference> references;

  Handle handle;  // of writes and masked writes
  unsigned units = 0;
  Bytes values;
  bool has_one_byte_length = false;  // only the low byte of L is right

  std::optional<bool> bit_value;  // empty when the host's value was neither 0 nor 1
  uint8_t area = 0;               // of bit requests, with the two low bytes of the address
  uint16_t low_address = 0;

  std::optional<uint16_t> mask;
  bool is_or_mask = false;
};

const char* name_of(RequestKind kind);

// The kind by class and command alone; for requests that carry neither, by their first bytes.
RequestKind kind_of(const Bytes& frame);

Request parse_request(const Bytes& frame, Findings& findings);

}  // namespace plc_sim
