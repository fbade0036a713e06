// Writes results for people and for programs.
#include "result_writer.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "messages.h"
#include "utf8_text.h"
#include "value_type.h"

namespace plc_host {

ResultWriter::ResultWriter(FILE* file, bool json, const std::vector<TagResult>& named) : file_(file), json_(json) {
  for (const TagResult& entry : named) {
    if (!entry.ok()) continue;
    name_columns_ = std::max(name_columns_, display_width(entry.name));
    type_columns_ = std::max(type_columns_, declared_type(entry.reference.tag->entry).size());
  }
}

void ResultWriter::add(const TagResult& result) const {
  if (json_) {
    write_json_line(file_, result_json(result));
  } else {
    add_text(result);
  }
}

void ResultWriter::add_written(const TagResult& result, bool verified) const {
  if (!json_ || !result.ok()) return add(result);
  nlohmann::ordered_json object = result_json(result);
  object["written"] = true;
  object["verified"] = verified;
  write_json_line(file_, object);
}

void ResultWriter::add_text(const TagResult& result) const {
  if (!result.ok()) {
    // What was already written stays before the message when both go to one terminal.
    std::fflush(file_);
    show_message(result.name + ": " + result.error);
  } else {
    const TagEntry& entry = result.reference.tag->entry;
    const std::string line = pad_columns(result.name, name_columns_) + "  " +
                             pad_columns(declared_type(entry), type_columns_) + "  " +
                             format_value(entry, result.value, result.reference.extents) + "\n";
    std::fputs(line.c_str(), file_);
  }
}

nlohmann::ordered_json result_json(const TagResult& result) {
  nlohmann::ordered_json object;
  object["name"] = result.name;
  const Tag* tag = result.reference.tag;
  if (tag != nullptr) {
    object["id"] = *tag->register_id;
    object["type"] = declared_type(tag->entry);
  }
  if (tag != nullptr && result.ok()) {
    object["value"] = value_json(tag->entry, result.value, result.reference.extents);
    return object;
  }
  object["error"] = result.error;
  if (result.code != PLC_OK) object["code"] = result.code;
  return object;
}

void write_json_line(FILE* file, const nlohmann::ordered_json& object) {
  const std::string line = object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  std::fputs(line.c_str(), file);
}

void write_table(FILE* file, const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const std::vector<std::string>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], display_width(row[i]));
  }
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) line += pad_columns(row[i], widths[i]) + "  ";
    line.erase(line.find_last_not_of(' ') + 1);
    std::fputs((line + "\n").c_str(), file);
  }
}

}  // namespace plc_host
