// Finds, reads and searches a controller's tag files.
#include "client/controller/tag_areas.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "base/files.h"
#include "base/near_names.h"
#include "base/shown_text.h"
#include "client/client_error.h"
#include "client/controller/mistake.h"
#include "client/controller/value_access.h"
#include "client/driver/driver_session.h"
#include "client/tags/meant_names.h"
#include "client/tags/same_file.h"
#include "client/tags/tag_source.h"
#include "client/values/value_type.h"

namespace plc_client {
namespace {

constexpr unsigned kIdsPerBlock = 13;  // as a shift: the driver looks indexed ids up by blocks of 8192

std::vector<std::string> files_in(const std::string& folder) {
  DIR* opened = opendir(folder.c_str());
  if (opened == nullptr) refuse<Error>("cannot open the folder " + folder + ": " + std::strerror(errno));
  std::vector<std::string> names;
  int problem = 0;
  for (bool is_over = false; !is_over;) {
    errno = 0;
    const dirent* entry = readdir(opened);
    is_over = entry == nullptr;
    if (is_over) {
      problem = errno;
    } else {
      names.emplace_back(entry->d_name);
    }
  }
  closedir(opened);
  if (problem != 0) refuse<Error>("cannot read the folder " + folder + ": " + std::strerror(problem));
  std::sort(names.begin(), names.end());
  return names;
}

// The area of PLC<address>_<area>.csv; nothing for another name.
std::optional<uint16_t> area_of(const std::string& name, uint32_t ip_address) {
  char start[16];
  std::snprintf(start, sizeof start, "PLC%X_", ip_address);
  const size_t length = std::strlen(start);
  constexpr std::string_view kEnd = ".csv";
  if (name.compare(0, length, start) != 0 || name.size() <= length + kEnd.size()) return std::nullopt;
  if (name.compare(name.size() - kEnd.size(), kEnd.size(), kEnd) != 0) return std::nullopt;
  const std::string digits = name.substr(length, name.size() - length - kEnd.size());
  uint16_t area = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), area);
  const bool is_whole = end.ec == std::errc() && end.ptr == digits.data() + digits.size();
  // The driver writes the number without leading zeros.
  return is_whole && std::to_string(area) == digits ? std::optional<uint16_t>(area) : std::nullopt;
}

std::string joined(const std::string& folder, const std::string& name) {
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

bool is_folder(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    refuse<Error>("cannot open the tag file or folder " + path + ": " + plc_base::kZeroInName);
  }
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);
  const std::string problem = std::strerror(errno);
  char working_folder[PATH_MAX];
  const bool is_relative = path.front() != '/' && getcwd(working_folder, sizeof working_folder) != nullptr;
  refuse<Error>("cannot open the tag file or folder " + path + ": " + problem +
                (is_relative ? "; the program runs in " + std::string(working_folder) : ""));
}

std::string driver_words(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "; the driver says: " + line;
  return text;
}

// The driver takes the lines of any file for records; a file of another kind has no type in any of them.
void refuse_stranger(const TagArea& area) {
  const auto has_type = [](const core::Tag& tag) { return tag.entry.type_code != 0; };
  if (std::any_of(area.list.tags.begin(), area.list.tags.end(), has_type)) return;
  refuse<Error>(area.path + " is not a tag file: none of its " + std::to_string(area.list.tags.size()) +
                " lines has a type in its second column");
}

std::set<uint32_t> indexed_blocks(const core::TagList& list) {
  std::set<uint32_t> blocks;
  for (const core::Tag& tag : list.tags) {
    if (tag.register_id.value_or(0) >= core::kFirstIndexedId) blocks.insert(*tag.register_id >> kIdsPerBlock);
  }
  return blocks;
}

