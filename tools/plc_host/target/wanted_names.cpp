// Reads names, and finds those that fit a pattern.
#include "tools/plc_host/target/wanted_names.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include "base/files.h"
#include "base/near_names.h"
#include "base/shown_text.h"
#include "base/standard_streams.h"
#include "base/text.h"
#include "base/utf8.h"
#include "client/driver/failure.h"
#include "client/tags/name_pattern.h"
#include "client/tags/tag_reference.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/target/tag_files.h"

namespace plc_host {
namespace {

constexpr size_t kMostNameBytes = size_t{64} << 20U;  // far more than all names of a controller
constexpr ptrdiff_t kTagLineCommas = 7;               // of the shortest line with an id
constexpr char kWildcards[] = "*?[";
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

[[noreturn]] void refuse(const std::string& file, const std::string& reason) {
  throw HostError(kExitUsage, "--names-from " + file + ": " + reason);
}

std::string standard_input() {
  if (plc_base::was_input_closed()) refuse("-", "standard input is closed. Try: --names-from FILE, or < FILE");
  std::string text;
  char piece[65536];
  for (;;) {
    const ssize_t got = read(STDIN_FILENO, piece, sizeof piece);
    if (got == 0) return text;
    if (got < 0) refuse("-", std::string("standard input cannot be read: ") + std::strerror(errno));
    text.append(piece, static_cast<size_t>(got));
    if (text.size() > kMostNameBytes) refuse("-", "it has more than " + std::to_string(kMostNameBytes) + " bytes");
  }
}

std::string names_text(const std::string& file) {
  if (file == "-") return standard_input();
  plc_base::FileText read = plc_base::read_file(file, kMostNameBytes);
  if (!read.problem.empty()) throw HostError(kExitUsage, "--names-from: " + read.problem);
  return std::move(read.text);
}

[[noreturn]] void refuse_tag_file(const std::string& file) {
  const std::string advice = file == "-" ? "FILE --names lists the names in it, once it is saved as FILE"
                                         : file + " --names lists the names in it";
  refuse(file, "it is a tag file. Try: plc-host tags " + advice);
}

bool is_tag_line(const std::string& line) { return std::count(line.begin(), line.end(), ',') >= kTagLineCommas; }

// The pattern cut at its dots.
std::vector<std::string> parts_of(std::string_view text) {
  std::vector<std::string> parts;
  for (size_t start = 0; start <= text.size();) {
    const size_t dot = std::min(text.find('.', start), text.size());
    parts.emplace_back(text.substr(start, dot - start));
    start = dot + 1;
  }
  return parts;
}

// The pattern with a part corrected that the names spell otherwise; "" where that helps nothing.
std::string corrected_pattern(const TagList& tags, std::string_view pattern) {
  std::vector<std::string> parts = parts_of(pattern);
  std::set<std::string> known;
  for (const Tag& tag : tags.tags) {
    for (const std::string& part : parts_of(tag.qualified_name)) known.insert(part);
  }
  const std::vector<std::string> names(known.begin(), known.end());
  for (std::string& part : parts) {
    if (part.find_first_of(kWildcards) != std::string::npos || known.count(part) > 0) continue;
    const std::vector<std::string> near = plc_base::near_names(part, names);
    if (near.empty()) return {};
    part = near.front();
  }
  std::string corrected;
  for (const std::string& part : parts) corrected += (corrected.empty() ? "" : ".") + part;
  return positions_fitting(tags, corrected).empty() ? "" : corrected;
}

std::string lower_case(std::string_view text) {
  std::string lower(text);
  for (char& sign : lower) sign = static_cast<char>(std::tolower(static_cast<unsigned char>(sign)));
  return lower;
}

// What to say of a pattern that fits names but for the case of its letters; empty where it fits none.
std::string case_hint(const TagList& tags, std::string_view pattern) {
  const std::string lower = lower_case(pattern);
  const auto fits = [&lower](const Tag& tag) { return fits_pattern(lower, lower_case(tag.qualified_name)); };
  const auto tag = std::find_if(tags.tags.begin(), tags.tags.end(), fits);
  if (tag == tags.tags.end()) return {};
  // What stands before and behind all that can be anything is taken from the name.
  const std::string& name = tag->qualified_name;
  const size_t head = pattern.find_first_of(kWildcards);
  const size_t tail = pattern.size() - pattern.find_last_of("*?]") - 1;
  const std::string meant = name.substr(0, head) + std::string(pattern.substr(head, pattern.size() - tail - head)) +
                            name.substr(name.size() - tail);
  return positions_fitting(tags, meant).empty() ? ": letter case counts, as in " + name
                                                : "; did you mean " + plc_base::quoted(meant) + "?";
}

// Brackets of the name that a pattern takes for a set of characters.
std::string with_plain_brackets(std::string_view pattern) {
  std::string text;
  for (const char byte : pattern) text += byte == '[' ? std::string("[[]") : std::string(1, byte);
  return text;
}

// Or would be one with other subscripts.
bool is_variable(const TagList& tags, const std::string& text) {
  try {
    find_reference(tags, text);
  } catch (const NoSuchName&) {
    return false;
  } catch (const ReferenceError&) {
    // What is wrong with it is said where it is looked up.
  }
  return true;
}

TagResult impossible_result(const std::string& name, const std::string& reason) {
  TagResult entry;
  entry.name = name;
  entry.reading = {impossible(reason), std::chrono::system_clock::now()};
  return entry;
}

TagResult whole_or_impossible(const Tag& tag) {
  try {
    return unread(whole_tag(tag));
  } catch (const ReferenceError& error) {
    return impossible_result(tag.qualified_name, error.what());
  }
}

std::string blanks_written_out(std::string_view blanks) {
  std::string text;
  while (const auto blank = plc_base::first_code_point(blanks)) {
    const std::string_view bytes = blanks.substr(0, blank->bytes);
    char written[16];
    std::snprintf(written, sizeof written, "\\u{%x}", static_cast<unsigned>(blank->value));
    const std::string shown = plc_base::shown_line(bytes);
    text += bytes == " " ? "\\x20" : shown == bytes ? written : shown;
    blanks.remove_prefix(blank->bytes);
  }
  return text;
}

std::set<std::string> names_of(const std::vector<TagResult>& named) {
  std::set<std::string> names;
  for (const TagResult& entry : named) names.insert(entry.name);
  return names;
}

void check_line(const std::string& file, size_t number, std::string_view line, bool is_assignment) {
  const std::string place = "line " + std::to_string(number);
  // A text that is to be written may have any bytes.
  if (!plc_base::is_utf8(is_assignment ? line.substr(0, line.find('=')) : line)) {
    refuse(file, place + " is not UTF-8: the list was probably saved as Latin-1 (ANSI). Try: save it as UTF-8");
  }
  if (is_assignment && line.find('=') == std::string_view::npos) {
    refuse(file, place + ": " + plc_base::told_name(plc_base::without_blanks(line)) +
                     " gives no value: write NAME=VALUE in each line");
  }
  const std::string_view inner = plc_base::without_blanks(line);
  if (is_assignment && inner.front() == '=' && inner.find('=', 1) == std::string_view::npos) {
    refuse(file, place + ": a name is empty: write NAME=VALUE in each line");
  }
}

}  // namespace

std::vector<std::string> names_in(const std::string& file, bool are_assignments) {
  const std::string text = names_text(file);
  if (text.find('\0') != std::string::npos) {
    refuse(file, "it is not a text of names: save it as UTF-8, a name in each line");
  }
  std::string_view rest = text;
  if (rest.substr(0, 3) == kByteOrderMark) rest.remove_prefix(3);
  // A carriage return alone ends the lines of old files.
  const char line_end = text.find('\n') == std::string::npos ? '\r' : '\n';
  std::vector<std::string> names;
  for (size_t number = 1; !rest.empty(); ++number) {
    const size_t end = std::min(rest.find(line_end), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (plc_base::without_blanks(line).empty()) continue;
    check_line(file, number, line, are_assignments);
    names.emplace_back(are_assignments ? line : plc_base::without_blanks(line));
  }
  if (names.empty()) refuse(file, "it has no names");
  if (!are_assignments && std::all_of(names.begin(), names.end(), is_tag_line)) {
    refuse_tag_file(file);
  }
  return names;
}

std::string listed_name(std::string_view name) {
  const std::string_view inner = plc_base::without_blanks(name);
  const size_t start = static_cast<size_t>(inner.data() - name.data());
  return blanks_written_out(name.substr(0, start)) + plc_base::shown_line(inner) +
         blanks_written_out(name.substr(start + inner.size()));
}

bool is_pattern(std::string_view text) {
  if (text.find_first_of("*?") != std::string_view::npos) return true;
  const size_t open = text.find('[');
  const size_t close = text.find(']', open == std::string_view::npos ? open : open + 2);
  if (open == std::string_view::npos || close == std::string_view::npos) return false;
  return text.substr(open + 1, close - open - 1).find_first_not_of("0123456789,.- ") != std::string_view::npos;
}

std::vector<size_t> positions_fitting(const TagList& tags, std::string_view pattern) {
  std::vector<size_t> positions;
  for (size_t i = 0; i < tags.tags.size(); ++i) {
    if (fits_pattern(pattern, tags.tags[i].qualified_name)) positions.push_back(i);
  }
  return positions;
}

std::string why_none_fits(const TagList& tags, const std::string& file, const std::string& pattern) {
  const std::string reason = file + " has no variable that fits this pattern";
  if (const std::string hint = hint_on_types(tags, file); !hint.empty()) return reason + hint;
  const std::string plain = with_plain_brackets(pattern);
  if (plain != pattern && !positions_fitting(tags, plain).empty()) {
    return reason + ": a bracket begins a set of characters; did you mean " + plc_base::quoted(plain) + "?";
  }
  if (std::string hint = case_hint(tags, pattern); !hint.empty()) return reason + hint;
  const std::string corrected = corrected_pattern(tags, pattern);
  if (!corrected.empty()) return reason + "; did you mean " + plc_base::quoted(corrected) + "?";
  const bool has_set = pattern.find('[') != std::string::npos;
  return reason + (has_set ? ": a bracket is one of the characters in it" : "");
}

bool add_fitting(const TagList& tags, const std::string& file, const std::string& text, std::vector<TagResult>& named) {
  if (!is_pattern(text) || is_variable(tags, text)) return false;
  const std::vector<size_t> fitting = positions_fitting(tags, text);
  const std::set<std::string> before = names_of(named);
  for (const size_t position : fitting) {
    const Tag& tag = tags.tags[position];
    if (before.count(tag.qualified_name) == 0) named.push_back(whole_or_impossible(tag));
  }
  if (fitting.empty()) named.push_back(impossible_result(text, why_none_fits(tags, file, text)));
  return true;
}

}  // namespace plc_host
