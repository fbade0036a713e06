// Quotes what a shell would take for more than a word.
#include "tools/plc_host/shell_word.h"

namespace plc_host {

std::string shell_word(const std::string& word) {
  const bool is_plain = !word.empty() && word.find_first_of(" \t\n'\"()[]{}*?;&|<>$`\\!#~") == std::string::npos;
  if (is_plain) return word;
  std::string quoted = "'";
  for (const char character : word) quoted.append(character == '\'' ? "'\\''" : std::string(1, character));
  return quoted + "'";
}

}  // namespace plc_host
