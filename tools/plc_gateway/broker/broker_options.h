// Where the broker is and what it is told of this gateway, and what it says.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tools/plc_gateway/node/seams.h"

namespace plc_gateway {

struct BrokerOptions {
  std::string host;
  uint16_t port = 1883;
  bool tls = false;
  std::string client_id;
  std::string username;
  std::string password_file;  // read before each connect; empty: no password
  std::string ca_file;        // empty: the authorities that the system trusts
  std::string cert_file, key_file;
  uint32_t keep_alive_s = 10;
  bool mqtt5 = false;
};

// Called from the loop, never from inside a call of the port.
struct BrokerEvents {
  std::function<void()> connected;
  std::function<void(const std::string& reason)> disconnected;
  std::function<void(bool ok)> subscribed;
  std::function<void(int id)> acknowledged;
  std::function<void(const Message& message)> message;
  // A message was dropped that is longer than a command can be.
  std::function<void(const std::string& topic, size_t bytes)> too_long;
};

// "HOST:PORT", with brackets around an address that has colons of its own.
std::string broker_place(const BrokerOptions& options);

}  // namespace plc_gateway
