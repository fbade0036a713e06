// Readings, results, declarations and states as the tuples with names that Python programs get.
#pragma once

#include <pybind11/pybind11.h>

#include "client/plc_client.h"

namespace plc_python {

// The classes of the package's modules.
class Records {
 public:
  Records();

  // A reading of a plan; name and type are those that the plan has made of it once.
  pybind11::object reading(const plc_client::Reading& reading, const pybind11::str& name, const pybind11::str& type,
                           bool as_numpy);
  // is_guarded: of the driver that wrote. The contract build reports no failure for refusals either.
  pybind11::object write_result(const plc_client::WriteResult& result, bool is_guarded);
  pybind11::object declaration(const plc_client::Declaration& declaration) const;
  pybind11::object state(const plc_client::State& state) const;

 private:
  pybind11::object time_object(plc_client::TimePoint time);

  pybind11::object reading_;
  pybind11::object write_result_;
  pybind11::object declaration_;
  pybind11::object state_;
  // Readings of one exchange have one time.
  plc_client::TimePoint last_time_{};
  pybind11::object last_time_object_;
};

// Raises this as the package's exception of its kind.
void raise_error(const plc_client::Error& error);

}  // namespace plc_python
