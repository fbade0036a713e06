// Where things are reached: the broker's url, the address that the metrics listen on, the topic of the second form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace plc_gateway {

struct HostPort {
  std::string host;  // without the brackets of an IPv6 address
  std::optional<uint16_t> port;
};

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
