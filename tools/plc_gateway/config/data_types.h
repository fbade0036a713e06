// Which of the standard's data types a declared type becomes.
#pragma once

#include <optional>
#include <string>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

// Of a declared type like "INT", "INT[0..9]", "STRING(20)"; nothing for one that the driver does not know, and for an
// array, or an element of one, that the standard has no type for.
std::optional<DataType> data_type_of(const std::string& declared_type, bool is_array);

bool is_number(DataType type);  // or an array of numbers

// The least and the greatest that a number of the type can be; of a floating-point type its finite ones. Zeros for what
// is no number.
struct NumberRange {
  double low = 0;
  double high = 0;
};
NumberRange range_of(DataType type);

}  // namespace plc_gateway
