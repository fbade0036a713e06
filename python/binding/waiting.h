// Waits of the library without the interpreter's lock, and what functions of the program raise meanwhile.
#pragma once

#include <pybind11/pybind11.h>
#include <signal.h>

#include <type_traits>

namespace plc_python {

// Holds what a log function raised in a wait of this thread that has to end the program: KeyboardInterrupt, SystemExit
// and others that are no Exception. The library goes on until the call is over. Made and let go with the interpreter's
// lock.
class KeptException {
 public:
  KeptException();
  // Reports what nobody could be given.
  ~KeptException();
  KeptException(const KeptException&) = delete;
  KeptException& operator=(const KeptException&) = delete;

  // Keeps it for the innermost wait of this thread. Reports an Exception, and what comes after a kept one.
  static void take(pybind11::error_already_set& error);
  // Throws what is kept, once.
  void raise();

 private:
  void restore();

  KeptException* outer_;
  pybind11::object type_;  // none of them: nothing is kept
  pybind11::object value_;
  pybind11::object trace_;
};

// For as long as the library may wait: other threads run Python, and signals that programs use beside it (timers,
// children that end) do not cut a wait short. Python would handle them no earlier. Ctrl-C does end the wait.
class Waiting {
 public:
  Waiting();
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  sigset_t before_{};
  pybind11::gil_scoped_release unlocked_;
};

// Does the work without the interpreter's lock. What has to end the program comes out of it in place of the result, and
// of the library's own errors.
template <typename Work>
auto without_lock(const Work& work) -> decltype(work()) {
  KeptException kept;
  const auto do_work = [&work]() -> decltype(work()) {
    const Waiting waiting;
    return work();
  };
  try {
    if constexpr (std::is_void_v<decltype(work())>) {
      do_work();
      kept.raise();
    } else {
      decltype(auto) result = do_work();
      kept.raise();
      return result;
    }
  } catch (...) {
    kept.raise();
    throw;
  }
}

}  // namespace plc_python