Declaration declare(const TagArea& area, const core::Tag& tag, uint32_t line) {
  Declaration declaration;
  declaration.name = tag.qualified_name;
  declaration.type = core::declared_type(tag.entry);
  declaration.kind = kind_of(tag.entry);
  declaration.bits = bits_of(tag.entry);
  for (const core::SubscriptRange& range : core::declared_ranges(tag.entry)) {
    declaration.ranges.push_back({range.low, range.high});
  }
  declaration.length = static_cast<size_t>(std::max(tag.entry.string_length, 0));
  const size_t slash = tag.entry.is_global == 1 ? std::string::npos : tag.qualified_name.find('/');
  if (slash != std::string::npos) declaration.scope = tag.qualified_name.substr(0, slash);
  declaration.device = core::device_name(tag.entry.device_kind);
  declaration.file = area.path;
  declaration.line = line;
  declaration.area = area.area;
  declaration.number = tag.register_id;
  declaration.unreachable = tag.unreachable;
  return declaration;
}

// A local variable goes with its program: another program may get one of its name some day.
void demand_scope(const core::Tag& tag, std::string_view name) {
  const bool is_local = tag.entry.is_global != 1;
  if (!is_local || name.substr(0, tag.qualified_name.size()) == tag.qualified_name) return;
  const std::string rest(name.substr(std::min(tag.name.size(), name.size())));
  const std::string text =
      std::string(name) + ": a variable of a program goes with the program's name: write " + tag.qualified_name + rest;
  throw UnknownVariable(plc_base::shown_line(text), {tag.qualified_name});
}

[[noreturn]] void refuse_two(const std::string& name, const std::string& file, const std::string& other) {
  refuse<UnknownVariable>(name + ": both " + file + " and " + other + " declare it: use a Controller for each area");
}

FoundVariable find_in(const TagArea& area, std::string_view name) {
  try {
    return {core::find_reference(area.list, name), area.area, {}};
  } catch (const core::UnreachableError& error) {
    core::TagReference reference;
    reference.tag = &error.tag();
    reference.text = error.tag().qualified_name;
    return {reference, area.area, error.what()};
  }
}

std::optional<core::TagReference> find_respelled(const std::vector<std::unique_ptr<TagArea>>& areas,
                                                 std::string_view name) {
  for (const auto& area : areas) {
    if (const auto text = core::respelled(area->list, name)) return core::find_reference(area->list, *text);
  }
  return std::nullopt;
}

}  // namespace

TagAreas::TagAreas(const Options& options, uint32_t ip_address, core::PrivateDriver& driver) {
  if (options.tags.empty()) {
    throw Error("no tag file is given: name the folder with PLC<address>_<area>.csv, or the file itself");
  }
  for (const std::string& path : options.tags) {
    if (path.empty()) throw Error("the name of a tag file is empty");
    if (is_folder(path)) {
      add_folder(path, ip_address, driver);
    } else {
      add(options.area, path, driver);
    }
  }
  check_apart();
}

TagAreas::TagAreas(std::vector<std::unique_ptr<TagArea>> areas) : areas_(std::move(areas)) { check_apart(); }

void TagAreas::add_folder(const std::string& folder, uint32_t ip_address, core::PrivateDriver& driver) {
  std::string others;
  bool is_found = false;
  for (const std::string& name : files_in(folder)) {
    if (const std::optional<uint16_t> area = area_of(name, ip_address)) {
      add(*area, joined(folder, name), driver);
      is_found = true;
    } else if (name.size() > 4 && name.compare(name.size() - 4, 4, ".csv") == 0) {
      others += (others.empty() ? "" : ", ") + name;
    }
  }
  if (is_found) return;
  char wanted[32];
  std::snprintf(wanted, sizeof wanted, "PLC%X_0.csv", ip_address);
  refuse<Error>("the folder " + folder + " has no " + wanted + (others.empty() ? "" : ", only " + others) +
                ": give the controller's tag file this name (its address in hexadecimal, its area), or name the file "
                "itself");
}

void TagAreas::add(uint16_t area, const std::string& path, core::PrivateDriver& driver) {
  for (const auto& other : areas_) {
    if (other->area == area) {
      refuse<Error>("both " + other->path + " and " + path + " are given for area " + std::to_string(area) +
                    ": an area has one tag file");
    }
  }
  auto read = std::make_unique<TagArea>();
  read->area = area;
  read->path = path;
  try {
    core::LoadedTags loaded = core::load_whole_file(driver.library(), path);
    read->list = std::move(loaded.list);
    read->bytes = std::move(loaded.bytes);
  } catch (const core::ClientError& error) {
    refuse<Error>(error.what() + driver_words(driver.take_lines()));
  }
  refuse_stranger(*read);
  areas_.push_back(std::move(read));
}

