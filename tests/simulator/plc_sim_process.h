// A plc-sim as a process of its own, spoken to through its standard streams and its port.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/wire.h"

namespace plc_sim::test {

class PlcSimProcess {
 public:
  explicit PlcSimProcess(const std::vector<std::string>& arguments);
  ~PlcSimProcess();
  PlcSimProcess(const PlcSimProcess&) = delete;
  PlcSimProcess& operator=(const PlcSimProcess&) = delete;

  std::string read_line();
  // From the line "... http://127.0.0.1:PORT/" or "listening on 127.0.0.1:PORT"; 0 when there is none.
  static uint16_t port_in(const std::string& line);
  // The answer to a command up to its "ok" or error line.
  std::string command(const std::string& line);
  void close_input();
  // Closes the input and waits for the end; the exit code.
  int finish();
  std::string errors();

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  std::string unread_;
  std::string error_text_;
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

// A file in the temporary directory that goes away with this object.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& content);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace plc_sim::test
