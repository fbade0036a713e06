// Waits of the library without the interpreter's lock, and what functions of the program raise meanwhile.
#include "python/binding/waiting.h"

#include <utility>

namespace plc_python {
namespace {

namespace py = pybind11;

// The library calls a log function in the thread that waits for it.
thread_local KeptException* innermost = nullptr;

void report(py::error_already_set& error) { error.discard_as_unraisable("plc_client: the function log"); }

}  // namespace

KeptException::KeptException() : outer_(innermost) { innermost = this; }

KeptException::~KeptException() {
  innermost = outer_;
  if (error_) report(*error_);
}

void KeptException::take(py::error_already_set& error) {
  const bool ends_the_program = !error.matches(PyExc_Exception);
  if (!ends_the_program || innermost == nullptr || innermost->error_) return report(error);
  innermost->error_.emplace(std::move(error));
}

void KeptException::raise() {
  if (!error_) return;
  py::error_already_set error = std::move(*error_);
  error_.reset();
  throw error;
}

Waiting::Waiting() {
  sigset_t disturbing;
  sigemptyset(&disturbing);
  for (const int number : {SIGALRM, SIGVTALRM, SIGPROF, SIGCHLD, SIGCONT, SIGWINCH, SIGIO, SIGUSR1, SIGUSR2}) {
    sigaddset(&disturbing, number);
  }
  pthread_sigmask(SIG_BLOCK, &disturbing, &before_);
}

Waiting::~Waiting() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace plc_python
