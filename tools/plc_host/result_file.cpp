// Writes results past the C library's own file, which forgets why and where a write failed.
#include "tools/plc_host/result_file.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <string_view>

#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/stop_signal.h"

namespace plc_host {

namespace {

// A line that fits is written at once: whatever ends the program, it is there or not.
constexpr size_t kLongestLine = size_t{1} << 20U;
constexpr std::chrono::milliseconds kPatienceAfterStop{2000};

}  // namespace

ResultFile::ResultFile(int descriptor) : descriptor_(descriptor), buffer_(kLongestLine) {
  cookie_io_functions_t functions{};
  functions.write = write_some;
  stream_ = descriptor_ >= 0 ? fopencookie(this, "w", functions) : nullptr;
  if (stream_ == nullptr) {
    throw HostError(kExitOutput, std::string("standard output cannot be written: ") + std::strerror(errno));
  }
  std::setvbuf(stream_, buffer_.data(), isatty(descriptor_) == 1 ? _IOLBF : _IOFBF, buffer_.size());
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
  if (behind_line_end_ > 0) text += ", the last line is cut off";
  show_message(text);
  return kExitOutput;
}

ssize_t ResultFile::write_some(void* file, const char* data, size_t size) {
  return static_cast<ResultFile*>(file)->write_all(data, size) ? static_cast<ssize_t>(size) : 0;
}

bool ResultFile::write_all(const char* data, size_t size) {
  for (size_t done = 0; error_ == 0 && done < size;) done += write_piece(data + done, size - done);
  if (error_ != 0 && behind_line_end_ > 0) take_back_cut_line();
  return error_ == 0;
}

// How many of the bytes were written: none also behind a signal or a wait, which is no error.
size_t ResultFile::write_piece(const char* data, size_t size) {
  const size_t room = stop_requested() ? room_after_stop(size) : size;
  if (room == 0) {
    error_ = EINTR;
    return 0;
  }
  const ssize_t written = write(descriptor_, data, room);
  if (written > 0) {
    note_written(data, static_cast<size_t>(written));
    return static_cast<size_t>(written);
  }
  if (written == 0) {
    error_ = EIO;
  } else if (errno == EAGAIN) {
    struct pollfd ready {
      descriptor_, POLLOUT, 0
    };
    if (!stop_requested()) poll(&ready, 1, -1);
  } else if (errno != EINTR) {
    error_ = errno;
  }
  return 0;
}

// How much of size is to be written. A stop often meets a reader that is only slow: it gets the rest, but a write waits
// no longer for one that takes nothing. 0 then.
size_t ResultFile::room_after_stop(size_t size) const {
  struct pollfd ready {
    descriptor_, POLLOUT, 0
  };
  const auto end = std::chrono::steady_clock::now() + kPatienceAfterStop;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    const int count = poll(&ready, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
    // Where there is room for anything, a pipe has room for this much.
    if (count > 0) return std::min<size_t>(size, PIPE_BUF);
    if (count == 0 || errno != EINTR) return 0;
  }
}

void ResultFile::note_written(const char* data, size_t size) {
  written_ += size;
  const size_t line_end = std::string_view(data, size).rfind('\n');
  behind_line_end_ = line_end == std::string_view::npos ? behind_line_end_ + size : size - line_end - 1;
}

// Where the last that was written is the end of a file.
void ResultFile::take_back_cut_line() {
  struct stat status {};
  const off_t end = lseek(descriptor_, 0, SEEK_CUR);
  if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode) || end != status.st_size) return;
  const off_t whole = end - static_cast<off_t>(behind_line_end_);
  if (whole < 0 || ftruncate(descriptor_, whole) != 0) return;
  lseek(descriptor_, whole, SEEK_SET);
  written_ -= behind_line_end_;
  behind_line_end_ = 0;
}

}  // namespace plc_host
