// The wrapped calls of fault_calls.h.
#include "tests/driver/faults/fault_calls.h"

#include <fcntl.h>
#include <netdb.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

extern "C" decltype(fcntl) __real_fcntl;

namespace plc_test {
namespace {

thread_local WatchedCalls* current = nullptr;

constexpr const char* kNames[] = {
    "accept",         "bind",    "calloc",        "close",        "connect",      "fclose",           "fcntl",
    "ferror",         "fopen",   "fputs",         "fread",        "free",         "fseeko",           "fstat",
    "ftello",         "fwrite",  "gethostbyname", "getsockopt",   "gettimeofday", "listen",           "lseek",
    "madvise",        "malloc",  "mmap",          "munmap",       "open",         "printf",           "puts",
    "read",           "realloc", "recv",          "recv (drain)", "recvfrom",     "select (connect)", "select (drain)",
    "select (reply)", "send",    "sendto",        "setsockopt",   "sigaction",    "socket",           "usleep",
    "write"};
static_assert(sizeof kNames / sizeof kNames[0] == kCallKinds);

}  // namespace

const char* name_of(Call call) { return kNames[static_cast<size_t>(call)]; }

Advice& last_advice() {
  static Advice advice;
  return advice;
}

CallWatch* current_watch() { return current == nullptr ? nullptr : &current->seen_; }

WatchedCalls::WatchedCalls(const Fault* faults, size_t count) : fault_count_(count) {
  if (current != nullptr || count > kMostFaults) {
    std::fputs("a second watch, or too many faults\n", stderr);
    std::abort();
  }
  std::copy_n(faults, count, faults_);
  current = this;
}

const CallWatch& WatchedCalls::end() {
  current = nullptr;
  return seen_;
}

const Outcome* WatchedCalls::note(Call call) {
  const int nth = seen_.counts[static_cast<size_t>(call)]++;
  for (size_t i = 0; i < fault_count_; ++i) {
    const Fault& fault = faults_[i];
    if (fault.call == call && (fault.from_then_on ? nth >= fault.nth : nth == fault.nth)) {
      ++seen_.faults_met;
      return &fault.outcome;
    }
  }
  return nullptr;
}

namespace {

// Does the call, or what a fault makes of it. cut does it for fewer bytes.
template <typename Result, typename Work, typename Cut>
Result steer(Call call, Result failure, Work work, Cut cut) {
  const Outcome* outcome = current == nullptr ? nullptr : current->note(call);
  if (outcome == nullptr) return work();
  switch (outcome->kind) {
    case Outcome::Kind::kReturns:
      if constexpr (std::is_arithmetic_v<Result>) return static_cast<Result>(outcome->number);
      break;
    case Outcome::Kind::kShort:
      return cut(static_cast<size_t>(outcome->number));
    case Outcome::Kind::kFails:
      break;
  }
  errno = outcome->number;
  return failure;
}

// The same for calls that have no length.
template <typename Result, typename Work>
Result steer(Call call, Result failure, Work work) {
  return steer(call, failure, work, [&](size_t) { return work(); });
}

template <typename Work>
void* steer_memory(Call call, Work work) {
  const Outcome* outcome = current == nullptr ? nullptr : current->note(call);
  if (outcome == nullptr) return work();
  errno = outcome->number;
  return nullptr;
}

void add_blocks(long change) {
  if (CallWatch* watch = current_watch()) watch->live_blocks += change;
}

void note_inheritance(CallWatch* watch, int descriptor) {
  if ((__real_fcntl(descriptor, F_GETFD, 0) & FD_CLOEXEC) == 0) ++watch->inheritable;
}

void drop_file() {
  if (CallWatch* watch = current_watch()) --watch->open_files;
}

// Counts a descriptor that a call gave, and passes it on.
int add_descriptor(int descriptor) {
  CallWatch* watch = current_watch();
  if (watch != nullptr && descriptor >= 0) {
    ++watch->open_descriptors;
    note_inheritance(watch, descriptor);
  }
  return descriptor;
}

FILE* add_file(FILE* file) {
  CallWatch* watch = current_watch();
  if (watch != nullptr && file != nullptr) {
    ++watch->open_files;
    note_inheritance(watch, fileno(file));
  }
  return file;
}

void drop_descriptor() {
  if (CallWatch* watch = current_watch()) --watch->open_descriptors;
}

Call kind_of_receive(size_t length) {
  constexpr size_t kDrainBytes = 512;
  return length == kDrainBytes ? Call::kRecvDrain : Call::kRecv;
}

Call kind_of_wait(const fd_set* writable, const timeval* timeout) {
  if (writable != nullptr) return Call::kSelectConnect;
  const bool polls = timeout != nullptr && timeout->tv_sec == 0 && timeout->tv_usec == 0;
  return polls ? Call::kSelectDrain : Call::kSelectReply;
}

}  // namespace
}  // namespace plc_test

