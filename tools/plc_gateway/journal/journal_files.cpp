// Looks at the files of a journal without opening them.
#include "tools/plc_gateway/journal/journal_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

JournalPlaces::JournalPlaces(const std::string& database) {
  for (const char* suffix : {"", "-wal"}) {
    struct stat status {};
    const std::string path = database + suffix;
    if (stat(path.c_str(), &status) == 0) places_.push_back({path, status.st_dev, status.st_ino});
  }
}

bool JournalPlaces::are_left() const {
  return std::any_of(places_.begin(), places_.end(), [](const Place& place) {
    struct stat status {};
    if (stat(place.path.c_str(), &status) != 0) return errno == ENOENT || errno == ENOTDIR;
    return status.st_dev != place.device || status.st_ino != place.file;
  });
}

}  // namespace plc_gateway
