// The command that shows the records of a tag file.
#include <unistd.h>
#include <nlohmann/json.hpp>
#include <set>

#include "base/shown_text.h"
#include "base/text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/form_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/settings/use_settings.h"
#include "tools/plc_host/target/controller_address.h"
#include "tools/plc_host/target/tag_files.h"
#include "tools/plc_host/target/wanted_names.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;
using plc_base::hexadecimal;

constexpr size_t kNameColumn = 3;

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

// The first word, unless an option says which file it is: then all words are names.
std::string listed_file(const HostOptions& options) {
  if (!names_tag_file(options) && !options.listed.empty()) return options.listed.front();
  const Setting& tags = options.settings.at("tags");
  const Setting& address = options.settings.at("address");
  if (tags.is_typed() || (tags.is_said() && !address.is_typed())) return tags.value;
  if (!address.is_said()) {
    throw HostError(kExitUsage, "which tag file? Give FILE, or --address HOST for the one that the driver would take");
  }
  Target target;
  Settings settings = options.settings;
  target.ip_address = find_controller(take_port_of_address(settings));
  target.area = options.area;
  target.tcp_port = static_cast<uint16_t>(std::stoul(settings.at("port").value));
  demand_own_tag_file(target);
  return tag_file_name(target);
}

std::vector<std::string> wanted_words(const HostOptions& options) {
  const bool has_file = !names_tag_file(options) && !options.listed.empty();
  std::vector<std::string> words(options.listed.begin() + (has_file ? 1 : 0), options.listed.end());
  words.insert(words.end(), options.names.begin(), options.names.end());
  return words;
}

// The records of a word; none, behind a message, where the file has none.
std::vector<const Tag*> tags_of(const TagList& list, const TagFilePath& file, const std::string& word) {
  std::vector<const Tag*> tags;
  if (is_pattern(word) && positions_of(list, word).empty()) {
    for (const size_t position : positions_fitting(list, word)) tags.push_back(&list.tags[position]);
    if (tags.empty()) show_error(plc_base::told_name(word) + ": " + why_none_fits(list, file.shown, word));
    return tags;
  }
  try {
    tags.push_back(find_variable(list, file, word).tag);
  } catch (const UnreachableError& error) {
    tags.push_back(&error.tag());
  } catch (const ReferenceError& error) {
    show_error(plc_base::told_name(word) + ": " + error.what());
  }
  return tags;
}

// All records without words, else those of each word, once. Not complete when a word has none.
std::vector<const Tag*> wanted_tags(const TagList& list, const TagFilePath& file, const std::vector<std::string>& words,
                                    bool& is_complete) {
  std::vector<const Tag*> wanted;
  if (words.empty()) {
    for (const Tag& tag : list.tags) wanted.push_back(&tag);
  }
  std::set<const Tag*> known;
  for (const std::string& word : words) {
    const std::vector<const Tag*> tags = tags_of(list, file, word);
    is_complete = is_complete && !tags.empty();
    for (const Tag* tag : tags) {
      if (known.insert(tag).second) wanted.push_back(tag);
    }
  }
  return wanted;
}

// A row of a spreadsheet: a cell of what is not there is empty.
std::string csv_row(const std::vector<std::string>& cells) {
  std::string line;
  for (size_t i = 0; i < cells.size(); ++i) {
    line += (i == 0 ? "" : ",") + (cells[i] == "-" && i != kNameColumn ? "" : plc_base::shown_csv_cell(cells[i]));
  }
  return line + "\n";
}

// A list cannot have a name whose signs, written out, are the name of another variable.
void tell_ambiguous(const std::vector<const Tag*>& tags) {
  std::set<std::string> names;
  for (const Tag* tag : tags) names.insert(tag->qualified_name);
  for (const std::string& name : names) {
    const std::string listed = listed_name(name);
    if (listed == name || names.count(listed) == 0) continue;
    show_error(listed +
               " is another variable's name too, and --names-from takes it for that one. Try: --json, which has "
               "the exact names");
  }
}

void write_tags(const HostOptions& options, const std::vector<const Tag*>& tags, FILE* file) {
  const Form form = form_of(options).form;
  if (options.names_only || form == Form::kJson) {
    for (const Tag* tag : tags) {
      if (!options.names_only) {
        write_json_line(file, tag_json(*tag));
      } else if (tag->register_id && tag->entry.name[0] != '\0') {
        std::fputs((listed_name(tag->qualified_name) + "\n").c_str(), file);
      }
    }
    if (options.names_only) tell_ambiguous(tags);
    return;
  }
  if (form == Form::kCsv) {
    std::fputs("number,reg_type,address,name,type,shape,bounds,scope,device,remark\n", file);
    for (const Tag* tag : tags) std::fputs(csv_row(tag_row(*tag)).c_str(), file);
    return;
  }
  std::vector<std::vector<std::string>> rows = {
      {"NUMBER", "REG_TYPE", "ADDRESS", "NAME", "TYPE", "SHAPE", "BOUNDS", "SCOPE", "DEVICE", ""}};
  for (const Tag* tag : tags) {
    rows.push_back(tag_row(*tag));
    rows.back()[kNameColumn] = plc_base::shown_first(tag->name);
  }
  write_table(file, rows);
}

}  // namespace

void check_listing(const HostOptions& options) {
  check_form(options);
  if (options.names_only && form_of(options).form != Form::kText) {
    throw HostError(kExitUsage, "--names has lines of its own: neither --json nor --csv goes with it");
  }
  if (options.settings.at("area").is_typed() && !options.settings.at("address").is_typed()) {
    throw HostError(kExitUsage, "--area is that of a controller: give its --address too, or leave --area out");
  }
  const std::string path = listed_file(options);
  if (!names_tag_file(options) && is_pattern(path) && access(path.c_str(), F_OK) != 0) {
    throw HostError(kExitUsage, "which tag file? Give FILE before the pattern " + path);
  }
  for (const std::string& word : wanted_words(options)) {
    const std::string hint = file_hint(word);
    if (hint.empty()) continue;
    throw HostError(kExitUsage, names_tag_file(options) ? hint
                                                        : "which tag file? One FILE: " + plc_base::told_name(word) +
                                                              " stands where names do");
  }
}

bool names_tag_file(const HostOptions& options) {
  return options.settings.at("tags").is_typed() || options.settings.at("address").is_typed();
}

int run_tags(const HostOptions& options, CommandOutput& output) {
  if (options.new_tags.wanted) return run_new_tags(options, output);
  const DriverLibrary library = load_driver_library(options.driver);
  const std::string path = listed_file(options);
  demand_tag_file(path);
  const TagFilePath file{path, path};
  const TagList list = read_tag_list(library, output, file, options.verbosity > 0);
  bool is_complete = true;
  const std::vector<const Tag*> tags = wanted_tags(list, file, wanted_words(options), is_complete);
  if (is_complete || !tags.empty()) write_tags(options, tags, output.results());
  const std::string remark = remark_on_types(list, file, tags);
  if (!remark.empty() && !options.quiet) show_message(remark);
  return is_complete ? kExitOk : kExitTagFailed;
}

}  // namespace plc_host
