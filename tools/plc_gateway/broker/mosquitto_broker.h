// The broker behind its seam: finds its addresses, tries one after the other, and hands on what the connection says.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_gateway/broker/broker_options.h"
#include "tools/plc_gateway/broker/mosquitto_link.h"
#include "tools/plc_gateway/broker/uv_handle.h"

namespace plc_gateway {

class MosquittoBroker : public BrokerPort {
 public:
  MosquittoBroker(uv_loop_t* loop, BrokerOptions options, BrokerEvents events);
  ~MosquittoBroker() override;
  MosquittoBroker(const MosquittoBroker&) = delete;
  MosquittoBroker& operator=(const MosquittoBroker&) = delete;

  void connect(const Message& will) override;
  bool sent_connect() const override { return sent_connect_ || (link_ && link_->sent_connect()); }
  void disconnect() override;
  void drop() override;
  bool subscribe(const std::vector<std::string>& filters) override;
  std::optional<int> publish(const Message& message) override;
  std::optional<size_t> most_message_bytes() const override;

  // A goodbye is still on its way: up to a second after disconnect().
  bool is_leaving() const { return leaving_ != nullptr; }
  // From the broker, longer than kMostMessageFromBroker.
  uint64_t dropped_messages() const;

 private:
  // A name that is being looked up. libuv answers it in any case, maybe when nobody wants it any more.
  struct Lookup {
    uv_getaddrinfo_t request{};
    MosquittoBroker* owner = nullptr;
  };

  void resolve();
  static void on_resolved(uv_getaddrinfo_t* request, int status, addrinfo* list);
  void begin();
  void try_next();
  void fail_soon(std::string reason);
  void fail();
  void turn();
  void hand_on(LinkEvent& event);
  void end_leaving();
  void end_link();

  uv_loop_t* loop_;
  BrokerOptions options_;
  BrokerEvents events_;
  Lookup* lookup_ = nullptr;
  std::vector<std::string> addresses_;  // that are still to be tried, the next one last
  std::string password_;
  Message will_;
  std::unique_ptr<MosquittoLink> link_;
  std::unique_ptr<MosquittoLink> leaving_;
  bool sent_connect_ = false;  // by a link of this connect that is over
  bool wanted_ = false;        // a connection, that is there or to be made
  std::string failure_;        // that is to be told from the loop
  UvHandle<uv_timer_t> soon_;  // tells what came up within a call
  UvHandle<uv_timer_t> leave_by_;
  uint64_t dropped_before_ = 0;  // of connections that are over
};

}  // namespace plc_gateway
