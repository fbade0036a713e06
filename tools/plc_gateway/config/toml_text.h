// A TOML file's text as a table, read on behind lines that cannot be read.
#pragma once

#include <toml++/toml.h>
#include <string>

#include "tools/plc_gateway/config/findings.h"

namespace plc_gateway {

struct TomlText {
  toml::table table;
  // A line was left out, or all behind one: what is missing in the table may stand there.
  bool is_whole = true;
};

// Each line at fault is told. Any bytes are safe.
TomlText parse_toml(const std::string& text, Findings& findings);

Place place_of(const toml::source_region& source);

}  // namespace plc_gateway
