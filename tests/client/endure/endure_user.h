// A program that uses one controller by name: readings and writes by chance, each held against the rules.
#pragma once

#include <array>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/plc_client.h"
#include "tests/client/endure/endure_values.h"
#include "tests/driver/endure/controller/endure_faults.h"

namespace plc_endure {

// A controller whose program changes variables between requests.
class Machine : public Faults {
 public:
  Machine(const VariableBook& book, Network* network, Controller* controller, Memory* memory, uint64_t seed,
          bool has_faults)
      : Faults(network, controller, ~seed, has_faults, true), book_(book), memory_(memory), random_(seed) {}

  void serve(Link& link, const Pending& request) override;
  unsigned long changes() const { return changes_; }

 private:
  const VariableBook& book_;
  Memory* memory_;
  Random random_;
  unsigned long changes_ = 0;
};

struct UserFigures {
  unsigned long calls = 0;
  unsigned long readings = 0;
  unsigned long good = 0;
  std::array<unsigned long, plc_client::kReasons> bad{};  // by reason
  unsigned long writes = 0;
  std::array<unsigned long, 3> outcomes{};  // of the writes
  unsigned long verified = 0;
  unsigned long refused = 0;  // writes that the library refused before anything was sent
  unsigned long plans = 0;
  unsigned long changed_meanwhile = 0;  // calls during which the controller's memory changed
  unsigned long clean_calls = 0;        // calls that had to succeed
};

class User {
 public:
  // number tells apart the users of a run: each has other time-outs and pauses.
  User(const plc_client::Options& options, const VariableBook& book, unsigned number, uint64_t seed, bool has_faults);

  void run_one();
  const UserFigures& figures() const { return figures_; }
  const Rules& rules() const { return rules_; }
  const Machine& machine() const { return machine_; }
  const Network& network() const { return network_; }
  plc_client::State state() const { return client_.state(); }

 private:
  struct PlannedList {
    std::vector<Chosen> chosen;
    plc_client::Plan plan;
  };

  static plc_client::Options with_pauses(plc_client::Options options, unsigned number);
  const Variable& any_variable();
  Chosen choose_one(bool is_single);
  std::vector<Chosen> choose_list();
  // A call of the library between its beginning and its end; what throws is harm.
  template <typename Call>
  void make_call(std::shared_ptr<WriteCall> call, const std::string& what, const Call& function);

  void read_plan();
  void read_one();
  void read_list();
  using Values = std::vector<std::pair<std::string, plc_client::Input>>;
  Values draw_values(WriteCall* call);
  void write_some();
  void reconnect();

  void judge(const std::vector<Chosen>& chosen, const std::vector<plc_client::Reading>& readings);
  void judge_reading(const Chosen& chosen, const plc_client::Reading& reading);
  void judge_exchanges(const plc_client::Plan& plan, uint64_t connects_before);
  void judge_write(const plc_client::WriteResult& result, uint32_t part);
  void judge_targets(const plc_client::WriteResult& result, uint32_t part, const std::string& what);
  bool is_in_call_time(plc_client::TimePoint time) const;
  bool may_fail() const { return !was_clean_ || trouble_before_ != machine_.trouble(); }

  const VariableBook& book_;
  Random random_;
  Memory memory_;
  Rules rules_;
  Controller controller_;
  Network& network_;
  Machine machine_;
  plc_client::Options options_;
  plc_client::Controller client_;
  std::deque<PlannedList> plans_;
  std::shared_ptr<WriteCall> call_;
  UserFigures figures_;
  std::string what_;
  unsigned long trouble_before_ = 0;
  unsigned long left_open_ = 0;
  unsigned long stuck_ = 0;
  uint64_t exchanges_before_ = 0;
  int64_t began_us_ = 0;
  bool was_clean_ = false;
  bool has_failed_ = false;  // the last call: a pause may follow
};

}  // namespace plc_endure
