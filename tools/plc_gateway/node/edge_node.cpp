// Hands events to the controller's side and to the broker's, and commands to the desk that decides on them.
#include "tools/plc_gateway/node/edge_node.h"

#include <algorithm>
#include <utility>

#include "tools/plc_gateway/commands/command_text.h"

namespace plc_gateway {
namespace {

constexpr Ms kRetryMs = 1000;

CommandDesk make_desk(std::optional<CommandDesk> earlier, std::vector<CommandRule> rules, const Journal& journal,
                      Ms now) {
  if (!earlier) {
    CommandDesk desk(std::move(rules));
    desk.remembers_from(now);
    desk.remembers(journal.command_times());
    return desk;
  }
  earlier->replace_rules(std::move(rules));
  return *std::move(earlier);
}

}  // namespace

EdgeNode::EdgeNode(const EdgeNodeOptions& options, const Clock& clock, ControllerPort& controller, BrokerPort& broker,
                   Journal& journal)
    : variables_(options.variables),
      pieces_(options.pieces),
      topics_(options.session.topics),
      clock_(clock),
      journal_(journal),
      command_ended_(options.command_ended),
      desk_(make_desk(options.earlier_desk, options.rules, journal, clock.steady_ms())),
      device_(variables_, options.periods, pieces_, clock, controller, journal, counters_),
      session_(options.session, variables_, clock, broker, journal, device_, counters_) {}

void EdgeNode::start() {
  device_.start();
  session_.start();
  step();
}

void EdgeNode::stop() {
  device_.stop();
  session_.stop();
  step();
}

// What was read goes into the journal before the broker hears of it.
void EdgeNode::step() {
  const Ms now = clock_.steady_ms();
  if (now >= retry_ms_) {
    retry_ms_ = now + kRetryMs;
    journal_.retry();
  }
  device_.step();
  session_.step();
}

std::optional<Ms> EdgeNode::next_ms() const {
  const std::optional<Ms> device = device_.next_ms();
  const std::optional<Ms> session = session_.next_ms();
  return std::min({device.value_or(retry_ms_), session.value_or(retry_ms_), retry_ms_});
}

void EdgeNode::on_read(const ReadResult& result) {
  device_.on_read(result);
  step();
}

void EdgeNode::on_written(const WriteOutcome& outcome) {
  device_.on_written(outcome);
  step();
}

void EdgeNode::on_connected() {
  session_.on_connected();
  step();
}

void EdgeNode::on_disconnected(const std::string& reason) {
  session_.on_disconnected(reason);
  step();
}

void EdgeNode::on_subscribed(bool ok) {
  session_.on_subscribed(ok);
  step();
}

void EdgeNode::on_acknowledged(int id) {
  session_.on_acknowledged(id);
  step();
}

void EdgeNode::on_message(const Message& message) {
  if (message.topic == topics_.node_command) {
    on_node_command(message);
  } else if (message.topic == topics_.device_command) {
    on_device_command(message);
  } else if (!topics_.host_state.empty() && message.topic == topics_.host_state) {
    session_.on_host_state(message.payload);
  }
  step();
}

void EdgeNode::refuse(const Refusal& refusal) {
  ++counters_.commands[refusal.kind];
  tell({refusal.name, "refused", refusal.reason, clock_.wall_ms(), refusal.value, refusal.sent});
}

void EdgeNode::tell(const CommandResult& result) {
  if (command_ended_) command_ended_(result);
  session_.tell(result);
}

void EdgeNode::on_node_command(const Message& message) {
  const std::optional<CommandMessage> command = read_command(message.payload);
  if (!command) {
    refuse({"", "the message is not a payload of the standard", "malformed"});
    return;
  }
  for (const CommandMetric& metric : command->metrics) {
    const auto refuse_it = [&](const char* reason, const char* kind) {
      refuse({shortened(metric.name), reason, kind, value_text(metric, std::nullopt),
              metric.time ? metric.time : command->time});
    };
    if (metric.name != "Node Control/Rebirth") {
      refuse_it("the node takes no command but Node Control/Rebirth", "not-listed");
    } else if (message.retained) {
      refuse_it("the message was retained: it was not meant for now", "retained");
    } else if (metric.form != CommandMetric::Form::kBool || metric.number == 0) {
      refuse_it("a rebirth is asked for with the Boolean true", "type");
    } else {
      ++counters_.commands["rebirth"];
      session_.request_rebirth();
    }
  }
}

void EdgeNode::on_device_command(const Message& message) {
  const std::optional<CommandMessage> command = read_command(message.payload);
  if (!command) {
    refuse({"", "the message is not a payload of the standard", "malformed"});
    return;
  }
  const std::vector<CommandDesk::Decision> decisions =
      desk_.decide(*command, message.retained, clock_.wall_ms(), clock_.steady_ms(), session_.names());
  std::vector<WriteJob> jobs;
  for (const CommandDesk::Decision& decision : decisions) {
    if (const auto* refusal = std::get_if<Refusal>(&decision)) {
      refuse(*refusal);
      continue;
    }
    const auto& job = std::get<WriteJob>(decision);
    const std::string& name = desk_.rules()[job.rule].name;
    if (!device_.alive()) {
      refuse({name, "the controller does not answer", "device-lost", job.shown, job.stamp});
    } else if (!device_.has_room_for_writes(jobs.size() + 1)) {
      refuse({name, "too many commands are waiting for the controller", "busy", job.shown, job.stamp});
    } else {
      jobs.push_back(job);
    }
  }
  carry_out(jobs);
}

// A process after this one must know that they were taken, whatever becomes of this one and of the clock.
void EdgeNode::carry_out(const std::vector<WriteJob>& jobs) {
  Journal::CommandTimes times;
  for (const WriteJob& job : jobs) {
    Ms& newest = times.emplace(desk_.rules()[job.rule].name, job.stamp).first->second;
    newest = std::max(newest, job.stamp);
  }
  const bool is_remembered = journal_.take_commands(times);
  for (const WriteJob& job : jobs) {
    if (!is_remembered) {
      refuse({desk_.rules()[job.rule].name,
              "the journal's disk refuses to remember it, and a restarted gateway could carry it out again; see the "
              "disk of [journal] folder",
              "disk", job.shown, job.stamp});
      continue;
    }
    device_.write(job, [this](const WriteJob& ended, const WriteOutcome& outcome) { end_write(ended, outcome); });
  }
}

void EdgeNode::end_write(const WriteJob& job, const WriteOutcome& outcome) {
  const char* result = outcome.outcome == plc_client::Outcome::kDone      ? "done"
                       : outcome.outcome == plc_client::Outcome::kNotDone ? "failed"
                                                                          : "unknown";
  ++counters_.commands[result];
  tell({desk_.rules()[job.rule].name, result, outcome.error, outcome.time, job.shown, job.stamp});
}

}  // namespace plc_gateway
