// How the library fills the values that programs see.
#pragma once

#include <vector>

#include "client/plc_client.h"
#include "client/values/value_text.h"
#include "plc_driver.h"

namespace plc_client {

struct ValueAccess {
  // Type and shape, which stay; no value yet. extents as in a reference.
  static void declare(Value& value, const TagEntry& entry, const std::vector<size_t>& extents);
  // Allocates only when the value has never been as long.
  static void set(Value& value, Kind kind, const core::TagValue& from);
  static void clear(Value& value);
};

Kind kind_of(const TagEntry& entry);
// Of one element; 0 for text and bytes.
unsigned bits_of(const TagEntry& entry);

}  // namespace plc_client
