// Moves standard output into memory and hands out what the driver printed there.
#include "client/driver/driver_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "client/client_error.h"

namespace plc_client::core {

namespace {

constexpr char kMoreDescriptors[] =
    ". Try: more descriptors or memory for the program, ulimit -n shows how many it may open";

}  // namespace

DriverOutput::DriverOutput() : original_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  std::fflush(stdout);
  collected_ = memfd_create("driver_output", MFD_CLOEXEC);
  // A terminal, a pipe and a file alike would change how the driver's lines are buffered: all of them are collected
  // in the stream's buffer and fetched by take_lines.
  const bool is_moved = original_ >= 0 && collected_ >= 0 && dup2(collected_, STDOUT_FILENO) >= 0;
  if (!is_moved || std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ) != 0) {
    const std::string reason = std::strerror(errno);
    throw ClientError(ClientError::Kind::kOutput,
                      "cannot collect what the driver prints: " + reason + kMoreDescriptors);
  }
}

DriverOutput::~DriverOutput() {
  std::fflush(stdout);
  if (original_ >= 0) {
    dup2(original_, STDOUT_FILENO);
    close(original_);
  }
  close(collected_);
}

std::vector<std::string> DriverOutput::take_lines() {
  std::fflush(stdout);
  std::string text;
  char piece[BUFSIZ];
  for (ssize_t got = 0; (got = pread(collected_, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;) {
    text.append(piece, static_cast<size_t>(got));
  }
  if (text.empty()) return {};
  // The descriptors share one file position: both must start again at the beginning.
  if (ftruncate(collected_, 0) != 0 || lseek(collected_, 0, SEEK_SET) != 0) return {};
  return split_lines(text);
}

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::string line;
  for (const char sign : text) {
    if (sign == '\n') {
      lines.push_back(line);
      line.clear();
    } else if (sign != '\r') {
      line += sign;
    }
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

}  // namespace plc_client::core
