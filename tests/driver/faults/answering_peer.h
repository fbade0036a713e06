// A controller that answers every request with a reply of its kind, for as long as it lives: a TCP server on the
// loopback in a thread of its own. It takes no call that the driver's tests count.
#pragma once

#include <cstdint>
#include <thread>

#include "tests/support/loopback.h"

namespace plc_test {

// Bytes of every reply but those of values: few enough that one receive of 512 drops those of a whole transfer.
constexpr size_t kPeerReplyBytes = 80;

// The 16-bit value that each value reply begins with.
constexpr uint16_t kPeerValue = 0x1234;

class AnsweringPeer {
 public:
  AnsweringPeer();
  AnsweringPeer(const AnsweringPeer&) = delete;
  AnsweringPeer& operator=(const AnsweringPeer&) = delete;
  ~AnsweringPeer();

  uint16_t port() const { return port_; }

 private:
  void run();
  void answer();

  ScopedDescriptor listener_;
  ScopedDescriptor connection_;
  ScopedDescriptor stop_;  // readable once the thread has to end
  uint16_t port_ = 0;
  std::thread thread_;
};

}  // namespace plc_test
