// A controller as a profile has it: the simulated one's answers, changed as that one's were seen to be.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "profile/profile.h"
#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/controller/manner.h"

namespace plc_sim {

class Imitation {
 public:
  Imitation(const plc_profile::Profile& profile, Controller& controller, VariableStore& store);

  Answer handle(Session& session, const Bytes& frame);

  // What the profile says and cannot be imitated: "the profile refuses Speed, which no tag file declares".
  std::vector<std::string> problems() const;

 private:
  // How many names or values a request has, and the limit that it exceeds.
  struct Load {
    size_t items = 1;
    bool is_beyond = false;
  };

  Load load_of(const Session& session, const Request& request) const;
  double wait_ms(RequestKind kind, size_t items) const;
  Answer answer_beyond(Session& session, const Bytes& frame, const Load& load);
  void change_answer(const Session& session, const Bytes& frame, Answer& answer) const;
  std::optional<uint32_t> most_name_units() const;
  Bytes cut_directory(const Bytes& frame) const;
  const plc_profile::Profile::Refused* refused_value(const Session& session) const;
  void change_refusal(const Session& session, const Bytes& frame, Answer& answer) const;
  void change_head(const Session& session, Bytes& reply) const;

  const plc_profile::Profile& profile_;
  Controller& controller_;
  VariableStore& store_;
};

}  // namespace plc_sim
