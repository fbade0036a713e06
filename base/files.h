// Whole files in memory.
#pragma once

#include <cstddef>
#include <string>

namespace plc_base {

struct FileText {
  std::string text;     // empty when there is a problem
  std::string problem;  // "cannot read PATH", with the reason where it is the size; empty when all of the file is there
};

// The bytes of a file, a pipe or a device, so many at most.
FileText read_file(const std::string& path, size_t most_bytes);

}  // namespace plc_base
