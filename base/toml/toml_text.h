// A TOML file's text as a table, read on behind lines that cannot be read.
#pragma once

#include <string>

#include "base/toml/findings.h"
#include "base/toml/toml_library.h"

namespace plc_toml {

struct TomlText {
  toml::table table;
  // A line was left out, or all behind one: what is missing in the table may stand there.
  bool is_whole = true;
};

// Each line at fault is told. Any bytes are safe.
TomlText parse_toml(const std::string& text, Findings& findings);

Place place_of(const toml::source_region& source);

// As short as can be read back: "3000", "0.1".
std::string number_text(double number);

// "the integer 5", "a list": what stands there.
std::string form_of(const toml::node& node);

}  // namespace plc_toml
