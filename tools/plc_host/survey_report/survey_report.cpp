// Writes the files.
#include "tools/plc_host/survey_report/survey_report.h"

#include <nlohmann/json.hpp>

#include "base/json_text.h"
#include "base/whole_file.h"
#include "tools/plc_host/survey_report/report_json.h"
#include "tools/plc_host/survey_report/report_page.h"

namespace plc_host::survey {
namespace {

std::string write_one(const std::string& path, const std::string& suffix, const std::string& text) {
  const std::string problem = plc_base::write_whole_file(path + suffix, text, {});
  return problem.empty() ? "" : path + ": " + problem;
}

}  // namespace

std::string write_reports(const SurveyRecord& record, const std::string& folder, const std::string& suffix) {
  constexpr int kIndent = 1;
  const std::string json = plc_base::json_text(report_json(record), kIndent) + "\n";
  const std::string of_json = write_one(folder + "/report.json", suffix, json);
  const std::string of_page = write_one(folder + "/report.html", suffix, report_page(record));
  return of_json + (of_json.empty() || of_page.empty() ? "" : "; ") + of_page;
}

}  // namespace plc_host::survey
