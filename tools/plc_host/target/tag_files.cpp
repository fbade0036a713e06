// Looks at tag files before the driver does, and at the names in them after it.
#include "tools/plc_host/target/tag_files.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "base/files.h"
#include "base/near_names.h"
#include "base/text.h"
#include "client/driver/driver_lines.h"
#include "client/tags/meant_names.h"
#include "client/tags/same_file.h"
#include "client/tags/tag_source.h"
#include "client/values/value_type.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/target/wanted_names.h"

namespace plc_host {
namespace {

constexpr size_t kMostAreas = 8;  // in a message
constexpr char kCheck[] = ". Try: plc-host check ";

int sign_at(const std::string& text, size_t at) { return static_cast<unsigned char>(text[at]); }

bool is_tag_file_name(const std::string& name) { return area_in_name(name).has_value(); }

std::vector<std::string> names_in_folder(const std::string& path = ".") {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
  if (!folder) return names;
  while (const dirent* entry = readdir(folder.get())) names.emplace_back(entry->d_name);
  std::sort(names.begin(), names.end());
  return names;
}

// Small letters, and no zeros that the numbers could do without.
std::string comparable_name(const std::string& name) {
  std::string plain;
  for (size_t i = 0; i < name.size(); ++i) {
    const bool begins_number = i == 3 || (i > 0 && name[i - 1] == '_');
    while (begins_number && name[i] == '0' && i + 1 < name.size() && std::isxdigit(sign_at(name, i + 1)) != 0) ++i;
    plain += static_cast<char>(std::tolower(sign_at(name, i)));
  }
  return plain;
}

// A file that somebody meant for the one of this name; "" where there is none. A near one is none where there are
// others that the driver would take.
std::string misnamed_file(const std::string& name, bool has_others) {
  std::vector<std::string> files;
  for (const std::string& file : names_in_folder()) {
    if (is_tag_file_name(file) || file.front() == '.' || file.back() == '~') continue;
    if (comparable_name(file) == comparable_name(name)) return file;
    files.push_back(file);
  }
  if (has_others) return {};
  const std::vector<std::string> near = plc_base::near_names(name, files);
  return near.empty() ? "" : near.front();
}

// "area 0", "areas 0 and 2": of the controller, in the working directory.
std::vector<std::string> areas_of(const Target& controller) {
  const std::string own = tag_file_name(controller);
  const std::string start = own.substr(0, own.find('_') + 1);
  std::vector<std::string> areas;
  for (const std::string& file : own_tag_files()) {
    if (file.compare(0, start.size(), start) != 0 || areas.size() == kMostAreas) continue;
    areas.push_back(file.substr(start.size(), file.find('.') - start.size()));
  }
  return areas;
}

// What the driver's lines say of a file that it does not take.
std::string reason_in(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    const std::optional<LineMeaning> meaning = meaning_of_line(line);
    if (meaning && meaning->quality == Quality::kImpossible) return ": " + meaning->meaning;
  }
  return {};
}

std::string did_you_mean(const TagList& tags, const TagFilePath& file, const std::vector<std::string>& meant,
                         const Tag& nearest) {
  const uint32_t line = TagSource(file.read).lines_of(tags)[static_cast<size_t>(&nearest - tags.tags.data())];
  return "; did you mean " + plc_base::joined_with_or(meant) +
         (line > 0 ? " (" + file.shown + ":" + std::to_string(line) + ")?" : "?");
}

// Names with commas between them, each as the file has it: "Motor.Speed Motor.Limit" for "Motor.Speed,Limit". Empty for
// anything else.
std::string names_apart(const TagList& tags, std::string_view text) {
  const std::string_view first = text.substr(0, text.find(','));
  if (first.size() == text.size() || positions_of(tags, first).empty()) return {};
  const std::string group(first.substr(0, first.rfind('.') + 1));  // npos + 1 is 0
  std::string apart(first);
  for (size_t start = first.size() + 1; start <= text.size();) {
    const size_t end = std::min(text.find(',', start), text.size());
    const std::string part(text.substr(start, end - start));
    const bool is_member = positions_of(tags, part).empty() && !positions_of(tags, group + part).empty();
    apart.append(" ").append(is_member ? group : "").append(part);
    start = end + 1;
  }
  return apart;
}

bool ends_in(std::string_view name, std::string_view end) {
  return name.size() > end.size() && plc_base::is_same_but_case(name.substr(name.size() - end.size()), end);
}

// The variable before the = of a name that has a value too; "" where there is none.
std::string name_before_value(const TagList& tags, std::string_view name) {
  const size_t equals = name.find('=');
  if (equals == std::string_view::npos) return {};
  const size_t last = name.find_last_not_of(" \t", equals == 0 ? 0 : equals - 1);
  const std::string before(name.substr(0, last == std::string_view::npos ? 0 : last + 1));
  return positions_of(tags, before).empty() ? "" : before;
}

// An array behind whose name a bracket stays open.
bool opens_subscripts(const TagList& tags, std::string_view name) {
  const size_t open = name.rfind('[');
  if (open == std::string_view::npos || name.find(']', open) != std::string_view::npos) return false;
  return !positions_of(tags, name.substr(0, open)).empty();
}

// The first variable that a list of names writes as this text, with signs that are written out; null where none is.
const Tag* tag_listed_as(const TagList& tags, std::string_view text) {
  if (text.find('\\') == std::string_view::npos) return nullptr;
  const auto is_listed = [text](const Tag& tag) { return listed_name(tag.qualified_name) == text; };
  const auto tag = std::find_if(tags.tags.begin(), tags.tags.end(), is_listed);
  return tag == tags.tags.end() ? nullptr : &*tag;
}

// What to say behind "the file has no variable of this name".
std::string what_was_meant(const TagList& tags, const TagFilePath& file, std::string_view name) {
  const std::string before = name_before_value(tags, name);
  if (!before.empty()) return "; did you mean " + before + "? Only write takes values";
  if (const std::optional<std::string> meant = respelled(tags, name)) {
    return did_you_mean(tags, file, {*meant}, *find_reference(tags, *meant).tag);
  }
  if (opens_subscripts(tags, name)) return ": no ] ends its subscripts; write it as in Table[0] or Table[0..4]";
  if (!name.empty() && (name.front() == '[' || name.front() == ']')) {
    return ": no name stands before the bracket; write it as in Table[0] or Table[0..4]";
  }
  if (const std::string hint = file_hint(std::string(name), file.folder); !hint.empty()) return "; " + hint;
  if (ends_in(name, ".csv")) return "; a tag file is given with --tags " + std::string(name);
  const std::string apart = names_apart(tags, name);
  if (!apart.empty()) return "; names stand apart, without commas: " + apart;
  if (std::string hint = hint_on_types(tags, file.shown); !hint.empty()) return hint;
  std::vector<std::string> names;
  for (const Tag& tag : tags.tags) names.push_back(tag.qualified_name);
  const std::vector<std::string> meant = meant_names(name, names);
  if (meant.empty()) return {};
  const auto place = std::find(names.begin(), names.end(), meant.front()) - names.begin();
  return did_you_mean(tags, file, meant, tags.tags[static_cast<size_t>(place)]);
}

}  // namespace

