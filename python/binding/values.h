// Values between the client library and Python, both ways.
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "client/plc_client.h"

namespace plc_python {

// bool, int, float, str or bytes; (nested) lists for arrays, or with as_numpy numpy arrays of the declared width; None
// without a value.
pybind11::object value_object(const plc_client::Value& value, bool as_numpy);

// A text of the library as Python's, and the other way round: UTF-8, other bytes as surrogates.
pybind11::str text_object(const std::string& text);
std::string text_bytes(pybind11::handle text);

// The value of a variable of this name for a write. Throws TypeMismatch and OutOfRange for what no variable can have.
plc_client::Input value_input(const std::string& name, pybind11::handle value);

}  // namespace plc_python
