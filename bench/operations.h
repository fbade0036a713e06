// The operations that are measured: what a host calls, prepared once and repeated.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "plc_driver.h"

namespace bench {

// A stream to the program's standard output, which from now on takes nothing else: the driver's lines are dropped.
std::FILE* take_standard_output();

// The driver's functions.
struct Driver {
  uint32_t (*init)(CommSettings* settings) = ev_plc_init;
  uint32_t (*read)(RegRequest* request, RegValue* value, ConnContext* conn) = ev_plc_read;
  uint32_t (*write)(RegRequest* request, RegValue* value, ConnContext* conn) = ev_plc_write;
  uint32_t (*read_batch)(BatchReadRequest* elements, int32_t count, ConnContext* conn) = ev_OMRON_plc_read;
};

// Those of another library, with state of its own. Ends the program when it cannot be loaded.
Driver load_driver(const char* path);

// A host on the driver, with a tag file in a temporary folder that it makes its working directory.
class Host {
 public:
  // Connects to the peer on this port with the first transfer.
  explicit Host(uint16_t port, const Driver& driver = {});
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host();

  // One operation; returns the driver's result code.
  using Operation = uint32_t (Host::*)();
  struct NamedOperation {
    const char* name;
    Operation operation;
  };

  // All operations, in the order in which they are reported.
  static const std::vector<NamedOperation>& operations();

  // The operation of this name. Ends the program when there is none.
  static Operation find_operation(const std::string& name);

  // Performs it count times. Ends the program when one fails.
  void repeat(Operation operation, uint32_t count);

  int socket_fd() const { return conn_.socket_fd; }

 private:
  uint32_t read_one();
  uint32_t write_one();
  uint32_t read_array();
  uint32_t read_grid();
  uint32_t read_japanese();
  uint32_t read_registers();
  uint32_t read_elements();

  uint32_t read(uint32_t id, uint32_t count);
  uint32_t read_batch(uint32_t first_id, uint32_t id_step);

  Driver driver_;
  CommSettings settings_{};
  ConnContext conn_{};
  std::vector<uint8_t> values_;
  std::vector<BatchReadRequest> batch_;
  std::string folder_;
};

}  // namespace bench
