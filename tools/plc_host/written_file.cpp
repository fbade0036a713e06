// Words what keeps a file from being written, with what to do.
#include "tools/plc_host/written_file.h"

#include <sys/stat.h>

#include "base/text.h"
#include "base/whole_file.h"

namespace plc_host {

HostError unwritten(const std::string& path, const std::string& problem) {
  std::string text = "cannot write " + plc_base::told_name(path) + ": " + problem;
  const std::string advice = plc_base::advice_on_output(problem);
  if (!advice.empty()) text += ". Try: " + advice;
  if (problem == plc_base::kFileIsThere) text += "; add --overwrite if it is to be replaced";
  return {kExitOutput, text};
}

void demand_apart(const std::string& path, const ResultFile& results) {
  struct stat named {};
  struct stat shown {};
  if (stat(path.c_str(), &named) != 0 || fstat(results.descriptor(), &shown) != 0) return;
  if (!S_ISREG(named.st_mode) || named.st_dev != shown.st_dev || named.st_ino != shown.st_ino) return;
  throw HostError(kExitOutput, "cannot write " + plc_base::told_name(path) +
                                   ": standard output goes there too. Try: name another file");
}

}  // namespace plc_host
