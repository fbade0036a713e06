// How long the messages are that a broker must take, births above all.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

// A birth that is longer is told of: a broker may take less, and drop it without a word.
constexpr size_t kLongBirthBytes = size_t{256} * 1024;

// The whole message of MQTT 5, with its topic. That of 3.1.1 is shorter by a byte.
size_t message_bytes(const std::string& topic, size_t payload_bytes, int qos);

// "DBIRTH" of a topic of the standard; any other topic as it is.
std::string message_name(const std::string& topic);

// No DBIRTH is longer, as long as the journal holds no variables of an earlier configuration: its texts have the most
// bytes that they are declared with. NBIRTH is always short.
size_t most_device_birth_bytes(const std::string& topic, const std::vector<Variable>& variables);

// What the broker needs to take a message of that length.
std::string room_for_message(size_t bytes);

}  // namespace plc_gateway
