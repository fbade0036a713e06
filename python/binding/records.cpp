// Readings, results, declarations and states as the tuples with names that Python programs get.
#include "python/binding/records.h"

#include <datetime.h>

#include <chrono>
#include <ctime>
#include <initializer_list>

#include "python/binding/values.h"

namespace plc_python {
namespace {

namespace py = pybind11;
using plc_client::Problem;
using plc_client::TimePoint;

// A tuple of this class, which adds names to a tuple and nothing else.
py::object named_tuple(const py::object& type, std::initializer_list<py::object> items) {
  auto* const type_object = reinterpret_cast<PyTypeObject*>(type.ptr());
  PyObject* const tuple = type_object->tp_alloc(type_object, static_cast<Py_ssize_t>(items.size()));
  if (tuple == nullptr) throw py::error_already_set();
  Py_ssize_t position = 0;
  for (const py::object& item : items) PyTuple_SET_ITEM(tuple, position++, item.inc_ref().ptr());
  return py::reinterpret_steal<py::object>(tuple);
}

py::object class_of(const char* module, const char* name) { return py::module_::import(module).attr(name); }

// In UTC, with that zone.
py::object new_time_object(TimePoint time) {
  using std::chrono::duration_cast;
  const auto since_epoch = duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = since_epoch / 1000000;
  std::tm parts{};
  if (gmtime_r(&seconds, &parts) == nullptr) return py::none();
  return py::reinterpret_steal<py::object>(PyDateTimeAPI->DateTime_FromDateAndTime(
      parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
      static_cast<int>(since_epoch % 1000000), PyDateTime_TimeZone_UTC, PyDateTimeAPI->DateTimeType));
}

py::object optional_time(TimePoint time) { return time == TimePoint{} ? py::none() : new_time_object(time); }

py::object optional_text(const std::string& text) {
  return text.empty() ? py::object(py::none()) : py::object(text_object(text));
}

py::object problem_text(const Problem& problem) {
  return problem.advice.empty() ? optional_text(problem.text) : text_object(problem.text + ". Try: " + problem.advice);
}

const char* quality_word(plc_client::Quality quality) {
  switch (quality) {
    case plc_client::Quality::kGood:
      return "good";
    case plc_client::Quality::kUnguarded:
      return "unguarded";
    default:
      return "bad";
  }
}

const char* outcome_word(plc_client::Outcome outcome, bool is_guarded) {
  switch (outcome) {
    case plc_client::Outcome::kDone:
      return is_guarded ? "done" : "unguarded";
    case plc_client::Outcome::kNotDone:
      return "not done";
    default:
      return "unknown";
  }
}

}  // namespace

Records::Records()
    : reading_(class_of("plc_client._records", "Reading")),
      write_result_(class_of("plc_client._records", "WriteResult")),
      declaration_(class_of("plc_client._records", "Declaration")),
      state_(class_of("plc_client._records", "State")) {
  PyDateTime_IMPORT;
  if (PyDateTimeAPI == nullptr) throw py::error_already_set();
}

py::object Records::time_object(TimePoint time) {
  if (!last_time_object_ || time != last_time_) {
    last_time_object_ = new_time_object(time);
    last_time_ = time;
  }
  return last_time_object_;
}

py::object Records::reading(const plc_client::Reading& reading, const py::str& name, const py::str& type,
                            bool as_numpy) {
  const bool ok = reading.ok();
  return named_tuple(reading_, {name, type, ok ? value_object(reading.value, as_numpy) : py::none(), py::bool_(ok),
                                ok ? py::none() : problem_text(reading.error), time_object(reading.time),
                                py::str(quality_word(reading.quality))});
}

py::object Records::write_result(const plc_client::WriteResult& result, bool is_guarded) {
  const bool ok = result.ok();
  return named_tuple(write_result_, {text_object(result.name), text_object(result.type), py::bool_(ok),
                                     py::str(outcome_word(result.outcome, is_guarded)), py::bool_(result.verified),
                                     ok ? py::none() : problem_text(result.error), time_object(result.time)});
}

py::object Records::declaration(const plc_client::Declaration& declaration) const {
  py::list bounds;
  for (const auto& range : declaration.ranges) bounds.append(py::make_tuple(range.low, range.high));
  return named_tuple(declaration_,
                     {text_object(declaration.name), text_object(declaration.type), py::tuple(bounds),
                      py::int_(declaration.length), optional_text(declaration.scope), optional_text(declaration.device),
                      text_object(declaration.file), py::int_(declaration.line), py::int_(declaration.area),
                      declaration.number ? py::object(py::int_(*declaration.number)) : py::none(),
                      optional_text(declaration.unreachable)});
}

py::object Records::state(const plc_client::State& state) const {
  py::dict failures;
  for (size_t i = 0; i < plc_client::kReasons; ++i) {
    if (state.failures[i] == 0) continue;
    failures[plc_client::reason_word(static_cast<plc_client::Reason>(i))] = state.failures[i];
  }
  return named_tuple(state_, {py::bool_(state.connected), new_time_object(state.since), problem_text(state.last_error),
                              optional_time(state.last_error_time), py::int_(state.connects), py::int_(state.calls),
                              py::int_(state.exchanges), failures, py::int_(state.drops)});
}

void raise_error(const plc_client::Error& error) {
  const py::str text = text_object(error.what());
  const auto type_named = [](const char* name) { return class_of("plc_client._errors", name); };
  if (const auto* const unknown = dynamic_cast<const plc_client::UnknownVariable*>(&error)) {
    py::list near;
    for (const std::string& name : unknown->near()) near.append(text_object(name));
    const py::object type = type_named("UnknownVariable");
    PyErr_SetObject(type.ptr(), type(text, py::tuple(near)).ptr());
    return;
  }
  const char* name = "Error";
  if (dynamic_cast<const plc_client::TypeMismatch*>(&error) != nullptr) name = "TypeMismatch";
  if (dynamic_cast<const plc_client::OutOfRange*>(&error) != nullptr) name = "OutOfRange";
  if (dynamic_cast<const plc_client::ConnectionFailed*>(&error) != nullptr) name = "ConnectionFailed";
  PyErr_SetObject(type_named(name).ptr(), text.ptr());
}

}  // namespace plc_python
