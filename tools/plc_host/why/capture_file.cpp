// The capture is made in memory, since its writer does not notice a disk that fills up, and goes to its file from
// there.
#include "tools/plc_host/why/capture_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/exit_codes.h"

namespace plc_host {
namespace {

constexpr mode_t kEveryoneReadsAndWrites = 0666;  // as far as the user's mask lets them

// A descriptor that is closed with its object.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int number() const { return number_; }

  // False when the file system tells only now that the disk is full.
  bool close_checked() {
    const int number = number_;
    number_ = -1;
    return close(number) == 0;
  }

 private:
  int number_;
};

bool write_all(int descriptor, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(descriptor, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool copy_all(int from, int to) {
  char piece[BUFSIZ];
  for (off_t at = 0;;) {
    const ssize_t got = pread(from, piece, sizeof piece, at);
    if (got == 0) return true;
    if (got < 0 || !write_all(to, piece, static_cast<size_t>(got))) return false;
    at += got;
  }
}

[[noreturn]] void refuse(const std::string& path, const std::string& problem) {
  throw HostError(kExitOutput, "cannot write " + path + ": " + problem);
}

}  // namespace

void write_capture_file(const wire_trace::Recording& recording, uint16_t controller_port, const std::string& path) {
  const Descriptor memory(memfd_create("capture", MFD_CLOEXEC));
  if (memory.number() < 0) refuse(path, std::strerror(errno));
  const std::string in_memory = "/proc/self/fd/" + std::to_string(memory.number());
  const std::string problem = wire_trace::write_recording(recording, controller_port, in_memory);
  if (!problem.empty()) refuse(path, problem);
  Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kEveryoneReadsAndWrites));
  if (file.number() < 0 || !copy_all(memory.number(), file.number()) || !file.close_checked()) {
    refuse(path, std::strerror(errno));
  }
}

}  // namespace plc_host
