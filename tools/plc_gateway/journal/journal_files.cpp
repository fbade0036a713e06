// Looks at the files of a journal without opening them.
#include "tools/plc_gateway/journal/journal_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string_view>

namespace plc_gateway {
namespace {

constexpr uint64_t kFirstPageBytes = 4096;

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

// 0: it is empty, or there is none.
uint64_t file_bytes(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

// The header of an SQLite database has the version of what reads it behind its page size: 2 needs the log.
bool needs_log(const std::string& database) {
  constexpr std::string_view kMark("SQLite format 3\0", 16);
  std::array<char, 20> head{};  // as far as that version
  std::ifstream(database, std::ios::binary).read(head.data(), head.size());
  return std::string_view(head.data(), kMark.size()) == kMark && head.back() == 2;
}

}  // namespace

std::string problem_with_journal_files(const std::string& folder) {
  std::string problem;
  for (const char* name : {"/journal.sqlite", "/journal.sqlite-wal", "/journal.sqlite-journal"}) {
    if (problem.empty()) problem = problem_with_file(folder + name);
  }
  return problem;
}

std::string no_journal_yet(const std::string& database) {
  return database + ": there is no journal yet; it begins with 'run'";
}

// SQLite makes a log that is missing, deletes that of an empty database, and carries out what an interrupted change has
// left.
std::string problem_with_a_look(const std::string& database) {
  const uint64_t bytes = file_bytes(database);
  const bool has_log = file_bytes(database + "-wal") != 0;
  // The first page of all is made before the log, and the tables behind it.
  if (bytes == 0 || (bytes <= kFirstPageBytes && !has_log)) return no_journal_yet(database);
  if (access((database + "-journal").c_str(), F_OK) == 0) {
    return database + "-journal: an interrupted start has left it; 'run' clears it up";
  }
  if (needs_log(database) && access((database + "-wal").c_str(), F_OK) != 0) {
    return database + "-wal: it is missing, and the last changes with it; 'run' goes on without them";
  }
  return {};
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
