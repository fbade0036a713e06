// What the gateway knows of a variable, of a value of it, and of a command for it: plain records that every room uses.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "client/plc_client.h"

namespace plc_gateway {

using Ms = int64_t;  // milliseconds; of the wall clock since 1970 UTC where a moment is meant

// The standard's data types, with its codes.
enum class DataType : uint8_t {
  kInt8 = 1,
  kInt16 = 2,
  kInt32 = 3,
  kInt64 = 4,
  kUInt8 = 5,
  kUInt16 = 6,
  kUInt32 = 7,
  kUInt64 = 8,
  kFloat = 9,
  kDouble = 10,
  kBoolean = 11,
  kString = 12,
  kDateTime = 13,  // milliseconds since 1970 UTC
  kBytes = 17,
  kInt8Array = 22,
  kInt16Array = 23,
  kInt32Array = 24,
  kInt64Array = 25,
  kUInt8Array = 26,
  kUInt16Array = 27,
  kUInt32Array = 28,
  kUInt64Array = 29,
  kFloatArray = 30,
  kDoubleArray = 31,
  kBooleanArray = 32,
  kStringArray = 33,
};

// A polled variable, or a part of an array, and how it is published. Its place in the list of all of them is its index.
struct Variable {
  std::string name;  // with scope and subscripts, as it is published: "Motor.Speed", "Main/Step", "Table[0..9]"
  std::string declared_type;  // "INT", "INT[0..9]": for people
  DataType type = DataType::kInt16;
  std::vector<size_t> shape;  // lengths of the dimensions of an array, the last subscript fastest; else empty
  size_t group = 0;           // of Config::polls
  double deadband = 0;        // 0: every change is published
};

// What a variable held at one time. Without a value when it is not good: nothing stands for a value that was not read.
struct Sample {
  uint32_t variable = 0;  // its index
  bool good = false;
  bool unguarded = false;  // good, but nobody has checked that it answers the request
  Ms time = 0;             // when its exchange ended
  uint64_t bits = 0;       // a single number or BOOL, as the variable's type has it, zeros above its width
  std::string bytes;       // a text, bytes, or the elements of an array as the standard packs them
  plc_client::Reason reason = plc_client::Reason::kNone;  // why it is not good
  std::string error;                                      // the same as a sentence
  std::string advice;                                     // what to try; may be empty
};

// Same quality, and the same value when good. Times and reasons may differ.
inline bool same_value(const Sample& a, const Sample& b) {
  return a.good == b.good && (!a.good || (a.bits == b.bits && a.bytes == b.bytes));
}

// What a host may write, as the configuration allows it.
struct CommandRule {
  std::string name;  // of the variable, with subscripts where it has them
  std::string declared_type;
  DataType type = DataType::kInt16;
  std::vector<size_t> shape;
  std::optional<double> min;  // numbers only
  std::optional<double> max;
  Ms every_ms = 0;        // at most one in so long; 0: no such limit
  Ms max_age_ms = 10000;  // older ones are dropped
  bool verify = false;    // read back
};

// A write that was found to be allowed.
struct WriteJob {
  size_t rule = 0;  // of the list of rules
  plc_client::Input value = false;
  Ms stamp = 0;            // the command's own time, which a repeated one has again
  std::string shown = {};  // its value as the command said it
  // By the wall clock: outside of this it is too old to be begun.
  Ms not_before = std::numeric_limits<Ms>::min();
  Ms not_after = std::numeric_limits<Ms>::max();
};

struct WriteOutcome {
  plc_client::Outcome outcome = plc_client::Outcome::kNotDone;
  bool verified = false;
  plc_client::Reason reason = plc_client::Reason::kNone;
  std::string error;
  Ms time = 0;
};

// How a command ended, as it is published.
struct CommandResult {
  std::string name;    // of the metric that the command named
  std::string result;  // "done", "refused", "failed", "unknown", or "unpublished" of results for which was no room
  std::string reason;  // a sentence; empty when done
  Ms time = 0;
  std::optional<std::string> value = std::nullopt;  // as the command said it; nothing when it said none
  std::optional<Ms> sent = std::nullopt;            // the command's own time; nothing when it said none
};

}  // namespace plc_gateway
