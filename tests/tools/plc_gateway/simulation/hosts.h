// Hosts that command: as they should, and as they should not. Knows which writes are allowed, by its own reading of the
// rules.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/judge/observer.h"
#include "tests/tools/plc_gateway/simulation/world/plant.h"
#include "tests/tools/plc_gateway/simulation/world/wire.h"

namespace plc_gateway::simulation {

class Hosts {
 public:
  Hosts(SimClock& clock, Random& random, Totals& totals) : clock_(clock), random_(random), totals_(totals) {}

  void serve(const Configuration* configuration, const Ledger* ledger);
  // The next thing that a host sends.
  Message make();
  // The last one without a flaw of its own, and when it was made; nothing before the first.
  const std::optional<Message>& last() const { return last_; }
  Ms last_made() const { return last_made_; }  // by the wall clock
  // It reaches the edge node now. True: it asks for a rebirth, as it may.
  bool arrives(const Message& message);
  // A write is begun: one of the allowed ones, which was not written yet and is not too old.
  void write_begins(const WriteJob& job);
  uint64_t writes() const { return writes_; }

 private:
  struct Allowed {
    Ms stamp = 0;
    Ms arrived = 0;  // steady
    plc_client::Input value = false;
    bool is_written = false;
  };
  enum class Flaw { kNone, kOld, kFuture, kNoTime, kRange, kType, kUnknownName, kUnknownAlias, kNull, kDatatype };

  Message device_command();
  Message node_command();
  std::string command_payload(const CommandRule& rule, Flaw flaw);
  void put_value(PayloadMaker& maker, const CommandRule& rule, Flaw flaw);
  void arrives_for(const Metric& metric, std::optional<uint64_t> time);
  std::optional<size_t> rule_of(const Metric& metric) const;

  SimClock& clock_;
  Random& random_;
  Totals& totals_;
  const Configuration* configuration_ = nullptr;
  const Ledger* ledger_ = nullptr;
  std::map<std::string, std::vector<Allowed>> allowed_;  // by name
  std::map<std::string, Ms> last_written_;               // steady time of its arrival
  std::optional<Message> last_;
  Ms last_made_ = 0;
  uint64_t writes_ = 0;
};

}  // namespace plc_gateway::simulation
