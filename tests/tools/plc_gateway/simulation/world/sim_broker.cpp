// The road to the broker, and what happens on it.
#include "tests/tools/plc_gateway/simulation/world/sim_broker.h"

#include <algorithm>
#include <utility>

namespace plc_gateway::simulation {

void SimBroker::serve(User* user) {
  if (connected_) end(true);
  ++connection_;
  open_ = false;
  user_ = user;
}

// For the connection of now alone.
void SimBroker::later(Ms ms, std::function<void()> act) {
  events_.at(clock_.steady_ms() + ms, [this, connection = connection_, act = std::move(act)] {
    if (connection == connection_) act();
  });
}

void SimBroker::set_mood(Mood mood) {
  const bool thaws = mood_ == Mood::kFrozen && mood != Mood::kFrozen;
  mood_ = mood;
  if (thaws && connected_) accept_arrived();
}

void SimBroker::connect(const Message& will) {
  if (user_->is_dead()) return;
  if (open_) throw Violation("a connect while there is a connection");
  watcher_.connecting(will);
  ++connection_;
  open_ = true;
  sent_connect_ = mood_ != Mood::kRefusing;
  switch (mood_) {
    case Mood::kRefusing:
      watcher_.connect_not_sent();
      later(random_.between(0, 5), [this] {
        open_ = false;
        watcher_.ended();
        user_->on_disconnected("connection refused");
      });
      return;
    case Mood::kSilent:
    case Mood::kFrozen:
      return;
    case Mood::kGood:
      break;
  }
  later(up_ms_ + down_ms_ + random_.between(0, 3), [this] {
    connected_ = true;
    last_arrival_ = 0;
    user_->on_connected();
  });
}

bool SimBroker::subscribe(const std::vector<std::string>& filters) {
  if (user_->is_dead()) return true;
  if (!open_) return false;
  watcher_.subscribing(filters);
  waits_for_host_ = std::find(filters.begin(), filters.end(), host_topic_) != filters.end();
  later(up_ms_ + down_ms_, [this] {
    if (!connected_ || mood_ == Mood::kFrozen) return;
    subscribed_ = true;
    user_->on_subscribed(true);
    if (waits_for_host_) tell_host_state();
  });
  return true;
}

void SimBroker::set_host_state(const std::string& topic, const std::string& payload, bool online) {
  host_topic_ = topic;
  host_payload_ = payload;
  host_online_ = online;
  if (connected_ && subscribed_ && waits_for_host_) tell_host_state();
}

void SimBroker::tell_host_state() {
  if (host_payload_.empty()) return;
  // A connection keeps the order of what it carries.
  host_told_ms_ = std::max(host_told_ms_, clock_.steady_ms() + down_ms_);
  later(host_told_ms_ - clock_.steady_ms(), [this, payload = host_payload_, online = host_online_] {
    if (!open_ || !connected_ || mood_ == Mood::kFrozen) return;
    watcher_.host_state_delivered(online);
    user_->on_message({host_topic_, payload, 1, true});
  });
}

std::optional<int> SimBroker::publish(const Message& message) {
  if (user_->is_dead()) return ++last_id_;
  if (!open_) throw Violation("a message is published without a connection");
  ++last_id_;
  if (!connected_) return last_id_;  // the other side has gone, and nobody has noticed
  watcher_.handed_over(message);
  last_arrival_ = std::max(last_arrival_, clock_.steady_ms() + up_ms_);
  const size_t bytes = message.topic.size() + message.payload.size();
  road_.push_back({last_id_, message.qos, bytes, last_arrival_});
  bytes_under_way_ += bytes;
  if (!accepting_ && mood_ != Mood::kFrozen) {
    accepting_ = true;
    later(last_arrival_ - clock_.steady_ms(), [this] { accept_arrived(); });
  }
  return last_id_;
}

void SimBroker::accept_first() {
  bytes_under_way_ -= road_.front().bytes;
  road_.pop_front();
  watcher_.accepted_first();
}

void SimBroker::accept_arrived() {
  accepting_ = false;
  if (mood_ == Mood::kFrozen) return;
  while (!road_.empty() && road_.front().arrives <= clock_.steady_ms()) {
    const OnTheRoad first = road_.front();
    accept_first();
    if (first.qos == 0) continue;
    later(down_ms_, [this, id = first.id] {
      if (open_ && connected_) user_->on_acknowledged(id);
    });
  }
  if (road_.empty()) return;
  accepting_ = true;
  later(road_.front().arrives - clock_.steady_ms(), [this] { accept_arrived(); });
}

void SimBroker::end(bool accept_some) {
  if (accept_some && mood_ != Mood::kFrozen) {
    for (uint64_t left = random_.below(road_.size() + 1); left > 0; --left) accept_first();
  }
  connected_ = false;
  subscribed_ = false;
  accepting_ = false;
  road_.clear();
  bytes_under_way_ = 0;
  watcher_.ended();
}

void SimBroker::lose_connection(Ms notice_ms) {
  if (!connected_) return;
  end(true);
  later(notice_ms, [this] {
    if (!open_) return;
    open_ = false;
    user_->on_disconnected("the connection was lost");
  });
}

void SimBroker::disconnect() {
  if (user_->is_dead()) return;
  if (connected_) {
    watcher_.said_goodbye();
    while (mood_ != Mood::kFrozen && !road_.empty()) accept_first();
    end(false);
  } else if (open_) {
    watcher_.ended();
  }
  open_ = false;
  ++connection_;
}

void SimBroker::drop() {
  if (user_->is_dead()) return;
  if (connected_) {
    end(true);
  } else if (open_) {
    watcher_.ended();
  }
  open_ = false;
  ++connection_;
}

void SimBroker::deliver(const Message& message, Ms delay) {
  later(delay, [this, message] {
    if (open_ && connected_ && subscribed_ && mood_ != Mood::kFrozen) user_->on_message(message);
  });
}

}  // namespace plc_gateway::simulation
