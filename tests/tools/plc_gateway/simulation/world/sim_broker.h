// The broker of a life: takes, delays, acknowledges, freezes, refuses, is silent, loses connections with what it had
// not accepted, and tells what it accepted.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/world/random.h"
#include "tests/tools/plc_gateway/simulation/world/world.h"
#include "tools/plc_gateway/node/seams.h"

namespace plc_gateway::simulation {

class SimBroker : public BrokerPort {
 public:
  enum class Mood { kGood, kRefusing, kSilent, kFrozen };

  class User {
   public:
    virtual ~User() = default;
    virtual void on_connected() = 0;
    virtual void on_disconnected(const std::string& reason) = 0;
    virtual void on_subscribed(bool ok) = 0;
    virtual void on_acknowledged(int id) = 0;
    virtual void on_message(const Message& message) = 0;
    // The process has died, and does not know it yet: nothing that it does has an effect.
    virtual bool is_dead() const = 0;
  };
  // Sees both ends of the road.
  class Watcher {
   public:
    virtual ~Watcher() = default;
    virtual void connecting(const Message& will) = 0;
    // Nothing of it reached the broker.
    virtual void connect_not_sent() = 0;
    virtual void subscribing(const std::vector<std::string>& filters) = 0;
    virtual void host_state_delivered(bool online) = 0;
    // In the order of the calls; the broker accepts them in the same order, without holes, up to where the connection
    // ends.
    virtual void handed_over(const Message& message) = 0;
    virtual void accepted_first() = 0;
    virtual void said_goodbye() = 0;
    // What was handed over and not accepted is lost. Unless the edge node said goodbye, the will is published.
    virtual void ended() = 0;
  };

  SimBroker(SimClock& clock, Events& events, Random& random, Watcher& watcher)
      : clock_(clock), events_(events), random_(random), watcher_(watcher) {}

  // A new process. The connection of the last one ends, with what was on its way at random.
  void serve(User* user);
  void set_mood(Mood mood);
  void set_latency(Ms up, Ms down) {
    up_ms_ = up;
    down_ms_ = down;
  }
  // The edge node notices so much later, and goes on publishing until then.
  void lose_connection(Ms notice_ms);
  void set_host_state(const std::string& topic, const std::string& payload, bool online);
  // To whoever subscribed, when there is a connection.
  void deliver(const Message& message, Ms delay);

  bool is_online() const { return connected_ && subscribed_; }
  Mood mood() const { return mood_; }
  size_t bytes_under_way() const { return bytes_under_way_; }
  size_t messages_under_way() const { return road_.size(); }

  void connect(const Message& will) override;
  bool sent_connect() const override { return sent_connect_; }
  void disconnect() override;
  void drop() override;
  bool subscribe(const std::vector<std::string>& filters) override;
  std::optional<int> publish(const Message& message) override;

 private:
  struct OnTheRoad {
    int id = 0;
    int qos = 0;
    size_t bytes = 0;
    Ms arrives = 0;
  };

  void accept_arrived();
  void accept_first();
  void end(bool accept_some);
  void later(Ms ms, std::function<void()> act);
  void tell_host_state();

  SimClock& clock_;
  Events& events_;
  Random& random_;
  Watcher& watcher_;
  User* user_ = nullptr;
  Mood mood_ = Mood::kGood;
  Ms up_ms_ = 0;
  Ms down_ms_ = 0;
  uint64_t connection_ = 0;
  bool open_ = false;  // as the edge node believes
  bool sent_connect_ = false;
  bool connected_ = false;  // as the broker knows
  bool subscribed_ = false;
  bool waits_for_host_ = false;
  bool accepting_ = false;  // an event to accept what has arrived is there
  int last_id_ = 0;
  std::deque<OnTheRoad> road_;
  size_t bytes_under_way_ = 0;
  Ms last_arrival_ = 0;
  std::string host_topic_, host_payload_;
  bool host_online_ = false;
  Ms host_told_ms_ = 0;  // when the last state arrives
};

}  // namespace plc_gateway::simulation
