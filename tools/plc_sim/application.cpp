// plc-sim as a whole.
#include "tools/plc_sim/application.h"

#include <sys/stat.h>
#include <uv.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>

#include "base/descriptors.h"
#include "base/text.h"
#include "base/whole_file.h"
#include "profile/profile_file.h"
#include "tools/plc_sim/console/console.h"
#include "tools/plc_sim/console/line_input.h"
#include "tools/plc_sim/console/report.h"
#include "tools/plc_sim/console/report_page.h"
#include "tools/plc_sim/controller/ask_log.h"
#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/controller/imitation.h"
#include "tools/plc_sim/controller/run_log.h"
#include "tools/plc_sim/descriptors.h"
#include "tools/plc_sim/load_tags.h"
#include "tools/plc_sim/messages.h"
#include "tools/plc_sim/page/web_page.h"
#include "tools/plc_sim/page/web_server.h"
#include "tools/plc_sim/server/replay.h"
#include "tools/plc_sim/server/server.h"
#include "tools/plc_sim/variables/values.h"
#include "wire/captures/pcap_writer.h"

namespace plc_sim {
namespace {

// Of the loop: its poll, its wake-up, two pipes for signals, and two of the first that live in it.
constexpr size_t kLoopDescriptors = 8;

constexpr int kDone = 0;
constexpr int kViolationSeen = 1;
constexpr int kNotStarted = 2;

template <typename Visit>
void for_each_declared(VariableStore& store, Visit visit) {
  for (auto& variable : store.variables()) {
    for (uint32_t i = 0; i < variable->elements; ++i) {
      visit(Element{variable.get(), store.element_place(*variable, i), i, 0});
    }
  }
}

void fill_with_sentinels(VariableStore& store) {
  for_each_declared(store, [&](const Element& element) {
    set_sentinel(store.memory(), element, element.variable->serial + *element.index);
  });
  store.fill_new_elements_with_sentinels(true);
}

class Application {
 public:
  Application(const Options& options, VariableStore& store, std::vector<Exchange> captured,
              const plc_profile::Profile* profile)
      : options_(options),
        store_(store),
        controller_(store),
        replay_(std::move(captured)),
        log_([this] { return uv_now(&loop_.loop); }),
        run_log_([this] { return uv_now(&loop_.loop); }),
        tally_([this](const std::string& line) { print_finding(line); }),
        server_(
            &loop_.loop, [this](Session& session, const Bytes& frame) { return answer(session, frame); }, faults_,
            tally_, run_log_),
        console_(store, faults_, tally_, make_hooks()),
        page_(store, faults_, tally_, [this](const std::string& line) { return console_.run(line); }),
        web_(
            &loop_.loop, [this](const WebRequest& request) { return page_.answer(request); }, own_shares().visitors),
        input_(
            &loop_.loop, [this](const std::string& line) { say(console_.run(line)); }, [this] { stop(); }) {
    server_.limit_connections(own_shares().connections);
    if (profile != nullptr) imitate(*profile);
    controller_.set_observer([this](const Asked& asked) { log_.add(asked); });
  }

  int run() {
    const std::string problem = open_everything();
    if (!problem.empty()) {
      print_error("plc-sim: " + problem);
      stop();
      uv_run(&loop_.loop, UV_RUN_DEFAULT);
      return kNotStarted;
    }
    start_helpers();
    // Whoever reads that it listens meets the faults.
    for (const Fault& fault : options_.faults) server_.arm(fault);
    warn_of_remote({options_.listen.host, server_.port()});
    if (options_.web) warn_of_remote({options_.web->host, web_.port()});
    listening_ = endpoint_text({options_.listen.host, server_.port()});
    say("listening on " + listening_ + "\n");
    if (options_.web) say("web on http://" + endpoint_text({options_.web->host, web_.port()}) + "/\n");
    page_.set_head({listening_, options_.tag_files, options_.replay});
    if (!options_.ignore_stdin && !is_stopping_) input_.start();
    uv_run(&loop_.loop, UV_RUN_DEFAULT);
    const bool has_capture = pcap_.close().empty();
    const bool has_report = options_.report.empty() || write_report();
    if (tally_.counts.violations > 0) return kViolationSeen;
    return has_capture && has_report && has_output_ ? kDone : kNotStarted;
  }

 private:
  // A loop that is closed last, after everything that lived in it.
  struct Loop {
    uv_loop_t loop{};
    Loop() { uv_loop_init(&loop); }
    ~Loop() { uv_loop_close(&loop); }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
  };

  Console::Hooks make_hooks() {
    Console::Hooks hooks;
    hooks.arm = [this](const Fault& fault) { return server_.arm(fault); };
    hooks.clear_faults = [this] { server_.clear_faults(); };
    hooks.quit = [this] { stop(); };
    hooks.has_variables = options_.replay.empty();
    hooks.report = [this](const std::string& format) { return make_report(store_, log_, format); };
    return hooks;
  }

