// The command that shows the records of a tag file.
#include <nlohmann/json.hpp>

#include "base/shown_text.h"
#include "base/text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/results/result_writer.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;
using plc_base::hexadecimal;

const char* shape_name(uint32_t shape) {
  switch (shape) {
    case PLC_SCALAR:
      return "scalar";
    case PLC_ARRAY1:
      return "array";
    case PLC_STRING:
      return "string";
    case PLC_ARRAY2:
      return "array2";
    case PLC_ARRAY3:
      return "array3";
    default:
      return "?";
  }
}

std::string bounds_text(const TagEntry& entry) {
  std::string text;
  for (const SubscriptRange& range : declared_ranges(entry)) {
    text += (text.empty() ? "" : ",") + std::to_string(range.low) + ".." + std::to_string(range.high);
  }
  if (entry.shape == PLC_STRING) text = std::to_string(entry.string_length) + " bytes";
  return text;
}

std::string or_dash(const std::string& text) { return text.empty() ? "-" : text; }

std::vector<std::string> tag_row(const Tag& tag) {
  const TagEntry& entry = tag.entry;
  const std::string number = tag.register_id ? std::to_string(*tag.register_id) : "-";
  const std::string type = tag.register_id ? std::to_string(request_reg_type(*tag.register_id)) : "-";
  const std::string address = tag.register_id ? hexadecimal(request_address(*tag.register_id, 0), 8) : "-";
  return {number,
          type,
          address,
          tag.name,
          type_name(entry.type_code),
          shape_name(entry.shape),
          or_dash(bounds_text(entry)),
          entry.is_global == 1 ? "global" : "local " + quote_text(entry.scope_name),
          or_dash(device_name(entry.device_kind)),
          tag.unreachable};
}

Json tag_json(const Tag& tag) {
  const TagEntry& entry = tag.entry;
  Json object;
  object["name"] = tag.name;
  object["id"] = tag.register_id ? Json(*tag.register_id) : Json();
  if (tag.register_id) {
    object["reg_type"] = request_reg_type(*tag.register_id);
    object["address"] = request_address(*tag.register_id, 0);
  } else {
    object["unreachable"] = tag.unreachable;
  }
  object["type"] = type_name(entry.type_code);
  object["shape"] = shape_name(entry.shape);
  Json bounds = Json::array();
  for (const SubscriptRange& range : declared_ranges(entry)) bounds.push_back(Json::array({range.low, range.high}));
  object["bounds"] = bounds;
  if (entry.shape == PLC_STRING) object["length"] = entry.string_length;
  object["global"] = entry.is_global == 1;
  if (entry.is_global != 1) object["scope"] = entry.scope_name;
  object["device"] = device_name(entry.device_kind);
  return object;
}

}  // namespace

int run_tags(const HostOptions& options, CommandOutput& output) {
  if (options.new_tags.wanted) return run_new_tags(options, output);
  const DriverLibrary library = load_driver_library(options.driver);
  const std::string& path = options.listed.front();
  demand_tag_file(path);
  const TagList list = read_tag_list(library, output, {path, path}, options.verbosity > 0);
  if (options.names_only) {
    for (const Tag& tag : list.tags) {
      if (tag.register_id) std::fputs((plc_base::shown_line(tag.qualified_name) + "\n").c_str(), output.results());
    }
    return kExitOk;
  }
  if (options.json) {
    for (const Tag& tag : list.tags) write_json_line(output.results(), tag_json(tag));
    return kExitOk;
  }
  std::vector<std::vector<std::string>> rows = {
      {"NUMBER", "REG_TYPE", "ADDRESS", "NAME", "TYPE", "SHAPE", "BOUNDS", "SCOPE", "DEVICE", ""}};
  for (const Tag& tag : list.tags) rows.push_back(tag_row(tag));
  write_table(output.results(), rows);
  return kExitOk;
}

}  // namespace plc_host
