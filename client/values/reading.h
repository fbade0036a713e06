// What became of one attempt to transfer a variable: a value with its quality and time, or the reason why there is
// none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/values/time_text.h"
#include "client/values/value_text.h"

namespace plc_client::core {

enum class Quality {
  kGood,          // the guarded build had the controller's own, whole reply
  kUnguarded,     // the contract build returned 0, which it does for any reply
  kRefused,       // the controller refused the name or the request
  kIncomplete,    // its reply lacks names or values
  kNoAnswer,      // nothing came in time, or only a part
  kLost,          // the connection ended
  kNoConnection,  // there was none to begin with
  kForeign,       // what came was no reply to this request
  kImpossible,    // nothing was sent: neither tag file nor driver can ask for it
  kDifferent,     // read back different from what was sent
  kFailed,        // the driver gave no reason
  kNotRead,       // its turn did not come
  kNotWritten,    // nor of this write
};

// The word for a quality in every form of output: "good", "no-answer".
const char* quality_word(Quality quality);

struct Failure {
  Quality quality = Quality::kNotRead;
  std::string reason = "not read";
  std::string advice;            // what to try; may be empty
  std::string cause;             // of a write: the reason without what became of this one; empty: the reason itself
  uint32_t code = 0;             // what the driver returned, 0 when it was not called
  bool connection_lost = false;  // there was no connection, or there is none any more
  bool is_silence = false;       // whatever is asked next would wait in vain too
  bool has_answer = false;       // something came: a part of a reply, or what is none to this request
  bool has_begun = false;        // of a write: a part of it may have been written before
  bool lacks_program = false;    // the controller has no program of the variable's scope
  bool is_unclear = false;       // whose variable it is: two names in the directory are the beginning of its program's
  bool is_interrupted = false;   // by a stop signal during the call
};

class Reading {
 public:
  // Not read.
  Reading() = default;
  // quality is kGood or kUnguarded; kIncomplete of a value that is less than was asked for, or other elements.
  Reading(TagValue value, Quality quality, WallTime time);
  Reading(Failure failure, WallTime time);

  Quality quality() const { return value_ ? quality_ : failure_.quality; }
  WallTime time() const { return time_; }

  // Null when there is no value: an old one, or zero, never stands for it.
  const TagValue* value() const { return value_ ? &*value_ : nullptr; }
  // Its turn came: something was tried, or found to be impossible.
  bool is_taken() const { return quality() != Quality::kNotRead && quality() != Quality::kNotWritten; }
  // Why there is no value; of no meaning when there is one.
  const Failure& failure() const { return failure_; }

 private:
  std::optional<TagValue> value_;
  Quality quality_ = Quality::kNotRead;
  Failure failure_;
  WallTime time_{};
};

}  // namespace plc_client::core
