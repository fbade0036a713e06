// Ctrl-C and SIGTERM as a question that loops ask, and as the end of a wait.
#pragma once

#include <chrono>

namespace plc_host {

// From now on SIGINT, SIGTERM and SIGHUP are only noted. A driver call that they interrupt fails. A SIGHUP that was
// ignored when the program started, as with nohup, stays ignored.
void catch_stop_signals();

bool stop_requested();

// While it lives a stop signal ends the program with kExitInterrupted and a message: for work that takes long, asks
// nobody and writes nothing. Throws HostError where the signal came before. For a program that catches them already.
class EndsAtStop {
 public:
  EndsAtStop();
  ~EndsAtStop();
  EndsAtStop(const EndsAtStop&) = delete;
  EndsAtStop& operator=(const EndsAtStop&) = delete;
};

// The same as a signal that stops the program; from any thread.
void request_stop();

// Waits until the time is over or a stop signal comes, also when it came just before.
void wait_for_stop(std::chrono::milliseconds time);

// The same, and until the descriptor can be read, -1 for none, or Ctrl-Z has stopped the program and it goes on. True
// for these two. Keys that are there are found also when there is no time to wait.
bool wait_for_input(std::chrono::milliseconds time, int descriptor);

}  // namespace plc_host
