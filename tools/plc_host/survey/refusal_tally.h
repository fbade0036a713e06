// Counts requests that were refused at one time and answered at another one.
#pragma once

#include <map>
#include <string>

#include "tools/plc_host/survey/survey_record.h"
#include "wire/wire.h"

namespace plc_host::survey {

// A name that no tag file which is in use declares: each controller refuses it, and that is no finding.
inline constexpr char kUnknownName[] = "PlcHostSurvey_NoSuchName";

class RefusalTally {
 public:
  // A request of this kind got an answer, or a refusal. Those with the unknown name do not count.
  void take(const std::string& kind, const plc_sim::Bytes& request, bool is_refused);

  RefusedForOnce refused_for_once(const std::string& kind) const;

 private:
  struct Counts {
    uint64_t refused = 0;
    uint64_t answered = 0;
  };
  std::map<std::string, std::map<plc_sim::Bytes, Counts>> kinds_;  // by the request without its number
};

}  // namespace plc_host::survey
