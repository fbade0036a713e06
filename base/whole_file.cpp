// Writes beside the file and renames; opens what is there without following links.
#include "base/whole_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

namespace plc_base {
namespace {

constexpr char kIsLink[] = "it is a symbolic link";
constexpr char kIsNotRegular[] = "it is not a regular file";
constexpr char kIsFolder[] = "it is a folder";
constexpr char kHasOtherNames[] = "it has a second name, a hard link";
constexpr char kNobodyReads[] = "nobody reads this pipe";
constexpr char kIsOutput[] = "standard output goes there too";
constexpr char kIsErrors[] = "standard error goes there too";
constexpr mode_t kPermissions = 0777;
constexpr mode_t kUsualPermissions = 0666;
constexpr mode_t kOwnersPermissions = 0600;
constexpr int kTemporaryNames = 1000;

using Problem = std::string;

Problem last_error() { return std::strerror(errno); }

bool is_status_of(const struct stat& status, const std::vector<std::string>& inputs) {
  return std::any_of(inputs.begin(), inputs.end(), [&status](const std::string& input) {
    struct stat read {};
    return stat(input.c_str(), &read) == 0 && read.st_dev == status.st_dev && read.st_ino == status.st_ino;
  });
}

bool is_stream(const struct stat& status, int stream) {
  struct stat used {};
  return fstat(stream, &used) == 0 && used.st_dev == status.st_dev && used.st_ino == status.st_ino;
}

// Why it is not written to: what this program says would be lost in it, or it reads what it has written.
Problem own_stream_problem(const struct stat& status) {
  if (is_stream(status, STDOUT_FILENO)) return kIsOutput;
  if (is_stream(status, STDERR_FILENO)) return kIsErrors;
  return is_stream(status, STDIN_FILENO) ? kIsInput : "";
}

// Why the file at the path may not be replaced; old is what is there, nothing where nothing is.
Problem look_at_old(const std::string& path, const std::vector<std::string>& inputs, std::optional<struct stat>& old) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return errno == ENOENT ? Problem() : last_error();
  if (S_ISLNK(status.st_mode)) return kIsLink;
  if (S_ISDIR(status.st_mode)) return kIsFolder;
  if (!S_ISREG(status.st_mode)) return kIsNotRegular;
  if (is_status_of(status, inputs)) return kIsInput;
  Problem problem = own_stream_problem(status);
  if (!problem.empty()) return problem;
  // Renaming would ask for the folder's permissions alone.
  if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) return last_error();
  old = status;
  return {};
}

// So long as it lives, what ends the program waits: it would leave a file with a name of ours behind.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&ending, number);
    pthread_sigmask(SIG_BLOCK, &ending, &before_);
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

struct TemporaryFile {
  std::string path;
  int descriptor = -1;
};

// A new file in the folder of path, whatever else has its name.
TemporaryFile make_beside(const std::string& path, mode_t permissions) {
  const std::string start =
      path.substr(0, path.rfind('/') + 1) + ".plc-" + std::to_string(getpid()) + "-";  // npos + 1 is 0
  TemporaryFile file;
  for (int number = 0; number < kTemporaryNames; ++number) {
    file.path = start + std::to_string(number) + ".tmp";
    file.descriptor = open(file.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, permissions);
    if (file.descriptor >= 0 || errno != EEXIST) break;
  }
  return file;
}

bool write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      errno = written == 0 ? EIO : errno;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// Owner and group follow where this process may give them; else the group gets what everybody has.
bool take_over_permissions(int descriptor, const struct stat& old) {
  mode_t permissions = old.st_mode & kPermissions;
  if (fchown(descriptor, old.st_uid, old.st_gid) != 0 && fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) != 0) {
    permissions = (permissions & 0707U) | ((permissions & 07U) << 3U);
  }
  return fchmod(descriptor, permissions) == 0;
}

bool fill(int descriptor, std::string_view bytes, const std::optional<struct stat>& old) {
  const bool is_written =
      write_all(descriptor, bytes) && (!old || take_over_permissions(descriptor, *old)) && fsync(descriptor) == 0;
  const int error = errno;
  const bool is_closed = close(descriptor) == 0;
  if (!is_written) errno = error;
  return is_written && is_closed;
}

// Names that the system gives to what this process has open.
bool is_own_descriptor(std::string_view path) {
  constexpr std::string_view kFolder = "/dev/fd/";
  const bool is_number = path.substr(0, kFolder.size()) == kFolder && path.size() > kFolder.size() &&
                         path.find_first_not_of("0123456789", kFolder.size()) == std::string_view::npos;
  return is_number || path == "/dev/stdout" || path == "/dev/stderr";
}

