// The edge node: one controller on one broker. Events of the world go in, calls of the four seams come out; between two
// events nothing happens. Used by one thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/plc_gateway/commands/command_desk.h"
#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/model/counters.h"
#include "tools/plc_gateway/node/device.h"
#include "tools/plc_gateway/node/seams.h"
#include "tools/plc_gateway/node/session.h"

namespace plc_gateway {

struct EdgeNodeOptions {
  std::vector<Variable> variables;
  std::vector<Ms> periods;    // of the groups
  std::vector<Piece> pieces;  // each variable in one of them
  std::vector<CommandRule> rules;
  SessionOptions session;
  std::optional<CommandDesk> earlier_desk;  // of a node before this one: what it took is not taken again
  std::function<void(const CommandResult&)> command_ended;  // hears of each, as it ends; may be empty
};

class EdgeNode {
 public:
  // The four outlive it. The journal was opened with the same variables.
  EdgeNode(const EdgeNodeOptions& options, const Clock& clock, ControllerPort& controller, BrokerPort& broker,
           Journal& journal);

  void start();
  // Polls no more, waits up to a second for what is published to be acknowledged, tells the node's death and
  // disconnects.
  void stop();
  bool stopped() const { return session_.stopped(); }

  // The steady time at which on_time() is due. Nothing: only an event can change anything.
  std::optional<Ms> next_ms() const;
  void on_time() { step(); }

  void on_read(const ReadResult& result);
  void on_written(const WriteOutcome& outcome);
  void on_connected();
  void on_disconnected(const std::string& reason);
  void on_subscribed(bool ok);
  void on_acknowledged(int id);
  void on_message(const Message& message);

  const Counters& counters() const { return counters_; }
  // Why there is no broker; empty at first.
  const std::string& broker_problem() const { return session_.last_problem(); }
  // For the node that comes after this one, which takes no more commands.
  CommandDesk take_desk() { return std::move(desk_); }

 private:
  void step();
  void on_node_command(const Message& message);
  void on_device_command(const Message& message);
  void carry_out(const std::vector<WriteJob>& jobs);
  void refuse(const Refusal& refusal);
  void tell(const CommandResult& result);
  void end_write(const WriteJob& job, const WriteOutcome& outcome);

  const std::vector<Variable> variables_;
  const std::vector<Piece> pieces_;
  const Topics topics_;
  const Clock& clock_;
  Journal& journal_;
  const std::function<void(const CommandResult&)> command_ended_;
  Counters counters_;
  CommandDesk desk_;
  Device device_;
  Session session_;
  Ms retry_ms_ = 0;  // when the journal tries again what its disk refused
};

}  // namespace plc_gateway
