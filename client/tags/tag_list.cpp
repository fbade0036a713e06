// Takes over the driver's tag records and works out which number asks for each of them.
#include "client/tags/tag_list.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>

#include "base/files.h"
#include "client/client_error.h"
#include "client/driver/driver_session.h"

namespace plc_client::core {
namespace {

constexpr uint32_t kFirstUnformedId = 0x10000;  // up to kFirstIndexedId: needs a reg_type of 1 to 3, which counts as 0
constexpr uint32_t kLargestId = 0xFFFFFF;       // reg_type is one byte
constexpr size_t kGroupIdWords = 2048;          // one per block of 8192 ids, from kFirstIndexedId on
constexpr unsigned kBlockShift = 13;

Tag make_tag(const TagEntry& entry) {
  Tag tag;
  tag.entry = entry;
  tag.name = plain_name(entry.name);
  if (entry.is_global == 1) {
    tag.qualified_name = tag.name;
    return tag;
  }
  std::string scope = entry.scope_name;
  // A file with carriage returns leaves one in the name of the last column; nobody can type it.
  if (!scope.empty() && scope.back() == '\r') scope.pop_back();
  tag.qualified_name = scope + "/" + tag.name;
  return tag;
}

Tag make_plain_tag(const TagEntry& entry, uint32_t record) {
  Tag tag = make_tag(entry);
  if (record < kFirstUnformedId) {
    tag.register_id = record;
  } else {
    tag.unreachable = "record numbers from 65536 to 262143 need a reg_type of 1 to 3, which the driver takes for 0";
  }
  return tag;
}

Tag make_indexed_tag(const IndexedTagEntry& group, uint32_t group_number, uint32_t index, uint32_t max_indexed_id,
                     const std::vector<uint32_t>& group_ids) {
  Tag tag = make_tag(group.entries[index]);
  const uint32_t first = group.entries[0].tag_id;
  const uint32_t id = first + index;
  if (first < kFirstIndexedId || id < first) {
    tag.unreachable = "column 8 of its group's first line holds no indexed id";
    return tag;
  }
  if (id > kLargestId) {
    tag.unreachable = "ids above 16777215 cannot be asked for: reg_type is one byte";
    return tag;
  }
  const size_t block = (id >> kBlockShift) - (kFirstIndexedId >> kBlockShift);
  if (id >= max_indexed_id) {
    tag.unreachable = "the largest indexed id of a file cannot be asked for";
  } else if (block >= group_ids.size() || group_ids[block] != group_number) {
    tag.unreachable = "the block of 8192 ids around " + std::to_string(id) + " belongs to another group";
  } else {
    tag.register_id = id;
  }
  return tag;
}

// Calls the visitor with each way to write the name.
template <typename Visitor>
void visit_names(const Tag& tag, const Visitor& visitor) {
  visitor(std::string_view(tag.qualified_name));
  if (tag.name != tag.qualified_name) visitor(std::string_view(tag.name));
  if (tag.name != tag.entry.name && tag.qualified_name != tag.entry.name) visitor(std::string_view(tag.entry.name));
}

void index_names(TagList& list) {
  size_t count = 0;
  for (const Tag& tag : list.tags) visit_names(tag, [&count](std::string_view) { ++count; });
  list.names.reserve(count);
  for (uint32_t i = 0; i < list.tags.size(); ++i) {
    visit_names(list.tags[i], [&list, i](std::string_view name) { list.names.add(name, i); });
  }
  list.names.finish();
}

}  // namespace

std::string plain_name(const char* name) {
  std::string plain;
  bool in_subscripts = false;
  char before = '\0';
  for (const char* at = name; *at != '\0'; before = *at++) {
    if (*at == '[') in_subscripts = true;
    if (*at == ']') in_subscripts = false;
    if (*at == '#' && (before == '[' || (before == ',' && in_subscripts))) continue;
    plain += *at;
  }
  return plain;
}

const char* device_name(uint8_t device_kind) {
  struct Device {
    uint8_t kind;
    const char* name;
  };
  static constexpr Device kDevices[] = {{23, "EM"}, {17, "MR"}, {18, "LR"}, {6, "DM"},
                                        {8, "TM"},  {25, "FM"}, {7, "CM"},  {44, "ZF"}};
  for (const Device& device : kDevices) {
    if (device.kind == device_kind) return device.name;
  }
  return "";
}

TagList make_tag_list(const TagEntry* entries, uint32_t plain_count, const IndexedTagEntry* groups,
                      uint32_t max_indexed_id, const std::vector<uint32_t>& group_ids) {
  TagList list;
  list.plain_count = plain_count;
  list.max_indexed_id = max_indexed_id;
  list.tags.reserve(plain_count);
  for (uint32_t i = 0; i < plain_count; ++i) list.tags.push_back(make_plain_tag(entries[i], i));
  for (uint32_t g = 0; groups != nullptr && groups[g].entries != nullptr; ++g) {
    for (uint32_t i = 0; i < groups[g].count; ++i) {
      list.tags.push_back(make_indexed_tag(groups[g], g, i, max_indexed_id, group_ids));
    }
  }
  index_names(list);
  return list;
}

std::vector<uint32_t> positions_of(const TagList& list, std::string_view name) {
  std::vector<uint32_t> positions = list.names.candidates(name);
  // Other names may have the same hash.
  const auto is_other = [&list, name](uint32_t position) {
    const Tag& tag = list.tags[position];
    return tag.qualified_name != name && tag.name != name && tag.entry.name != name;
  };
  positions.erase(std::remove_if(positions.begin(), positions.end(), is_other), positions.end());
  return positions;
}

void refuse_line_end(const std::string& path) {
  if (path.find('\n') == std::string::npos) return;
  throw ClientError(ClientError::Kind::kTagFile, "cannot use the tag file " + path + ": its name contains a newline");
}

// The driver takes a file that it cannot open for none at all, and is silent where memory ends: the system's reason
// tells.
[[noreturn]] void throw_unusable(const std::string& path, int reason) {
  if (reason == ENOMEM) throw std::bad_alloc();
  if (reason == EMFILE || reason == ENFILE) {
    throw ClientError(ClientError::Kind::kOutput, std::string("cannot open the tag file: ") + std::strerror(reason) +
                                                      ". Try: " + plc_base::kMoreDescriptors);
  }
  throw ClientError(ClientError::Kind::kTagFile, "the driver cannot use the tag file " + path);
}

TagList load_tag_list(const DriverLibrary& library, const std::string& path) {
  if (library.build_tagtable == nullptr) {
    throw ClientError(ClientError::Kind::kLibrary,
                      "the driver library does not export build_tagtable: names cannot be looked up");
  }
  refuse_line_end(path);
  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
  std::vector<uint32_t> group_ids(kGroupIdWords, 0);
  errno = 0;
  const uint32_t* counts = library.build_tagtable(&entries, &groups, path.c_str(), group_ids.data());
  if (counts == nullptr) throw_unusable(path, errno);
  TagList list = make_tag_list(entries, counts[0], groups, counts[1], group_ids);
  for (uint32_t g = 0; groups != nullptr && groups[g].entries != nullptr; ++g) std::free(groups[g].entries);
  std::free(groups);
  std::free(entries);
  if (list.tags.empty()) {
    throw ClientError(ClientError::Kind::kTagFile, "the driver finds no variable in the tag file " + path);
  }
  return list;
}

std::vector<std::string> program_names(const TagList& list) {
  std::set<std::string> names;
  for (const Tag& tag : list.tags) {
    if (tag.entry.is_global != 1 && tag.entry.scope_name[0] != '\0') names.insert(tag.entry.scope_name);
  }
  return {names.begin(), names.end()};
}

void leave_absent(TagList& list, const std::vector<std::pair<std::string, std::string>>& absent) {
  for (Tag& tag : list.tags) {
    const std::pair<std::string, std::string> own{tag.name, tag.entry.is_global == 1 ? "" : tag.entry.scope_name};
    if (std::find(absent.begin(), absent.end(), own) == absent.end()) continue;
    tag.register_id.reset();
    tag.unreachable = kAbsentWords;
  }
}

const Tag* find_tag_by_id(const TagList& list, uint32_t register_id) {
  for (const Tag& tag : list.tags) {
    if (tag.register_id == register_id) return &tag;
  }
  return nullptr;
}

}  // namespace plc_client::core
