// The module plc_client._core: the client library's controller for the Python classes beside it.
//
// The interpreter's lock is released wherever the library may wait: for the network, for a file, for another thread.
#include <pybind11/pybind11.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/shown_text.h"
#include "client/plc_client.h"
#include "profile/profile_file.h"
#include "profile/profile_use.h"
#include "python/binding/records.h"
#include "python/binding/values.h"
#include "python/binding/waiting.h"

namespace plc_python {
namespace {

namespace py = pybind11;

// Lives as long as the process: the classes that it holds may not be let go behind the interpreter's end.
Records& records() {
  static auto* const all = new Records;
  return *all;
}

// The function that is given the driver's lines. What it raises spoils no transfer: it is reported, or ends the program
// behind the call.
std::function<void(const std::string&)> line_sink(const py::object& log) {
  if (log.is_none()) return nullptr;
  // Whoever lets it go last may not have the interpreter's lock.
  const auto let_go = [](py::object* function) {
    const py::gil_scoped_acquire lock;
    delete function;
  };
  const std::shared_ptr<py::object> function(new py::object(log), let_go);
  return [function](const std::string& line) {
    const py::gil_scoped_acquire lock;
    try {
      (*function)(text_object(line));
    } catch (py::error_already_set& error) {
      KeptException::take(error);
    }
  };
}

std::string word_of(const std::string& profile, bool is_driver_named) {
  const plc_profile::ProfileResult result = plc_profile::read_profile(profile);
  return result.ok() ? plc_profile::contract_word(result.profile, is_driver_named) : "";
}

// The package itself says what a profile says of the driver: the library always gets a path here.
std::function<void(const std::string&)> without_line(std::function<void(const std::string&)> log,
                                                     std::string unwanted) {
  if (!log) return log;
  return [log = std::move(log), unwanted = std::move(unwanted)](const std::string& line) {
    if (line != unwanted) log(line);
  };
}

std::vector<std::string> texts_bytes(const py::sequence& texts) {
  std::vector<std::string> all;
  all.reserve(texts.size());
  for (const py::handle text : texts) all.push_back(text_bytes(text));
  return all;
}

// Other threads run while one closes its connection.
struct DeleteUnlocked {
  void operator()(plc_client::Controller* controller) const {
    const KeptException kept;
    const Waiting waiting;
    delete controller;
  }
};
using ControllerHolder = std::unique_ptr<plc_client::Controller, DeleteUnlocked>;

ControllerHolder open_controller(const py::str& address, uint16_t port, const py::sequence& tags, uint16_t area,
                                 const py::str& driver, uint32_t reply_timeout_s, uint32_t delay_ms,
                                 const py::object& log, const py::str& profile) {
  plc_client::Options options;
  options.address = text_bytes(address);
  options.port = port;
  options.tags = texts_bytes(tags);
  options.area = area;
  options.driver = text_bytes(driver);
  options.reply_timeout_s = reply_timeout_s;
  options.delay_ms = delay_ms;
  options.profile = text_bytes(profile);
  options.log = without_line(line_sink(log), options.profile + ": " + word_of(options.profile, true));
  return without_lock([&options] { return ControllerHolder(new plc_client::Controller(options)); });
}

// The build that a profile has taken in place of "guarded"; "" too where the profile cannot be read.
std::string driver_choice(const py::str& profile) {
  const plc_profile::ProfileResult result = plc_profile::read_profile(text_bytes(profile));
  return result.ok() ? plc_profile::driver_choice(result.profile) : "";
}

// Why a profile has the contract build taken, and what to look after then; "" too where the profile cannot be read,
// which the controller says then.
std::string contract_word(const py::str& profile, bool is_driver_named) {
  return word_of(text_bytes(profile), is_driver_named);
}

py::str csv_cell(const py::str& text) { return text_object(plc_base::shown_csv_cell(text_bytes(text))); }

// A plan, and the names and types of its readings, which never change.
struct NamedPlan {
  explicit NamedPlan(plc_client::Plan made) : plan(std::move(made)) {
    for (const plc_client::Reading& reading : plan.readings()) {
      names.push_back(text_object(reading.name));
      types.push_back(text_object(reading.type));
    }
  }

