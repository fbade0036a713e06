// Tag files of any length with the mix of variables that a project has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

// A temporary file of plain records, removed with the object. Ends the program when it cannot be written.
class TagFile {
 public:
  explicit TagFile(uint32_t lines);
  TagFile(const TagFile&) = delete;
  TagFile& operator=(const TagFile&) = delete;
  ~TagFile();

  const char* path() const { return path_.c_str(); }
  size_t bytes() const { return bytes_; }

 private:
  std::string path_;
  size_t bytes_ = 0;
};

}  // namespace bench
