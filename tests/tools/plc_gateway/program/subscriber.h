// A client of the broker that keeps what it is sent.
#pragma once

#include <mosquitto.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace gateway_test {

struct Received {
  std::string topic;
  std::string payload;
};

class Subscriber {
 public:
  // Everything that goes over the broker at this port of 127.0.0.1, which takes anybody.
  explicit Subscriber(uint16_t port) : mosq_(mosquitto_new(nullptr, true, this)) {
    mosquitto_message_callback_set(mosq_.get(), [](mosquitto*, void* self, const mosquitto_message* message) {
      static_cast<Subscriber*>(self)->received_.push_back(
          {message->topic,
           std::string(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen))});
    });
    mosquitto_subscribe_callback_set(mosq_.get(), [](mosquitto*, void* self, int, int, const int*) {
      static_cast<Subscriber*>(self)->is_there_ = true;
    });
    mosquitto_connect_callback_set(mosq_.get(),
                                   [](mosquitto* mosq, void*, int) { mosquitto_subscribe(mosq, nullptr, "#", 1); });
    constexpr int kKeepAliveS = 60;
    mosquitto_connect(mosq_.get(), "127.0.0.1", port, kKeepAliveS);
    run_until([this] { return is_there_; });
  }
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

  bool is_there() const { return is_there_; }
  const std::vector<Received>& received() const { return received_; }
  void forget() { received_.clear(); }
  // Publishes with QoS 0; it hears its own messages too.
  bool say(const std::string& topic, const std::string& payload) {
    return mosquitto_publish(mosq_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 0,
                             false) == MOSQ_ERR_SUCCESS;
  }

  // Whether a message to this topic whose payload holds this text has come, or comes within patience.
  bool hears(const std::string& topic, const std::string& part = "") {
    return run_until([&] { return has_heard(topic, part); });
  }
  bool has_heard(const std::string& topic, const std::string& part = "") const {
    for (const Received& one : received_) {
      if (one.topic == topic && one.payload.find(part) != std::string::npos) return true;
    }
    return false;
  }

 private:
  struct Destroy {
    void operator()(mosquitto* mosq) const { mosquitto_destroy(mosq); }
  };

  bool run_until(const std::function<bool()>& is_so) {
    using Steady = std::chrono::steady_clock;
    constexpr std::chrono::seconds kPatience{30};
    constexpr int kWaitMs = 20;
    const Steady::time_point end = Steady::now() + kPatience;
    while (!is_so() && Steady::now() < end) mosquitto_loop(mosq_.get(), kWaitMs, 1);
    return is_so();
  }

  std::vector<Received> received_;
  bool is_there_ = false;
  std::unique_ptr<mosquitto, Destroy> mosq_;
};

}  // namespace gateway_test
