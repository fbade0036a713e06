// Makes and removes the private folder.
#include "client/driver/work_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/text.h"
#include "client/client_error.h"

namespace plc_client::core {
namespace {

std::string absolute_path(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) {
    throw ClientError(ClientError::Kind::kTagFile,
                      "cannot open " + plc_base::told_name(path) + ": " + std::strerror(errno));
  }
  std::string absolute = resolved;
  std::free(resolved);
  if (access(absolute.c_str(), R_OK) != 0) {
    throw ClientError(ClientError::Kind::kTagFile,
                      "cannot read " + plc_base::told_name(path) + ": " + std::strerror(errno));
  }
  return absolute;
}

constexpr char kAnotherFolder[] = ". Try: TMPDIR=FOLDER, one that this user may write to";

// For mkdtemp, which puts other signs in the place of the X.
std::string folder_pattern(const std::string& owner) {
  const char* parent = std::getenv("TMPDIR");
  return std::string(parent != nullptr && *parent == '/' ? parent : "/tmp") + "/" + owner + ".XXXXXX";
}

}  // namespace

WorkFolder::WorkFolder(const std::string& tag_file, const std::string& link_name, const std::string& owner,
                       Complain complain)
    : complain_(std::move(complain)) {
  const std::string target = absolute_path(tag_file);
  // Behind its making nothing takes memory: whoever finds none must find no folder either.
  folder_ = folder_pattern(owner);
  link_ = folder_ + "/" + link_name;
  previous_ = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (mkdtemp(folder_.data()) == nullptr) {
    const int error = errno;
    if (previous_ >= 0) close(previous_);
    throw ClientError(ClientError::Kind::kOutput, "cannot make a folder like " + folder_pattern(owner) + ": " +
                                                      std::strerror(error) + kAnotherFolder);
  }
  link_.replace(0, folder_.size(), folder_);
  if (symlink(target.c_str(), link_.c_str()) != 0 || chdir(folder_.c_str()) != 0) {
    const int error = errno;
    remove();
    throw ClientError(ClientError::Kind::kOutput,
                      "cannot use the folder " + folder_ + ": " + std::strerror(error) + kAnotherFolder);
  }
}

WorkFolder::~WorkFolder() {
  if (previous_ < 0 || fchdir(previous_) != 0) {
    // The folder can be removed from anywhere: only its name is used.
    complain_("cannot go back to the working directory");
  }
  remove();
}

void WorkFolder::remove() {
  unlink(link_.c_str());
  rmdir(folder_.c_str());
  if (previous_ >= 0) close(previous_);
}

}  // namespace plc_client::core
