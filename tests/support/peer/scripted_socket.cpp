// The wrapped socket calls of scripted_socket.h.
#include "tests/support/peer/scripted_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace plc_test {
namespace {

ScriptedSocket* current = nullptr;

void note_heap_call() {
  if (current != nullptr) current->on_heap_call();
}

ScriptedSocket* script_of(int descriptor) { return descriptor == ScriptedSocket::kDescriptor ? current : nullptr; }

}  // namespace

ScriptedSocket::ScriptedSocket() { current = this; }

ScriptedSocket::~ScriptedSocket() { current = nullptr; }

void ScriptedSocket::forget() {
  answers_.clear();
  waiting_.clear();
  requests_.clear();
  calls_.clear();
  call_count_ = 0;
  heap_calls_ = 0;
  closes_ = 0;
}

void ScriptedSocket::note(const std::string& call) {
  calls_ += calls_.empty() ? "" : " ";
  calls_ += call;
  ++call_count_;
}

SocketAnswer ScriptedSocket::take_answer(const Bytes& request) {
  if (make_answer_) return make_answer_(request);
  if (answers_.empty()) return say_nothing();
  SocketAnswer next = std::move(answers_.front());
  answers_.pop_front();
  return next;
}

void ScriptedSocket::on_pause(unsigned microseconds) { note("usleep(" + std::to_string(microseconds) + ")"); }

int ScriptedSocket::on_connect() {
  note("connect");
  errno = EINPROGRESS;
  return holds_connects_ ? -1 : 0;
}

int ScriptedSocket::on_select(bool for_writing) {
  note("select");
  const bool speaks = !waiting_.empty() || state_ == SocketAnswer::Kind::kReply ||
                      state_ == SocketAnswer::Kind::kClosed || state_ == SocketAnswer::Kind::kReceiveFails;
  return for_writing ? !holds_connects_ : speaks;
}

long ScriptedSocket::on_send(const void* bytes, size_t length) {
  note("send");
  const auto* first = static_cast<const uint8_t*>(bytes);
  const Bytes request(first, first + length);
  const SocketAnswer next = take_answer(request);
  if (next.kind == SocketAnswer::Kind::kSendFails) {
    errno = next.error;
    return -1;
  }
  requests_.push_back(request);
  state_ = next.kind;
  error_ = next.error;
  waiting_ = waiting_ + form_reply(request, next.reply, next.form);
  return static_cast<long>(length);
}

long ScriptedSocket::on_receive(void* bytes, size_t length) {
  note("recv");
  const SocketAnswer::Kind state = state_;
  state_ = SocketAnswer::Kind::kSilent;
  if (state == SocketAnswer::Kind::kReceiveFails) {
    errno = error_;
    return -1;
  }
  const size_t taken = std::min(length, waiting_.size());
  std::copy_n(waiting_.begin(), taken, static_cast<uint8_t*>(bytes));
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(taken));
  return static_cast<long>(taken);
}

long ScriptedSocket::on_peek(void* bytes, size_t length) const {
  if (waiting_.empty()) {
    errno = EAGAIN;
    return -1;
  }
  const size_t seen = std::min(length, waiting_.size());
  std::copy_n(waiting_.begin(), seen, static_cast<uint8_t*>(bytes));
  return static_cast<long>(seen);
}

void ScriptedSocket::on_close() {
  note("close");
  ++closes_;
  waiting_.clear();
  state_ = SocketAnswer::Kind::kSilent;
}

}  // namespace plc_test

using plc_test::script_of;
using plc_test::ScriptedSocket;

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_connect(int descriptor, const sockaddr* address, socklen_t length);
int __real_setsockopt(int descriptor, int level, int option, const void* value, socklen_t length);
int __real_fcntl(int descriptor, int command, ...);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
ssize_t __real_send(int descriptor, const void* bytes, size_t length, int flags);
ssize_t __real_recv(int descriptor, void* bytes, size_t length, int flags);
int __real_close(int descriptor);
int __real_usleep(useconds_t microseconds);
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);

int __wrap_socket(int domain, int type, int protocol);
int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length);
int __wrap_setsockopt(int descriptor, int level, int option, const void* value, socklen_t length);
int __wrap_fcntl(int descriptor, int command, ...);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int flags);
ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags);
int __wrap_close(int descriptor);
int __wrap_usleep(useconds_t microseconds);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* memory, size_t size);

int __wrap_socket(int domain, int type, int protocol) {
  return plc_test::current != nullptr ? ScriptedSocket::kDescriptor : __real_socket(domain, type, protocol);
}

int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
  ScriptedSocket* script = script_of(descriptor);
  return script != nullptr ? script->on_connect() : __real_connect(descriptor, address, length);
}

int __wrap_setsockopt(int descriptor, int level, int option, const void* value, socklen_t length) {
  return script_of(descriptor) != nullptr ? 0 : __real_setsockopt(descriptor, level, option, value, length);
}

int __wrap_fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return script_of(descriptor) != nullptr ? 0 : __real_fcntl(descriptor, command, argument);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout) {
  const bool scripted = plc_test::current != nullptr && count == ScriptedSocket::kDescriptor + 1;
  if (!scripted) return __real_select(count, readable, writable, failing, timeout);
  const int ready = plc_test::current->on_select(writable != nullptr);
  if (ready == 0) FD_ZERO(readable);
  return ready;
}

ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int flags) {
  ScriptedSocket* script = script_of(descriptor);
  return script != nullptr ? static_cast<ssize_t>(script->on_send(bytes, length))
                           : __real_send(descriptor, bytes, length, flags);
}

ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags) {
  ScriptedSocket* script = script_of(descriptor);
  if (script == nullptr) return __real_recv(descriptor, bytes, length, flags);
  const bool peeks = (flags & MSG_PEEK) != 0;
  return static_cast<ssize_t>(peeks ? script->on_peek(bytes, length) : script->on_receive(bytes, length));
}

int __wrap_close(int descriptor) {
  ScriptedSocket* script = script_of(descriptor);
  if (script == nullptr) return __real_close(descriptor);
  script->on_close();
  return 0;
}

int __wrap_usleep(useconds_t microseconds) {
  if (plc_test::current == nullptr) return __real_usleep(microseconds);
  plc_test::current->on_pause(microseconds);
  return 0;
}

void* __wrap_malloc(size_t size) {
  plc_test::note_heap_call();
  return __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
  plc_test::note_heap_call();
  return __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size) {
  plc_test::note_heap_call();
  return __real_realloc(memory, size);
}

}  // extern "C"
