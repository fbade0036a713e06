// Looks at command lines before they are parsed, and words what the parser finds.
#include "tools/usage/usage.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

#include "base/near_names.h"
#include "base/text.h"

namespace plc_usage {
namespace {

constexpr size_t kHelpColumns = 80;
constexpr size_t kTextColumn = 30;  // where explanations begin

// Behind a word in brackets; no word of a command line has it.
constexpr char kKeptMark = '\0';

std::string without_marks(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), kKeptMark), text.end());
  return text;
}

// What other programs call what these have.
constexpr std::pair<const char*, const char*> kElsewhere[] = {
    {"--host", "--address"}, {"--ip", "--address"},    {"--plc", "--address"},   {"--controller", "--address"},
    {"--file", "--tags"},    {"--tag-file", "--tags"}, {"get", "read"},          {"show", "read"},
    {"set", "write"},        {"put", "write"},         {"list", "tags"},         {"ls", "tags"},
    {"monitor", "watch"},    {"config", "info"},       {"version", "--version"},
};

// What stands in the place of an empty text: no file, name or address is written so, and an option that is there with
// nothing behind it is what a script with an unset variable makes.
constexpr std::pair<const char*, const char*> kWanted[] = {
    {"--sim", "name a tag file"},
    {"--tags", "name a tag file"},
    {"--names-from", "name a file, or - for standard input"},
    {"--report", "name a file, or - for standard output"},
    {"--capture", "name a capture"},
    {"--replay", "name a capture"},
    {"--profile", "name a profile"},
    {"--fix", "name a file"},
    {"--pcap", "name a file"},
    {"--driver", "give guarded, contract or the path of a library"},
    {"--library", "name a library"},
    {"--simulator", "name a program that is a simulator"},
    {"--sim-arg", "give an argument of the simulator"},
    {"--address", "give an IPv4 address or a name"},
    {"--listen", "give an address and a port, as 127.0.0.1:8500"},
    {"--web", "give an address and a port, as 127.0.0.1:8080"},
    {"--chart", "name a variable"},
    {"--write", "name a variable"},
    {"--scope", "name a program"},
    {"--program-number", "give the number of a program"},
    {"--ranges", "give ranges, as 0..9 or 0..9_0..4"},
    {"--length", "give a number of characters"},
    {"--device", "name a device, as MR0"},
};

// Their options say of every wrong text what they take, of an empty one too.
constexpr const char* kExplainedTypes[] = {"FAULT", "HOURS", "NAME=NUMBER", "NUMBER", "SIZE"};

// The text in lines that fit behind the column, joined for a place there.
std::string wrapped(const std::string& text, size_t first_column) {
  std::string lines;
  size_t column = first_column;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of(" \n", at), text.size());
    const bool is_first = column == first_column;
    if (!is_first && column + 1 + end - at > kHelpColumns) {
      lines += "\n" + std::string(first_column, ' ');
      column = first_column;
    } else if (!is_first) {
      lines += ' ';
      ++column;
    }
    lines.append(text, at, end - at);
    column += end - at;
    at = end + 1;
  }
  return lines;
}

// An explanation of several lines begins below its head: what reads the help tells the two apart by that.
std::string entry(const std::string& head, const std::string& text) {
  std::string line = "  " + head;
  if (line.size() >= kTextColumn || kTextColumn + text.size() > kHelpColumns) {
    line += "\n" + std::string(kTextColumn, ' ');
  } else {
    line.resize(kTextColumn, ' ');
  }
  return line + wrapped(text, kTextColumn) + "\n";
}

class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_option(const CLI::Option* option, bool is_positional) const override {
    return entry(make_option_name(option, is_positional) + make_option_opts(option), make_option_desc(option));
  }
  std::string make_subcommand(const CLI::App* command) const override {
    return entry(command->get_name(), command->get_description());
  }
};

std::vector<const CLI::App*> commands_of(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> command_names(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : commands_of(app)) names.push_back(command->get_name());
  return names;
}

