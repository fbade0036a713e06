// Puts a terminal's signs for colours around texts.
#include "tools/plc_host/colors.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace plc_host {
namespace {

// Of the process: messages are written from everywhere.
struct ColoredOutputs {
  bool results = false;
  bool messages = false;
};

ColoredOutputs& colored_outputs() {
  static ColoredOutputs outputs;
  return outputs;
}

bool is_unwanted() {
  const char* no_color = std::getenv("NO_COLOR");
  return (no_color != nullptr && *no_color != '\0') || is_dumb_terminal();
}

std::string with_color(const std::string& text, Tint tint, bool is_colored) {
  if (!is_colored || tint == Tint::kNone || text.empty()) return text;
  return (tint == Tint::kBad ? "\033[31m" : "\033[1m") + text + "\033[0m";
}

}  // namespace

bool is_dumb_terminal() {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && std::string_view(terminal) == "dumb";
}

void choose_colors(const std::string& choice) {
  const bool is_auto = choice == "auto" && !is_unwanted();
  colored_outputs().results = choice == "always" || (is_auto && isatty(STDOUT_FILENO) == 1);
  colored_outputs().messages = choice == "always" || (is_auto && isatty(STDERR_FILENO) == 1);
}

std::string tinted(const std::string& text, Tint tint) { return with_color(text, tint, colored_outputs().results); }

std::string tinted_message(const std::string& text, Tint tint) {
  return with_color(text, tint, colored_outputs().messages);
}

}  // namespace plc_host