  plc_client::Plan plan;
  std::vector<py::str> names;
  std::vector<py::str> types;
};

std::unique_ptr<NamedPlan> make_plan(const plc_client::Controller& controller, const py::sequence& names) {
  const std::vector<std::string> bytes = texts_bytes(names);
  return std::make_unique<NamedPlan>(without_lock([&] { return controller.plan(bytes); }));
}

py::list read_plan(plc_client::Controller& controller, NamedPlan& named, bool as_numpy) {
  const auto read = [&]() -> const std::vector<plc_client::Reading>& { return controller.read(named.plan); };
  const std::vector<plc_client::Reading>& readings = without_lock(read);
  py::list list(readings.size());
  for (size_t i = 0; i < readings.size(); ++i) {
    list[i] = records().reading(readings[i], named.names[i], named.types[i], as_numpy);
  }
  return list;
}

// "1.1.0 guarded": the build's name is the last word.
bool is_guarded(const plc_client::Controller& controller) {
  const std::string& build = controller.driver_build();
  return build.substr(build.rfind(' ') + 1) == "guarded";
}

py::list write_values(plc_client::Controller& controller, const py::sequence& values, bool verify) {
  std::vector<std::pair<std::string, plc_client::Input>> inputs;
  inputs.reserve(values.size());
  for (const py::handle pair : values) {
    std::string name = text_bytes(pair[py::int_(0)]);
    plc_client::Input value = value_input(name, pair[py::int_(1)]);
    inputs.emplace_back(std::move(name), std::move(value));
  }
  const auto way = verify ? plc_client::Verify::kReadBack : plc_client::Verify::kNone;
  const std::vector<plc_client::WriteResult> results = without_lock([&] { return controller.write(inputs, way); });
  py::list list;
  const bool guarded = is_guarded(controller);
  for (const plc_client::WriteResult& result : results) list.append(records().write_result(result, guarded));
  return list;
}

py::list declared_names(const plc_client::Controller& controller) {
  const auto all = [&]() -> const std::vector<plc_client::Declaration>& { return controller.tags(); };
  py::list names;
  for (const plc_client::Declaration& declaration : without_lock(all)) names.append(text_object(declaration.name));
  return names;
}

py::object declaration_of(const plc_client::Controller& controller, const py::str& name) {
  const std::string bytes = text_bytes(name);
  const auto find = [&]() -> const plc_client::Declaration& { return controller.tag(bytes); };
  return records().declaration(without_lock(find));
}

plc_client::State state_of(const plc_client::Controller& controller) {
  return without_lock([&controller] { return controller.state(); });
}

void translate(std::exception_ptr error) {
  try {
    if (error) std::rethrow_exception(std::move(error));
  } catch (const plc_client::Error& known) {
    raise_error(known);
  }
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  records();
  module.attr("__version__") = PLC_VERSION;
  py::register_exception_translator(translate);
  module.def("driver_choice", &driver_choice, py::arg("profile"));
  module.def("contract_word", &contract_word, py::arg("profile"), py::arg("is_driver_named"));
  module.def("csv_cell", &csv_cell, py::arg("text"));
  py::class_<NamedPlan>(module, "Plan").def_property_readonly("exchanges", [](const NamedPlan& named) {
    return named.plan.exchanges();
  });
  py::class_<plc_client::Controller, ControllerHolder>(module, "Controller")
      .def(py::init(&open_controller), py::arg("address"), py::arg("port"), py::arg("tags"), py::arg("area"),
           py::arg("driver"), py::arg("reply_timeout"), py::arg("delay_ms"), py::arg("log"), py::arg("profile"))
      .def("connect", [](plc_client::Controller& controller) { without_lock([&controller] { controller.connect(); }); })
      .def("close", [](plc_client::Controller& controller) { without_lock([&controller] { controller.close(); }); })
      .def("state", [](const plc_client::Controller& controller) { return records().state(state_of(controller)); })
      .def("plan", &make_plan, py::arg("names"), py::keep_alive<0, 1>())
      .def("read", &read_plan, py::arg("plan"), py::arg("as_numpy"))
      .def("write", &write_values, py::arg("values"), py::arg("verify"))
      .def("names", &declared_names)
      .def("tag", &declaration_of, py::arg("name"))
      .def("driver_build",
           [](const plc_client::Controller& controller) { return text_object(controller.driver_build()); })
      .def("driver_remark",
           [](const plc_client::Controller& controller) { return text_object(controller.driver_remark()); });
}

}  // namespace plc_python
