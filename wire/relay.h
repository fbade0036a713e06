// Stands between a host and a controller, passes on every byte as it comes, and records it with its time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "wire/recording.h"

namespace wire_trace {

// How a controller takes a connection.
struct Reach {
  int descriptor = -1;  // connected, or -1
  std::string problem;  // in words when it did not connect: "Connection refused"
  bool is_refused = false;
  int own_error = 0;  // there was no socket to connect with: nobody was asked
  int64_t took_ns = 0;
};

// Connects with patience. The caller owns the descriptor.
Reach reach_controller(uint32_t address, uint16_t port, int patience_ms);

class RecordingRelay {
 public:
  // What a recording holds at most, its events and connections counted with what they take beside their bytes. What
  // comes behind is passed on all the same, and the recording says that it is cut.
  static constexpr size_t kMostRecordedBytes = size_t{64} << 20U;

  // Listens on a free port of 127.0.0.1. The first connection goes on over the descriptor, which the relay takes; later
  // ones make a connection to the controller of their own. Throws std::runtime_error.
  RecordingRelay(uint32_t address, uint16_t port, int first_descriptor, size_t most_bytes = kMostRecordedBytes);
  ~RecordingRelay();
  RecordingRelay(const RecordingRelay&) = delete;
  RecordingRelay& operator=(const RecordingRelay&) = delete;

  uint16_t port() const { return port_; }

  // Waits until nothing has come for quiet_ms, at most patience_ms: what is still under way belongs to the recording.
  void wait_until_quiet(int quiet_ms, int patience_ms);

  // Ends the relay and its connections. What has been recorded stays.
  void stop();

  // Throws std::bad_alloc when there was no memory for it, std::runtime_error when a connection could not be taken.
  Recording recording() const;

  // The same, and the relay forgets the bytes in it: the next recording has the later ones alone.
  Recording take_recording();

 private:
  class Link;

  void refuse_gaps() const;
  void run_in_memory();
  void run();
  void accept_host();
  bool make_room(size_t bytes);
  void record(size_t connection, bool from_host, TrafficEvent::Kind kind, Bytes bytes);
  void serve(Link& link, short host_events, short controller_events);
  void pass_on(Link& link, bool from_host);

  uint32_t address_;
  uint16_t controller_port_;
  int first_descriptor_;
  size_t room_;  // bytes that may still be recorded
  int listener_ = -1;
  int wake_ = -1;
  uint16_t port_ = 0;
  std::vector<std::unique_ptr<Link>> links_;
  Bytes received_;
  mutable std::mutex mutex_;
  std::condition_variable recorded_;
  Recording recording_;
  std::atomic<bool> is_stopping_{false};
  std::atomic<bool> is_out_of_memory_{false};
  std::atomic<int> accept_error_{0};
  std::thread thread_;
};

}  // namespace wire_trace