std::vector<std::string> option_names(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

// The option or command that the program has for a word of another one; "" when it has none.
std::string meant_here(const CLI::App& part, const std::string& word) {
  std::string here = word_used_here(word);
  const bool is_option = here.compare(0, 2, "--") == 0;
  const std::vector<std::string> known = is_option ? option_names(part) : command_names(part);
  return here != word && std::find(known.begin(), known.end(), here) != known.end() ? here : "";
}

// Which commands have an option that this one does not have.
std::vector<std::string> owners_of(const CLI::App& app, const std::string& option) {
  std::vector<std::string> owners;
  for (const CLI::App* command : commands_of(app)) {
    if (command->get_option_no_throw(option) != nullptr) owners.push_back(command->get_name());
  }
  return owners;
}

// The one that was typed too, else the first.
const std::string& likely_owner(const std::vector<std::string>& owners, const std::vector<std::string>& words) {
  for (const std::string& owner : owners) {
    if (std::find(words.begin(), words.end(), owner) != words.end()) return owner;
  }
  return owners.front();
}

std::string unknown_option(const CLI::App& app, const CLI::App& part, const std::vector<std::string>& words,
                           const std::string& name) {
  const std::string here = meant_here(part, name);
  if (!here.empty()) return std::string("unknown option ").append(name).append(", did you mean ").append(here) + "?";
  const std::vector<std::string> own = option_names(part);
  const bool is_beginning = std::any_of(
      own.begin(), own.end(), [&name](const std::string& option) { return option.compare(0, name.size(), name) == 0; });
  // The very name stands nearer than one that is spelt almost like it.
  const std::vector<std::string> owners = owners_of(app, name);
  if (&part != &app && !owners.empty() && !is_beginning) {
    return part.get_name() + " has no " + name + ", which is for " + plc_base::joined_with_or(owners);
  }
  const std::string meant = plc_base::did_you_mean(name, option_names(part));
  if (!meant.empty()) return "unknown option " + name + ", " + meant;
  for (const std::string& longer : option_names(part)) {
    if (name.size() > 3 && longer.compare(0, name.size(), name) == 0) {
      return std::string("unknown option ").append(name).append(", did you mean ").append(longer).append("?");
    }
  }
  const std::string bare = name.substr(std::min(name.find_first_not_of('-'), name.size()));
  if (&part == &app && command_of(app, {bare}) != nullptr) return bare + " is a command: write it without dashes";
  if (&part == &app && !owners.empty()) {
    return name + " stands behind the command: " + likely_owner(owners, words) + " " + name;
  }
  return "unknown option " + name;
}

// How many bytes at the beginning of the text are a dash that is no hyphen: word processors make them of hyphens.
size_t foreign_dash(std::string_view text) {
  for (const std::string_view dash : {"\xE2\x80\x90", "\xE2\x80\x91", "\xE2\x80\x92", "\xE2\x80\x93", "\xE2\x80\x94",
                                      "\xE2\x80\x95", "\xE2\x88\x92", "\xEF\xBC\x8D"}) {
    if (text.substr(0, dash.size()) == dash) return dash.size();
  }
  return 0;
}

// What is wrong with a word that would be an option with hyphens; empty for every other one.
std::string dash_problem(const CLI::App& part, const std::string& word) {
  size_t start = 0;
  bool is_foreign = false;
  for (size_t dash = 1; dash > 0; start += dash) {
    const std::string_view rest = std::string_view(word).substr(start);
    dash = rest.substr(0, 1) == "-" ? 1 : foreign_dash(rest);
    is_foreign = is_foreign || dash > 1;
  }
  if (!is_foreign || start == word.size()) return {};
  const std::string bare = word.substr(start, word.find('=', start) - start);
  const std::string named = (bare.size() == 1 ? "-" : "--") + bare;
  const std::string said = word.substr(0, start) + bare + " begins with a dash that is not a hyphen";
  if (part.get_option_no_throw(named) != nullptr) return said + ": write " + named;
  const std::string meant = plc_base::did_you_mean(named, option_names(part));
  return meant.empty() ? "" : said + ", " + meant;
}

bool takes_value(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

bool takes_one(const CLI::Option& option) {
  return option.get_items_expected_max() == 1 && option.get_multi_option_policy() == CLI::MultiOptionPolicy::Throw;
}

// A number within bounds or one of several words: the option itself tells which.
bool explains_itself(const std::string& type) {
  const bool is_bounded = type.compare(0, 4, "UINT") == 0 || type.find_first_of("[{") != std::string::npos;
  return is_bounded ||
         std::find(std::begin(kExplainedTypes), std::end(kExplainedTypes), type) != std::end(kExplainedTypes);
}

// What is wrong with an empty value.
std::string empty_problem(const CLI::Option& option, const std::string& name) {
  for (const auto& [wanting, wanted] : kWanted) {
    if (name == wanting) return std::string(name).append(": ").append(wanted);
  }
  const std::string type = option.get_type_name();
  if (type == "FOLDER") return name + ": name a folder";
  if (type == "FILE" || type == "LIST") return name + ": name a file";
  return explains_itself(type) ? "" : name + ": give a text that is not empty";
}

// What stands behind the options, as the help calls it; empty where nothing does.
std::string positional_of(const CLI::App& part) {
  for (const CLI::Option* option : part.get_options()) {
    if (option->get_positional()) return option->get_name(true);
  }
  return {};
}

// Goes through the words behind the command.
class WordReader {
 public:
  WordReader(const CLI::App& app, const CLI::App& part, const std::vector<std::string>& words, size_t at)
      : app_(app), part_(part), words_(words), at_(at) {}

  std::string problem() {
    for (; at_ < words_.size() && words_[at_] != "--"; ++at_) {
      const std::string& word = words_[at_];
      std::string dash = dash_problem(part_, word);
      if (!dash.empty()) return dash;
      if (word.size() < 2 || word[0] != '-') continue;
      std::string found = word[1] == '-' ? long_problem(word) : short_problem(word);
      if (!found.empty()) return found;
    }
    return {};
  }

 private:
  std::string long_problem(const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    const std::string first = name.substr(0, name.find(' '));
    if (first.size() < name.size() && part_.get_option_no_throw(first) != nullptr) {
      return plc_base::quoted(word) + " is one word: write " + first + " and its value apart";
    }
    if (name.size() == word.size()) return option_problem(name, std::nullopt);
    return option_problem(name, word.substr(name.size() + 1));
  }

  std::string short_problem(const std::string& word) {
    for (size_t i = 1; i < word.size(); ++i) {
      const std::string name = std::string("-") + word[i];
      const CLI::Option* option = part_.get_option_no_throw(name);
      if (option == nullptr) return unknown_short(word, name);
      if (takes_value(*option)) return option_problem(name, value_in(word, i + 1));
    }
    return {};
  }

  static std::optional<std::string> value_in(const std::string& word, size_t from) {
    return from < word.size() ? std::optional<std::string>(word.substr(from)) : std::nullopt;
  }

  // "-help" is a long one with too few dashes.
  std::string unknown_short(const std::string& word, const std::string& name) {
    const bool is_named = part_.get_option_no_throw("-" + word) != nullptr;
    const std::string meant =
        is_named ? "did you mean -" + word + "?" : plc_base::did_you_mean("-" + word, option_names(part_));
    if (word.size() > 2 && !meant.empty()) return "unknown option " + word + ", " + meant;
    std::string problem = unknown_option(app_, part_, words_, name);
    const std::string taken = positional_of(part_);
    if (word.size() <= 2 || taken.empty() || problem.back() == '?') return problem;
    return problem + " in " + plc_base::told_name(word) + ": a " + taken +
           " that begins with - stands behind --, as in " + part_.get_name() + " -- " + plc_base::told_name(word);
  }

  // The value is what stands in the same word; none where the next word is it.
  std::string option_problem(const std::string& name, const std::optional<std::string>& value) {
    const CLI::Option* option = part_.get_option_no_throw(name);
    if (option == nullptr) return unknown_option(app_, part_, words_, name);
    if (!takes_value(*option)) return value ? name + " takes no value" : "";
    if (takes_one(*option) && ++times_[option] > 1) return name + " is given twice";
    if (!value && ++at_ == words_.size()) return name + " lacks its value";
    if ((value ? *value : words_[at_]).empty()) {
      const std::string problem = empty_problem(*option, name);
      // The parser would take the next word for the value.
      return value && problem.empty() ? name + " lacks its value: nothing stands behind the =" : problem;
    }
    if (value) return {};
    return takes_one(*option) ? value_problem(*option, name, words_[at_]) : "";
  }

  // The parser would take an option for the value of another one.
  std::string value_problem(const CLI::Option& option, const std::string& name, const std::string& value) const {
    if (value.size() < 2 || value[0] != '-' || part_.get_option_no_throw(value) == nullptr) return {};
    const bool names_file = option.get_type_name() == "FILE";
    std::string said = name + " lacks its value: " + value + " is an option; write ";
    said.append(name).append(name[1] == '-' ? "=" : "").append(value);
    return said + (names_file ? " if a file is called so" : " if that is meant");
  }

  const CLI::App& app_;
  const CLI::App& part_;
  const std::vector<std::string>& words_;
  size_t at_;
  std::map<const CLI::Option*, int> times_;
};

}  // namespace

std::string listed(const std::string& head, const std::string& text, size_t column) {
  std::string line = "  " + head;
  line.resize(std::max(line.size() + 1, column), ' ');
  return line + wrapped(text, std::max(column, size_t{2} + head.size() + 1)) + "\n";
}

void fit_help(CLI::App& app) {
  const auto formatter = std::make_shared<HelpFormatter>();
  formatter->column_width(kTextColumn);
  app.formatter(formatter);
}

std::string word_used_here(const std::string& word) {
  for (const auto& [elsewhere, here] : kElsewhere) {
    if (word == elsewhere) return here;
  }
  return word;
}

const CLI::App* command_of(const CLI::App& app, const std::vector<std::string>& words) {
  for (const CLI::App* command : commands_of(app)) {
    if (!words.empty() && command->get_name() == words.front()) return command;
  }
  return nullptr;
}

std::string word_problem(const CLI::App& app, const std::vector<std::string>& words) {
  const std::vector<std::string> commands = command_names(app);
  if (commands.empty()) return WordReader(app, app, words, 0).problem();
  if (words.empty()) return "which command: " + plc_base::joined_with_or(commands) + "?";
  const std::string& first = words.front();
  if (!first.empty() && (first[0] == '-' || foreign_dash(first) > 0)) return WordReader(app, app, words, 0).problem();
  const CLI::App* command = command_of(app, words);
  if (command != nullptr) return WordReader(app, *command, words, 1).problem();
  const std::string here = meant_here(app, first);
  if (!here.empty()) return "unknown command " + plc_base::quoted(first) + ", did you mean " + here + "?";
  const std::string meant = plc_base::did_you_mean(first, commands);
  return "unknown command " + plc_base::quoted(first) +
         (meant.empty() ? "; the commands are " + plc_base::joined_with_or(commands) : ", " + meant);
}

void keep_brackets(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) {
    if (takes_value(*option)) option->transform(without_marks);
  }
}

