// Numbers as their type has them; what is no array of numbers is told by its size.
#include "tools/plc_gateway/commands/command_text.h"

#include <cstddef>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "base/utf8.h"
#include "tools/plc_gateway/model/data_types.h"

namespace plc_gateway {
namespace {

constexpr size_t kMostAnswerBytes = 200;  // no name of a variable has as many
constexpr unsigned kBitsOfInt = 32;
constexpr unsigned kBitsOfLong = 64;

std::string bytes_text(DataType type, const std::string& bytes) {
  const TypeFacts& facts = facts_of(type);
  const bool is_packed = facts.is_array && facts.bits != 0;
  const auto elements = is_packed ? unpack_array(type, bytes) : std::nullopt;
  if (!elements) return plc_base::plural(bytes.size(), "byte");
  std::string text = "[";
  for (const uint64_t element : *elements) {
    if (text.size() > kMostAnswerBytes) break;
    if (text.size() > 1) text += ',';
    text += element_text(facts, element);
  }
  return shortened(text + "]");
}

std::string integer_text(const TypeFacts& facts, uint64_t number, unsigned width) {
  const ElementKind kind = facts.kind == ElementKind::kSigned ? ElementKind::kSigned : ElementKind::kUnsigned;
  return element_text({"", width, kind, false}, number);
}

std::string real_text(double number, unsigned width) {
  return element_text({"", width, ElementKind::kReal, false}, bits_of_real(number, width));
}

}  // namespace

std::string shortened(const std::string& text) {
  const std::string kept(plc_base::whole_characters(text, kMostAnswerBytes));
  return kept.size() < text.size() ? kept + "..." : kept;
}

std::optional<std::string> value_text(const CommandMetric& metric, std::optional<DataType> type_of_variable) {
  using Form = CommandMetric::Form;
  if (metric.is_null) return std::nullopt;
  constexpr uint32_t kMostCode = 255;
  const bool says_type = metric.datatype && *metric.datatype <= kMostCode;
  const auto type = says_type ? static_cast<DataType>(*metric.datatype) : type_of_variable.value_or(DataType{});
  switch (metric.form) {
    case Form::kInt:
      return integer_text(facts_of(type), metric.number, kBitsOfInt);
    case Form::kLong:
      return integer_text(facts_of(type), metric.number, kBitsOfLong);
    case Form::kFloat:
      return real_text(metric.real, kBitsOfInt);
    case Form::kDouble:
      return real_text(metric.real, kBitsOfLong);
    case Form::kBool:
      return metric.number != 0 ? "true" : "false";
    case Form::kString:
      return shortened(metric.text);
    case Form::kBytes:
      return bytes_text(type, metric.text);
    case Form::kNone:
    case Form::kOther:
      break;
  }
  return std::nullopt;
}

}  // namespace plc_gateway