  void imitate(const plc_profile::Profile& profile) {
    imitation_ = std::make_unique<Imitation>(profile, controller_, store_);
    for (const std::string& problem : imitation_->problems()) print_error("plc-sim: warning: " + problem);
    if (profile.segment_bytes) server_.announce_segment(*profile.segment_bytes);
    if (profile.most_connections) {
      server_.serve_at_most(*profile.most_connections, profile.one_more.value_or(plc_profile::Turned::kRefused));
    }
    if (profile.answers_half_closed.value_or(true)) server_.answer_half_closed();
  }

  Answer answer(Session& session, const Bytes& frame) {
    if (imitation_) return imitation_->handle(session, frame);
    return options_.replay.empty() ? controller_.handle(session, frame) : replay_.handle(session, frame);
  }

  // What cannot be printed ends plc-sim, and its exit code tells: also when whoever read it has gone.
  void say(const std::string& text) {
    if (!has_output_) return;
    const int error = print_output(text);
    if (error == 0) return;
    has_output_ = false;
    print_error(std::string("plc-sim: cannot write to standard output: ") + std::strerror(error));
    stop();
  }

  static void warn_of_remote(const Endpoint& endpoint) {
    if (is_loopback(endpoint)) return;
    print_error("plc-sim: warning: " + endpoint_text(endpoint) +
                " is open to other machines: whoever reaches it reads and sets every variable");
  }

  // Empty when done, else what could not be opened and why.
  std::string open_everything() {
    std::string problem = server_.listen(options_.listen.host, options_.listen.port);
    if (!problem.empty()) return "cannot listen on " + endpoint_text(options_.listen) + with_advice(problem);
    if (options_.web) {
      problem = web_.listen(options_.web->host, options_.web->port);
      if (!problem.empty()) return "cannot serve the page on " + endpoint_text(*options_.web) + with_advice(problem);
    }
    const bool is_same = options_.report == options_.pcap || plc_base::is_one_of(options_.report, {options_.pcap});
    if (!options_.pcap.empty() && is_same) {
      return "cannot write " + options_.report + ": --report and --pcap name the same file. Try: name two files";
    }
    if (!options_.pcap.empty()) {
      problem = pcap_.open(options_.pcap, server_.port(), options_.inputs());
      if (!problem.empty()) return output_problem(options_.pcap, problem);
      pcap_.on_failure(
          [this](const std::string& reason) { print_error("plc-sim: " + output_problem(options_.pcap, reason)); });
      server_.set_observer(&pcap_);
    }
    if (!options_.report.empty() && options_.report != "-") {
      problem = plc_base::why_not_written(options_.report, report_inputs());
      if (!problem.empty()) return output_problem(options_.report, problem);
    }
    return {};
  }

  static std::string with_advice(const std::string& problem) {
    // The page's library begins it with a small letter.
    const bool is_in_use = plc_base::is_same_but_case(problem, std::strerror(EADDRINUSE));
    const std::string advice = is_in_use                                 ? "another port, or 0 for a free one"
                               : problem == std::strerror(EADDRNOTAVAIL) ? "an address that this machine has"
                               : problem == std::strerror(EACCES)        ? "a port from 1024 on"
                                                                         : "";
    return ": " + problem + (advice.empty() ? "" : ". Try: " + advice);
  }

  static std::string output_problem(const std::string& path, const std::string& problem) {
    const std::string advice = plc_base::advice_on_output(problem);
    return "cannot write " + plc_base::told_name(path) + ": " + problem + (advice.empty() ? "" : ". Try: " + advice);
  }

  // A report is written neither over what was read nor over the capture.
  std::vector<std::string> report_inputs() const {
    std::vector<std::string> inputs = options_.inputs();
    if (!options_.pcap.empty()) inputs.push_back(options_.pcap);
    return inputs;
  }

  std::string formatted_report(const std::string& format) {
    if (format != "html") return make_report(store_, log_, format);
    uv_update_time(&loop_.loop);
    run_log_.slot_now();
    return report_page({listening_, options_.inputs(), store_, log_, run_log_, tally_});
  }

  bool write_report() {
    const std::string report = formatted_report(report_format_for(options_.report));
    if (options_.report == "-") {
      say(report);
      return has_output_;
    }
    const std::string problem = plc_base::write_whole_file(options_.report, report, report_inputs());
    if (!problem.empty()) print_error("plc-sim: " + output_problem(options_.report, problem));
    return problem.empty();
  }

  void print_finding(const std::string& line) const {
    if (!options_.quiet || line.rfind("violation", 0) == 0) print_error("plc-sim: " + line);
  }