void parse_words(CLI::App& app, const std::vector<std::string>& words) {
  // The parser takes them from the last one on.
  std::vector<std::string> marked(words.rbegin(), words.rend());
  for (std::string& word : marked) {
    if (!word.empty() && word.front() == '[' && word.back() == ']') word += kKeptMark;
  }
  app.parse(marked);
}

std::string parse_problem(const CLI::ParseError& error) {
  constexpr std::string_view kExtra = "The following argument was not expected: ";
  constexpr std::string_view kExtras = "The following arguments were not expected: ";
  const std::string said = without_marks(error.what());
  for (const std::string_view start : {kExtra, kExtras}) {
    if (said.compare(0, start.size(), start) == 0) {
      return "nothing is known to do with " + plc_base::quoted(said.substr(start.size()));
    }
  }
  constexpr std::string_view kExcludes = " excludes ";
  const size_t excludes = said.find(kExcludes);
  if (excludes != std::string::npos) {
    return said.substr(0, excludes) + " and " + said.substr(excludes + kExcludes.size()) + " exclude each other";
  }
  constexpr std::string_view kRequired = " is required";
  const size_t required = said.find(kRequired);
  return required == std::string::npos ? said : said.substr(0, required) + " is missing";
}

std::string with_hint(const std::string& problem, const CLI::App& app, const std::vector<std::string>& words) {
  if (problem.back() == '?') return problem;
  const CLI::App* command = command_of(app, words);
  return problem + "; " + app.get_name() + (command == nullptr ? "" : " " + command->get_name()) + " --help tells more";
}

CLI::Option* add_output_file(CLI::App& app, const std::string& name, std::string& target, const std::string& help) {
  const auto take = [&target, name](const std::string& file) {
    if (file == "-") throw CLI::ValidationError(name + " -: name a file; one that is called so is ./-");
    target = file;
  };
  return app.add_option_function<std::string>(name, take, help);
}

std::optional<uint32_t> number_within(std::string_view text, uint32_t low, uint32_t high) {
  constexpr int kDecimal = 10;
  constexpr int kHexadecimal = 16;
  const bool is_hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string_view digits = is_hexadecimal ? text.substr(2) : text;
  uint32_t number = 0;
  const std::from_chars_result end =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, is_hexadecimal ? kHexadecimal : kDecimal);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) return std::nullopt;
  return number >= low && number <= high ? std::optional<uint32_t>(number) : std::nullopt;
}

std::string range_text(const NumberRange& range) {
  const std::string what = *range.unit == '\0' ? "a number" : std::string("whole ") + range.unit + ",";
  return what + " from " + std::to_string(range.low) + " to " + std::to_string(range.high);
}

}  // namespace plc_usage
