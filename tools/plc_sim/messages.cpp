// Writes to the standard streams.
#include "tools/plc_sim/messages.h"

#include <cerrno>
#include <cstdio>

#include "base/shown_text.h"

namespace plc_sim {

void print_error(const std::string& line) { std::fprintf(stderr, "%s\n", plc_base::shown_line(line).c_str()); }

int print_output(const std::string& text) {
  errno = 0;
  const bool is_written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  return is_written ? 0 : errno != 0 ? errno : EIO;
}

std::string shown_path(const std::string& path) {
  const bool names_folder = !path.empty() && (path.front() == '/' || path.front() == '.');
  return names_folder || path.find(':') == std::string::npos ? path : "./" + path;
}

}  // namespace plc_sim
