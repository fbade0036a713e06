// Results on standard output: a table by type, or a JSON object per line.
#pragma once

#include <cstddef>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <vector>

#include "client/plan/tag_transfer.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

// What is known of a value that was written.
struct Confirmation {
  bool is_acknowledged = false;  // by the controller, for this request: nobody knows with the contract build
  bool is_read_back = false;     // and was the same
};

class ResultWriter {
 public:
  // named: what will come, for the widths of the columns.
  ResultWriter(FILE* file, bool json, const std::vector<TagResult>& named);

  // A line on the file with name, type, state, time and value; what went wrong, and what to try, on standard error or
  // with JSON in the object. False once nothing more can be written.
  bool add(const TagResult& result);

  // The same of a value that was written.
  bool add_written(const TagResult& result, const Confirmation& confirmation);

 private:
  bool add_line(const TagResult& result, const std::string& state);
  void tell_failure(const TagResult& result);

  FILE* file_;
  bool json_;
  size_t name_columns_ = 0;
  size_t type_columns_ = 0;
  std::set<std::string> told_advice_;
};

// {"name": ..., "id": ..., "type": ..., "state": ..., "time": ..., "value": ...}; without a value "value" is null, and
// "reason", "try" and "code" (of the driver) say why.
nlohmann::ordered_json result_json(const TagResult& result);

// One line of JSON, as json_text.h says.
void write_json_line(FILE* file, const nlohmann::ordered_json& object);

// Columns lined up under their heading, two spaces apart.
void write_table(FILE* file, std::vector<std::vector<std::string>> rows);

}  // namespace plc_host
