// A controller that follows a script: a TCP server on the loopback with a port of the system's choice, in a thread of
// its own.
//
// It takes one request with each receive (the driver sends a request with one call and waits for its reply, and the
// loopback carries 64 KiB in one piece) and records it, then does what the script's next step says. It calls poll,
// sendmsg and recvmsg only, so that tests which count or steer the driver's select, send and recv are not disturbed.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/loopback.h"
#include "tests/support/peer/controller_reply.h"

namespace plc_test {

// What the peer does with one request.
struct PeerStep {
  enum class End { kKeep, kClose, kReset };
  Bytes reply;  // sent first; nothing when empty
  End end = End::kKeep;
  ReplyForm form = ReplyForm::kComplete;
};

inline PeerStep answer(Bytes reply, ReplyForm form = ReplyForm::kComplete) {
  return {std::move(reply), PeerStep::End::kKeep, form};
}
inline PeerStep answer_exactly(Bytes reply) { return answer(std::move(reply), ReplyForm::kExact); }
inline PeerStep answer_raw(Bytes bytes) { return answer(std::move(bytes), ReplyForm::kRaw); }
inline PeerStep stay_silent() { return {}; }
inline PeerStep close_orderly() { return {{}, PeerStep::End::kClose}; }
inline PeerStep reset_connection() { return {{}, PeerStep::End::kReset}; }
inline PeerStep answer_and_close(Bytes reply, ReplyForm form) {
  return {std::move(reply), PeerStep::End::kClose, form};
}
inline PeerStep answer_and_reset(Bytes reply, ReplyForm form) {
  return {std::move(reply), PeerStep::End::kReset, form};
}

class ScriptedPeer {
 public:
  explicit ScriptedPeer(std::vector<PeerStep> script, uint32_t address = kLoopbackAddress);
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;
  ~ScriptedPeer();

  uint16_t port() const { return port_; }

  // Adds steps behind those that are left. The peer may be waiting for a request meanwhile.
  void extend(const std::vector<PeerStep>& steps);

  // Sends bytes on the newest connection from the calling thread, for input that no request asked for.
  void send_now(const Bytes& bytes);

  // Ends the thread and returns all requests in the order of their arrival. The newest connection stays open until the
  // peer's own end.
  std::vector<Bytes> finish();

  // The requests so far. A request is recorded before it is answered.
  std::vector<Bytes> requests() const;

  // How many connections were accepted so far.
  size_t connections() const;

  // Waits until that many connections were accepted: a connect is done for its caller before the other side accepts.
  bool wait_for_connections(size_t count);

  // Waits until that many requests were recorded.
  bool wait_for_requests(size_t count);

  // Steps that no request has used. A request beyond the script is recorded and its connection closed.
  size_t unused_steps() const;
  size_t script_length() const;

 private:
  void run();
  bool accept_connection();
  bool serve_request();
  void carry_out(const PeerStep& step);
  bool take_step(const Bytes& request, PeerStep* step);

  mutable std::mutex mutex_;
  std::condition_variable progress_;  // a connection or a request more
  std::vector<PeerStep> script_;
  std::vector<Bytes> requests_;
  size_t next_step_ = 0;
  size_t connections_ = 0;
  ScopedDescriptor listener_;
  ScopedDescriptor connection_;
  ScopedDescriptor stop_;  // readable once the thread has to end
  uint16_t port_ = 0;
  std::thread thread_;
};

// Wait until the descriptor has at least count bytes to read; until its peer has closed or reset the connection; until
// the connection is gone in both directions. False when that does not happen within some seconds.
bool wait_for_input(int descriptor, size_t count);
bool wait_for_end(int descriptor);
bool wait_for_hangup(int descriptor);

}  // namespace plc_test
