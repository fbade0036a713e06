// Writes results past the C library's own file, which forgets why and where a write failed.
#include "tools/plc_host/result_file.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/stop_signal.h"

namespace plc_host {

ResultFile::ResultFile(int descriptor) : descriptor_(descriptor) {
  cookie_io_functions_t functions{};
  functions.write = write_some;
  stream_ = descriptor_ >= 0 ? fopencookie(this, "w", functions) : nullptr;
  if (stream_ == nullptr) {
    throw HostError(kExitOutput, std::string("standard output cannot be written: ") + std::strerror(errno));
  }
  signal(SIGXFSZ, SIG_IGN);
  if (isatty(descriptor_) == 1) std::setvbuf(stream_, nullptr, _IOLBF, BUFSIZ);
}

ResultFile::~ResultFile() {
  std::fclose(stream_);
  close(descriptor_);
}

bool ResultFile::flush() {
  std::fflush(stream_);
  return error_ == 0;
}

int ResultFile::finish(int code) {
  flush();
  // Some file systems tell of a full disk when a descriptor is closed, whichever of a file's it is.
  const int copy = dup(descriptor_);
  if (copy >= 0 && close(copy) != 0 && error_ == 0) error_ = errno;
  if (error_ == 0 || error_ == EPIPE) return code;
  std::string text = std::string("standard output cannot be written: ") + std::strerror(error_) + "; " +
                     std::to_string(written_) + " bytes were written";
  if (!ends_a_line_) text += ", the last line is cut off";
  show_message(text);
  return kExitOutput;
}

ssize_t ResultFile::write_some(void* file, const char* data, size_t size) {
  return static_cast<ResultFile*>(file)->write_all(data, size) ? static_cast<ssize_t>(size) : 0;
}

bool ResultFile::write_all(const char* data, size_t size) {
  size_t done = 0;
  while (error_ == 0 && done < size) {
    const ssize_t written = write(descriptor_, data + done, size - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
      ends_a_line_ = data[done - 1] == '\n';
    } else if (written < 0 && errno == EAGAIN && !stop_requested()) {
      struct pollfd room {
        descriptor_, POLLOUT, 0
      };
      poll(&room, 1, -1);
    } else if (written == 0 || errno != EINTR || stop_requested()) {
      error_ = written == 0 ? EIO : errno;
    }
  }
  written_ += done;
  return error_ == 0;
}

}  // namespace plc_host
