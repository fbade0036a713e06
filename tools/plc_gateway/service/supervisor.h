// What systemd is told: that the gateway runs, how it is, and that it is alive. Without systemd it does nothing.
#pragma once

#include <string>

namespace plc_gateway {

class Supervisor {
 public:
  void ready();
  void reloading();
  void stopping();
  // One line for people; only changes are told.
  void status(const std::string& text);
  // To be called each second, as long as the gateway does what it is for.
  void feed();

 private:
  std::string status_;
};

}  // namespace plc_gateway