// What the driver would make of an address and an area: "PLC", at most eight upper-case hexadecimal digits, "_", the
// area, ".csv"; neither number begins with a zero that it could do without.
std::optional<uint16_t> area_in_name(const std::string& name) {
  constexpr std::string_view kStart = "PLC";
  constexpr std::string_view kEnd = ".csv";
  constexpr size_t kMostDigits = 8;
  const size_t line = name.find('_');
  if (name.compare(0, kStart.size(), kStart) != 0 || line == std::string::npos || line == kStart.size()) return {};
  const std::string number = name.substr(kStart.size(), line - kStart.size());
  const std::string area = name.substr(line + 1, name.find('.') - std::min(name.find('.'), line + 1));
  uint16_t area_number = 0;
  const std::from_chars_result end = std::from_chars(area.data(), area.data() + area.size(), area_number);
  const bool is_address = number.find_first_not_of("0123456789ABCDEF") == std::string::npos &&
                          number.size() <= kMostDigits && (number == "0" || number[0] != '0');
  const bool is_area = end.ec == std::errc() && std::to_string(area_number) == area;
  if (!is_address || !is_area || name.substr(line + 1 + area.size()) != kEnd) return {};
  return area_number;
}

std::string tag_file_at(const std::string& path, const Target& controller) {
  std::error_code error;
  if (!std::filesystem::is_directory(path, error)) return path;
  return (std::filesystem::path(path) / tag_file_name(controller)).string();
}

void demand_tag_file(const std::string& path) {
  refuse_line_end(path);
  const plc_base::OpenedFile file = plc_base::open_regular_file(path);
  if (!file.problem.empty()) {
    std::error_code error;
    const bool is_folder = std::filesystem::is_directory(path, error);
    throw HostError(kExitTagFile, "cannot read the tag file " + plc_base::told_name(path) + ": " + file.problem +
                                      (is_folder ? ". Try: name one of its files" : ""));
  }
  close(file.descriptor);
}

void demand_own_tag_file(const Target& controller) {
  const std::string name = tag_file_name(controller);
  if (access(name.c_str(), F_OK) == 0) return demand_tag_file(name);
  const std::vector<std::string> areas = areas_of(controller);
  const std::string said = "there is no " + name + " in this folder, the tag file of " + target_text(controller) +
                           " and area " + std::to_string(controller.area);
  const std::string misnamed = misnamed_file(name, !areas.empty());
  if (!misnamed.empty()) {
    throw HostError(kExitTagFile,
                    said + "; " + misnamed + " is called differently. Try: rename it, or --tags " + misnamed);
  }
  throw HostError(kExitTagFile,
                  said + (areas.empty() ? "" : "; there is that of area " + plc_base::joined_with_or(areas)) +
                      ". Try: --tags FILE" + (areas.empty() ? "" : ", or --area " + areas.front()));
}

