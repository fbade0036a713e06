// Turns readings into samples.
#include "tools/plc_gateway/controller/samples.h"

#include <chrono>

#include "base/utf8.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {

using plc_client::Reading;
using plc_client::Reason;

Ms wall_ms_of(plc_client::TimePoint time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

bool is_of_the_link(Reason reason, bool is_connected) {
  switch (reason) {
    case Reason::kNoAnswer:
    case Reason::kLost:
    case Reason::kNoConnection:
    case Reason::kForeign:
    case Reason::kNotTried:  // behind silence, or in the pause between two attempts to connect
      return true;
    case Reason::kFailed:  // without a reason; where the connection stands, the controller answered something
      return !is_connected;
    default:
      return false;
  }
}

void SampleMaker::add(uint32_t index, const Variable& variable, const Reading& reading, std::vector<Sample>& samples) {
  Sample& sample = samples.emplace_back();
  sample.variable = index;
  sample.time = wall_ms_of(reading.time);
  sample.good = reading.ok();
  if (!sample.good) {
    sample.reason = reading.error.reason;
    sample.error = reading.error.text;
    sample.advice = reading.error.advice;
    return;
  }
  sample.unguarded = reading.quality == plc_client::Quality::kUnguarded;
  const plc_client::Value& value = reading.value;
  if (value.is_array()) {
    elements_.clear();
    for (size_t i = 0; i < value.size(); ++i) elements_.push_back(value.raw(i));
    sample.bytes = pack_array(variable.type, elements_);
  } else if (value.kind() == plc_client::Kind::kText || value.kind() == plc_client::Kind::kBytes) {
    sample.bytes = value.as<std::string>();
    if (value.kind() == plc_client::Kind::kBytes || plc_base::is_utf8(sample.bytes)) return;
    sample.good = false;
    sample.unguarded = false;
    sample.bytes.clear();
    sample.reason = Reason::kImpossible;
    sample.error = "the text in the controller is not UTF-8 and cannot be published";
  } else {
    sample.bits = value.raw();
  }
}

}  // namespace plc_gateway
