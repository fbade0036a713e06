// JSON as every program writes it: what is no UTF-8 in it is replaced, for names may hold any bytes and JSON may not;
// what a terminal would obey or hide is escaped.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "base/shown_text.h"

namespace plc_base {

// Either of the library's two kinds of object. With an indent a line per member, without one a single line; no line
// end.
template <typename Json>
std::string json_text(const Json& json, int indent = -1) {
  return shown_json(json.dump(indent, ' ', false, Json::error_handler_t::replace));
}

// A record of a stream that is read line by line.
template <typename Json>
std::string json_line(const Json& json) {
  return json_text(json) + "\n";
}

// The same in ASCII alone, for consoles of any character set.
template <typename Json>
std::string ascii_json_line(const Json& json) {
  return json.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace plc_base
