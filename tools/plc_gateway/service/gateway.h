// One edge node with its clock, controller, broker and journal, as one configuration wants them, in a loop of libuv.
#pragma once

#include <uv.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_gateway/broker/mosquitto_broker.h"
#include "tools/plc_gateway/config/config.h"
#include "tools/plc_gateway/controller/controller_worker.h"
#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/node/edge_node.h"
#include "tools/plc_gateway/service/log.h"

namespace plc_gateway {

// Of the system.
class SystemClock : public Clock {
 public:
  Ms wall_ms() const override;
  Ms steady_ms() const override;
};

class Gateway {
 public:
  // Opens the journal and finds the driver; nothing is sent before start(). Throws GatewayError. `log` and `loop`
  // outlive it; commands that `earlier` took are not taken again.
  Gateway(uv_loop_t* loop, const Config& config, Log& log, std::optional<CommandDesk> earlier = std::nullopt);
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  void start();
  // `stopped` is called from within the loop when the death is told and the goodbye is sent; it must not end this
  // object.
  void stop(std::function<void()> stopped);

  // To be called each second.
  void tick();

  const Config& config() const { return config_; }
  const EdgeNode& node() const { return node_; }
  JournalCounters journal_counters() const { return journal_.counters(); }
  CommandDesk take_desk() { return node_.take_desk(); }
  uint64_t messages_too_long() const { return broker_.dropped_messages(); }
  // The controller is given longer for a job than all of its time-outs together take.
  bool is_worker_stuck() const;
  // Nothing is asked of it any more, and it may be waiting for a controller that is silent.
  std::unique_ptr<ControllerWorker> take_worker() { return std::move(worker_); }
  // With what to try, where that is known; empty when there is none.
  std::string controller_problem() const {
    return controller_advice_.empty() ? controller_problem_ : controller_problem_ + ". " + controller_advice_;
  }

 private:
  // Where the worker's thread rings, as long as there is somebody to hear it.
  struct Bell;
  // The seam between the node and the worker: knows since when a job is under way.
  struct Port : ControllerPort {
    explicit Port(Gateway& gateway) : owner(gateway) {}
    void start_read(size_t piece) override;
    void start_write(const WriteJob& job) override;
    Gateway& owner;
  };

  BrokerEvents broker_events();
  void take_results();
  void note_bad(const ReadResult& result);
  void after();
  void tell_controller();
  void tell_broker();
  void tell_births();
  void tell_host_state(const std::string& reason, const std::string& what_to_do);
  void tell_long_birth(const std::string& topic, uint64_t bytes, bool& is_told);
  void tell_command(const CommandResult& ended);
  void tell_too_long(const std::string& topic, size_t bytes);
  void tell_journal();
  void tell(LogLevel level, std::string_view event, const LogFields& fields = {});

  uv_loop_t* loop_;
  const Config config_;
  Log& log_;
  SystemClock clock_;
  std::shared_ptr<Bell> bell_;
  std::unique_ptr<ControllerWorker> worker_;
  std::optional<Ms> busy_since_;
  Port port_;
  MosquittoBroker broker_;
  Journal journal_;
  EdgeNode node_;
  UvHandle<uv_timer_t> timer_;
  std::optional<Ms> timer_due_;
  std::function<void()> stopped_;

  // What was told last, so that changes are told.
  Counters told_;
  JournalCounters told_journal_;
  bool told_long_node_birth_ = false;
  bool told_long_device_birth_ = false;
  std::string controller_problem_;
  std::string controller_advice_;
  plc_client::Reason controller_reason_ = plc_client::Reason::kNone;
  plc_client::Reason told_reason_ = plc_client::Reason::kNone;
  std::vector<uint8_t> told_bad_;
};

}  // namespace plc_gateway
