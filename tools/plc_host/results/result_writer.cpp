// Writes results for people and for programs.
#include "tools/plc_host/results/result_writer.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/json_text.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "base/values/typed_value.h"
#include "client/driver/failure.h"
#include "client/values/time_text.h"
#include "client/values/utf8_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/colors.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_json.h"

namespace plc_host {
namespace {

using plc_base::shown_csv_cell;

constexpr size_t kStateColumns = 13;  // of "no-connection", the longest word
constexpr size_t kTimeColumns = 12;
constexpr char kNothing[] = "-";
constexpr char kGap[] = "  ";

std::string type_text(const TagResult& result) {
  return result.is_found() ? declared_type(result.reference.tag->entry) : kNothing;
}

std::string value_line_text(const TagResult& result) {
  const TagValue* value = result.reading.value();
  if (value == nullptr) return kNothing;
  return format_value(result.reference.tag->entry, *value, result.reference.extents);
}

// Whether the controller has carried the write out, where that is known.
std::optional<bool> was_written(const TagResult& result, const Confirmation& confirmation) {
  if (confirmation.is_acknowledged) return true;
  if (confirmation.is_unclear) return std::nullopt;
  if (confirmation.is_only_checked || !result.reading.is_taken()) return false;
  const Failure& failure = result.reading.failure();
  return leaves_write_open(failure) || failure.has_begun ? std::nullopt : std::optional<bool>(false);
}

// Whether it was read back as it was written: not known where nobody looked, or with a build that takes any reply.
std::optional<bool> was_verified(const TagResult& result, const Confirmation& confirmation) {
  if (result.reading.quality() == Quality::kDifferent) return false;
  return confirmation.is_read_back && confirmation.is_acknowledged ? std::optional<bool>(true) : std::nullopt;
}

nlohmann::ordered_json known_or_null(const std::optional<bool>& known) {
  return known ? nlohmann::ordered_json(*known) : nlohmann::ordered_json();
}

// A text, with its backslashes doubled so that no two texts look alike, or the bytes of a type without a width.
std::string text_of(const TagEntry& entry, const TagValue& value) {
  return value_kind(entry) == ValueKind::kRaw ? hexadecimal_bytes(value.text) : plc_base::text_with_escapes(value.text);
}

// What the rows of a value are called: a row for each element of an array, by its number of one that was read by
// numbers.
std::vector<std::string> row_names(const TagResult& result, const TagValue& value) {
  const TagReference& reference = result.reference;
  if (reference.extents.empty() || value.elements.empty()) return {result.name};
  std::vector<std::string> names;
  if (reference.chosen.empty()) {
    for (size_t i = 0; i < value.elements.size(); ++i) {
      names.push_back(result.name + " element " + std::to_string(result.first_element + i));
    }
    return names;
  }
  for (const Subscripts& element : chosen_elements(reference)) {
    names.push_back(reference.tag->qualified_name + subscript_text(element));
  }
  return names;
}

// A number as a spreadsheet takes it. Not a number and infinities are words, and one of them has a sign.
std::string number_cell(const TagEntry& entry, uint64_t bits) {
  const std::string text = format_element(entry, bits);
  const bool is_word = value_kind(entry) == ValueKind::kReal && !std::isfinite(element_number(entry, bits));
  return is_word ? shown_csv_cell(text) : text;
}

}  // namespace

std::string write_word(const TagResult& result, const Confirmation& confirmation) {
  if (result.ok() && confirmation.is_only_checked) return "checked";
  if (!result.ok() || !confirmation.is_acknowledged) return quality_word(result.reading.quality());
  return confirmation.is_read_back ? "verified" : "written";
}

ResultWriter::ResultWriter(FILE* file, ResultForm form, const std::vector<TagResult>& named)
    : file_(file), form_(form) {
  for (const TagResult& entry : named) {
    name_columns_ = std::max(name_columns_, display_width(plc_base::shown_first(entry.name)));
    type_columns_ = std::max(type_columns_, type_text(entry).size());
  }
}

bool ResultWriter::add(const TagResult& result) {
  const std::string state = quality_word(result.reading.quality());
  switch (form_.form) {
    case Form::kText:
      return add_line(result, state);
    case Form::kCsv:
      return add_rows(result, state);
    case Form::kJson:
      write_json_line(file_, result_json(result, form_.wide));
      break;
    case Form::kRaw:
      if (!result.ok()) {
        tell_failure(result);
        break;
      }
      std::fputs((plc_base::shown_line(raw_text(result.reference, *result.reading.value())) + "\n").c_str(), file_);
  }
  return std::fflush(file_) == 0;
}

bool ResultWriter::add_written(const TagResult& result, const Confirmation& confirmation) {
  const std::string state = write_word(result, confirmation);
  if (form_.form == Form::kCsv) return add_rows(result, state);
  if (form_.form != Form::kJson) return add_line(result, state);
  nlohmann::ordered_json object = result_json(result, form_.wide);
  object["state"] = state;
  object["written"] = known_or_null(was_written(result, confirmation));
  object["verified"] = known_or_null(was_verified(result, confirmation));
  write_json_line(file_, object);
  return std::fflush(file_) == 0;
}

bool ResultWriter::add_line(const TagResult& result, const std::string& state) {
  const std::string line = pad_columns(plc_base::shown_first(result.name), name_columns_) + kGap +
                           pad_columns(type_text(result), type_columns_) + kGap +
                           tinted(pad_columns(state, kStateColumns), result.ok() ? Tint::kNone : Tint::kBad) + kGap +
                           pad_columns(local_time_text(result.reading.time()), kTimeColumns) + kGap +
                           plc_base::shown_line(value_line_text(result)) + "\n";
  std::fputs(line.c_str(), file_);
  // Before the message, when both go to one terminal.
  const bool is_written = std::fflush(file_) == 0;
  if (!result.ok() && result.reading.is_taken()) tell_failure(result);
  return is_written;
}

// Advice that several variables share is told with the first of them.
void ResultWriter::tell_failure(const TagResult& result) {
  const Failure& failure = result.reading.failure();
  const bool is_new = !failure.advice.empty() && told_advice_.insert(failure.advice).second;
  show_error(plc_base::told_name(result.name) + ": " + failure.reason + (is_new ? ". Try: " + failure.advice : ""));
}

// A row for each element. What has no value has one row.
bool ResultWriter::add_rows(const TagResult& result, const std::string& state) {
  if (!has_heading_) std::fputs("name,type,state,time,value,reason\n", file_);
  has_heading_ = true;
  const std::string state_and_time = "," + state + "," + utc_time_text(result.reading.time()) + ",";
  const TagValue* value = result.reading.value();
  if (value == nullptr) {
    const std::string type = result.is_found() ? shown_csv_cell(type_text(result)) : "";
    const std::string line = shown_csv_cell(result.name) + "," + type + state_and_time + "," +
                             shown_csv_cell(result.reading.failure().reason) + "\n";
    std::fputs(line.c_str(), file_);
    return std::fflush(file_) == 0;
  }
  const TagEntry& entry = result.reference.tag->entry;
  const std::vector<std::string> names = row_names(result, *value);
  const bool is_list = names.size() > 1 || !result.reference.extents.empty();
  const std::string type = shown_csv_cell(is_list ? type_name(entry.type_code) : type_text(result));
  for (size_t i = 0; i < names.size(); ++i) {
    const std::string cell =
        value->elements.empty() ? shown_csv_cell(text_of(entry, *value)) : number_cell(entry, value->elements.at(i));
    std::string line = shown_csv_cell(names[i]);
    line.append(",").append(type).append(state_and_time).append(cell).append(",");
    if (i < result.element_remarks.size()) line += shown_csv_cell(result.element_remarks[i]);
    line += "\n";
    std::fputs(line.c_str(), file_);
  }
  return std::fflush(file_) == 0;
}

std::string csv_cells(const TagReference& reference, const TagValue& value) {
  const TagEntry& entry = reference.tag->entry;
  if (value_kind(entry) == ValueKind::kText) return "," + shown_csv_cell(text_of(entry, value));
  if (value_kind(entry) == ValueKind::kRaw) {
    return "," + shown_csv_cell(text_of(entry, value)) + std::string(chosen_elements(reference).size() - 1, ',');
  }
  std::string cells;
  for (const uint64_t bits : value.elements) cells += "," + number_cell(entry, bits);
  return cells;
}

std::string raw_text(const TagReference& reference, const TagValue& value) {
  const TagEntry& entry = reference.tag->entry;
  return value.elements.empty() ? text_of(entry, value) : format_value(entry, value, reference.extents);
}

void write_json_line(FILE* file, const nlohmann::ordered_json& object) {
  const std::string line = plc_base::json_line(object);
  std::fputs(line.c_str(), file);
}

void write_table(FILE* file, std::vector<std::vector<std::string>> rows) {
  std::vector<size_t> widths;
  for (std::vector<std::string>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) {
      row[i] = plc_base::shown_line(row[i]);
      widths[i] = std::max(widths[i], display_width(row[i]));
    }
  }
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) line += pad_columns(row[i], widths[i]) + "  ";
    line.erase(line.find_last_not_of(' ') + 1);
    std::fputs((line + "\n").c_str(), file);
  }
}

}  // namespace plc_host
