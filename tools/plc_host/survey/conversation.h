// The survey's way to its controller: one request at a time and paced, a new connection where one was lost, and
// everything that comes counted.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/plc_host/survey/probe.h"
#include "tools/plc_host/survey/refusal_tally.h"
#include "tools/plc_host/survey/rule_book.h"
#include "tools/plc_host/survey/survey_plan.h"
#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// Nothing more can be asked: what() is why.
class SurveyEnded : public std::runtime_error {
 public:
  SurveyEnded(const std::string& why, bool is_interrupted) : std::runtime_error(why), is_interrupted_(is_interrupted) {}
  bool is_interrupted() const { return is_interrupted_; }

 private:
  bool is_interrupted_;
};

class Conversation {
 public:
  Conversation(const SurveyPlan& plan, plc_sim::PcapngWriter& capture, SurveyRecord& record, Progress& progress);

  // Sends the request as soon as it is its turn. names: how many names or values it asks for. A request that nobody
  // answers costs the connection; the next one makes another. Throws SurveyEnded after a stop signal, and once the
  // controller no longer answers.
  Asked ask(const std::string& kind, uint32_t names, const plc_sim::Bytes& request);

  // The same where silence is one of the answers.
  Asked try_asking(const std::string& kind, uint32_t names, const plc_sim::Bytes& request);

  // The number of the next request. It stays the next one until a request that has it is sent.
  uint16_t next_sequence() const { return sequence_; }

  // The programs that the directory had at the last connect, which is made when there is none.
  const plc_sim::Bytes& directory();

  // Connects and asks for the directory, as hosts do, over a connection that is made for it. Says why it failed.
  std::string connect_once();

  // Sends the request over the connection, and waits as long as replies so far call for.
  ProbeReply exchange_over(Probe& probe, const plc_sim::Bytes& request, bool finishes_sending = false) const {
    return probe.exchange(request, rules_.wait_for(request), finishes_sending);
  }

  // A connection beside the others, in the capture like them.
  std::unique_ptr<Probe> extra_probe();

  // Waits for the next request's turn. Throws SurveyEnded after a stop signal.
  void wait_for_turn();

  // Lets requests go out after a stop signal too: what was changed has to be put back.
  void ignore_stop() { ignores_stop_ = true; }

  void close() { probe_.reset(); }
  Probe* probe() { return probe_.get(); }
  // Made so far: what belongs together has to go over one.
  unsigned connections() const { return connections_; }
  // Of the capture so far.
  size_t packets() const { return capture_.packets(); }
  RuleBook& rules() { return rules_; }
  const RefusalTally& refusals() const { return refusals_; }
  const SurveyPlan& plan() const { return plan_; }
  SurveyRecord& record() { return record_; }
  Progress& progress() { return progress_; }

  // Of everything so far.
  void finish();

  // Counts what was asked over another connection.
  void account(const std::string& kind, uint32_t names, Asked& asked);

 private:
  void connect_again();
  void take_directory(const Asked& asked);
  Asked exchange(const std::string& kind, uint32_t names, const plc_sim::Bytes& request);
  bool answers_one_name();
  Times& times_of(const std::string& kind, uint32_t names);
  void add_time(const std::string& kind, uint32_t names, double first_ms, double ms);
  void add_split(const ProbeReply& reply);
  void count_settled();
  void count_refusal(const std::string& kind, const Asked& asked);

  const SurveyPlan& plan_;
  plc_sim::PcapngWriter& capture_;
  SurveyRecord& record_;
  Progress& progress_;
  RuleBook rules_;
  RefusalTally refusals_;
  std::unique_ptr<Probe> probe_;
  plc_sim::Bytes directory_;
  bool has_directory_ = false;  // it is whole
  uint16_t sequence_ = 0;
  unsigned connections_ = 0;
  unsigned silences_ = 0;           // in a row
  bool has_asked_several_ = false;  // names or values, during these
  plc_sim::Bytes one_name_;         // the last request for one name that was answered
  bool ignores_stop_ = false;
  std::chrono::steady_clock::time_point next_turn_{};
  std::map<std::pair<std::string, uint32_t>, size_t> times_;
  std::map<size_t, size_t> splits_;
};

}  // namespace plc_host::survey
