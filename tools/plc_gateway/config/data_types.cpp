// The table of declared types and the standard's.
#include "tools/plc_gateway/config/data_types.h"

#include <limits>
#include <string_view>

namespace plc_gateway {
namespace {

struct TypeRow {
  std::string_view name;
  DataType single;
  DataType array;
};

constexpr TypeRow kTypes[] = {
    {"BOOL", DataType::kBoolean, DataType::kBooleanArray}, {"SINT", DataType::kInt8, DataType::kInt8Array},
    {"INT", DataType::kInt16, DataType::kInt16Array},      {"DINT", DataType::kInt32, DataType::kInt32Array},
    {"LINT", DataType::kInt64, DataType::kInt64Array},     {"USINT", DataType::kUInt8, DataType::kUInt8Array},
    {"UINT", DataType::kUInt16, DataType::kUInt16Array},   {"UDINT", DataType::kUInt32, DataType::kUInt32Array},
    {"ULINT", DataType::kUInt64, DataType::kUInt64Array},  {"BYTE", DataType::kUInt8, DataType::kUInt8Array},
    {"WORD", DataType::kUInt16, DataType::kUInt16Array},   {"DWORD", DataType::kUInt32, DataType::kUInt32Array},
    {"LWORD", DataType::kUInt64, DataType::kUInt64Array},  {"REAL", DataType::kFloat, DataType::kFloatArray},
    {"LREAL", DataType::kDouble, DataType::kDoubleArray},
};

template <typename T>
NumberRange limits() {
  return {static_cast<double>(std::numeric_limits<T>::lowest()), static_cast<double>(std::numeric_limits<T>::max())};
}

}  // namespace

std::optional<DataType> data_type_of(const std::string& declared_type, bool is_array) {
  const std::string_view declared = declared_type;
  const std::string_view name = declared.substr(0, declared.find_first_of("[("));
  for (const TypeRow& row : kTypes) {
    if (row.name == name) return is_array ? row.array : row.single;
  }
  // A STRING without a length is bytes to the driver, as dates and times are.
  const bool is_text = name == "STRING" && declared.find('(') != std::string_view::npos;
  if (is_text) return is_array ? DataType::kStringArray : DataType::kString;
  const bool is_of_array = is_array || declared.find('[') != std::string_view::npos;
  if (is_of_array || name == "?") return std::nullopt;
  return DataType::kBytes;
}

bool is_number(DataType type) {
  return (type >= DataType::kInt8 && type <= DataType::kDouble) ||
         (type >= DataType::kInt8Array && type <= DataType::kDoubleArray);
}

NumberRange range_of(DataType type) {
  switch (type) {
    case DataType::kInt8:
    case DataType::kInt8Array:
      return limits<int8_t>();
    case DataType::kInt16:
    case DataType::kInt16Array:
      return limits<int16_t>();
    case DataType::kInt32:
    case DataType::kInt32Array:
      return limits<int32_t>();
    case DataType::kInt64:
    case DataType::kInt64Array:
      return limits<int64_t>();
    case DataType::kUInt8:
    case DataType::kUInt8Array:
      return limits<uint8_t>();
    case DataType::kUInt16:
    case DataType::kUInt16Array:
      return limits<uint16_t>();
    case DataType::kUInt32:
    case DataType::kUInt32Array:
      return limits<uint32_t>();
    case DataType::kUInt64:
    case DataType::kUInt64Array:
      return limits<uint64_t>();
    case DataType::kFloat:
    case DataType::kFloatArray:
      return limits<float>();
    default:
      return limits<double>();
  }
}

}  // namespace plc_gateway
