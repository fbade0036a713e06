// Values between the client library and Python, both ways.
#include "python/binding/values.h"

#include <pybind11/numpy.h>

#include <vector>

#include "base/shown_text.h"

namespace plc_python {
namespace {

namespace py = pybind11;
using plc_client::Input;
using plc_client::Kind;
using plc_client::Value;

// More than any variable has.
constexpr size_t kMostDimensions = 3;
// Bytes that are no UTF-8 come and go as they are.
constexpr const char* kOtherBytes = "surrogateescape";

py::object element_object(const Value& value, size_t element) {
  switch (value.kind()) {
    case Kind::kBool:
      return py::bool_(value.raw(element) != 0);
    case Kind::kSigned:
      return py::int_(value.as<int64_t>(element));
    case Kind::kReal:
      return py::float_(value.as<double>(element));
    default:
      return py::int_(value.raw(element));
  }
}

// The elements from next on, which moves behind them, as lists from this dimension inwards.
py::list nested_list(const Value& value, size_t dimension, size_t& next) {
  const size_t length = value.shape()[dimension];
  const bool is_innermost = dimension + 1 == value.shape().size();
  py::list list(length);
  for (size_t i = 0; i < length; ++i) {
    list[i] = is_innermost ? element_object(value, next++) : py::object(nested_list(value, dimension + 1, next));
  }
  return list;
}

template <typename T>
py::object numpy_array(const Value& value) {
  py::array_t<T> array(value.shape());
  T* elements = array.mutable_data();
  for (size_t i = 0; i < value.size(); ++i) elements[i] = value.as<T>(i);
  return std::move(array);
}

template <typename Narrowest, typename Narrow, typename Wide, typename Widest>
py::object numpy_integers(const Value& value) {
  switch (value.bits()) {
    case 8:
      return numpy_array<Narrowest>(value);
    case 16:
      return numpy_array<Narrow>(value);
    case 32:
      return numpy_array<Wide>(value);
    default:
      return numpy_array<Widest>(value);
  }
}

py::object numpy_object(const Value& value) {
  switch (value.kind()) {
    case Kind::kBool:
      return numpy_array<bool>(value);
    case Kind::kSigned:
      return numpy_integers<int8_t, int16_t, int32_t, int64_t>(value);
    case Kind::kReal:
      return value.bits() == 32 ? numpy_array<float>(value) : numpy_array<double>(value);
    default:
      return numpy_integers<uint8_t, uint16_t, uint32_t, uint64_t>(value);
  }
}

// Python writes no number out that has thousands of digits.
std::string digits_of(py::handle number) {
  try {
    return std::string(py::str(number));
  } catch (py::error_already_set&) {
    return "the number";
  }
}

Input integer_input(const std::string& name, py::handle value) {
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow == 0) return Input(static_cast<int64_t>(number));
  const unsigned long long large = PyLong_AsUnsignedLongLong(value.ptr());
  if (PyErr_Occurred() == nullptr) return Input(static_cast<uint64_t>(large));
  PyErr_Clear();
  throw plc_client::OutOfRange(plc_base::shown_line(name) + ": " + digits_of(value) + " is more than 64 bits hold");
}

[[noreturn]] void refuse_type(const std::string& name, py::handle value) {
  const std::string type(py::str(py::type::of(value).attr("__name__")));
  throw plc_client::TypeMismatch(
      plc_base::shown_line(name + ": a value is a bool, int, float, str, bytes, or a list of these, not " + type));
}

Input input_of(const std::string& name, py::handle value, size_t depth) {
  if (py::isinstance<py::bool_>(value)) return Input(value.cast<bool>());
  if (py::isinstance<py::int_>(value)) return integer_input(name, value);
  if (py::isinstance<py::float_>(value)) return Input(value.cast<double>());
  if (py::isinstance<py::str>(value)) return Input(text_bytes(value));
  if (py::isinstance<py::bytes>(value)) return Input::bytes(std::string(value.cast<py::bytes>()));
  // What numpy has, arrays and single numbers, gives itself as Python's own.
  if (py::hasattr(value, "tolist")) {
    const py::object own = value.attr("tolist")();
    // Its numbers of more than 64 bits give themselves again.
    if (py::hasattr(own, "tolist")) refuse_type(name, value);
    return input_of(name, own, depth);
  }
  if (!py::isinstance<py::list>(value) && !py::isinstance<py::tuple>(value)) refuse_type(name, value);
  if (depth == kMostDimensions) {
    throw plc_client::TypeMismatch(plc_base::shown_line(name) + ": a value is a list in at most three levels");
  }
  std::vector<Input> items;
  items.reserve(py::len(value));
  for (const py::handle item : value) items.push_back(input_of(name, item, depth + 1));
  return Input(std::move(items));
}

}  // namespace

py::object value_object(const Value& value, bool as_numpy) {
  switch (value.kind()) {
    case Kind::kNone:
      return py::none();
    case Kind::kText:
      return text_object(value.as<std::string>());
    case Kind::kBytes:
      return py::bytes(value.as<std::string>());
    default:
      break;
  }
  if (!value.is_array()) return element_object(value, 0);
  if (as_numpy) return numpy_object(value);
  size_t next = 0;
  return nested_list(value, 0, next);
}

py::str text_object(const std::string& text) {
  PyObject* const object = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), kOtherBytes);
  if (object == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(object);
}

std::string text_bytes(py::handle text) {
  const auto bytes = py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", kOtherBytes));
  if (!bytes) {
    PyErr_Clear();
    throw plc_client::OutOfRange(std::string(py::reinterpret_steal<py::str>(PyObject_ASCII(text.ptr()))) +
                                 " has half a surrogate pair, which no UTF-8 has");
  }
  return std::string(bytes);
}

Input value_input(const std::string& name, py::handle value) { return input_of(name, value, 0); }

}  // namespace plc_python
