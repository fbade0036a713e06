// What the system says of an open file.
#pragma once

#include <cstdint>

namespace plc {

struct FileStatus {
  bool is_regular = false;
  int64_t bytes = 0;
};

// False when the system does not say.
bool ask_file_status(int descriptor, FileStatus* status);

}  // namespace plc
