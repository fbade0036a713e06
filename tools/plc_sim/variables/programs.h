// The programs that own local variables: their numbers and their order in the directory.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/plc_sim/variables/tag_reader.h"

namespace plc_sim {

struct Program {
  uint8_t number;
  std::string name;
};

enum class DirectoryOrder { kLongestFirst, kFile };

// Numbers given here win over those in the tags, and what has neither gets the lowest free one. Programs that are only
// given, with no tag of their own, are in the directory too.
std::vector<Program> make_directory(const std::vector<TagDeclaration>& tags,
                                    const std::map<std::string, uint8_t>& given, DirectoryOrder order);

}  // namespace plc_sim
