// The network side of the controller.
#include "tools/plc_sim/server/server.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace plc_sim {

Server::Server(uv_loop_t* loop, Answerer answerer, FaultBook& faults, Tally& tally, RunLog& log)
    : loop_(loop),
      answerer_(std::move(answerer)),
      faults_(faults),
      tally_(tally),
      log_(log),
      events_(make_events()),
      listener_(loop, [this](int descriptor) { accept(descriptor); }) {
  uv_timer_init(loop_, &recovery_timer_);
  recovery_timer_.data = this;
}

ConnectionEvents Server::make_events() {
  ConnectionEvents events;
  events.opened = [this](Connection& connection) {
    ++tally_.counts.connections;
    if (observer_ != nullptr) observer_->opened(connection.session().number, connection.peer_port());
  };
  events.request = [this](Connection& connection, const Bytes& frame) { return on_request(connection, frame); };
  events.violation = [this](Connection& connection, const std::string& text) {
    Findings findings;
    findings.violation(text);
    const std::string where = "connection " + std::to_string(connection.session().number);
    log_.violation(where, text, {});
    tally_.add(where, findings);
  };
  events.sent = [this](Connection& connection, const Bytes& bytes) {
    if (observer_ != nullptr) {
      observer_->sent(connection.session().number, bytes);
    }
  };
  events.closed = [this](Connection& connection) {
    connections_.erase(&connection);
    if (observer_ != nullptr) {
      observer_->closed(connection.session().number);
    }
    listen_as_served();
  };
  return events;
}

void Server::accept(int descriptor) {
  if (turn_away(descriptor)) return;
  make_room();
  const bool is_served = !most_served_ || served() < *most_served_;
  auto* const connection = new Connection(loop_, descriptor, next_number_++, events_);
  connections_.insert(connection);
  connection->session().is_served = is_served;
  if (!is_served) note(connection->session_number(), "one connection more than the profile serves: never answered");
  if (finishes_) connection->finish_deliveries();
  listen_as_served();
}

// Those who connect while nobody listens are refused by the system; whoever came before that is closed.
bool Server::turn_away(int descriptor) {
  const bool is_full = most_served_ && served() >= *most_served_;
  if (!is_full || one_more_ == plc_profile::Turned::kSilent) return false;
  ++tally_.counts.connections;
  note(next_number_++, "one connection more than the profile serves: closed");
  ::close(descriptor);
  return true;
}

void Server::note(unsigned connection, const std::string& text) {
  Findings findings;
  findings.notes.push_back(text);
  tally_.add("connection " + std::to_string(connection), findings);
}

size_t Server::served() const {
  return static_cast<size_t>(std::count_if(connections_.begin(), connections_.end(), [](Connection* connection) {
    return connection->is_open() && connection->session().is_served;
  }));
}

void Server::serve_at_most(uint32_t connections, plc_profile::Turned one_more) {
  most_served_ = connections;
  one_more_ = one_more;
}

// Whether the port is open follows from how many are served; faults that close it are left alone.
void Server::listen_as_served() {
  if (!most_served_ || one_more_ != plc_profile::Turned::kRefused || is_stopping_) return;
  if (served() >= *most_served_) {
    listener_.close();
    is_full_ = true;
  } else if (is_full_) {
    is_full_ = false;
    recover();
  }
}

// Whoever leaves connections behind must not keep others from the port.
void Server::make_room() {
  std::vector<Connection*> open;
  std::copy_if(connections_.begin(), connections_.end(), std::back_inserter(open),
               [](const Connection* connection) { return connection->is_open(); });
  if (open.size() < most_connections_) return;
  Connection* silent = *std::min_element(open.begin(), open.end(), [](const Connection* a, const Connection* b) {
    return a->last_heard_ms() != b->last_heard_ms() ? a->last_heard_ms() < b->last_heard_ms()
                                                    : a->session_number() < b->session_number();
  });
  Findings findings;
  findings.notes.push_back("more than " + std::to_string(most_connections_) +
                           " connections at a time: the one that was silent for longest is closed");
  tally_.add("connection " + std::to_string(silent->session_number()), findings);
  silent->close();
}

Delivery Server::on_request(Connection& connection, const Bytes& frame) {
  if (observer_ != nullptr) observer_->received(connection.session().number, frame);
  ++tally_.counts.requests;
  if (!connection.session().is_served) return {{}, AfterDelivery::kKeepOpen, ReplyDamage::kTheStream};
  const std::optional<Fault> fault =
      faults_.take(frame.size() < wire::kHeadBytes ? RequestKind::kUnknown : kind_of(frame));
  if (fault && fault->kind == FaultKind::kRefuse) connection.session().refusal = refusal_of(*fault);
  Answer answer = answerer_(connection.session(), frame);
  connection.session().refusal.reset();
  const Session& session = connection.session();
  const std::string where = "connection " + std::to_string(session.number) + ", request " +
                            std::to_string(session.requests) + " (" + name_of(answer.kind) + ")";
  log_.request(answer.kind);
  for (const std::string& text : answer.findings.violations) log_.violation(where, text, frame);
  if (fault) log_.fault(where, describe_once(*fault));
  tally_.add(where, answer.findings);
  return in_manner(answer.manner,
                   fault ? deliver_with(*fault, std::move(answer.reply)) : deliver_whole(std::move(answer.reply)));
}

bool Server::arm(const Fault& fault) {
  const unsigned wait_ms = fault.arguments.empty() ? 0 : fault.arguments[0];
  switch (fault.kind) {
    case FaultKind::kSlowAccept:
    case FaultKind::kRefuseAccept:
      if (!listener_.hold()) break;
      faults_.count(fault.kind);
      log_.fault("connects", describe_once(fault));
      break;
    case FaultKind::kGone:
      listener_.close();
      for (Connection* connection : connections_) connection->reset();
      faults_.count(fault.kind);
      log_.fault("all connections", describe_once(fault));
      break;
    default:
      return faults_.arm(fault);
  }
  if (wait_ms > 0) recover_after(wait_ms);
  return true;
}

void Server::recover_after(unsigned wait_ms) {
  uv_timer_start(
      &recovery_timer_, [](uv_timer_t* timer) { static_cast<Server*>(timer->data)->recover(); }, wait_ms, 0);
}

void Server::recover() {
  if (is_full_) return;
  listener_.release();
  const std::string problem = listener_.reopen();
  if (!problem.empty()) {
    // Somebody else may hold the port for a moment.
    constexpr unsigned kTryAgainMs = 100;
    recover_after(kTryAgainMs);
  }
}

void Server::clear_faults() {
  faults_.clear();
  uv_timer_stop(&recovery_timer_);
  recover();
}

void Server::stop() {
  is_stopping_ = true;
  listener_.close();
  uv_close(reinterpret_cast<uv_handle_t*>(&recovery_timer_), nullptr);
  for (Connection* connection : connections_) connection->close();
}

}  // namespace plc_sim
