// Makes, guards and fills the folder.
#include "tools/plc_host/commands/survey_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "profile/profile_file.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey_report/survey_report.h"

namespace plc_host {
namespace {

constexpr char kCaptureFile[] = "survey.pcapng";
constexpr char kNewCaptureFile[] = "survey.pcapng.new";  // until it takes the place of a former one
constexpr char kProfileFile[] = "profile.toml";
constexpr const char* kFiles[] = {"report.html", "report.json", kCaptureFile, kNewCaptureFile, kProfileFile};

bool is_survey_file(const std::string& name) {
  return std::find(std::begin(kFiles), std::end(kFiles), name) != std::end(kFiles);
}

[[noreturn]] void refuse_folder(const std::string& folder, const std::string& reason) {
  throw HostError(kExitOutput, "--output " + folder + ": " + reason);
}

bool has_measured(const survey::SurveyRecord& record) {
  return record.heads.replies > 0 && !survey::is_foreign(record.heads);
}

}  // namespace

SurveyFolder::SurveyFolder(const SurveyOptions& options) {
  namespace fs = std::filesystem;
  fs::path folder = fs::absolute(options.folder).lexically_normal();
  if (!folder.has_filename()) folder = folder.parent_path();  // a slash at the end would hide a link
  path_ = folder;
  std::error_code error;
  if (fs::is_symlink(fs::symlink_status(folder, error))) {
    refuse_folder(options.folder, "it is a symbolic link: name the folder that it leads to");
  }
  if (!fs::exists(fs::status(folder, error))) fs::create_directory(folder, error);
  if (error) refuse_folder(options.folder, error.message());
  if (!fs::is_directory(fs::status(folder, error))) refuse_folder(options.folder, "it is not a folder");
  take_lock(options.folder);
  look_at_files(options);
}

SurveyFolder::Lock::~Lock() {
  if (descriptor >= 0) ::close(descriptor);
}

// Whoever comes second would mix its files with those of the first. The lock ends with the program, however that ends.
void SurveyFolder::take_lock(const std::string& given) {
  lock_.descriptor = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (lock_.descriptor < 0) refuse_folder(given, std::strerror(errno));
  // A file system that has no locks is no reason against a survey.
  if (::flock(lock_.descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
  throw HostError(kExitOutput, "cannot write into " + path_ +
                                   ": another survey writes there: wait for its end, or name another folder");
}

void SurveyFolder::look_at_files(const SurveyOptions& options) {
  std::error_code error;
  std::filesystem::directory_iterator files(path_, error);
  if (error) refuse_folder(options.folder, error.message());
  for (const std::filesystem::directory_entry& entry : files) {
    const std::string name = entry.path().filename();
    if (!is_survey_file(name)) {
      refuse_folder(options.folder, "it holds " + name + ", which is no survey's: name another folder");
    }
    if (!options.replaces) {
      refuse_folder(options.folder, "it holds a survey: name another folder, or --replace");
    }
    has_former_ = true;
  }
}

std::string SurveyFolder::capture_path() const { return path_ + "/" + (has_former_ ? kNewCaptureFile : kCaptureFile); }

bool SurveyFolder::take(const survey::SurveyRecord& record, plc_sim::PcapngWriter& capture,
                        const std::vector<std::string>& tag_files) const {
  std::string problems;
  const auto add = [&problems](const std::string& name, const std::string& problem) {
    if (problem.empty()) return;
    problems.append(problems.empty() ? "" : "; ").append(name).append(name.empty() ? "" : ": ").append(problem);
  };
  add(kCaptureFile, capture.close());
  if (has_former_ && !has_measured(record)) {
    std::remove(capture_path().c_str());
    return false;
  }
  const std::string capture_file = path_ + "/" + kCaptureFile;
  if (has_former_ && std::rename(capture_path().c_str(), capture_file.c_str()) != 0) {
    add(kCaptureFile, std::strerror(errno));
  }
  add("", survey::write_reports(record, path_));
  add(kProfileFile, plc_profile::write_profile(path_ + "/" + kProfileFile, survey::make_profile(record), tag_files));
  if (!problems.empty()) throw HostError(kExitOutput, "cannot write into " + path_ + ": " + problems);
  return true;
}

}  // namespace plc_host
