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

#include "base/whole_file.h"
#include "profile/profile_file.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey_report/survey_report.h"

namespace plc_host {
namespace {

constexpr char kCaptureFile[] = "survey.pcapng";
constexpr char kProfileFile[] = "profile.toml";
constexpr char kNew[] = ".new";  // behind the names of files until they take the places of former ones
constexpr const char* kFiles[] = {"report.html", "report.json", kProfileFile, kCaptureFile};

bool is_survey_file(const std::string& name) {
  const auto is_name = [&name](const char* file) { return name == file || name == std::string(file) + kNew; };
  return std::any_of(std::begin(kFiles), std::end(kFiles), is_name);
}

void remove_new_files(const std::string& folder) {
  for (const char* file : kFiles) std::remove((folder + "/" + file + kNew).c_str());
}

// Each new file has the permissions of the one whose place it takes, as a file that is written over.
void take_permissions(const std::string& from, const std::string& to) {
  std::error_code error;
  const std::filesystem::file_status former = std::filesystem::symlink_status(from, error);
  if (std::filesystem::is_regular_file(former)) std::filesystem::permissions(to, former.permissions(), error);
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
  std::vector<std::string> former;
  for (const std::filesystem::directory_entry& entry : files) {
    const std::string name = entry.path().filename();
    if (!is_survey_file(name)) {
      refuse_folder(options.folder, "it holds " + name + ", which is no survey's: name another folder");
    }
    former.push_back(name);
  }
  if (!former.empty() && !options.replaces) {
    refuse_folder(options.folder, "it holds a survey: name another folder, or --replace");
  }
  for (const std::string& name : former) {
    const std::string problem = plc_base::why_not_written(std::string(path_).append("/").append(name), {});
    if (!problem.empty()) {
      std::string reason = name;
      refuse_folder(options.folder,
                    reason.append(" cannot be replaced: ").append(problem).append(". Name another folder"));
    }
  }
  has_former_ = !former.empty();
}

std::string SurveyFolder::capture_path() const { return path_ + "/" + kCaptureFile + (has_former_ ? kNew : ""); }

// What went wrong of the files beside the capture; "" when all are there.
std::string SurveyFolder::write_files(const survey::SurveyRecord& record, const std::vector<std::string>& tag_files,
                                      const std::string& suffix) const {
  std::string problems = survey::write_reports(record, path_, suffix);
  const std::string problem =
      plc_profile::write_profile(path_ + "/" + kProfileFile + suffix, survey::make_profile(record), tag_files);
  if (problem.empty()) return problems;
  return problems.append(problems.empty() ? "" : "; ").append(kProfileFile).append(": ").append(problem);
}

// What is in the way of a new file at the place of a former one.
std::string SurveyFolder::former_problems(const std::vector<std::string>& tag_files) const {
  std::string problems;
  for (const char* file : kFiles) {
    if (file == kCaptureFile) continue;
    const std::string problem = plc_base::why_not_written(path_ + "/" + file, tag_files);
    if (!problem.empty()) problems.append(problems.empty() ? "" : "; ").append(file).append(": ").append(problem);
  }
  return problems;
}

// All are whole under other names before the first takes its place.
void SurveyFolder::replace_former(const survey::SurveyRecord& record, const std::string& capture_problem,
                                  const std::vector<std::string>& tag_files) const {
  std::string problems = capture_problem;
  if (problems.empty()) problems = former_problems(tag_files);
  if (problems.empty()) problems = write_files(record, tag_files, kNew);
  if (!problems.empty()) {
    remove_new_files(path_);
    throw HostError(kExitOutput, "cannot write into " + path_ + ": " + problems +
                                     ". The former survey stays there whole, and this one is lost: make room, and "
                                     "survey again into another folder");
  }
  for (const char* file : kFiles) {
    const std::string place = path_ + "/" + file;
    take_permissions(place, place + kNew);
    if (std::rename((place + kNew).c_str(), place.c_str()) == 0) continue;
    throw HostError(kExitOutput, "cannot write into " + path_ + ": " + file + ": " + std::strerror(errno) +
                                     ". Files of two surveys are there; those of this one that had no place end in " +
                                     kNew);
  }
}

bool SurveyFolder::take(survey::SurveyRecord& record, plc_sim::PcapngWriter& capture,
                        const std::vector<std::string>& tag_files) const {
  record.capture_problem = capture.close();
  if (has_former_ && !has_measured(record)) {
    remove_new_files(path_);
    return false;
  }
  std::string problems;
  if (!record.capture_problem.empty()) {
    problems = std::string(kCaptureFile) + ": " + record.capture_problem + (has_former_ ? "" : ", so that it is cut");
  }
  if (has_former_) {
    replace_former(record, problems, tag_files);
    return true;
  }
  const std::string of_files = write_files(record, tag_files, "");
  problems.append(problems.empty() || of_files.empty() ? "" : "; ").append(of_files);
  if (!problems.empty()) throw HostError(kExitOutput, "cannot write into " + path_ + ": " + problems);
  return true;
}

}  // namespace plc_host
