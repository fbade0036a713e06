// The plc-sim of this build as a process of its own, and what a test needs to speak to its port.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/sim_process.h"
#include "tests/support/temp_dir.h"
#include "wire/wire.h"

namespace plc_sim::test {

// The plc-sim of this build; its standard error is kept.
class PlcSimProcess : public plc_test::SimProcess {
 public:
  explicit PlcSimProcess(const std::vector<std::string>& arguments);
};

// A blocking connection to a port of this machine.
class HostSocket {
 public:
  explicit HostSocket(uint16_t port);
  ~HostSocket();
  HostSocket(const HostSocket&) = delete;
  HostSocket& operator=(const HostSocket&) = delete;

  bool is_connected() const { return descriptor_ >= 0; }
  void send(const Bytes& bytes) const;
  // What one receive gives; empty at the end of the connection or after 5 seconds.
  Bytes receive() const;
  Bytes exchange(std::string_view frame) const;
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

// Whether a connect to a port of this machine is done within so many milliseconds.
bool connects_within(uint16_t port, int milliseconds);

// A file that goes away with this object.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& content) : path_(folder_.write("file", content)) {}
  const std::string& path() const { return path_; }

 private:
  plc_test::TempDir folder_;
  std::string path_;
};

}  // namespace plc_sim::test
