// A word of a command line that users may type again.
#pragma once

#include <string>

namespace plc_host {

// As a shell takes it: in quotes where it has to be.
std::string shell_word(const std::string& word);

}  // namespace plc_host
