// Takes sizes, days and deadbands as people write them.
#include "tools/plc_host/commands/log_options.h"

#include <CLI/Error.hpp>
#include <CLI/Option.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "base/text.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

constexpr uint64_t kSmallestFile = 1000;
constexpr uint64_t kLargestFile = 1000000000000;  // 1000 GB
constexpr uint32_t kMostKept = 100000;

// The bytes of "10MB", "500kB" or "2GB", in steps of 1000; nothing for anything else.
std::optional<uint64_t> bytes_of(std::string_view text) {
  uint64_t number = 0;
  const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string unit(end.ptr, text.data() + text.size());
  std::transform(unit.begin(), unit.end(), unit.begin(), [](unsigned char c) { return std::toupper(c); });
  const uint64_t factor = unit == "KB" ? 1000 : unit == "MB" ? 1000000 : unit == "GB" ? 1000000000 : 0;
  const bool is_one = end.ec == std::errc() && factor > 0 && number <= kLargestFile / factor;
  return is_one && number * factor >= kSmallestFile ? std::optional<uint64_t>(number * factor) : std::nullopt;
}

void take_rotation(const std::string& text, LogOptions& log) {
  for (size_t from = 0; from <= text.size();) {
    const size_t end = std::min(text.find(',', from), text.size());
    const std::string word = text.substr(from, end - from);
    const std::optional<uint64_t> bytes = bytes_of(word);
    if (word != "daily" && !bytes) {
      throw CLI::ValidationError("--rotate " + plc_base::told_name(text) +
                                 ": give a size from 1kB to 1000GB, daily, or both as 10MB,daily");
    }
    const bool is_second = bytes ? log.most_bytes > 0 : log.daily;
    if (is_second) {
      throw CLI::ValidationError("--rotate " + text + (bytes ? " has two sizes" : " has daily twice") +
                                 ": leave one out");
    }
    if (bytes) log.most_bytes = *bytes;
    log.daily = log.daily || word == "daily";
    from = end + 1;
  }
}

void take_deadband(const std::string& text, LogOptions& log) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  const bool is_number = !text.empty() && *end == '\0' && std::isfinite(number) && number >= 0;
  if (!is_number) {
    throw CLI::ValidationError("--deadband " + plc_base::told_name(text) + ": give a number of 0 or more");
  }
  log.deadband = number;
}

}  // namespace

void add_log_options(CLI::App& command, HostOptions& options) {
  LogOptions& log = options.log;
  CLI::Option* file = plc_usage::add_output_file(command, "--log", log.file,
                                                 "Write a row for each change and each gap to this file too");
  file->type_name("FILE");
  const auto of_log = [file](CLI::Option* option) { return option->needs(file)->group("Log"); };
  file->group("Log");
  of_log(command.add_flag("--log-rounds", log.every_round,
                          "Write a row for each value of each round; default: for changes"));
  of_log(command.add_option_function<std::string>(
             "--deadband", [&log](const std::string& text) { take_deadband(text, log); },
             "Write a row for a number only when it differs by more than this; default: 0"))
      ->type_name("NUMBER");
  CLI::Option* rotate = of_log(command.add_option_function<std::string>(
      "--rotate", [&log](const std::string& text) { take_rotation(text, log); },
      "Start a new file before this size (10MB), each day of UTC (daily), or both (10MB,daily); default: never"));
  rotate->type_name("SIZE");
  of_log(
      plc_usage::add_number(command, "--keep", log.kept, {1, kMostKept}, "Keep this many closed files; default: all"))
      ->needs(rotate);
}

}  // namespace plc_host
