// Notes stop signals and wakes the wait through a pipe.
#include "tools/plc_host/stop_signal.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "base/files.h"
#include "tools/plc_host/exit_codes.h"

namespace plc_host {
namespace {

std::atomic<bool> stop_noted{false};  // a handler and the thread of watch's screen set it
static_assert(std::atomic<bool>::is_always_lock_free, "a handler sets it");
int wake_pipe[2] = {-1, -1};

void note_stop(int) {
  const int saved = errno;
  stop_noted = true;
  const char byte = 0;
  // A full pipe wakes the wait just as well.
  const ssize_t written = write(wake_pipe[1], &byte, 1);
  static_cast<void>(written);
  errno = saved;
}

constexpr char kInterrupted[] = "plc-host: interrupted\n";

void end_program(int) {
  const ssize_t written = write(STDERR_FILENO, kInterrupted, sizeof kInterrupted - 1);
  static_cast<void>(written);
  _exit(kExitInterrupted);
}

void handle_stop_signals(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM}) sigaction(number, &action, nullptr);
  // nohup starts a program with this signal ignored, so that it outlives its terminal.
  struct sigaction inherited {};
  sigaction(SIGHUP, nullptr, &inherited);
  if (inherited.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);
}

}  // namespace

void catch_stop_signals() {
  if (wake_pipe[0] < 0 && pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw HostError(kExitUsage, std::string("cannot make a pipe: ") + std::strerror(errno) +
                                    ". Try: " + plc_base::kMoreDescriptors);
  }
  handle_stop_signals(note_stop);
}

EndsAtStop::EndsAtStop() {
  handle_stop_signals(end_program);
  if (!stop_requested()) return;
  handle_stop_signals(note_stop);
  throw HostError(kExitInterrupted, "interrupted");
}

EndsAtStop::~EndsAtStop() { handle_stop_signals(note_stop); }

void request_stop() {
  note_stop(0);
  // A call of the driver is to end now.
  kill(getpid(), SIGINT);
}

bool stop_requested() { return stop_noted; }

void wait_for_stop(std::chrono::milliseconds time) { wait_for_input(time, -1); }

bool wait_for_input(std::chrono::milliseconds time, int descriptor) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  for (const int number : {SIGTSTP, SIGCONT}) sigdelset(&mask, number);
  const auto end = std::chrono::steady_clock::now() + time;
  while (!stop_requested()) {
    const std::chrono::nanoseconds left = end - std::chrono::steady_clock::now();
    struct pollfd awaited[] = {{wake_pipe[0], POLLIN, 0}, {descriptor, POLLIN, 0}};
    const std::chrono::nanoseconds longest =
        std::clamp<std::chrono::nanoseconds>(left, std::chrono::nanoseconds(0), std::chrono::minutes(1));
    const struct timespec patience {
      static_cast<time_t>(longest.count() / 1000000000), static_cast<long>(longest.count() % 1000000000)
    };
    // The byte is left in the pipe: one stop ends every later wait.
    const int ready = ppoll(awaited, 2, &patience, &mask);
    if (ready < 0 && errno == EINTR && !stop_requested()) return true;
    if (awaited[1].revents != 0) return true;
    if (left.count() <= 0) return false;
  }
  return false;
}

}  // namespace plc_host
