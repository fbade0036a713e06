// The variables of a tag file as the driver reads them, each with the number by which a host asks for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/driver/driver_library.h"
#include "client/tags/name_index.h"

namespace plc_client::core {

struct Tag {
  TagEntry entry;
  std::string name;                     // without the '#' that the driver puts before subscripts
  std::string qualified_name;           // "SCOPE/NAME" for a local variable, else the name
  std::optional<uint32_t> register_id;  // nothing when no request can ask for it
  std::string unreachable;              // then the reason
};

struct TagList {
  std::vector<Tag> tags;  // plain records in file order, then indexed ones in file order
  NameIndex names;        // each way to write a name: with scope, without, and as the driver has it
  uint32_t plain_count = 0;
  uint32_t max_indexed_id = 0;
};

// Positions in the list's tags, in their order, of those that may be called so.
std::vector<uint32_t> positions_of(const TagList& list, std::string_view name);

// Throws ClientError for a path with a line end: the driver prints paths, and what stands behind the line end would be
// taken for a line of the driver's own.
void refuse_line_end(const std::string& path);

// Has the library read the file. Throws ClientError when it rejects the file or exports no function to read it with.
TagList load_tag_list(const DriverLibrary& library, const std::string& path);

// The list from the arrays that the driver makes: plain_count records, groups ending with one whose entries are null
// (or no groups), and the table by which an indexed id finds its group.
TagList make_tag_list(const TagEntry* entries, uint32_t plain_count, const IndexedTagEntry* groups,
                      uint32_t max_indexed_id, const std::vector<uint32_t>& group_ids);

// The names of programs that local variables have, each once.
std::vector<std::string> program_names(const TagList& list);

// Why nothing asks for a variable that leave_absent was given.
inline constexpr char kAbsentWords[] =
    "the profile lists it under [[refused]], and what this controller answers in place of its value looks like a "
    "value. Survey the controller again once it has the variable";

// Nothing asks for these variables any more: the controller refuses them, and what it answers looks like a value.
// absent: names with their programs, "" for a global variable.
void leave_absent(TagList& list, const std::vector<std::pair<std::string, std::string>>& absent);

// The record with this id; null when there is none.
const Tag* find_tag_by_id(const TagList& list, uint32_t register_id);

// The name without the '#' before each subscript.
std::string plain_name(const char* name);

// Name of a device kind: "DM"; "" for none.
const char* device_name(uint8_t device_kind);

}  // namespace plc_client::core
