// Results on standard output, in each of their forms.
#pragma once

#include <cstddef>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <vector>

#include "client/plan/tag_transfer.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/results/result_form.h"

namespace plc_host {

// What is known of a value that was written.
struct Confirmation {
  bool is_acknowledged = false;  // by the controller, for this request: nobody knows with the contract build
  bool is_unclear = false;       // the driver returned 0, which the contract build does for a refusal too
  bool is_read_back = false;     // and was the same
  bool is_only_checked = false;  // nothing was sent
};

class ResultWriter {
 public:
  // named: what will come, for the widths of the columns.
  ResultWriter(FILE* file, ResultForm form, const std::vector<TagResult>& named);

  // A line on the file with name, type, state, time and value; what went wrong, and what to try, on standard error or
  // with JSON and CSV in the object or row. False once nothing more can be written.
  bool add(const TagResult& result);

  // The same of a value that was written.
  bool add_written(const TagResult& result, const Confirmation& confirmation);

  // What went wrong, and what to try, on standard error.
  void tell_failure(const TagResult& result);

 private:
  bool add_line(const TagResult& result, const std::string& state);
  bool add_rows(const TagResult& result, const std::string& state);

  FILE* file_;
  ResultForm form_;
  bool has_heading_ = false;
  size_t name_columns_ = 0;
  size_t type_columns_ = 0;
  std::set<std::string> told_advice_;
};

// The state of a write: "written", "verified" and "checked" beside the words for qualities.
std::string write_word(const TagResult& result, const Confirmation& confirmation);

// The cells of a row behind a comma each: one for each element, one for a text, with escapes as in text output. Bytes
// of a type without a width have the first of as many.
std::string csv_cells(const TagReference& reference, const TagValue& value);

// The value alone, as a line of a form that has nothing else; a text without quotes, with escapes as in text
// output.
std::string raw_text(const TagReference& reference, const TagValue& value);

// One line of JSON, as json_text.h says.
void write_json_line(FILE* file, const nlohmann::ordered_json& object);

// Columns lined up under their heading, two spaces apart.
void write_table(FILE* file, std::vector<std::vector<std::string>> rows);

}  // namespace plc_host
