// A host as a panel is one: loads the shared library, keeps its records, makes transfers by register number.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "plc_driver.h"
#include "tests/support/temp_dir.h"

namespace plc_test {

// One variable of the tag file that the tests make.
struct Variable {
  uint32_t record = 0;
  std::string name;  // as in the tag file
  std::string type;
  uint32_t bits = 0;            // 0: STRING
  std::vector<uint32_t> sizes;  // extents of its ranges, in declared order; empty for one value
  std::string program;          // empty: global
  std::string device;
  uint32_t string_length = 0;

  uint32_t elements() const;
  // The element's name as plc-sim has it: subscripts in declared order, the last one varies fastest.
  std::string element_name(uint32_t element) const;
  bool is_bool() const { return bits == 1; }
};

// Every type, shape, scope and device kind.
std::vector<Variable> all_variables();

std::string tag_lines(const std::vector<Variable>& variables);

// The library that panels load.
extern const char* const driver_library;

class Panel {
 public:
  // Loads the library and makes a working directory with this tag file. Fails the process when it cannot.
  explicit Panel(const std::string& tag_text);
  Panel(const Panel&) = delete;
  Panel& operator=(const Panel&) = delete;
  ~Panel();

  const std::string& tag_file() const { return tag_file_; }

  // Points the driver at this port of 127.0.0.1.
  void use_port(uint16_t port);

  // Waits until bytes that the controller still owed have come, but not long when it owes none. What comes between the
  // next call's drain and its request would be taken for the reply to it.
  void await_late_bytes() const;

  // Element offset and count are the driver's: 64-bit types in 32-bit units, strings in units of two characters.
  uint32_t read(uint32_t record, uint32_t offset, uint32_t count, std::vector<uint8_t>* data);
  uint32_t write(uint32_t record, uint32_t offset, uint32_t count, const std::vector<uint8_t>& data);
  uint32_t batch(std::vector<BatchReadRequest>* elements);

  // Reads one value; 64-bit values keep their low half.
  uint32_t read_value(const Variable& variable, uint32_t element, uint32_t* value);

  // What the driver has printed since the last call.
  std::string take_printed();

 private:
  TempDir folder_;
  ScopedWorkingDirectory working_directory_;
  std::string tag_file_;
  void* library_ = nullptr;
  std::string printed_;
  CommSettings settings_ = {};
  ConnContext context_ = {};
  decltype(&ev_plc_init) init_ = nullptr;
  decltype(&ev_plc_read) read_ = nullptr;
  decltype(&ev_plc_write) write_ = nullptr;
  decltype(&ev_OMRON_plc_read) batch_ = nullptr;
};

}  // namespace plc_test