// Why what this process has open is not opened by such a name: only a pipe is, as a shell makes one for >(PROGRAM).
Problem own_descriptor_problem(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return last_error();
  Problem problem = own_stream_problem(status);
  return problem.empty() && !S_ISFIFO(status.st_mode) ? kIsLink : problem;
}

// Opens what is at the path, or makes it; -1 with errno.
int open_without_wait(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  if (is_own_descriptor(path)) return open(path.c_str(), kFlags);
  const int made = open(path.c_str(), kFlags | O_CREAT | O_EXCL | O_NOFOLLOW, kUsualPermissions);
  return made >= 0 || errno != EEXIST ? made : open(path.c_str(), kFlags | O_NOFOLLOW);
}

Problem why_not_opened(int error) {
  if (error == ELOOP) return kIsLink;
  if (error == EISDIR) return kIsFolder;
  return error == ENXIO ? kNobodyReads : std::strerror(error);
}

// Makes the opened file an empty one, to be written with waits as usual.
Problem make_empty(int descriptor, const std::vector<std::string>& inputs) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return last_error();
  if (is_status_of(status, inputs)) return kIsInput;
  // Devices, such as /dev/null, take what comes from everywhere.
  const bool keeps_order = S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode);
  Problem problem = keeps_order ? own_stream_problem(status) : Problem();
  if (!problem.empty()) return problem;
  if (S_ISREG(status.st_mode)) {
    if (status.st_nlink > 1) return kHasOtherNames;
    if (ftruncate(descriptor, 0) != 0) return last_error();
  }
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0 || fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != 0) return last_error();
  return {};
}

}  // namespace

bool is_one_of(const std::string& path, const std::vector<std::string>& files) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && is_status_of(status, files);
}

std::string write_whole_file(const std::string& path, std::string_view bytes, const std::vector<std::string>& inputs,
                             OldFile old_file) {
  std::optional<struct stat> old;
  Problem problem = look_at_old(path, inputs, old);
  if (!problem.empty()) return problem;
  if (old && old_file == OldFile::kKept) return kFileIsThere;
  const HeldSignals held;
  const TemporaryFile file = make_beside(path, old ? kOwnersPermissions : kUsualPermissions);
  if (file.descriptor < 0) return last_error();
  if (fill(file.descriptor, bytes, old) && rename(file.path.c_str(), path.c_str()) == 0) return {};
  problem = last_error();
  unlink(file.path.c_str());
  return problem;
}

std::string why_not_written(const std::string& path, const std::vector<std::string>& inputs) {
  constexpr std::string_view kSample = "a few bytes, so that a full disk is met";
  std::optional<struct stat> old;
  Problem problem = look_at_old(path, inputs, old);
  if (!problem.empty()) return problem;
  const HeldSignals held;
  const TemporaryFile file = make_beside(path, kOwnersPermissions);
  if (file.descriptor < 0) return last_error();
  if (!fill(file.descriptor, kSample, std::nullopt)) problem = last_error();
  unlink(file.path.c_str());
  return problem;
}

std::string advice_on_output(const std::string& problem) {
  struct Advice {
    std::string problem;
    const char* text;
  };
  const Advice kAdvice[] = {
      {kIsFolder, "name a file in it"},
      {kIsLink, "name the file that it leads to"},
      {kIsInput, "name another file"},
      {kIsNotRegular, "name a file"},
      {kHasOtherNames, "name another file"},
      {kIsOutput, "name another file"},
      {kIsErrors, "name another file"},
      {std::strerror(ENOENT), "make its folder first, or name another one"},
      {std::strerror(ENOTDIR), "name a file in a folder"},
      {std::strerror(EACCES), "name a file where you may write"},
      {std::strerror(EPERM), "name a file where you may write"},
      {std::strerror(EROFS), "name a file where you may write"},
      {std::strerror(ENOSPC), "make room, or name a file on another disk"},
      {std::strerror(EDQUOT), "make room, or name a file on another disk"},
      {std::strerror(EFBIG), "let files be larger (ulimit -f), or do without it"},
      {std::strerror(ENAMETOOLONG), "name it shorter"},
  };
  for (const Advice& advice : kAdvice) {
    if (advice.problem == problem) return advice.text;
  }
  return {};
}

OpenedFile open_growing_file(const std::string& path, const std::vector<std::string>& inputs) {
  Problem problem = is_own_descriptor(path) ? own_descriptor_problem(path) : Problem();
  if (!problem.empty()) return {-1, std::move(problem)};
  const int descriptor = open_without_wait(path);
  if (descriptor < 0) return {-1, why_not_opened(errno)};
  problem = make_empty(descriptor, inputs);
  if (problem.empty()) return {descriptor, {}};
  close(descriptor);
  return {-1, std::move(problem)};
}

}  // namespace plc_base
