// systemd's protocol, by its own library.
#include "tools/plc_gateway/service/supervisor.h"

#include <systemd/sd-daemon.h>

#include <cstdint>
#include <ctime>

namespace plc_gateway {

void Supervisor::ready() { sd_notify(0, "READY=1"); }

void Supervisor::reloading() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  constexpr int64_t kUsPerSecond = 1000000;
  constexpr int64_t kNsPerUs = 1000;
  const int64_t us = now.tv_sec * kUsPerSecond + now.tv_nsec / kNsPerUs;
  sd_notify(0, ("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(us)).c_str());
}

void Supervisor::stopping() { sd_notify(0, "STOPPING=1"); }

void Supervisor::status(const std::string& text) {
  if (text == status_) return;
  status_ = text;
  sd_notify(0, ("STATUS=" + text).c_str());
}

void Supervisor::feed() { sd_notify(0, "WATCHDOG=1"); }

}  // namespace plc_gateway
