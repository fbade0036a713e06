// Looks for near names, and for members.
#include "client/tags/meant_names.h"

#include "base/near_names.h"
#include "client/tags/tag_reference.h"

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

bool is_digit(char sign) { return sign >= '0' && sign <= '9'; }

std::string_view without_ends(std::string_view text) {
  constexpr std::string_view kStray = " \t\r:,;";
  const size_t first = text.find_first_not_of(kStray);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kStray) - first + 1);
}

// In one pair of square brackets, with commas between the subscripts and two dots between bounds.
std::string with_usual_brackets(std::string_view text) {
  std::string usual;
  for (size_t at = 0; at < text.size(); ++at) {
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    const bool is_end = text[at] == ']' || text[at] == ')';
    if (is_end && (next == '[' || next == '(')) {
      usual += ',';
      ++at;
    } else if (text[at] == '(' || text[at] == ')') {
      usual += is_end ? ']' : '[';
    } else if (text[at] == '-' && at > 0 && is_digit(text[at - 1]) && is_digit(next)) {
      usual += "..";
    } else {
      usual += text[at];
    }
  }
  return usual;
}

bool is_reference(const TagList& list, std::string_view text) {
  try {
    find_reference(list, text);
  } catch (const ReferenceError&) {
    return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> respelled(const TagList& list, std::string_view text) {
  const std::string bare(without_ends(text));
  const std::string subscripted = with_usual_brackets(bare);
  for (const std::string& candidate : {bare, subscripted}) {
    if (candidate != text && is_reference(list, candidate)) return candidate;
  }
  const std::string whole = bare.substr(0, bare.find_first_of("[("));
  const bool is_single = whole != text && is_reference(list, whole) && find_reference(list, whole).chosen.empty();
  return is_single ? std::optional<std::string>(whole) : std::nullopt;
}

std::vector<std::string> meant_names(std::string_view name, const std::vector<std::string>& names) {
  const bool has_subscripts = !name.empty() && name.back() == ']';
  const std::string_view bare = name.substr(0, has_subscripts ? name.rfind('[') : name.size());
  std::vector<std::string> near = plc_base::near_names(bare, names);
  return near.empty() ? members_of(bare, names) : near;
}

}  // namespace plc_client::core
