// The standard's topics, put together once.
#include "tools/plc_gateway/sparkplug/topics.h"

#include "base/shown_text.h"

namespace plc_gateway {

Topics::Topics(const std::string& group, const std::string& edge_node, const std::string& device,
               const std::string& primary_host) {
  const auto of_node = [&](const char* type) { return "spBv1.0/" + group + "/" + type + "/" + edge_node; };
  const auto of_device = [&](const char* type) { return of_node(type) + "/" + device; };
  node_birth = of_node("NBIRTH");
  node_death = of_node("NDEATH");
  node_data = of_node("NDATA");
  node_command = of_node("NCMD");
  device_birth = of_device("DBIRTH");
  device_death = of_device("DDEATH");
  device_data = of_device("DDATA");
  device_command = of_device("DCMD");
  if (!primary_host.empty()) host_state = "spBv1.0/STATE/" + primary_host;
  fence = "plc-gateway/" + group + "/" + edge_node + "/fence";
}

std::string id_problem(const std::string& id) {
  if (id.empty()) return "is empty";
  for (const char c : id) {
    if (c == '+' || c == '/' || c == '#') return std::string("holds '") + c + "', which topics give a meaning";
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "holds a control character";
  }
  const std::string hidden = plc_base::first_hidden(id);
  return hidden.empty() ? std::string() : "holds the hidden character " + hidden;
}

std::string name_in_topic_problem(const std::string& name) {
  if (name.find_first_of("+#") != std::string::npos) return "holds + or #, which no topic may";
  const std::string hidden = plc_base::first_hidden(name);
  return hidden.empty() ? std::string() : "holds the hidden character " + hidden;
}

}  // namespace plc_gateway
