// Captures what the process writes to its standard output, byte for byte.
//
// The capture file is opened when the capture starts, so taking the text works while descriptors are exhausted.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace plc_test {

// Redirects descriptor 1 from its construction until take() or its destruction. One at a time.
class CapturedOutput {
 public:
  CapturedOutput() {
    std::fflush(stdout);
    saved_fd_ = dup(STDOUT_FILENO);
    capture_fd_ = memfd_create("captured_output", MFD_CLOEXEC);
    if (saved_fd_ < 0 || capture_fd_ < 0 || dup2(capture_fd_, STDOUT_FILENO) < 0) {
      std::perror("captured output");
      std::abort();
    }
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  ~CapturedOutput() { restore(); }

  // Ends the capture and returns everything that was written since its start.
  std::string take() {
    restore();
    return std::move(text_);
  }

 private:
  void restore() {
    if (saved_fd_ < 0) return;
    std::fflush(stdout);
    dup2(saved_fd_, STDOUT_FILENO);
    close(saved_fd_);
    saved_fd_ = -1;
    char chunk[4096];
    off_t offset = 0;
    ssize_t got = 0;
    while ((got = pread(capture_fd_, chunk, sizeof chunk, offset)) > 0) {
      text_.append(chunk, static_cast<size_t>(got));
      offset += got;
    }
    close(capture_fd_);
  }

  int saved_fd_ = -1;
  int capture_fd_ = -1;
  std::string text_;
};

// Runs action and returns what it wrote to standard output.
template <typename Action>
std::string capture_output(Action&& action) {
  CapturedOutput captured;
  std::forward<Action>(action)();
  return captured.take();
}

}  // namespace plc_test
