// The standard's topics of one edge node with one device.
#pragma once

#include <string>

namespace plc_gateway {

struct Topics {
  Topics() = default;
  Topics(const std::string& group, const std::string& edge_node, const std::string& device,
         const std::string& primary_host);

  std::string node_birth, node_death, node_data, node_command;
  std::string device_birth, device_death, device_data, device_command;
  std::string host_state;  // of the primary host; empty without one
  std::string fence;       // of the gateway's own: outside of the standard's namespace
};

// Empty when the text can be an id in a topic, else what is wrong with it.
std::string id_problem(const std::string& id);

// Why a topic cannot hold the name of a variable, "holds ..."; empty when it can.
std::string name_in_topic_problem(const std::string& name);

}  // namespace plc_gateway