// The driver keeps one table of indexed ids for all files: the file loaded last would answer for the other.
void TagAreas::check_apart() const {
  for (size_t i = 0; i < areas_.size(); ++i) {
    const std::set<uint32_t> blocks = indexed_blocks(areas_[i]->list);
    for (size_t j = i + 1; j < areas_.size(); ++j) {
      for (const uint32_t block : indexed_blocks(areas_[j]->list)) {
        if (blocks.count(block) == 0) continue;
        refuse<Error>("the indexed ids of " + areas_[i]->path + " and " + areas_[j]->path +
                      " lie in the same block of 8192: use a Controller for each of them");
      }
    }
  }
}

std::string TagAreas::places() const {
  std::string text;
  for (const auto& area : areas_) text += (text.empty() ? "" : ", ") + area->path;
  return text;
}

void TagAreas::unknown(std::string_view name) const {
  std::vector<std::string> names;
  for (const Declaration& declaration : declarations()) names.push_back(declaration.name);
  const std::optional<core::TagReference> respelt = find_respelled(areas_, name);
  std::vector<std::string> near = respelt ? std::vector<std::string>{respelt->text} : core::meant_names(name, names);
  std::string text = std::string(name) + ": " + (areas_.size() > 1 ? "none of " : "") + places() +
                     (areas_.size() > 1 ? " has a variable of this name" : " has no variable of this name");
  if (!near.empty()) {
    const Declaration& nearest = declaration(respelt ? respelt->tag->qualified_name : near.front());
    text += "; did you mean " + plc_base::joined_with_or(near) + " (" + nearest.file + ":" +
            std::to_string(nearest.line) + ")?";
  }
  if (!respelt && name.find("][") != std::string_view::npos) {
    text += "; subscripts stand in one pair of brackets: [1,2]";
  }
  if (name.find_first_of("*?") != std::string_view::npos) text += "; patterns are for match() and, in Python, watch()";
  throw UnknownVariable(plc_base::shown_line(text), std::move(near));
}

FoundVariable TagAreas::find(std::string_view name) const {
  const std::string text(name);
  if (name.empty()) throw UnknownVariable("the name of a variable is empty");
  std::optional<FoundVariable> found;
  std::string file;
  try {
    for (const auto& area : areas_) {
      try {
        FoundVariable here = find_in(*area, name);
        demand_scope(*here.reference.tag, name);
        if (found) refuse_two(text, file, area->path);
        found = std::move(here);
        file = area->path;
      } catch (const core::NoSuchName&) {
        continue;  // the next file may have it
      }
    }
  } catch (const core::SubscriptError& error) {
    refuse<OutOfRange>(text + ": " + error.what());
  } catch (const core::ShapeError& error) {
    refuse<TypeMismatch>(text + ": " + error.what());
  } catch (const core::ReferenceError& error) {
    refuse<UnknownVariable>(text + ": " + error.what());
  }
  if (!found) unknown(name);
  return *found;
}

const std::vector<Declaration>& TagAreas::declarations() const {
  if (!declarations_.empty()) return declarations_;
  for (const auto& area : areas_) {
    std::vector<uint32_t> lines(area->list.tags.size(), 0);
    try {
      lines = core::TagSource(area->path).lines_of(area->list);
    } catch (const core::ClientError&) {
      // The file has gone since it was read: its lines have no numbers, its variables are known all the same.
      std::fill(lines.begin(), lines.end(), 0);
    }
    for (size_t i = 0; i < lines.size(); ++i) declarations_.push_back(declare(*area, area->list.tags[i], lines[i]));
  }
  return declarations_;
}

const Declaration& TagAreas::declaration(std::string_view name) const {
  size_t before = 0;
  const std::vector<Declaration>& all = declarations();
  for (const auto& area : areas_) {
    const std::vector<uint32_t> positions = core::positions_of(area->list, name);
    if (!positions.empty()) return all[before + positions.front()];
    before += area->list.tags.size();
  }
  unknown(name);
}

}  // namespace plc_client
