// Where things are reached: the broker's url, the address that the metrics listen on, the topic of the second form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/network_address.h"

namespace plc_gateway {

using HostPort = plc_base::HostPort;

struct BrokerUrl {
  bool tls = false;
  HostPort at;
  std::string problem;  // with the remedy, to be put behind "url"; empty when there is none
};

BrokerUrl parse_broker_url(const std::string& url);

struct ListenAddress {
  std::string host;   // an IPv4 or IPv6 address
  uint16_t port = 0;  // 0: any that is free
  std::string problem;
};

ListenAddress parse_listen(const std::string& text);

// What is wrong with a topic that {name} stands in, with the remedy; empty when nothing is.
std::string topic_problem(const std::string& topic);

}  // namespace plc_gateway
