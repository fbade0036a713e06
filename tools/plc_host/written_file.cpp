// Words what keeps a file from being written, with what to do.
#include "tools/plc_host/written_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "base/files.h"
#include "base/text.h"
#include "base/whole_file.h"

namespace plc_host {
namespace {

// The first bytes of pcap files in both byte orders, with times in microseconds and in nanoseconds, and of pcapng.
constexpr std::array<std::string_view, 5> kBeginnings = {"\xD4\xC3\xB2\xA1", "\xA1\xB2\xC3\xD4", "\x4D\x3C\xB2\xA1",
                                                         "\xA1\xB2\x3C\x4D", "\x0A\x0D\x0D\x0A"};

bool begins_like_capture(int descriptor) {
  std::array<char, 4> bytes{};
  const ssize_t count = pread(descriptor, bytes.data(), bytes.size(), 0);
  const std::string_view beginning(bytes.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return std::find(kBeginnings.begin(), kBeginnings.end(), beginning) != kBeginnings.end();
}

}  // namespace

HostError unwritten(const std::string& path, const std::string& problem) {
  std::string text = "cannot write " + plc_base::told_name(path) + ": " + problem;
  const std::string advice = plc_base::advice_on_output(problem);
  if (!advice.empty()) text += ". Try: " + advice;
  if (problem == plc_base::kFileIsThere) text += "; add --overwrite if it is to be replaced";
  return {kExitOutput, text};
}

void demand_capture(const std::string& path) {
  struct stat status {};
  // What is no regular file, or a link, is refused or taken where it is opened.
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) return;
  const plc_base::OpenedFile file = plc_base::open_regular_file(path);
  if (!file.problem.empty()) {
    throw unwritten(path, "the file that is there cannot be read: " + file.problem + ". Try: name another file");
  }
  const bool is_capture = begins_like_capture(file.descriptor);
  close(file.descriptor);
  if (!is_capture) {
    throw unwritten(path,
                    "the file that is there is no capture, and stays. Try: name another file, or remove it first");
  }
}

std::vector<std::string> with_settings_files(std::vector<std::string> inputs, const Settings& settings) {
  for (const std::string& file : settings_files()) inputs.push_back(file);
  const auto profile = settings.find("profile");
  if (profile != settings.end()) inputs.push_back(profile->second.value);
  return inputs;
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
