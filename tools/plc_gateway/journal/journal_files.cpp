// Looks at the files of a journal without opening them.
#include "tools/plc_gateway/journal/journal_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace plc_gateway {
namespace {

// SQLite follows a link and makes what it leads to a database; it waits for the writer of a pipe.
std::string problem_with_file(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) {
    const char* what = S_ISLNK(status.st_mode) ? "it is a symbolic link" : "it is not a regular file";
    return path + ": " + what + "; remove it, or name another folder";
  }
  if (access(path.c_str(), R_OK | W_OK) == 0) return {};
  return "cannot write " + path + ": " + std::strerror(errno) + "; let the gateway's user read and write it";
}

}  // namespace

std::string problem_with_journal_files(const std::string& folder) {
  std::string problem;
  for (const char* name : {"/journal.sqlite", "/journal.sqlite-wal", "/journal.sqlite-journal"}) {
    if (problem.empty()) problem = problem_with_file(folder + name);
  }
  return problem;
}

}  // namespace plc_gateway
