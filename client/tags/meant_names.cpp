// Looks for near names, and for members.
#include "client/tags/meant_names.h"

#include "base/near_names.h"

namespace plc_client::core {
namespace {

constexpr size_t kMostMembers = 5;

// A structure is no variable itself, and neither is an array of structures.
std::vector<std::string> members_of(std::string_view structure, const std::vector<std::string>& names) {
  std::vector<std::string> members;
  for (const std::string& name : names) {
    const bool is_inside = name.size() > structure.size() && name.compare(0, structure.size(), structure) == 0;
    if (!is_inside || (name[structure.size()] != '.' && name[structure.size()] != '[')) continue;
    members.push_back(name);
    if (members.size() == kMostMembers) break;
  }
  return members;
}

}  // namespace

std::vector<std::string> meant_names(std::string_view name, const std::vector<std::string>& names) {
  const bool has_subscripts = !name.empty() && name.back() == ']';
  const std::string_view bare = name.substr(0, has_subscripts ? name.rfind('[') : name.size());
  std::vector<std::string> near = plc_base::near_names(bare, names);
  return near.empty() ? members_of(bare, names) : near;
}

}  // namespace plc_client::core
