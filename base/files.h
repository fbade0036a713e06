// Whole files in memory, and files opened without a wait.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace plc_base {

struct FileText {
  std::string text;     // empty when there is a problem
  std::string problem;  // "cannot read PATH: REASON"; empty when all of it is there
};

// The bytes of a regular file, so many at most; of a link to one too.
FileText read_file(const std::string& path, size_t most_bytes);

// Whether the bytes are those of a spreadsheet's own file, packed or of its old form, and no text at all.
bool is_workbook(std::string_view bytes);

// The remedy for what fails with EMFILE.
inline constexpr char kMoreDescriptors[] = "more descriptors for the program, ulimit -n shows how many it may open";

// Of a path that the system would read up to its zero byte.
inline constexpr char kZeroInName[] = "no file has a zero byte in its name";

struct OpenedFile {
  int descriptor = -1;  // the caller's to close, closed on exec; -1 when there is a problem
  std::string problem;  // the reason alone, empty when it is open
};

// A regular file to be read. Anything else is refused at once: a pipe would be waited for, a device need not end.
OpenedFile open_regular_file(const std::string& path);

}  // namespace plc_base
