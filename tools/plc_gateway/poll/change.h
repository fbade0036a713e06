// Whether a value differs from the one that was published last by more than its variable's deadband.
#pragma once

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

// Quality always counts. A deadband is for numbers: BOOLs, texts and bytes differ or not. Of an array one element is
// enough. What is no number (NaN) differs from everything that has other bits.
bool has_changed(const Variable& variable, const Sample& published, const Sample& now);

}  // namespace plc_gateway
