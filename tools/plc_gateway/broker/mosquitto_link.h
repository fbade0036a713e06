// One connection to one address of the broker: libmosquitto, without a thread of its own, in the gateway's loop.
#pragma once

#include <mosquitto.h>

#include <bitset>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_gateway/broker/broker_options.h"
#include "tools/plc_gateway/broker/tls_context.h"
#include "tools/plc_gateway/broker/uv_handle.h"

namespace plc_gateway {

// Longer messages than a command can be are dropped.
constexpr size_t kMostMessageFromBroker = size_t{256} * 1024;

struct LinkEvent {
  enum class Kind : uint8_t { kConnected, kLost, kSubscribed, kAcknowledged, kMessage, kTooLong } kind = Kind::kLost;
  bool ok = true;        // kSubscribed
  bool refused = false;  // kLost: the broker spoke, another address is no help
  int id = 0;            // kAcknowledged
  std::string reason;    // kLost
  Message message;       // kMessage; kTooLong: its topic alone
  size_t bytes = 0;      // kTooLong
};

class MosquittoLink {
 public:
  // `turned` is called at the end of each turn in the loop, when there may be events; the link may go meanwhile.
  // `options` outlive it.
  MosquittoLink(uv_loop_t* loop, const BrokerOptions& options, std::function<void()> turned);
  ~MosquittoLink();
  MosquittoLink(const MosquittoLink&) = delete;
  MosquittoLink& operator=(const MosquittoLink&) = delete;

  // Begins; ends with kConnected or kLost. Empty, or why it cannot begin.
  std::string open(const std::string& address, const Message& will, const std::string& password);
  bool subscribe(const std::vector<std::string>& filters);
  std::optional<int> publish(const Message& message);
  // Sends what is waiting and a goodbye. finished() when it is sent, or cannot be.
  void finish();
  bool finished() const { return lost_; }
  // Its CONNECT can have reached a broker.
  bool sent_connect() const { return on_wire_; }
  // As the broker said it when it took the connection; nothing when it did not.
  std::optional<size_t> most_message_bytes() const { return most_message_bytes_; }

  // Oldest first.
  std::optional<LinkEvent> next_event();
  bool has_events() const { return !events_.empty(); }
  uint64_t dropped_messages() const { return dropped_messages_; }

 private:
  static void on_connect(mosquitto* mosq, void* self, int code, int flags, const mosquitto_property* properties);
  static void on_disconnect(mosquitto* mosq, void* self, int code, const mosquitto_property* properties);
  static void on_publish(mosquitto* mosq, void* self, int id, int code, const mosquitto_property* properties);
  static void on_subscribe(mosquitto* mosq, void* self, int id, int count, const int* granted,
                           const mosquitto_property* properties);
  static void on_message(mosquitto* mosq, void* self, const mosquitto_message* message,
                         const mosquitto_property* properties);
  static void on_log(mosquitto* mosq, void* self, int level, const char* line);

  std::string set_up(const Message& will, const std::string& password);
  std::string set_up_tls();
  bool watch();
  void look();
  void turn(int status, int events);
  void second();
  bool check_connected();
  void after(int result);
  void lose(std::string reason, bool refused = false);
  std::string reason_of(int result) const;
  void push(LinkEvent event);

  struct Destroy {
    void operator()(mosquitto* mosq) const { mosquitto_destroy(mosq); }
  };

  uv_loop_t* loop_;
  const BrokerOptions& options_;
  std::function<void()> turned_;
  std::unique_ptr<TlsContext> tls_;
  std::unique_ptr<mosquitto, Destroy> mosq_;
  UvHandle<uv_poll_t> poll_;
  UvHandle<uv_timer_t> timer_;
  int socket_ = -1;  // a second descriptor of libmosquitto's, so that nobody else gets its number while it is watched
  int watched_ = 0;  // UV_READABLE and UV_WRITABLE
  int seconds_ = 0;  // since it was opened
  int early_error_ = 0;   // of the system, while the connection was begun
  bool on_wire_ = false;  // TCP is connected
  bool greeted_ = false;  // the broker took the connection
  bool lost_ = false;
  int subscription_ = 0;
  std::bitset<65536> unacknowledged_;  // numbers of messages of QoS 1; libmosquitto tells of the others too
  std::optional<size_t> most_message_bytes_;
  std::string last_line_;  // of libmosquitto, about an error
  std::string refusal_;    // the broker's own words, before it ends the connection
  std::deque<LinkEvent> events_;
  uint64_t dropped_messages_ = 0;
};

}  // namespace plc_gateway
