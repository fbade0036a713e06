// How the controller takes connections: one after the other, several at a time, and one that is closed half.
#include <unistd.h>

#include <algorithm>

#include "tools/plc_host/survey_steps/survey_steps.h"
#include "wire/relay.h"
#include "wire/request_writer.h"

namespace plc_host::survey {
namespace {

constexpr uint32_t kConnects = 20;
constexpr uint32_t kGentleConnects = 5;
constexpr uint32_t kMostConnections = 4;  // at a time
constexpr unsigned kOneMoreTries = 3;
constexpr uint64_t kRequestsOfConnect = 3;
constexpr int kClosedPortMs = 1000;
constexpr char kNotTriedGentle[] = "not tried: --gentle";

uint32_t connects_of(const SurveyPlan& plan) { return plan.is_gentle ? kGentleConnects : kConnects; }

// Of the connects so far. One is made before its directory is asked for, and counts though that was interrupted.
void take_connects(Conversation& conversation) {
  Link& link = conversation.record().link;
  for (const Times& times : conversation.record().times) {
    if (times.kind == "connect") link.connect_ms = times.ms;
  }
  link.connects_tried = std::max(link.connects_tried, static_cast<uint32_t>(link.connect_ms.size()));
}

void connect_often(Conversation& conversation) {
  const SurveyPlan& plan = conversation.plan();
  Link& link = conversation.record().link;
  for (uint32_t i = 0; i < connects_of(plan); ++i) {
    const std::string problem = conversation.connect_once();
    ++link.connects_tried;
    if (!problem.empty()) link.connect_failures.push_back(problem);
    // Nobody is there: the other tries would say the same.
    if (link.connect_failures.size() >= 3 && link.connect_failures.size() == link.connects_tried) {
      throw SurveyEnded("the controller does not answer: " + problem, false);
    }
    if (!problem.empty() || conversation.probe() == nullptr) continue;
    link.segment_bytes = conversation.probe()->segment_bytes();
  }
}

void try_closed_port(Conversation& conversation) {
  const SurveyPlan& plan = conversation.plan();
  Link& link = conversation.record().link;
  link.closed_port_number = static_cast<uint16_t>(plan.port == UINT16_MAX ? plan.port - 1 : plan.port + 1);
  conversation.wait_for_turn();
  const wire_trace::Reach reach = wire_trace::reach_controller(plan.address, link.closed_port_number, kClosedPortMs);
  link.closed_port = reach.descriptor >= 0 ? "accepted: something listens there too"
                     : reach.is_refused    ? reaction_words(Reaction::kRefused)
                                           : reach.problem;
  if (reach.descriptor >= 0) ::close(reach.descriptor);
}

// What a connection gets for a request on it.
Reaction reaction_on(Conversation& conversation, Probe& probe, bool closes_half) {
  const SurveyPlan& plan = conversation.plan();
  conversation.wait_for_turn();
  const wire_trace::Reach reach = probe.connect(plan.address, plan.port, static_cast<int>(plan.timeout_ms));
  if (!probe.is_open()) return reach.is_refused ? Reaction::kRefused : Reaction::kSilent;
  conversation.wait_for_turn();
  Asked asked;
  asked.request = plc_sim::directory_start_request();
  asked.packet = conversation.packets() + 1;
  asked.answer = conversation.exchange_over(probe, asked.request, closes_half);
  conversation.progress().asked();
  if (asked.is_answered()) {
    conversation.account("directory start", 1, asked);
    return Reaction::kAnswered;
  }
  return asked.answer.is_lost() ? Reaction::kClosed : Reaction::kSilent;
}

void try_more_connections(Conversation& conversation) {
  Link& link = conversation.record().link;
  conversation.directory();  // the first one
  std::vector<std::unique_ptr<Probe>> held;
  for (link.connections_tried = 1; link.connections_tried < kMostConnections;) {
    Reaction reaction = Reaction::kNotTried;
    held.emplace_back();
    // One reply that is lost is no limit.
    for (unsigned i = 0; i < kOneMoreTries && reaction != Reaction::kAnswered; ++i) {
      held.back() = conversation.extra_probe();
      reaction = reaction_on(conversation, *held.back(), false);
    }
    if (link.connections_tried++ == 1) link.second_connection = reaction_words(reaction);
    if (reaction == Reaction::kAnswered) continue;
    link.most_connections = link.connections_tried - 1;
    link.one_more = reaction;
    break;
  }
  conversation.probe()->drain();
  if (!conversation.probe()->is_open()) link.second_connection += "; the first one is closed then";
}

void try_half_closed(Conversation& conversation) {
  Link& link = conversation.record().link;
  conversation.close();
  const std::unique_ptr<Probe> probe = conversation.extra_probe();
  const Reaction reaction = reaction_on(conversation, *probe, true);
  link.half_closed = reaction_words(reaction);
  // The controller may still count the connections before it.
  if (link.most_connections && reaction != Reaction::kAnswered) {
    link.half_closed =
        std::string("not known: ") + reaction_words(reaction) + ", which the limit of connections explains";
    return;
  }
  if (reaction == Reaction::kRefused) {
    link.half_closed = "not known: the connection for it was refused";
    return;
  }
  link.is_answered_when_half_closed = reaction == Reaction::kAnswered;
}

}  // namespace

void run_step(Step& step, const std::function<void()>& work) {
  step.state = Step::State::kPartly;
  try {
    work();
  } catch (const SurveyEnded& ended) {
    step.why = ended.what();
    throw;
  }
  step.state = Step::State::kDone;
}

uint64_t link_requests(const SurveyPlan& plan) {
  constexpr uint64_t kRequestsOfExceptions = 16;
  return connects_of(plan) * kRequestsOfConnect + (plan.is_gentle ? 0 : kRequestsOfExceptions);
}

void survey_link(Conversation& conversation) {
  Link& link = conversation.record().link;
  run_step(link.step, [&] {
    try {
      connect_often(conversation);
    } catch (const SurveyEnded&) {
      take_connects(conversation);
      throw;
    }
    take_connects(conversation);
    if (conversation.plan().is_gentle) {
      link.closed_port = link.second_connection = link.half_closed = kNotTriedGentle;
      return;
    }
    try_closed_port(conversation);
    try_more_connections(conversation);
    try_half_closed(conversation);
  });
}

}  // namespace plc_host::survey
