// Writes results for people and for programs.
#include "tools/plc_host/result_writer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/json_text.h"
#include "base/shown_text.h"
#include "client/driver/failure.h"
#include "client/values/time_text.h"
#include "client/values/utf8_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/colors.h"
#include "tools/plc_host/messages.h"

namespace plc_host {

namespace {

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

// The word for a write that the driver reported as done.
std::string written_word(const TagResult& result, const Confirmation& confirmation) {
  if (!result.ok() || !confirmation.is_acknowledged) return quality_word(result.reading.quality());
  return confirmation.is_read_back ? "verified" : "written";
}

// Whether the controller has carried the write out, where that is known.
std::optional<bool> was_written(const TagResult& result, const Confirmation& confirmation) {
  if (confirmation.is_acknowledged) return true;
  if (result.ok() || !result.reading.is_taken()) return result.ok() ? std::nullopt : std::optional<bool>(false);
  const Failure& failure = result.reading.failure();
  const bool is_open = leaves_write_open(failure) || failure.quality == Quality::kDifferent;
  return is_open ? std::nullopt : std::optional<bool>(false);
}

// Whether it was read back as it was written.
std::optional<bool> was_verified(const TagResult& result, const Confirmation& confirmation) {
  const std::optional<bool> written = was_written(result, confirmation);
  if (result.reading.quality() == Quality::kDifferent) return false;
  if (!written || !*written) return written;
  return result.ok() ? std::optional<bool>(confirmation.is_read_back) : std::nullopt;
}

nlohmann::ordered_json known_or_null(const std::optional<bool>& known) {
  return known ? nlohmann::ordered_json(*known) : nlohmann::ordered_json();
}

}  // namespace

ResultWriter::ResultWriter(FILE* file, bool json, const std::vector<TagResult>& named) : file_(file), json_(json) {
  for (const TagResult& entry : named) {
    name_columns_ = std::max(name_columns_, display_width(plc_base::shown_first(entry.name)));
    type_columns_ = std::max(type_columns_, type_text(entry).size());
  }
}

bool ResultWriter::add(const TagResult& result) {
  if (!json_) return add_line(result, quality_word(result.reading.quality()));
  write_json_line(file_, result_json(result));
  return std::fflush(file_) == 0;
}

bool ResultWriter::add_written(const TagResult& result, const Confirmation& confirmation) {
  const std::string state = written_word(result, confirmation);
  if (!json_) return add_line(result, state);
  nlohmann::ordered_json object = result_json(result);
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
  show_error(result.name + ": " + failure.reason + (is_new ? ". Try: " + failure.advice : ""));
}

nlohmann::ordered_json result_json(const TagResult& result) {
  nlohmann::ordered_json object;
  object["name"] = result.name;
  const Tag* tag = result.reference.tag;
  if (tag != nullptr) {
    object["id"] = *tag->register_id;
    object["type"] = declared_type(tag->entry);
  }
  object["state"] = quality_word(result.reading.quality());
  object["time"] = utc_time_text(result.reading.time());
  const TagValue* value = result.reading.value();
  if (tag != nullptr && value != nullptr) {
    object["value"] = value_json(tag->entry, *value, result.reference.extents);
    return object;
  }
  const Failure& failure = result.reading.failure();
  object["value"] = nullptr;
  object["reason"] = failure.reason;
  if (!failure.advice.empty()) object["try"] = failure.advice;
  if (failure.code != PLC_OK) object["code"] = failure.code;
  return object;
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
