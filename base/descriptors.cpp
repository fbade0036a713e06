// Takes descriptors, and gives them back.
#include "base/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace plc_base {

std::string problem_with_descriptors(size_t count) {
  std::vector<int> taken;
  std::string problem;
  while (taken.size() < count && problem.empty()) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
      taken.push_back(descriptor);
    } else {
      problem = std::strerror(errno);
    }
  }
  for (const int descriptor : taken) close(descriptor);
  return problem;
}

}  // namespace plc_base
