// Opens files without a wait and reads them to their end.
#include "base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/text.h"

namespace plc_base {
namespace {

constexpr char kNotRegular[] = "it is not a regular file";

// More bytes of a file; 0 at its end, -1 for a failure.
ssize_t read_some(int descriptor, char* bytes, size_t size) {
  while (true) {
    const ssize_t count = read(descriptor, bytes, size);
    if (count >= 0 || errno != EINTR) return count;
  }
}

FileText no_text(const std::string& path, const std::string& reason) {
  return {{}, "cannot read " + told_name(path) + ": " + reason};
}

}  // namespace

bool is_workbook(std::string_view bytes) {
  constexpr std::string_view kPacked = "PK\x03\x04";
  constexpr std::string_view kOld = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";
  return bytes.substr(0, kPacked.size()) == kPacked || bytes.substr(0, kOld.size()) == kOld;
}

OpenedFile open_regular_file(const std::string& path) {
  if (path.find('\0') != std::string::npos) return {-1, kZeroInName};
  const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0 && errno == ENXIO) return {-1, kNotRegular};  // a socket
  if (descriptor < 0) return {-1, std::strerror(errno)};
  struct stat status {};
  const bool is_known = fstat(descriptor, &status) == 0;
  if (is_known && S_ISREG(status.st_mode)) return {descriptor, {}};
  close(descriptor);
  return {-1, is_known && S_ISDIR(status.st_mode) ? "it is a folder" : kNotRegular};
}

FileText read_file(const std::string& path, size_t most_bytes) {
  const OpenedFile file = open_regular_file(path);
  if (!file.problem.empty()) return no_text(path, file.problem);
  std::string text;
  std::array<char, 65536> piece{};
  ssize_t count = 0;
  while ((count = read_some(file.descriptor, piece.data(), piece.size())) > 0) {
    if (static_cast<size_t>(count) > most_bytes - text.size()) {
      close(file.descriptor);
      return no_text(path, "it has more than " + std::to_string(most_bytes) + " bytes");
    }
    text.append(piece.data(), static_cast<size_t>(count));
  }
  const int error = errno;
  close(file.descriptor);
  if (count < 0) return no_text(path, std::strerror(error));
  return {std::move(text), {}};
}

}  // namespace plc_base
