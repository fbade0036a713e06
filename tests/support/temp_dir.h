// Folders of a test's own: a temporary one that is removed at the end, and a scoped change of the working directory.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

namespace plc_test {

// A new empty folder, removed with all that is in it when the object ends.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "plc_test.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("temporary folder");
      std::abort();
    }
    path_ = pattern;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Writes a file of exactly these bytes, replacing what was there, and returns its path.
  std::string write(std::string_view name, std::string_view bytes) const {
    const std::string full_path = file(name);
    // A file that is cut to nothing and written again goes to the disk at once: that took most of a test's time.
    std::error_code ignored;
    if (is_regular_file(symlink_status(std::filesystem::path(full_path), ignored))) {
      std::filesystem::remove(full_path, ignored);
    }
    std::ofstream out(full_path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
      std::perror(full_path.c_str());
      std::abort();
    }
    return full_path;
  }

  // All bytes of a file in the folder; empty when it does not exist.
  std::string read(std::string_view name) const {
    std::ostringstream bytes;
    bytes << std::ifstream(file(name), std::ios::binary).rdbuf();
    return bytes.str();
  }

 private:
  std::string path_;
};

// Makes path the working directory until the object ends.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& path) : previous_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;
  ~ScopedWorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
  }

 private:
  std::filesystem::path previous_;
};

}  // namespace plc_test
