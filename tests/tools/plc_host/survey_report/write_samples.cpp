// Writes the reports of sample surveys, each into a folder of its own in the one that is named.
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

#include "tests/tools/plc_host/survey_report/sample_records.h"
#include "tools/plc_host/survey_report/survey_report.h"

int main(int count, char** words) {
  if (count != 2) return 2;
  const std::pair<const char*, plc_host::survey::SurveyRecord> kSamples[] = {
      {"full", survey_test::full_record()},
      {"interrupted", survey_test::interrupted_record()},
      {"empty", survey_test::empty_record()},
      {"hostile", survey_test::hostile_record()},
      {"large", survey_test::large_record()}};
  for (const auto& [name, record] : kSamples) {
    const std::string folder = std::string(words[1]) + "/" + name;
    std::filesystem::create_directories(folder);
    const std::string problem = plc_host::survey::write_reports(record, folder);
    if (!problem.empty()) {
      std::fprintf(stderr, "%s\n", problem.c_str());
      return 1;
    }
  }
  return 0;
}
