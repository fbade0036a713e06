// Compares a tag file's bytes before and behind the driver's own reading, which does not tell what it has read.
#include "client/tags/same_file.h"

#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "client/tags/tag_source.h"

namespace plc_client::core {

FileChanged::FileChanged(const std::string& path)
    : ClientError(Kind::kTagFile, "the tag file " + plc_base::told_name(path) + kChangedWords) {}

LoadedTags load_whole_file(const DriverLibrary& library, const std::string& path) {
  plc_base::FileText before = plc_base::read_file(path, kMostTagFileBytes);
  // Of what cannot be read the driver says itself what is wrong.
  LoadedTags loaded{load_tag_list(library, path), {}};
  if (!before.problem.empty()) throw ClientError(ClientError::Kind::kTagFile, before.problem);
  const plc_base::FileText behind = plc_base::read_file(path, kMostTagFileBytes);
  if (!behind.problem.empty() || behind.text != before.text) throw FileChanged(path);
  loaded.bytes = std::move(before.text);
  return loaded;
}

std::optional<uint32_t> load_same_file(const std::string& path, const std::string& bytes,
                                       const std::function<uint32_t()>& load) {
  const plc_base::FileText before = plc_base::read_file(path, kMostTagFileBytes);
  if (before.problem.empty() && before.text != bytes) return std::nullopt;
  const uint32_t code = load();
  if (code != PLC_OK) return code;
  const plc_base::FileText behind = plc_base::read_file(path, kMostTagFileBytes);
  if (!behind.problem.empty() || behind.text != bytes) return std::nullopt;
  return code;
}

}  // namespace plc_client::core
