// The password for the broker, as its file has it.
#pragma once

#include <string>

namespace plc_gateway {

// Without the line's end that an editor leaves behind it. Empty, or why no connection can have this password.
std::string read_password(const std::string& path, std::string* password);

}  // namespace plc_gateway
