// Looks for near names, and for members.
#include "client/tags/meant_names.h"

#include <algorithm>
#include <iterator>

#include "base/near_names.h"
#include "base/text.h"
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

std::string_view without_ends(std::string_view text) {
  constexpr std::string_view kStray = " \t\r:,;";
  const size_t first = text.find_first_not_of(kStray);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kStray) - first + 1);
}

bool is_digit_at(std::string_view text, size_t at) { return at < text.size() && text[at] >= '0' && text[at] <= '9'; }

// What stands for the character at the place in one pair of square brackets, with commas between the subscripts and two
// dots between bounds.
std::string_view usual_sign(std::string_view text, size_t at) {
  const bool follows_end = at > 0 && (text[at - 1] == ']' || text[at - 1] == ')');
  const bool precedes_start = at + 1 < text.size() && (text[at + 1] == '[' || text[at + 1] == '(');
  switch (text[at]) {
    case '(':
    case '[':
      return follows_end ? "," : "[";
    case ')':
    case ']':
      return precedes_start ? "" : "]";
    case '-':
      return at > 0 && is_digit_at(text, at - 1) && is_digit_at(text, at + 1) ? ".." : "-";
    default:
      return text.substr(at, 1);
  }
}

std::string with_usual_brackets(std::string_view text) {
  std::string usual;
  for (size_t at = 0; at < text.size(); ++at) usual += usual_sign(text, at);
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
  // Where nothing but the case of letters differs, no other name is meant.
  std::vector<std::string> same;
  std::copy_if(names.begin(), names.end(), std::back_inserter(same),
               [bare](const std::string& known) { return plc_base::is_same_but_case(bare, known); });
  if (!same.empty()) return same;
  std::vector<std::string> near = plc_base::near_names(bare, names);
  return near.empty() ? members_of(bare, names) : near;
}

}  // namespace plc_client::core
