// The driver's socket as a script: the linker sends the socket calls here, and a test says what each request yields.
//
// No network, no thread and no waiting: what a frame holds and what its reply does is tested without either. Calls on
// other descriptors go to the system.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/peer/controller_reply.h"

namespace plc_test {

// What the controller does with one request.
struct SocketAnswer {
  enum class Kind { kReply, kClosed, kSilent, kReceiveFails, kSendFails };
  Kind kind = Kind::kReply;
  Bytes reply;    // kReply; what one receive does not take stays for the next
  int error = 0;  // errno of a failing call
  ReplyForm form = ReplyForm::kComplete;
};

inline SocketAnswer reply_with(Bytes bytes) { return {SocketAnswer::Kind::kReply, std::move(bytes), 0}; }
inline SocketAnswer reply_exactly(Bytes bytes) {
  return {SocketAnswer::Kind::kReply, std::move(bytes), 0, ReplyForm::kExact};
}
inline SocketAnswer reply_raw(Bytes bytes) {
  return {SocketAnswer::Kind::kReply, std::move(bytes), 0, ReplyForm::kRaw};
}
inline SocketAnswer close_connection() { return {SocketAnswer::Kind::kClosed, {}, 0}; }
inline SocketAnswer say_nothing() { return {SocketAnswer::Kind::kSilent, {}, 0}; }
inline SocketAnswer fail_receive(int error) { return {SocketAnswer::Kind::kReceiveFails, {}, error}; }
inline SocketAnswer fail_send(int error) { return {SocketAnswer::Kind::kSendFails, {}, error}; }

// The socket of this process while it lives; one at a time. A request without an answer is met with silence, as if the
// controller did not reply.
class ScriptedSocket {
 public:
  static constexpr int kDescriptor = 1000;  // above what a test opens, below FD_SETSIZE

  ScriptedSocket();
  ScriptedSocket(const ScriptedSocket&) = delete;
  ScriptedSocket& operator=(const ScriptedSocket&) = delete;
  ~ScriptedSocket();

  // Adds an answer behind those that are left.
  void answer(SocketAnswer next) { answers_.push_back(std::move(next)); }
  void answer(Bytes reply) { answer(reply_with(std::move(reply))); }

  // From now on the answer to each request is what this makes of it.
  void answer_each(std::function<SocketAnswer(const Bytes& request)> make) { make_answer_ = std::move(make); }

  // From now on a connect is never answered.
  void hold_connects() { holds_connects_ = true; }

  // Bytes that wait on the socket before the next request.
  void leave_stale(const Bytes& bytes) { waiting_ = waiting_ + bytes; }

  const std::vector<Bytes>& requests() const { return requests_; }
  size_t unused_answers() const { return answers_.size(); }

  // The calls on the socket, and pauses, in order, a word each: "usleep(5000) select send select recv".
  const std::string& calls() const { return calls_; }
  size_t call_count() const { return call_count_; }

  // How often memory was asked for since forget(), by code that was compiled for this executable.
  size_t heap_calls() const { return heap_calls_; }

  // How often the driver closed the socket.
  int closes() const { return closes_; }

  // Forgets requests and calls, and drops answers and bytes that are left.
  void forget();

  // What the wrapped calls do.
  void on_pause(unsigned microseconds);
  int on_connect();
  int on_select(bool for_writing);
  long on_send(const void* bytes, size_t length);
  long on_receive(void* bytes, size_t length);
  long on_peek(void* bytes, size_t length) const;
  void on_close();
  void on_heap_call() { ++heap_calls_; }

 private:
  void note(const std::string& call);
  SocketAnswer take_answer(const Bytes& request);

  std::deque<SocketAnswer> answers_;
  std::function<SocketAnswer(const Bytes&)> make_answer_;
  SocketAnswer::Kind state_ = SocketAnswer::Kind::kSilent;  // of the last request
  int error_ = 0;
  bool holds_connects_ = false;
  Bytes waiting_;  // to be received
  std::vector<Bytes> requests_;
  std::string calls_;
  size_t call_count_ = 0;
  size_t heap_calls_ = 0;
  int closes_ = 0;
};

}  // namespace plc_test
