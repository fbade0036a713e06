// Results on standard output: a table by type, or a JSON object per line.
#ifndef HOST_TOOL_RESULT_WRITER_H_
#define HOST_TOOL_RESULT_WRITER_H_

#include <cstddef>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "tag_transfer.h"

namespace plc_host {

class ResultWriter {
 public:
  // named: what will come, for the widths of the columns.
  ResultWriter(FILE* file, bool json, const std::vector<TagResult>& named);

  // A value on the file; an error on standard error, or with JSON on the file like a value.
  void add(const TagResult& result) const;

  // The same of a value that was written; its JSON object says so, and whether it was read back.
  void add_written(const TagResult& result, bool verified) const;

 private:
  void add_text(const TagResult& result) const;

  FILE* file_;
  bool json_;
  size_t name_columns_ = 0;
  size_t type_columns_ = 0;
};

// {"name": ..., "id": ..., "type": ..., "value": ...}, or "error" (and "code", when the driver returned one) instead
// of the value.
nlohmann::ordered_json result_json(const TagResult& result);

// One line of JSON; bytes that are no UTF-8 are replaced.
void write_json_line(FILE* file, const nlohmann::ordered_json& object);

// Columns lined up under their heading, two spaces apart.
void write_table(FILE* file, const std::vector<std::vector<std::string>>& rows);

}  // namespace plc_host

#endif  // HOST_TOOL_RESULT_WRITER_H_