  static bool is_hangup_ignored() {
    struct sigaction inherited {};
    return sigaction(SIGHUP, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN;
  }

  void start_helpers() {
    uv_signal_init(&loop_.loop, &interrupt_);
    uv_signal_init(&loop_.loop, &terminate_);
    uv_signal_init(&loop_.loop, &hangup_);
    uv_timer_init(&loop_.loop, &animation_);
    interrupt_.data = terminate_.data = hangup_.data = animation_.data = this;
    const auto on_signal = [](uv_signal_t* signal, int) { static_cast<Application*>(signal->data)->stop(); };
    uv_signal_start(&interrupt_, on_signal, SIGINT);
    uv_signal_start(&terminate_, on_signal, SIGTERM);
    // Under nohup it stays ignored.
    if (!is_hangup_ignored()) uv_signal_start(&hangup_, on_signal, SIGHUP);
    if (options_.animate_ms > 0) {
      const auto on_step = [](uv_timer_t* timer) { static_cast<Application*>(timer->data)->animate(); };
      uv_timer_start(&animation_, on_step, options_.animate_ms, options_.animate_ms);
    }
    has_helpers_ = true;
  }

  void animate() {
    ++step_;
    for_each_declared(store_, [&](const Element& element) { animate_value(store_.memory(), element, step_); });
  }

  void stop() {
    if (is_stopping_) return;
    is_stopping_ = true;
    input_.stop();
    web_.stop();
    server_.stop();
    if (has_helpers_) {
      uv_close(reinterpret_cast<uv_handle_t*>(&interrupt_), nullptr);
      uv_close(reinterpret_cast<uv_handle_t*>(&terminate_), nullptr);
      uv_close(reinterpret_cast<uv_handle_t*>(&hangup_), nullptr);
      uv_close(reinterpret_cast<uv_handle_t*>(&animation_), nullptr);
    }
  }

  Loop loop_;
  const Options& options_;
  VariableStore& store_;
  Controller controller_;
  std::unique_ptr<Imitation> imitation_;  // of a profile; null without one
  Replay replay_;
  AskLog log_;
  RunLog run_log_;
  FaultBook faults_;
  Tally tally_;
  PcapWriter pcap_;
  Server server_;
  Console console_;
  WebPage page_;
  WebServer web_;
  LineInput input_;
  uv_signal_t interrupt_{};
  uv_signal_t terminate_{};
  uv_signal_t hangup_{};
  uv_timer_t animation_{};
  std::string listening_;  // where hosts connect to
  uint64_t step_ = 0;
  bool has_helpers_ = false;
  bool is_stopping_ = false;
  bool has_output_ = true;  // false when something could not be printed
};

// None where the file has none; what is wrong with it is printed.
std::vector<Exchange> captured_exchanges(const std::string& file) {
  Capture capture = read_capture_file(file);
  struct stat status {};
  const bool is_empty = stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0;
  if (is_empty) capture.problem = "it is empty. Try: a capture that tshark or --pcap wrote";
  if (!capture.problem.empty()) print_error("plc-sim: " + file + ": " + capture.problem);
  return std::move(capture.exchanges);
}

plc_profile::ProfileResult profile_of(const std::string& file) {
  plc_profile::ProfileResult profile;
  if (!file.empty()) profile = plc_profile::read_profile(file);
  for (const plc_toml::Finding& finding : profile.findings) {
    const std::string of_file = finding.line == 0 ? "--profile: " : "";
    print_error("plc-sim: " + of_file + plc_profile::finding_line(finding) +
                (of_file.empty() ? "" : ". Try: the profile.toml that plc-host survey wrote"));
  }
  return profile;
}

}  // namespace

int run_simulator(const Options& options) {
  VariableStore store;
  if (!load_tags(options, store)) return kNotStarted;
  if (options.sentinel) fill_with_sentinels(store);
  std::vector<Exchange> captured;
  if (!options.replay.empty()) {
    captured = captured_exchanges(options.replay);
    if (captured.empty()) return kNotStarted;
  }
  const plc_profile::ProfileResult profile = profile_of(options.profile);
  if (!profile.ok()) return kNotStarted;
  const std::string problem = plc_base::problem_with_descriptors(kLoopDescriptors);
  if (!problem.empty()) {
    print_error("plc-sim: cannot start: " + problem);
    return kNotStarted;
  }
  // A host that goes away while a reply is being sent must not end the controller.
  std::signal(SIGPIPE, SIG_IGN);
  // Neither must a file that may not grow.
  std::signal(SIGXFSZ, SIG_IGN);
  return Application(options, store, std::move(captured), options.profile.empty() ? nullptr : &profile.profile).run();
}

}  // namespace plc_sim
