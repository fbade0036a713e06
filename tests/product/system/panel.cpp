// A host as a panel is one.
#include "tests/product/system/panel.h"

#include <dlfcn.h>
#include <poll.h>

#include <cstdlib>
#include <utility>

#include "tests/support/captured_output.h"
#include "tests/support/driver_build.h"

namespace plc_test {
namespace {

constexpr const char* kTagFile = "PLC7F000001_0.csv";

struct Type {
  const char* name;
  uint32_t bits;
};

constexpr Type kTypes[] = {{"BOOL", 1},   {"INT", 16},   {"UINT", 16}, {"WORD", 16}, {"DINT", 32},
                           {"UDINT", 32}, {"DWORD", 32}, {"REAL", 32}, {"LINT", 64}, {"ULINT", 64},
                           {"LWORD", 64}, {"LREAL", 64}, {"STRING", 0}};
constexpr const char* kDevices[] = {"", "DM", "EM", "MR", "LR", "TM", "FM", "CM", "ZF"};
constexpr const char* kPrograms[] = {"", "MAIN", "MAIN2"};
constexpr uint32_t kStringLength = 20;

const std::vector<std::vector<uint32_t>>& shapes() {
  static const std::vector<std::vector<uint32_t>> all = {{}, {10}, {3, 4}, {2, 3, 4}};
  return all;
}

template <typename Function>
void look_up(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  if (*function == nullptr) {
    std::fprintf(stderr, "%s is missing\n", name);
    std::abort();
  }
}

// Plain names, members of structures, and members of arrays of structures.
std::string variable_name(size_t number, const std::string& type) {
  const std::string base = type + std::to_string(number);
  if (number % 3 == 1) return "Unit." + base;
  return number % 3 == 2 ? "Line[2]." + base : base;
}

}  // namespace

uint32_t Variable::elements() const {
  uint32_t count = 1;
  for (const uint32_t size : sizes) count *= size;
  return count;
}

std::string Variable::element_name(uint32_t element) const {
  std::string subscripts;
  for (size_t i = sizes.size(); i-- > 0; element /= sizes[i]) {
    subscripts = std::to_string(element % sizes[i]) + (subscripts.empty() ? "" : ",") + subscripts;
  }
  const std::string full = program.empty() ? name : program + "/" + name;
  return sizes.empty() ? full : full + "[" + subscripts + "]";
}

std::vector<Variable> all_variables() {
  std::vector<Variable> variables;
  for (const Type& type : kTypes) {
    for (const auto& sizes : shapes()) {
      if (type.bits == 0 && !sizes.empty()) continue;
      for (const char* program : kPrograms) {
        for (const char* device : kDevices) {
          Variable variable;
          variable.record = static_cast<uint32_t>(variables.size());
          variable.name = variable_name(variables.size(), type.name);
          variable.type = type.name;
          variable.bits = type.bits;
          variable.sizes = sizes;
          variable.program = program;
          variable.device = device;
          variable.string_length = type.bits == 0 ? kStringLength : 0;
          variables.push_back(variable);
        }
      }
    }
  }
  return variables;
}

std::string tag_lines(const std::vector<Variable>& variables) {
  std::string text;
  for (const Variable& variable : variables) {
    std::string ranges;
    for (const uint32_t size : variable.sizes) ranges += (ranges.empty() ? "[0.." : "_0..") + std::to_string(size - 1);
    if (!ranges.empty()) ranges += "]";
    const bool global = variable.program.empty();
    text += variable.name + "," + variable.type + "," + ranges + "," +
            (variable.string_length > 0 ? std::to_string(variable.string_length) : "") + ",,,," +
            std::to_string(variable.record) + "," + (global ? "1" : "0") + ",0,0," + variable.program +
            (variable.device.empty() ? "" : "," + variable.device) + "\n";
  }
  return text;
}

namespace {

#ifdef PLC_SANITIZED
constexpr int kLoading = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;  // a report names the functions of what is still loaded
#else
constexpr int kLoading = RTLD_NOW | RTLD_LOCAL;
#endif

}  // namespace

Panel::Panel(const std::string& tag_text) : working_directory_(folder_.path()) {
  tag_file_ = folder_.write(kTagFile, tag_text);
  library_ = dlopen(driver_library, kLoading);
  if (library_ == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::abort();
  }
  look_up(library_, "ev_plc_init", &init_);
  look_up(library_, "ev_plc_read", &read_);
  look_up(library_, "ev_plc_write", &write_);
  look_up(library_, "ev_OMRON_plc_read", &batch_);
  context_.recv_timeout_s = is_guarded() ? 2 : 5;
}

Panel::~Panel() { dlclose(library_); }

void Panel::use_port(uint16_t port) {
  settings_ = {0, 0x7F000001, port, 0, 0};
  CapturedOutput output;
  init_(&settings_);
  printed_ += output.take();
}

void Panel::await_late_bytes() const {
  constexpr int kLongestMs = 100;
  pollfd late = {context_.socket_fd, POLLIN, 0};
  if (context_.socket_fd >= 0) poll(&late, 1, kLongestMs);
}

uint32_t Panel::read(uint32_t record, uint32_t offset, uint32_t count, std::vector<uint8_t>* data) {
  constexpr size_t kMostBytes = 4096;
  data->assign(kMostBytes, 0);
  RegRequest request = {0, 0, 0, record << 16 | offset};
  RegValue value = {count, data->data()};
  CapturedOutput output;
  const uint32_t result = read_(&request, &value, &context_);
  printed_ += output.take();
  return result;
}

uint32_t Panel::write(uint32_t record, uint32_t offset, uint32_t count, const std::vector<uint8_t>& data) {
  std::vector<uint8_t> own = data;  // writes of bits may change it
  RegRequest request = {0, 0, 0, record << 16 | offset};
  RegValue value = {count, own.data()};
  CapturedOutput output;
  const uint32_t result = write_(&request, &value, &context_);
  printed_ += output.take();
  return result;
}

uint32_t Panel::batch(std::vector<BatchReadRequest>* elements) {
  CapturedOutput output;
  const uint32_t result = batch_(elements->data(), static_cast<int32_t>(elements->size()), &context_);
  printed_ += output.take();
  return result;
}

uint32_t Panel::read_value(const Variable& variable, uint32_t element, uint32_t* value) {
  std::vector<uint8_t> data;
  const uint32_t units = variable.bits == 64 ? 2 : 1;
  const uint32_t result = read(variable.record, element * units, units, &data);
  *value = static_cast<uint32_t>(data[0]) | static_cast<uint32_t>(data[1]) << 8 | static_cast<uint32_t>(data[2]) << 16 |
           static_cast<uint32_t>(data[3]) << 24;
  return result;
}

std::string Panel::take_printed() { return std::exchange(printed_, std::string()); }

}  // namespace plc_test
