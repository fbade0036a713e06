// The four things of the world that the edge node needs: a clock, a controller, a broker, and a disk (which is the
// journal's: see journal.h). What happens in the world comes back as calls of EdgeNode, never from inside these calls.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

class Clock {
 public:
  virtual ~Clock() = default;
  // Of the day, in UTC: what stands in messages. It may jump.
  virtual Ms wall_ms() const = 0;
  // Never goes back: what waits are measured with.
  virtual Ms steady_ms() const = 0;
};

// The controller. It does one job at a time: nothing is started before the last one was answered.
class ControllerPort {
 public:
  virtual ~ControllerPort() = default;
  // Reads the variables of a piece, which is what one call of the driver delivers. Answered by EdgeNode::on_read.
  virtual void start_read(size_t piece) = 0;
  // Answered by EdgeNode::on_written.
  virtual void start_write(const WriteJob& job) = 0;
};

// Of a read.
struct ReadResult {
  size_t piece = 0;
  std::vector<Sample> samples;  // one for each variable of the piece
  bool link_lost = false;       // the controller did not answer, or not as one: every sample is without a value
  plc_client::Reason reason = plc_client::Reason::kNone;  // why the link was lost
  std::string error;
  std::string advice;  // what to try; may be empty
};

struct Message {
  std::string topic;
  std::string payload;
  int qos = 0;
  bool retained = false;
};

// The broker. At most one connection at a time.
class BrokerPort {
 public:
  virtual ~BrokerPort() = default;
  // Clean session. Answered by on_connected or on_disconnected.
  virtual void connect(const Message& will) = 0;
  // False as long as nothing of the last connect can have reached a broker: there was no route, or nobody listened.
  virtual bool sent_connect() const { return true; }
  // Says goodbye: the broker does not publish the will, or only as the second of two deaths. No event follows.
  virtual void disconnect() = 0;
  // Ends the connection without a word: the broker publishes the will. No event follows.
  virtual void drop() = 0;
  // QoS 1. Answered by on_subscribed, once for each call.
  virtual bool subscribe(const std::vector<std::string>& filters) = 0;
  // The message's number, by which on_acknowledged names it when it has QoS 1. Nothing: it was not taken, for there is
  // no connection, or no memory. Messages reach the broker in the order of these calls.
  virtual std::optional<int> publish(const Message& message) = 0;
  // The longest message that the broker takes, with all that MQTT adds to it. Nothing: it named no limit.
  virtual std::optional<size_t> most_message_bytes() const { return std::nullopt; }
};

}  // namespace plc_gateway
