// The words for qualities.
#include "client/values/reading.h"

#include <utility>

namespace plc_client::core {

const char* quality_word(Quality quality) {
  switch (quality) {
    case Quality::kGood:
      return "good";
    case Quality::kUnguarded:
      return "unguarded";
    case Quality::kRefused:
      return "refused";
    case Quality::kIncomplete:
      return "incomplete";
    case Quality::kNoAnswer:
      return "no-answer";
    case Quality::kLost:
      return "lost";
    case Quality::kNoConnection:
      return "no-connection";
    case Quality::kForeign:
      return "foreign";
    case Quality::kImpossible:
      return "impossible";
    case Quality::kDifferent:
      return "different";
    case Quality::kFailed:
      return "failed";
    case Quality::kNotWritten:
      return "not-written";
    default:
      return "not-read";
  }
}

Reading::Reading(TagValue value, Quality quality, WallTime time)
    : value_(std::move(value)), quality_(quality), time_(time) {}

Reading::Reading(Failure failure, WallTime time) : failure_(std::move(failure)), time_(time) {}

}  // namespace plc_client::core
