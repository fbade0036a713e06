// A driver library of one controller's own: its state is per loaded copy, so each controller loads one from memory.
#pragma once

#include <string>
#include <vector>

#include "client/driver/driver_library.h"
#include "plc_driver_hooks.h"

namespace plc_client::core {

class PrivateDriver {
 public:
  // choice as for load_driver_library. Throws ClientError, also when the library lacks the hooks.
  explicit PrivateDriver(const std::string& choice);
  // Ends the driver's use and unloads it.
  ~PrivateDriver();
  PrivateDriver(const PrivateDriver&) = delete;
  PrivateDriver& operator=(const PrivateDriver&) = delete;

  const DriverLibrary& library() const { return library_; }

  // From now on take_lines has what the driver says.
  void collect_lines();
  // What the driver has said since the last call, without line ends.
  std::vector<std::string> take_lines();

  decltype(&plc_driver_load_tags) load_tags = nullptr;
  decltype(&plc_driver_connect) connect = nullptr;
  decltype(&plc_driver_release) release = nullptr;

 private:
  void bind();

  int descriptor_ = -1;  // stays open: the loader knows a library by the path that it was opened with
  void* handle_ = nullptr;
  DriverLibrary library_;
  decltype(&plc_driver_set_line_sink) set_line_sink_ = nullptr;
  std::string said_;
};

}  // namespace plc_client::core
