// The table of declared types and the standard's.
#include "tools/plc_gateway/config/data_types.h"

#include <limits>
#include <string_view>

namespace plc_gateway {
namespace {

template <typename T>
constexpr NumberRange limits() {
  return {static_cast<double>(std::numeric_limits<T>::lowest()), static_cast<double>(std::numeric_limits<T>::max())};
}

struct TypeRow {
  std::string_view name;
  DataType single;
  DataType array;
  NumberRange range;
};

constexpr TypeRow kTypes[] = {
    {"BOOL", DataType::kBoolean, DataType::kBooleanArray, {}},
    {"SINT", DataType::kInt8, DataType::kInt8Array, limits<int8_t>()},
    {"INT", DataType::kInt16, DataType::kInt16Array, limits<int16_t>()},
    {"DINT", DataType::kInt32, DataType::kInt32Array, limits<int32_t>()},
    {"LINT", DataType::kInt64, DataType::kInt64Array, limits<int64_t>()},
    {"USINT", DataType::kUInt8, DataType::kUInt8Array, limits<uint8_t>()},
    {"UINT", DataType::kUInt16, DataType::kUInt16Array, limits<uint16_t>()},
    {"UDINT", DataType::kUInt32, DataType::kUInt32Array, limits<uint32_t>()},
    {"ULINT", DataType::kUInt64, DataType::kUInt64Array, limits<uint64_t>()},
    {"BYTE", DataType::kUInt8, DataType::kUInt8Array, limits<uint8_t>()},
    {"WORD", DataType::kUInt16, DataType::kUInt16Array, limits<uint16_t>()},
    {"DWORD", DataType::kUInt32, DataType::kUInt32Array, limits<uint32_t>()},
    {"LWORD", DataType::kUInt64, DataType::kUInt64Array, limits<uint64_t>()},
    {"REAL", DataType::kFloat, DataType::kFloatArray, limits<float>()},
    {"LREAL", DataType::kDouble, DataType::kDoubleArray, limits<double>()},
};

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
  for (const TypeRow& row : kTypes) {
    if (row.single == type || row.array == type) return row.range;
  }
  return {};
}

}  // namespace plc_gateway