using plc_test::add_blocks;
using plc_test::add_descriptor;
using plc_test::add_file;
using plc_test::Call;
using plc_test::drop_descriptor;
using plc_test::drop_file;
using plc_test::steer;
using plc_test::steer_memory;

#define PLC_REAL(name) decltype(name) __real_##name

extern "C" {

PLC_REAL(accept);
PLC_REAL(accept4);
PLC_REAL(bind);
PLC_REAL(calloc);
PLC_REAL(close);
PLC_REAL(connect);
PLC_REAL(fclose);
PLC_REAL(ferror);
PLC_REAL(fopen64);
PLC_REAL(fputs);
PLC_REAL(fread);
PLC_REAL(free);
PLC_REAL(fseeko64);
PLC_REAL(ftello64);
PLC_REAL(fwrite);
PLC_REAL(gethostbyname);
PLC_REAL(getsockopt);
PLC_REAL(gettimeofday);
PLC_REAL(listen);
PLC_REAL(lseek64);
PLC_REAL(madvise);
PLC_REAL(malloc);
PLC_REAL(mmap);
PLC_REAL(munmap);
PLC_REAL(open);
PLC_REAL(open64);
PLC_REAL(printf);
PLC_REAL(puts);
PLC_REAL(read);
PLC_REAL(realloc);
PLC_REAL(recv);
PLC_REAL(recvfrom);
PLC_REAL(select);
PLC_REAL(send);
PLC_REAL(sendto);
PLC_REAL(setsockopt);
PLC_REAL(sigaction);
PLC_REAL(socket);
PLC_REAL(usleep);
PLC_REAL(vfprintf);
PLC_REAL(vprintf);
PLC_REAL(write);
int __real___fxstat64(int record, int fd, struct stat64* status);

// Sockets.

int __wrap_accept(int fd, sockaddr* address, socklen_t* length) {
  return add_descriptor(steer(Call::kAccept, -1, [&] { return __real_accept(fd, address, length); }));
}

int __wrap_accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  return add_descriptor(steer(Call::kAccept, -1, [&] { return __real_accept4(fd, address, length, flags); }));
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
  return steer(Call::kBind, -1, [&] { return __real_bind(fd, address, length); });
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
  return steer(Call::kConnect, -1, [&] { return __real_connect(fd, address, length); });
}

int __wrap_fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const int value = va_arg(arguments, int);
  va_end(arguments);
  return steer(Call::kFcntl, -1, [&] { return __real_fcntl(fd, command, value); });
}

hostent* __wrap_gethostbyname(const char* name) {
  const auto real = [&] { return __real_gethostbyname(name); };
  return steer(Call::kGethostbyname, static_cast<hostent*>(nullptr), real);
}

int __wrap_getsockopt(int fd, int level, int option, void* value, socklen_t* length) {
  return steer(Call::kGetsockopt, -1, [&] { return __real_getsockopt(fd, level, option, value, length); });
}

