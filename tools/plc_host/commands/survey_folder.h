// The folder that the files of a survey go to: nothing in it is written over but a former survey, and that only once
// something was measured.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/host_options.h"
#include "tools/plc_host/survey/survey_record.h"
#include "wire/captures/pcapng_writer.h"

namespace plc_host {

class SurveyFolder {
 public:
  // Makes the folder where it is missing, and keeps it for itself. Throws HostError where another survey writes there,
  // where it holds other files, or a survey that is not to be replaced.
  explicit SurveyFolder(const SurveyOptions& options);

  // Where the capture is written while the survey lasts: beside that of a former one.
  std::string capture_path() const;

  // Closes the capture and writes the files: each of them as far as it can be, or all of them in place of a former
  // survey. Throws HostError with what went wrong of all; the former survey is whole then. False when that stays
  // because nothing was measured in this one.
  bool take(survey::SurveyRecord& record, plc_sim::PcapngWriter& capture,
            const std::vector<std::string>& tag_files) const;

  const std::string& path() const { return path_; }

 private:
  // Of the folder, until the program ends.
  struct Lock {
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock();
    int descriptor = -1;
  };

  std::string write_files(const survey::SurveyRecord& record, const std::vector<std::string>& tag_files,
                          const std::string& suffix) const;
  std::string former_problems(const std::vector<std::string>& tag_files) const;
  void replace_former(const survey::SurveyRecord& record, const std::string& capture_problem,
                      const std::vector<std::string>& tag_files) const;
  void take_lock(const std::string& given);
  void look_at_files(const SurveyOptions& options);

  std::string path_;
  Lock lock_;
  bool has_former_ = false;
};

}  // namespace plc_host
