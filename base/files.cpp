// Reads whole files.
#include "base/files.h"

#include <array>
#include <cstdio>
#include <memory>
#include <utility>

namespace plc_base {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

FileText read_file(const std::string& path, size_t most_bytes) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
  if (file == nullptr) return {{}, "cannot read " + path};
  std::string text;
  std::array<char, 65536> piece{};
  while (const size_t count = std::fread(piece.data(), 1, piece.size(), file.get())) {
    if (count > most_bytes - text.size()) {
      return {{}, "cannot read " + path + ": it has more than " + std::to_string(most_bytes) + " bytes"};
    }
    text.append(piece.data(), count);
  }
  if (std::ferror(file.get()) != 0) return {{}, "cannot read " + path};
  return {std::move(text), {}};
}

}  // namespace plc_base
