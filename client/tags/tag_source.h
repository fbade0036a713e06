// The lines of a tag file beside the records that the driver made of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tags/tag_list.h"
#include "tag_check/source_line.h"

namespace plc_client::core {

// Where a record stands.
struct TagLine {
  uint32_t number = 0;  // from 1
  std::string text;     // without its line end
};

// Far more than a controller's variables take; a wrong path may name anything.
constexpr size_t kMostTagFileBytes = size_t{256} << 20U;
constexpr size_t kMostTagLines = 1000000;  // each takes some 1500 bytes while the file is checked

// All of a tag file's bytes. Throws ClientError for a file that cannot be read.
std::string tag_file_text(const std::string& path);

class TagSource {
 public:
  // Throws ClientError for a file that cannot be read.
  explicit TagSource(const std::string& path);
  // With the text of the file.
  TagSource(std::string path, std::string text);
  TagSource(const TagSource&) = delete;
  TagSource& operator=(const TagSource&) = delete;

  const std::string& path() const { return path_; }

  // The line of the record at this position of the list; nothing when the file has changed since the list was read.
  std::optional<TagLine> line_of(const TagList& list, size_t position) const;

  // The line of each record of the list, from 1; 0 where the file has changed since the list was read.
  std::vector<uint32_t> lines_of(const TagList& list) const;

  // The dropped piece that declares this name; null when none does.
  const tag_check::DroppedPiece* dropped_declaration(const std::string& name) const;

  // What the checker says of a line, as "line 3, T071: ..."; errors and warnings, with what to do.
  struct Remark {
    std::string text;
    std::string advice;
  };
  std::vector<Remark> remarks_on(uint32_t line) const;
  // What it says of lines before this one that moves the record numbers of all behind it.
  std::vector<Remark> shifts_before(uint32_t line) const;
  // The errors that it finds in the file, so many at most.
  std::vector<Remark> errors(size_t most) const;

 private:
  template <typename Wanted>
  std::vector<Remark> remarks(const Wanted& wanted) const;

  std::string path_;
  std::string text_;
  tag_check::SourceFile file_;
};

}  // namespace plc_client::core
