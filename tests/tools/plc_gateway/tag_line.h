// A line of a tag file.
#pragma once

#include <string>

namespace plc_gateway_test {

inline std::string tag_line(const std::string& name, const std::string& type, const std::string& range = "",
                            const std::string& length = "", const std::string& program = "") {
  const bool is_global = program.empty();
  return name + "," + type + "," + range + "," + length + ",,,,0," + (is_global ? "1,0,0," : "0,0,1,") + program + "\n";
}

}  // namespace plc_gateway_test
