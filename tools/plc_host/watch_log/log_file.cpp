// Opens without following links, locks, appends and renames.
#include "tools/plc_host/watch_log/log_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "base/whole_file.h"

namespace plc_host {
namespace {

constexpr size_t kDayLength = 10;                        // of "2026-11-21"
constexpr size_t kMostLookedAt = size_t{1} << 20U;       // at the end of a log that goes on
constexpr char kNamePattern[] = "dddddddd-dddddd.dddZ";  // of the time in a name: 20261121-205300.237Z
constexpr std::string_view kDigits = "0123456789";

std::string last_error() { return std::strerror(errno); }

// What the shell sends there would write over the rows.
bool is_stream(const struct stat& file, int stream) {
  struct stat status {};
  return fstat(stream, &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino;
}

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// "week" and ".csv": what stands before and behind the time in the name of a file put aside.
struct NameParts {
  std::string start;
  std::string end;
};

NameParts parts_of(const std::string& path) {
  const size_t name = path.rfind('/') + 1;  // npos + 1 is 0
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || dot <= name) return {path + ".", ""};
  return {path.substr(0, dot + 1), path.substr(dot)};
}

std::string time_in_name(WallTime time) {
  std::string text = utc_time_text(time);  // 2026-11-21T20:53:00.237Z
  text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '-' || c == ':'; }), text.end());
  text.at(text.find('T')) = '-';
  return text;
}

bool is_time_in_name(std::string_view text) {
  const std::string_view pattern(kNamePattern);
  return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(), [](char c, char wanted) {
    return wanted == 'd' ? kDigits.find(c) != std::string_view::npos : c == wanted;
  });
}