int __wrap_listen(int fd, int backlog) {
  return steer(Call::kListen, -1, [&] { return __real_listen(fd, backlog); });
}

ssize_t __wrap_recv(int fd, void* bytes, size_t length, int flags) {
  const auto take = [&](size_t most) { return __real_recv(fd, bytes, std::min(length, most), flags); };
  return steer(
      plc_test::kind_of_receive(length), ssize_t{-1}, [&] { return take(length); }, take);
}

ssize_t __wrap_recvfrom(int fd, void* bytes, size_t length, int flags, sockaddr* address, socklen_t* address_length) {
  const auto take = [&](size_t most) {
    return __real_recvfrom(fd, bytes, std::min(length, most), flags, address, address_length);
  };
  return steer(
      Call::kRecvfrom, ssize_t{-1}, [&] { return take(length); }, take);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout) {
  return steer(plc_test::kind_of_wait(writable, timeout), -1,
               [&] { return __real_select(count, readable, writable, failing, timeout); });
}

ssize_t __wrap_send(int fd, const void* bytes, size_t length, int flags) {
  const auto give = [&](size_t most) { return __real_send(fd, bytes, std::min(length, most), flags); };
  return steer(
      Call::kSend, ssize_t{-1}, [&] { return give(length); }, give);
}

ssize_t __wrap_sendto(int fd, const void* bytes, size_t length, int flags, const sockaddr* address,
                      socklen_t address_length) {
  const auto give = [&](size_t most) {
    return __real_sendto(fd, bytes, std::min(length, most), flags, address, address_length);
  };
  return steer(
      Call::kSendto, ssize_t{-1}, [&] { return give(length); }, give);
}

int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t length) {
  return steer(Call::kSetsockopt, -1, [&] { return __real_setsockopt(fd, level, option, value, length); });
}

int __wrap_socket(int domain, int type, int protocol) {
  return add_descriptor(steer(Call::kSocket, -1, [&] { return __real_socket(domain, type, protocol); }));
}

// Files. The system closes a descriptor also where its close reports an error.

int __wrap_close(int fd) {
  const int closed = __real_close(fd);
  if (closed == 0) drop_descriptor();
  return steer(Call::kClose, -1, [&] { return closed; });
}

int __wrap_fclose(FILE* file) {
  const int closed = __real_fclose(file);
  drop_file();
  return steer(Call::kFclose, EOF, [&] { return closed; });
}

int __wrap_ferror(FILE* file) {
  return steer(Call::kFerror, 1, [&] { return __real_ferror(file); });
}

FILE* __wrap_fopen64(const char* path, const char* mode) {
  const auto real = [&] { return __real_fopen64(path, mode); };
  return add_file(steer(Call::kFopen, static_cast<FILE*>(nullptr), real));
}

size_t __wrap_fread(void* bytes, size_t size, size_t count, FILE* file) {
  const auto take = [&](size_t most) { return __real_fread(bytes, size, std::min(count, most), file); };
  return steer(
      Call::kFread, size_t{0}, [&] { return take(count); }, take);
}

int __wrap_fseeko64(FILE* file, off64_t offset, int whence) {
  return steer(Call::kFseek, -1, [&] { return __real_fseeko64(file, offset, whence); });
}

// Says less than the file's length when it is cut.
int __wrap___fxstat64(int record, int fd, struct stat64* status) {
  const auto ask = [&](size_t most) {
    const int asked = __real___fxstat64(record, fd, status);
    status->st_size = std::min(status->st_size, static_cast<off64_t>(most));
    return asked;
  };
  return steer(
      Call::kFstat, -1, [&] { return __real___fxstat64(record, fd, status); }, ask);
}

off64_t __wrap_ftello64(FILE* file) {
  return steer(Call::kFtell, off64_t{-1}, [&] { return __real_ftello64(file); });
}

off64_t __wrap_lseek64(int fd, off64_t offset, int whence) {
  return steer(Call::kLseek, off64_t{-1}, [&] { return __real_lseek64(fd, offset, whence); });
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return add_descriptor(steer(Call::kOpen, -1, [&] { return __real_open(path, flags, mode); }));
}