TagList read_tag_list(const DriverLibrary& library, CommandOutput& output, const TagFilePath& file, bool shows_lines,
                      std::string* bytes) {
  try {
    LoadedTags loaded = load_whole_file(library, file.read);
    output.take_lines();
    if (bytes != nullptr) *bytes = std::move(loaded.bytes);
    return std::move(loaded.list);
  } catch (const FileChanged&) {
    throw FileChanged(file.shown);
  } catch (const ClientError& error) {
    const std::vector<std::string> lines = output.take_lines();
    for (const std::string& line : lines) {
      if (shows_lines) show_driver_line(line);
    }
    if (error.kind() != ClientError::Kind::kTagFile) throw;
    throw ClientError(ClientError::Kind::kTagFile,
                      "the driver cannot use the tag file " + file.shown + reason_in(lines) + kCheck + file.shown);
  }
}

void load_now(const DriverLibrary& library, const Target& target, const TagFilePath& file, const std::string& bytes) {
  if (library.load_tags == nullptr) return;
  const auto load = [&] { return library.load_tags(target.ip_address, target.area, file.read.c_str()); };
  const std::optional<uint32_t> code = load_same_file(file.read, bytes, load);
  if (!code) throw FileChanged(file.shown);
  if (*code == PLC_OK) return;
  throw ClientError(ClientError::Kind::kTagFile,
                    "the driver can no longer load the tag file " + file.shown + kCheck + file.shown);
}

TagReference find_variable(const TagList& tags, const TagFilePath& file, std::string_view name) {
  try {
    return find_reference(tags, name);
  } catch (const NoSuchName&) {
    if (const Tag* listed = tag_listed_as(tags, name)) return find_reference(tags, listed->qualified_name);
    throw NoSuchName(file.shown + " has no variable of this name" + what_was_meant(tags, file, name));
  } catch (const UnreachableError&) {
    throw;
  } catch (const ReferenceError& error) {
    const std::optional<std::string> meant = respelled(tags, name);
    if (!meant) throw;
    throw ReferenceError(std::string(error.what()) + "; did you mean " + *meant + "?");
  }
}

std::string file_hint(const std::string& word, const std::string& folder) {
  const bool is_tag_file = ends_in(word, ".csv");
  std::error_code unknown;
  if (!is_tag_file && !ends_in(word, ".txt")) return {};
  if (!std::filesystem::is_regular_file(std::filesystem::path(folder) / word, unknown)) return {};
  const std::string told = plc_base::told_name(word);
  return told + " is a file, not a variable: " +
         (is_tag_file ? "a tag file is given with --tags " : "a list of names is given with --names-from ") + told;
}

std::string hint_on_types(const TagList& tags, const std::string& shown) {
  const auto has_type = [](const Tag& tag) { return has_known_type(tag.entry); };
  if (std::any_of(tags.tags.begin(), tags.tags.end(), has_type)) return {};
  return std::string(": none of its lines has a type") + kCheck + shown;
}

std::string remark_on_types(const TagList& tags, const TagFilePath& file, const std::vector<const Tag*>& some) {
  if (some.empty()) return {};
  const std::string hint = hint_on_types(tags, file.shown);
  if (!hint.empty()) return file.shown + hint;
  const auto is_typeless = [](const Tag* tag) { return !has_known_type(tag->entry); };
  const auto count = static_cast<uint64_t>(std::count_if(some.begin(), some.end(), is_typeless));
  if (count == 0) return {};
  const std::string these = plc_base::grouped_number(count) + " of " + plc_base::plural(some.size(), "variable");
  return file.shown + ": " + these + (count == 1 ? " has" : " have") + " no type that the driver knows" + kCheck +
         file.shown;
}

std::vector<std::string> own_tag_files() {
  std::vector<std::string> names = names_in_folder();
  names.erase(
      std::remove_if(names.begin(), names.end(), [](const std::string& name) { return !is_tag_file_name(name); }),
      names.end());
  return names;
}

std::vector<std::string> tag_files_in(const std::string& folder, const Target& controller) {
  const std::string own = tag_file_name(controller);
  const std::string start = own.substr(0, own.find('_') + 1);
  std::vector<std::string> files;
  for (const std::string& name : names_in_folder(folder)) {
    const bool is_own = is_tag_file_name(name) && name.compare(0, start.size(), start) == 0;
    if (is_own) files.emplace_back(folder).append("/").append(name);
  }
  if (files.empty()) {
    throw HostError(kExitTagFile, "--tags " + folder + ": this folder has no " + own +
                                      " nor another area's, the tag files of " + target_text(controller) +
                                      ". Try: --tags FILE, once for each");
  }
  return files;
}

}  // namespace plc_host
