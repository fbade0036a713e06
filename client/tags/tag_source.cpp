// Finds the lines of records, and what the checker says of them.
#include "client/tags/tag_source.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "client/client_error.h"
#include "tag_check/checker.h"
#include "tag_check/rule_list.h"

namespace plc_client::core {
namespace {

bool is_rule(const tag_check::Finding& finding, const char* rule) { return std::strcmp(finding.rule, rule) == 0; }

}  // namespace

std::string tag_file_text(const std::string& path) {
  refuse_line_end(path);
  plc_base::FileText file = plc_base::read_file(path, kMostTagFileBytes);
  if (!file.problem.empty()) throw ClientError(ClientError::Kind::kTagFile, file.problem);
  if (static_cast<size_t>(std::count(file.text.begin(), file.text.end(), '\n')) > kMostTagLines) {
    throw ClientError(ClientError::Kind::kTagFile, "cannot read " + plc_base::told_name(path) + ": it has more than " +
                                                       std::to_string(kMostTagLines) +
                                                       " lines. Try: a line for each variable, and no others");
  }
  return std::move(file.text);
}

TagSource::TagSource(const std::string& path) : TagSource(path, tag_file_text(path)) {}

TagSource::TagSource(std::string path, std::string text)
    : path_(std::move(path)), text_(std::move(text)), file_(tag_check::read_source(text_)) {}

std::optional<TagLine> TagSource::line_of(const TagList& list, size_t position) const {
  const bool indexed = position >= list.plain_count;
  size_t before = indexed ? position - list.plain_count : position;
  for (const tag_check::SourceLine& line : file_.lines) {
    if (line.indexed != indexed || before-- > 0) continue;
    if (std::strcmp(line.entry.name, list.tags[position].entry.name) != 0) return std::nullopt;
    return TagLine{line.number, std::string(line.text)};
  }
  return std::nullopt;
}

std::vector<uint32_t> TagSource::lines_of(const TagList& list) const {
  std::vector<uint32_t> numbers(list.tags.size(), 0);
  size_t plain = 0;
  size_t indexed = list.plain_count;
  for (const tag_check::SourceLine& line : file_.lines) {
    const size_t position = line.indexed ? indexed++ : plain++;
    const bool is_there = position < (line.indexed ? list.tags.size() : list.plain_count);
    if (is_there && std::strcmp(line.entry.name, list.tags[position].entry.name) == 0) numbers[position] = line.number;
  }
  return numbers;
}

const tag_check::DroppedPiece* TagSource::dropped_declaration(const std::string& name) const {
  for (const tag_check::DroppedPiece& piece : file_.dropped) {
    const std::string_view text = file_.text.substr(piece.offset, piece.length);
    if (!name.empty() && tag_check::trim(text.substr(0, text.find(','))) == name) return &piece;
  }
  return nullptr;
}

template <typename Wanted>
std::vector<TagSource::Remark> TagSource::remarks(const Wanted& wanted) const {
  std::vector<Remark> found;
  for (const tag_check::Finding& finding : tag_check::check_text(path_, file_.text, {})) {
    const tag_check::Rule& rule = tag_check::rule_of(finding.rule);
    if (rule.severity == tag_check::Severity::kInfo || !wanted(finding, rule)) continue;
    found.push_back(
        {"line " + std::to_string(finding.line) + ", " + finding.rule + ": " + finding.message, rule.suggestion});
  }
  return found;
}

std::vector<TagSource::Remark> TagSource::remarks_on(uint32_t line) const {
  return remarks([line](const tag_check::Finding& finding, const tag_check::Rule&) {
    // The file's name is not the line's fault, and the file may have another name here.
    return finding.line == line && !is_rule(finding, "T010") && !is_rule(finding, "T011");
  });
}

std::vector<TagSource::Remark> TagSource::shifts_before(uint32_t line) const {
  return remarks([line](const tag_check::Finding& finding, const tag_check::Rule&) {
    const bool shifts =
        is_rule(finding, "T002") || is_rule(finding, "T003") || is_rule(finding, "T005") || is_rule(finding, "T043");
    return finding.line < line && shifts;
  });
}

std::vector<TagSource::Remark> TagSource::errors(size_t most) const {
  size_t left = most;
  return remarks([&left](const tag_check::Finding& finding, const tag_check::Rule& rule) {
    const bool wanted = left > 0 && rule.severity == tag_check::Severity::kError && !is_rule(finding, "T010") &&
                        !is_rule(finding, "T011");
    left -= wanted ? 1 : 0;
    return wanted;
  });
}

}  // namespace plc_client::core
