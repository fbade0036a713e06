// Results as JSON: the one shape that all commands have.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "client/plan/tag_transfer.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

// Why a value that was read is null in JSON, or has null among its elements: "not a number: [1], [4]"; "" where JSON
// can say all of it. elements: the subscripts of each, in order; without them they are counted from first_element on.
std::string unsaid_in_json(const TagEntry& entry, const TagValue& value, const std::vector<Subscripts>& elements,
                           size_t first_element = 0);

// {"name": ..., "id": ..., "type": ..., "state": ..., "time": ..., "value": ...}. "value" is null where none was read,
// and then "reason", "try" and "code" (of the driver) say why; it is null too where JSON cannot say what was read, then
// "reason" tells, and "bytes" has those of a text. "reason" has the remark on a value too.
nlohmann::ordered_json result_json(const TagResult& result, WideIntegers wide);

}  // namespace plc_host
