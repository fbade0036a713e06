// Waits of the library without the interpreter's lock, and what functions of the program raise meanwhile.
#include "python/binding/waiting.h"

namespace plc_python {
namespace {

namespace py = pybind11;

// The library calls a log function in the thread that waits for it.
thread_local KeptException* innermost = nullptr;

// Python's current exception.
void report() {
  PyObject* const place = PyUnicode_FromString("plc_client: the function log");
  PyErr_WriteUnraisable(place);
  Py_XDECREF(place);
}

}  // namespace

KeptException::KeptException() : outer_(innermost) { innermost = this; }

KeptException::~KeptException() {
  innermost = outer_;
  if (!type_) return;
  restore();
  report();
}

void KeptException::take(py::error_already_set& error) {
  const bool ends_the_program = !error.matches(PyExc_Exception);
  error.restore();
  if (!ends_the_program || innermost == nullptr || innermost->type_) return report();
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* trace = nullptr;
  PyErr_Fetch(&type, &value, &trace);
  innermost->type_ = py::reinterpret_steal<py::object>(type);
  innermost->value_ = py::reinterpret_steal<py::object>(value);
  innermost->trace_ = py::reinterpret_steal<py::object>(trace);
}

void KeptException::restore() { PyErr_Restore(type_.release().ptr(), value_.release().ptr(), trace_.release().ptr()); }

void KeptException::raise() {
  if (!type_) return;
  restore();
  throw py::error_already_set();
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