int __wrap_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return add_descriptor(steer(Call::kOpen, -1, [&] { return __real_open64(path, flags, mode); }));
}

ssize_t __wrap_read(int fd, void* bytes, size_t length) {
  const auto take = [&](size_t most) { return __real_read(fd, bytes, std::min(length, most)); };
  return steer(
      Call::kRead, ssize_t{-1}, [&] { return take(length); }, take);
}

ssize_t __wrap_write(int fd, const void* bytes, size_t length) {
  const auto give = [&](size_t most) { return __real_write(fd, bytes, std::min(length, most)); };
  return steer(
      Call::kWrite, ssize_t{-1}, [&] { return give(length); }, give);
}

// Output.

int __wrap_fputs(const char* text, FILE* file) {
  return steer(Call::kFputs, EOF, [&] { return __real_fputs(text, file); });
}

size_t __wrap_fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
  const auto give = [&](size_t most) { return __real_fwrite(bytes, size, std::min(count, most), file); };
  return steer(
      Call::kFwrite, size_t{0}, [&] { return give(count); }, give);
}

__attribute__((format(printf, 1, 2))) int __wrap_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = steer(Call::kPrintf, -1, [&] { return __real_vprintf(format, arguments); });
  va_end(arguments);
  return written;
}

__attribute__((format(printf, 1, 0))) int __wrap_vprintf(const char* format, va_list arguments) {
  return steer(Call::kPrintf, -1, [&] { return __real_vprintf(format, arguments); });
}

__attribute__((format(printf, 2, 0))) int __wrap_vfprintf(FILE* file, const char* format, va_list arguments) {
  return steer(Call::kPrintf, -1, [&] { return __real_vfprintf(file, format, arguments); });
}

int __wrap_puts(const char* text) {
  return steer(Call::kPuts, EOF, [&] { return __real_puts(text); });
}

// Memory.

void* __wrap_calloc(size_t count, size_t size) {
  void* block = steer_memory(Call::kCalloc, [&] { return __real_calloc(count, size); });
  add_blocks(block != nullptr ? 1 : 0);
  return block;
}

void __wrap_free(void* block) {
  steer(Call::kFree, 0, [] { return 0; });
  add_blocks(block != nullptr ? -1 : 0);
  __real_free(block);
}

int __wrap_madvise(void* address, size_t length, int advice) {
  const auto first = reinterpret_cast<uintptr_t>(address);
  plc_test::last_advice() = {first, first + length, advice};
  return steer(Call::kMadvise, -1, [&] { return __real_madvise(address, length, advice); });
}

void* __wrap_malloc(size_t size) {
  void* block = steer_memory(Call::kMalloc, [&] { return __real_malloc(size); });
  add_blocks(block != nullptr ? 1 : 0);
  return block;
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  const auto real = [&] { return __real_mmap(address, length, protection, flags, fd, offset); };
  return steer(Call::kMmap, MAP_FAILED, real);
}

int __wrap_munmap(void* address, size_t length) {
  return steer(Call::kMunmap, -1, [&] { return __real_munmap(address, length); });
}

void* __wrap_realloc(void* block, size_t size) {
  void* moved = steer_memory(Call::kRealloc, [&] { return __real_realloc(block, size); });
  add_blocks(block == nullptr && moved != nullptr ? 1 : 0);
  return moved;
}

// The rest.

int __wrap_gettimeofday(timeval* now, void* zone) {
  return steer(Call::kGettimeofday, -1, [&] { return __real_gettimeofday(now, zone); });
}

int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* old) {
  return steer(Call::kSigaction, -1, [&] { return __real_sigaction(number, action, old); });
}

int __wrap_usleep(useconds_t microseconds) {
  return steer(Call::kUsleep, -1, [&] { return __real_usleep(microseconds); });
}

}  // extern "C"
