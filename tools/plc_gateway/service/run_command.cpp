// plc-gateway run: the loop, signals, the supervisor, the metrics, and the configuration read again.
#include <uv.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_gateway/metrics/metrics_server.h"
#include "tools/plc_gateway/metrics/metrics_text.h"
#include "tools/plc_gateway/service/checked_config.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"
#include "tools/plc_gateway/service/findings_text.h"
#include "tools/plc_gateway/service/gateway.h"
#include "tools/plc_gateway/service/resources.h"
#include "tools/plc_gateway/service/supervisor.h"
#include "tools/plc_gateway/service/worker_end.h"

namespace plc_gateway {
namespace {

constexpr uint64_t kTickMs = 1000;
constexpr int kHttpOk = 200;
constexpr int kHttpNotFound = 404;
constexpr int kHttpUnavailable = 503;

std::string metrics_place(const Config& config) {
  const bool has_colons = config.metrics_host.find(':') != std::string::npos;
  return (has_colons ? "[" + config.metrics_host + "]" : config.metrics_host) + ":" +
         std::to_string(config.metrics_port);
}

class Run {
 public:
  Run(std::string file, const Config& config) : file_(std::move(file)), started_(clock_.wall_ms()) {
    begin_loop(&loop_);
    try {
      gateway_ = std::make_unique<Gateway>(&loop_, config, log_);
      const std::string problem = serve_metrics(config);
      if (!problem.empty()) throw GatewayError(kExitFailed, problem);
    } catch (const GatewayError&) {
      gateway_.reset();
      uv_run(&loop_, UV_RUN_DEFAULT);  // in it ends what was begun
      uv_loop_close(&loop_);
      throw;
    }
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  int run() {
    start_handles();
    gateway_->start();
    tell(LogLevel::kInfo, "started",
         {{"version", PLC_GATEWAY_VERSION}, {"configuration", file_}, {"device", gateway_->config().device}});
    supervisor_.ready();
    uv_run(&loop_, UV_RUN_DEFAULT);
    tell(LogLevel::kInfo, "stopped", {{"unconfirmed_rows", std::to_string(last_rows_)}});
    return code_;
  }

  // Everything that waits has been told to end, and a silent controller or name server may take its time.
  bool is_clean() { return ends_.all_ended() && uv_loop_close(&loop_) == 0; }

 private:
  static Run* self_of(void* data) { return static_cast<Run*>(data); }

  void start_handles() {
    for (auto [signal, number] :
         {std::pair{&terminate_, SIGTERM}, std::pair{&interrupt_, SIGINT}, std::pair{&hang_up_, SIGHUP}}) {
      uv_signal_init(&loop_, signal);
      signal->data = this;
      uv_signal_start(
          signal, [](uv_signal_t* from, int which) { self_of(from->data)->on_signal(which); }, number);
    }
    uv_timer_init(&loop_, &second_);
    uv_timer_init(&loop_, &turn_);
    second_.data = turn_.data = this;
    uv_timer_start(
        &second_, [](uv_timer_t* timer) { self_of(timer->data)->tick(); }, kTickMs, kTickMs);
  }

  void on_signal(int number) {
    if (number == SIGHUP) {
      reload();
    } else if (!is_stopping_) {
      is_stopping_ = true;
      supervisor_.stopping();
      if (!is_changing_) stop_gateway();
    }
  }

  // Nothing is closed from within a call of the gateway: the next turn of the loop does it.
  void stop_gateway() {
    gateway_->stop([this] {
      uv_timer_start(
          &turn_, [](uv_timer_t* timer) { self_of(timer->data)->on_stopped(); }, 0, 0);
    });
  }

  void on_stopped() {
    last_rows_ = gateway_->journal_counters().rows;
    ends_.add(gateway_->take_worker());
    std::optional<CommandDesk> desk(gateway_->take_desk());
    const Config old = gateway_->config();
    gateway_.reset();
    if (is_stopping_) {
      close_handles();
    } else {
      begin_again(old, std::move(desk));
    }
  }

  void close_handles() {
    for (uv_signal_t* signal : {&terminate_, &interrupt_, &hang_up_}) {
      uv_close(reinterpret_cast<uv_handle_t*>(signal), nullptr);
    }
    uv_close(reinterpret_cast<uv_handle_t*>(&second_), nullptr);
    uv_close(reinterpret_cast<uv_handle_t*>(&turn_), nullptr);
    for (const auto& server : servers_) server->stop();
  }

  void tick() {
    const Ms now = clock_.steady_ms();
    log_.tick(now);
    if (!gateway_) return;
    gateway_->tick();
    supervisor_.status(status_line());
    if (!gateway_->is_worker_stuck()) supervisor_.feed();
  }

  std::string status_line() const {
    const Counters& counters = gateway_->node().counters();
    return std::string("controller ") + (counters.controller_alive ? "answers" : "away") + ", broker " +
           (counters.births_out ? "connected" : "away") + ", " +
           plc_base::plural(gateway_->journal_counters().rows, "row") + " unconfirmed";
  }

  // -------------------------------------------------------------------------------------------------- the metrics

  // Empty, or why the metrics cannot be had where the configuration wants them. An address that is served stays.
  std::string serve_metrics(const Config& config) {
    const std::string place = config.metrics_host.empty() ? std::string() : metrics_place(config);
    if (place == served_at_) return {};
    if (!servers_.empty()) servers_.back()->stop();
    served_at_.clear();
    if (place.empty()) return {};
    auto server = std::make_unique<MetricsServer>(&loop_, [this](const std::string& path) { return answer(path); });
    const std::string problem = server->listen(config.metrics_host, config.metrics_port);
    if (!problem.empty()) {
      return "metrics: cannot listen on " + place + ": " + problem + "; choose another address in [metrics] listen";
    }
    servers_.push_back(std::move(server));
    served_at_ = place;
    tell(LogLevel::kInfo, "metrics",
         {{"url", "http://" + (config.metrics_port != 0 ? place : port_given()) + "/metrics"}});
    return {};
  }

  std::string port_given() const {
    return served_at_.substr(0, served_at_.rfind(':') + 1) + std::to_string(servers_.back()->port());
  }

  MetricsAnswer answer(const std::string& path) {
    MetricsAnswer page;
    if (path == "/healthz") {
      page.body = health(&page.status);
    } else if (path != "/metrics") {
      page.status = kHttpNotFound;
      page.body = "plc-gateway: there is /metrics and /healthz\n";
    } else if (!gateway_) {
      page.status = kHttpUnavailable;
      page.body = "plc-gateway: the configuration is being taken\n";
    } else {
      page.type = "text/plain; version=0.0.4; charset=utf-8";
      page.body = metrics_text(view());
    }
    return page;
  }

  MetricsView view() const {
    const Config& config = gateway_->config();
    MetricsView view;
    view.counters = &gateway_->node().counters();
    view.journal = gateway_->journal_counters();
    for (const PollGroup& poll : config.polls) view.periods.push_back(poll.every_ms);
    view.version = PLC_GATEWAY_VERSION;
    view.group = config.group;
    view.edge_node = config.edge_node;
    view.device = config.device;
    view.variables = config.variables.size();
    view.messages_too_long = gateway_->messages_too_long();
    view.reloads = reloads_;
    view.reloads_refused = reloads_refused_;
    view.started = started_;
    view.now = clock_.wall_ms();
    return view;
  }

  // A broker that is away is tried again, and nothing is lost meanwhile: it alone is no illness.
  std::string health(int* status) const {
    *status = kHttpUnavailable;
    if (!gateway_) return "the configuration is being taken\n";
    const Counters& counters = gateway_->node().counters();
    if (gateway_->is_worker_stuck()) return "the driver does not come back from a call\n";
    const std::string away = gateway_->controller_problem();
    if (!counters.controller_alive) {
      return "the controller is not polled: " + (away.empty() ? "it was not reached yet" : plc_base::shown_line(away)) +
             "\n";
    }
    *status = kHttpOk;
    if (counters.births_out) return "ok\n";
    const std::string& why = gateway_->node().broker_problem();
    return "ok; the broker is being tried: " + (why.empty() ? "it was not reached yet" : plc_base::shown_line(why)) +
           "\n";
  }

  // -------------------------------------------------------------------------------------------------- read again

  struct Load {
    uv_work_t work{};
    Run* run = nullptr;
    std::string file;
    ConfigResult result;
  };

  // In a thread of libuv's: names are looked up, and tag files may be many.
  void reload() {
    if (is_changing_ || is_stopping_) return;
    is_changing_ = true;
    supervisor_.reloading();
    auto* load = new Load;
    load->run = this;
    load->file = file_;
    load->work.data = load;
    const auto read = [](uv_work_t* work) {
      auto* self = static_cast<Load*>(work->data);
      self->result = load_checked_config(self->file);
    };
    const auto done = [](uv_work_t* work, int) {
      const std::unique_ptr<Load> self(static_cast<Load*>(work->data));
      self->run->on_loaded(std::move(self->result));
    };
    uv_queue_work(&loop_, &load->work, read, done);
  }

  void on_loaded(ConfigResult result) {
    if (is_stopping_) {
      stop_gateway();
      return;
    }
    for (const Finding& finding : result.findings) {
      tell(finding.is_error ? LogLevel::kError : LogLevel::kWarning, finding.is_error ? "config_error" : "config_note",
           {{"place", finding_place(finding)}, {"text", finding.text}});
    }
    if (!result.ok()) {
      refuse_reload("the configuration has mistakes");
      return;
    }
    next_ = std::move(result.config);
    stop_gateway();
  }

  void refuse_reload(const std::string& why) {
    ++reloads_refused_;
    is_changing_ = false;
    tell(LogLevel::kError, "reload_refused", {{"reason", why}, {"what_to_do", "the one before goes on; correct it"}});
    supervisor_.ready();
  }

  void begin_again(const Config& old, std::optional<CommandDesk> desk) {
    try {
      gateway_ = std::make_unique<Gateway>(&loop_, next_, log_, desk);
    } catch (const GatewayError& error) {
      go_on_with(old, std::move(desk), error.what());
      return;
    }
    is_changing_ = false;
    ++reloads_;
    const std::string problem = serve_metrics(next_);
    if (!problem.empty()) tell(LogLevel::kError, "metrics_away", {{"reason", problem}});
    gateway_->start();
    tell(LogLevel::kInfo, "reloaded",
         {{"configuration", file_}, {"variables", std::to_string(next_.variables.size())}});
    supervisor_.ready();
  }

  // What was fine when it was checked cannot be used all the same.
  void go_on_with(const Config& old, std::optional<CommandDesk> desk, const std::string& why) {
    try {
      gateway_ = std::make_unique<Gateway>(&loop_, old, log_, std::move(desk));
    } catch (const GatewayError& error) {
      tell(LogLevel::kError, "ended", {{"reason", error.what()}});
      code_ = error.code();
      close_handles();
      return;
    }
    gateway_->start();
    refuse_reload(why);
  }

  void tell(LogLevel level, std::string_view event, const LogFields& fields) {
    log_.write(level, event, fields, clock_.steady_ms());
  }

  const std::string file_;
  SystemClock clock_;
  Ms started_;
  Log log_;
  Supervisor supervisor_;
  WorkerEnds ends_;
  uv_loop_t loop_{};
  std::unique_ptr<Gateway> gateway_;
  std::vector<std::unique_ptr<MetricsServer>> servers_;  // all but the last are stopped
  std::string served_at_;
  uv_signal_t terminate_{}, interrupt_{}, hang_up_{};
  uv_timer_t second_{};
  uv_timer_t turn_{};
  Config next_;
  bool is_changing_ = false;  // from the signal until the new configuration is used or refused
  bool is_stopping_ = false;
  uint64_t reloads_ = 0;
  uint64_t reloads_refused_ = 0;
  uint64_t last_rows_ = 0;
  int code_ = kExitOk;
};

}  // namespace

int run_gateway(const std::string& file) {
  require_resources();
  ConfigResult loaded = load_checked_config(file);
  require_ok(loaded, file);
  // A broker or a visitor that goes away must not end the gateway.
  std::signal(SIGPIPE, SIG_IGN);
  auto run = std::make_unique<Run>(file, std::exchange(loaded.config, {}));
  const int code = run->run();
  if (run->is_clean()) return code;
  std::fflush(stderr);
  std::_Exit(code);
}

}  // namespace plc_gateway
