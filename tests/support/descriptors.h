// Descriptors of the test process: how many are open, and how to run out of them.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

namespace plc_test {

// Highest descriptor that the counting looks at; no test opens that many.
constexpr int kCountedDescriptors = 4096;

// True when descriptor is open in this process.
inline bool is_open_descriptor(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

// Number of open descriptors below kCountedDescriptors. Opens nothing itself.
inline int count_open_descriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < kCountedDescriptors; ++descriptor) {
    count += is_open_descriptor(descriptor) ? 1 : 0;
  }
  return count;
}

// While it lives, every further open, socket or dup of the process fails with EMFILE.
class ExhaustedDescriptors {
 public:
  ExhaustedDescriptors() {
    getrlimit(RLIMIT_NOFILE, &saved_limit_);
    rlimit limit = saved_limit_;
    limit.rlim_cur = 256;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      std::perror("descriptor limit");
      std::abort();
    }
    int descriptor = -1;
    while ((descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0) taken_.push_back(descriptor);
    if (errno != EMFILE) {
      std::perror("descriptor exhaustion");
      std::abort();
    }
  }
  ExhaustedDescriptors(const ExhaustedDescriptors&) = delete;
  ExhaustedDescriptors& operator=(const ExhaustedDescriptors&) = delete;
  ~ExhaustedDescriptors() {
    for (const int descriptor : taken_) close(descriptor);
    setrlimit(RLIMIT_NOFILE, &saved_limit_);
  }

  // Gives back one descriptor, so that exactly one further open succeeds.
  void release_one() {
    close(taken_.back());
    taken_.pop_back();
  }

 private:
  rlimit saved_limit_{};
  std::vector<int> taken_;
};

// Lets the process open more descriptors than select can take, while it lives.
class RaisedDescriptorLimit {
 public:
  RaisedDescriptorLimit() {
    getrlimit(RLIMIT_NOFILE, &saved_limit_);
    rlimit limit = saved_limit_;
    if (limit.rlim_cur < kNeeded) limit.rlim_cur = kNeeded;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      std::perror("descriptor limit");
      std::abort();
    }
  }
  RaisedDescriptorLimit(const RaisedDescriptorLimit&) = delete;
  RaisedDescriptorLimit& operator=(const RaisedDescriptorLimit&) = delete;
  ~RaisedDescriptorLimit() { setrlimit(RLIMIT_NOFILE, &saved_limit_); }

 private:
  static constexpr rlim_t kNeeded = 2048;
  rlimit saved_limit_{};
};

// While it lives, every descriptor that select can take is in use, so that the next one is beyond.
class TakenLowDescriptors {
 public:
  TakenLowDescriptors() {
    int descriptor = -1;
    while ((descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0 && descriptor < FD_SETSIZE) {
      taken_.push_back(descriptor);
    }
    if (descriptor < 0) {
      std::perror("taken descriptors");
      std::abort();
    }
    close(descriptor);
  }
  TakenLowDescriptors(const TakenLowDescriptors&) = delete;
  TakenLowDescriptors& operator=(const TakenLowDescriptors&) = delete;
  ~TakenLowDescriptors() {
    for (const int descriptor : taken_) close(descriptor);
  }

 private:
  RaisedDescriptorLimit limit_;
  std::vector<int> taken_;
};

// Keeps one standard descriptor closed while it lives, so that the next open is given its number.
class ClosedDescriptor {
 public:
  explicit ClosedDescriptor(int descriptor) : descriptor_(descriptor), saved_(dup(descriptor)) { close(descriptor); }
  ClosedDescriptor(const ClosedDescriptor&) = delete;
  ClosedDescriptor& operator=(const ClosedDescriptor&) = delete;
  ~ClosedDescriptor() {
    if (saved_ >= 0) {
      dup2(saved_, descriptor_);
      close(saved_);
    }
  }

 private:
  int descriptor_;
  int saved_;
};

}  // namespace plc_test