std::string read_at(int descriptor, uint64_t from, size_t count) {
  std::string text(count, '\0');
  size_t done = 0;
  while (done < count) {
    const ssize_t got = pread(descriptor, text.data() + done, count - done, static_cast<off_t>(from + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  text.resize(done);
  return text;
}

// Whether a log of this program, which nobody has another name for, is there.
bool is_log(const std::string& path, const std::string& heading) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return false;
  struct stat status {};
  const bool is_own = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
  const std::string start = is_own ? read_at(descriptor, 0, heading.size()) : "";
  close(descriptor);
  return is_own && start == heading;
}

// "120kB": as much at least.
std::string kilobytes_text(uint64_t bytes) { return std::to_string((bytes + 999) / 1000) + "kB"; }

// Renames, never over a file. Some file systems cannot promise that: there it is looked at before.
bool rename_to_free(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  struct stat status {};
  if (lstat(to.c_str(), &status) == 0) {
    errno = EEXIST;
    return false;
  }
  return rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

LogFile::LogFile(LogFileRules rules, Tell tell) : LogFile(std::move(rules), std::move(tell), ::write) {}

LogFile::LogFile(LogFileRules rules, Tell tell, WriteCall write_call)
    : rules_(std::move(rules)), tell_(std::move(tell)), write_call_(std::move(write_call)) {}

LogFile::~LogFile() { close_file(); }

void LogFile::close_file() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
}

std::string LogFile::open() {
  close_file();
  constexpr int kFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  int opened = ::open(rules_.path.c_str(), kFlags | O_CREAT | O_EXCL, 0666);
  if (opened < 0 && errno == EEXIST) opened = ::open(rules_.path.c_str(), kFlags);
  if (opened < 0) {
    const int error = errno;
    const std::string known = plc_base::why_not_written(rules_.path, rules_.inputs);
    return known.empty() ? std::strerror(error) : known;
  }
  std::string problem = take_opened(opened);
  if (!problem.empty()) close_file();
  return problem;
}

std::string LogFile::take_opened(int descriptor) {
  descriptor_ = descriptor;
  struct stat status {};
  if (fstat(descriptor_, &status) != 0) return last_error();
  if (!S_ISREG(status.st_mode)) return "it is not a regular file";
  if (status.st_nlink > 1) return "it has a second name, a hard link";
  if (plc_base::is_one_of(rules_.path, rules_.inputs)) return "it is a file that is read";
  if (is_stream(status, rules_.output)) return "standard output goes there too. Try: name another file";
  if (is_stream(status, STDERR_FILENO)) return "standard error goes there too. Try: name another file";
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) return "another program writes it";
  past_ = {};
  day_.clear();
  is_cut_ = false;
  size_ = static_cast<uint64_t>(status.st_size);
  begin_size_ = rules_.heading.size();
  return look_at_rows();
}

// What was cut off, by a power failure for one, is taken away: half a number is another number.
std::string LogFile::look_at_rows() {
  const std::string start = read_at(descriptor_, 0, rules_.heading.size());
  if (start != rules_.heading.substr(0, start.size())) return "it is there and is not a log of plc-host";
  if (start.size() < rules_.heading.size()) {
    is_cut_ = size_ > 0;
    size_ = 0;
    return take_back_cut_row();
  }
  const size_t count = static_cast<size_t>(std::min<uint64_t>(size_, kMostLookedAt));
  const std::string tail = read_at(descriptor_, size_ - count, count);
  const size_t end = tail.rfind('\n');
  if (end == std::string::npos) return "it is there and is not a log of plc-host";
  past_.last_row_cut = is_cut_ = end + 1 < tail.size();
  size_ -= tail.size() - (end + 1);
  past_.has_rows = size_ > rules_.heading.size();
  const size_t before = end > 0 && past_.has_rows ? tail.rfind('\n', end - 1) : std::string::npos;
  if (before != std::string::npos) past_.last_row = tail.substr(before + 1, end - before - 1);
  day_ = past_.last_row.substr(0, kDayLength);
  return take_back_cut_row();
}

std::string LogFile::take_back_cut_row() {
  if (!is_cut_) return {};
  if (ftruncate(descriptor_, static_cast<off_t>(size_)) != 0) return last_error();
  is_cut_ = false;
  return {};
}

std::string LogFile::write_row(std::string_view row) {
  std::string problem = take_back_cut_row();
  if (!problem.empty()) return problem;
  size_t done = 0;
  while (done < row.size()) {
    const ssize_t written = write_call_(descriptor_, row.data() + done, row.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      std::string reason = std::strerror(written == 0 ? EIO : errno);
      is_cut_ = done > 0;
      take_back_cut_row();
      return reason;
    }
    done += static_cast<size_t>(written);
  }
  size_ += row.size();
  return {};
}

bool LogFile::is_at_path() const {
  struct stat opened {};
  struct stat named {};
  return fstat(descriptor_, &opened) == 0 && lstat(rules_.path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

// A file that somebody emptied begins anew: rows without a heading would be no log.
void LogFile::note_emptied() {
  struct stat status {};
  if (size_ == 0 || fstat(descriptor_, &status) != 0 || status.st_size != 0) return;
  size_ = 0;
  is_cut_ = false;
  day_.clear();
  begin_size_ = rules_.heading.size();
  tell_(rules_.path + " was emptied; the log goes on in it from the heading");
}

// Rows of a file that somebody removed or renamed would be lost.
std::string LogFile::reopen_where_taken_away() {
  if (descriptor_ >= 0 && is_at_path()) {
    note_emptied();
    return {};
  }
  const bool was_open = descriptor_ >= 0;
  std::string problem = open();
  if (was_open && problem.empty()) tell_(rules_.path + " was taken away; the log goes on in a new file");
  return problem;
}

bool LogFile::is_due(size_t more, std::string_view day) const {
  if (size_ <= begin_size_) return false;
  if (rules_.daily && !day_.empty() && day_ != day) return true;
  return rules_.most_bytes > 0 && size_ + more > rules_.most_bytes;
}

std::string LogFile::append(const std::string& row, WallTime time) {
  std::string problem = reopen_where_taken_away();
  if (!problem.empty()) return problem;
  const std::string day = row.substr(0, kDayLength);
  if (is_due(row.size(), day)) problem = put_aside(time);
  if (!problem.empty()) return problem;
  if (size_ == 0) problem = begin_file(time);
  if (!problem.empty()) return problem;
  problem = write_row(row);
  if (problem.empty()) day_ = day;
  return problem;
}

std::string LogFile::begin_file(WallTime time) {
  std::string problem = write_row(rules_.heading);
  if (!problem.empty() || !first_rows_) return problem;
  const std::string rows = first_rows_(time);
  if (rows.empty()) return {};
  if (rules_.most_bytes > 0 && 2 * (rules_.heading.size() + rows.size()) > rules_.most_bytes) {
    if (!has_told_of_room_) {
      tell_(rules_.path + " begins without the values so far: they would take more than half of it. Try: --rotate " +
            kilobytes_text(4 * (rules_.heading.size() + rows.size())));
    }
    has_told_of_room_ = true;
    return {};
  }
  problem = write_row(rows);
  if (!problem.empty()) return problem;
  begin_size_ = size_;
  first_rows_written_ += static_cast<uint64_t>(std::count(rows.begin(), rows.end(), '\n'));
  return {};
}

std::vector<std::string> LogFile::files_put_aside() const {
  const NameParts parts = parts_of(rules_.path);
  const size_t folder_end = rules_.path.rfind('/') + 1;
  const std::string start = parts.start.substr(folder_end);
  const size_t time_length = std::strlen(kNamePattern);
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(folder_of(rules_.path).c_str()), closedir);
  if (folder == nullptr) return names;
  while (const struct dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    const bool fits = name.size() == start.size() + time_length + parts.end.size() &&
                      name.compare(0, start.size(), start) == 0 &&
                      name.compare(start.size() + time_length, std::string::npos, parts.end) == 0 &&
                      is_time_in_name(std::string_view(name).substr(start.size(), time_length));
    if (fits) names.push_back(rules_.path.substr(0, folder_end) + name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Behind those that are there, so that the order of names is that of rows also where the clock was put back.
std::string LogFile::free_name(WallTime time) const {
  const NameParts parts = parts_of(rules_.path);
  const std::vector<std::string> names = files_put_aside();
  std::string name = parts.start + time_in_name(time) + parts.end;
  if (names.empty() || names.back() < name) return name;
  // The number of the last one and 1, as a decimal: what stands there need be no time that a clock shows.
  name = names.back();
  for (size_t i = name.size() - parts.end.size(); i-- > parts.start.size();) {
    if (kDigits.find(name[i]) == std::string_view::npos) continue;
    name[i] = name[i] == '9' ? '0' : static_cast<char>(name[i] + 1);
    if (name[i] != '0') break;
  }
  return name;
}

std::string LogFile::put_aside(WallTime time) {
  std::string problem = take_back_cut_row();
  if (!problem.empty()) return problem;
  if (!rename_to_free(rules_.path, free_name(time))) {
    tell_once(rules_.path + " cannot be put aside, it grows on: " + last_error());
    return {};
  }
  told_.clear();
  std::string opened = open();
  remove_surplus();
  return opened;
}

void LogFile::remove_surplus() {
  if (rules_.kept == 0) return;
  std::vector<std::string> names = files_put_aside();
  const auto is_foreign = [this](const std::string& name) { return !is_log(name, rules_.heading); };
  names.erase(std::remove_if(names.begin(), names.end(), is_foreign), names.end());
  for (size_t i = 0; i + rules_.kept < names.size(); ++i) {
    if (unlink(names[i].c_str()) != 0) tell_once(names[i] + " cannot be removed: " + last_error());
  }
}

void LogFile::tell_once(const std::string& text) {
  if (text != told_) tell_(text);
  told_ = text;
}

}  // namespace plc_host
