// Command lines as all programs take them: help that fits a terminal, and mistakes told with what was probably meant.
#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plc_usage {

// Has the program's help, and that of its commands, end its lines within 80 columns. To be called before commands are
// added.
void fit_help(CLI::App& app);

// A line of a list behind the options, wrapped at the column where its words begin.
std::string listed(const std::string& head, const std::string& text, size_t column);

// What is wrong with the first word that names no command or option, lacks its value, or has an empty one: "unknown
// option
// --adress, did you mean --address?"; empty when there is none. The parser would tell other consequences of it first.
std::string word_problem(const CLI::App& app, const std::vector<std::string>& words);

// What an option or a command of another program is called here: "--host" is "--address", "get" is "read"; the word
// itself where nothing is known of it.
std::string word_used_here(const std::string& word);

// Behind the last option: the parser would take a word such as [0] apart, as a list of words.
void keep_brackets(CLI::App& app);

// Parses words as typed, of a program with keep_brackets.
void parse_words(CLI::App& app, const std::vector<std::string>& words);

// What the parser found wrong, in one line.
std::string parse_problem(const CLI::ParseError& error);

// The problem, and unless it is a question where the help is that is worth a look.
std::string with_hint(const std::string& problem, const CLI::App& app, const std::vector<std::string>& words);

// The command that the words begin with; null when they begin with none.
const CLI::App* command_of(const CLI::App& app, const std::vector<std::string>& words);

// An option that names a file to be written, which must be one: refuses "-", which stands for standard output
// elsewhere.
CLI::Option* add_output_file(CLI::App& app, const std::string& name, std::string& target, const std::string& help);

// A whole number, decimal or hexadecimal behind 0x; nothing for anything else and outside of the bounds.
std::optional<uint32_t> number_within(std::string_view text, uint32_t low, uint32_t high);

// What an option takes.
struct NumberRange {
  uint32_t low;
  uint32_t high;
  const char* unit = "";  // "seconds"; empty for what is counted
};

// "a number from 1 to 65535", "whole seconds, from 1 to 86400"
std::string range_text(const NumberRange& range);

// An option that takes a number within bounds, which its help shows when they are not those of its type. The target
// keeps what it has when the option is not given.
template <typename Number>
CLI::Option* add_number(CLI::App& app, const std::string& name, Number& target, const NumberRange& range,
                        const std::string& help) {
  const auto take = [&target, name, range](const std::string& text) {
    const std::optional<uint32_t> number = number_within(text, range.low, range.high);
    if (!number) throw CLI::ValidationError(name + " " + text + ": give " + range_text(range));
    target = static_cast<Number>(*number);
  };
  const bool is_bounded = range.low > 0 || range.high < UINT32_MAX;
  const std::string bounds = std::to_string(range.low) + " - " + std::to_string(range.high);
  return app.add_option_function<std::string>(name, take, help)
      ->type_name(is_bounded ? "UINT:INT in [" + bounds + "]" : "UINT");
}

}  // namespace plc_usage
