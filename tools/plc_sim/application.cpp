// plc-sim as a whole.
#include "tools/plc_sim/application.h"

#include <uv.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>

#include "base/files.h"
#include "tools/plc_sim/console/console.h"
#include "tools/plc_sim/console/line_input.h"
#include "tools/plc_sim/console/report.h"
#include "tools/plc_sim/controller/ask_log.h"
#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/page/web_page.h"
#include "tools/plc_sim/page/web_server.h"
#include "tools/plc_sim/server/replay.h"
#include "tools/plc_sim/server/server.h"
#include "tools/plc_sim/variables/values.h"
#include "wire/captures/pcap_writer.h"

namespace plc_sim {
namespace {

// Far more than a controller's variables take; a wrong path may name anything.
constexpr size_t kMostTagFileBytes = size_t{256} << 20U;

constexpr int kDone = 0;
constexpr int kViolationSeen = 1;
constexpr int kNotStarted = 2;

void print_error(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

void print_output(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

// False when a tag file cannot be read, or has lines that cannot be declared.
bool load_tags(const Options& options, VariableStore& store) {
  bool is_good = true;
  std::vector<TagDeclaration> tags;
  for (const std::string& path : options.tag_files) {
    const plc_base::FileText bytes = plc_base::read_file(path, kMostTagFileBytes);
    if (!bytes.problem.empty()) {
      print_error("plc-sim: " + bytes.problem);
      return false;
    }
    const TagFile file = read_tag_text(path, bytes.text);
    for (const TagProblem& problem : file.problems) {
      const bool is_warning = problem.is_warning || options.skip_bad_lines;
      print_error(problem.file + ":" + std::to_string(problem.line) + (is_warning ? ": warning: " : ": error: ") +
                  problem.text);
      is_good = is_good && is_warning;
    }
    tags.insert(tags.end(), file.tags.begin(), file.tags.end());
  }
  for (const StoreProblem& problem : store.declare(tags, options.programs, options.directory_order)) {
    print_error(problem.file + ":" + std::to_string(problem.line) +
                (options.skip_bad_lines ? ": warning: " : ": error: ") + problem.text);
    is_good = is_good && options.skip_bad_lines;
  }
  return is_good;
}

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
  Application(const Options& options, VariableStore& store, std::vector<Exchange> captured)
      : options_(options),
        store_(store),
        controller_(store),
        replay_(std::move(captured)),
        log_([this] { return uv_now(&loop_.loop); }),
        tally_([this](const std::string& line) { print_finding(line); }),
        server_(
            &loop_.loop, [this](Session& session, const Bytes& frame) { return answer(session, frame); }, faults_,
            tally_),
        console_(store, faults_, tally_, make_hooks()),
        page_(store, faults_, tally_, [this](const std::string& line) { return console_.run(line); }),
        web_(&loop_.loop, [this](const WebRequest& request) { return page_.answer(request); }),
        input_(
            &loop_.loop, [this](const std::string& line) { print_output(console_.run(line)); }, [this] { stop(); }) {
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
    const std::string port = std::to_string(server_.port());
    // Whoever reads that it listens meets the faults.
    for (const Fault& fault : options_.faults) server_.arm(fault);
    print_output("listening on " + options_.listen.host + ":" + port + "\n");
    if (options_.web) print_output("web on http://" + options_.web->host + ":" + std::to_string(web_.port()) + "/\n");
    if (!options_.ignore_stdin) input_.start();
    uv_run(&loop_.loop, UV_RUN_DEFAULT);
    const bool has_capture = pcap_.close().empty();
    const bool has_report = options_.report.empty() || write_report();
    return tally_.counts.violations > 0 ? kViolationSeen : has_capture && has_report ? kDone : kNotStarted;
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
    hooks.arm = [this](const Fault& fault) { server_.arm(fault); };
    hooks.clear_faults = [this] { server_.clear_faults(); };
    hooks.quit = [this] { stop(); };
    hooks.report = [this](const std::string& format) { return make_report(store_, log_, format); };
    return hooks;
  }

  Answer answer(Session& session, const Bytes& frame) {
    return options_.replay.empty() ? controller_.handle(session, frame) : replay_.handle(session, frame);
  }

  // Empty when done, else what could not be opened and why.
  std::string open_everything() {
    std::string problem = server_.listen(options_.listen.host, options_.listen.port);
    if (!problem.empty()) {
      return "cannot listen on " + options_.listen.host + ":" + std::to_string(options_.listen.port) + ": " + problem;
    }
    if (options_.web) {
      problem = web_.listen(options_.web->host, options_.web->port);
      if (!problem.empty()) {
        return "cannot serve the page on " + options_.web->host + ":" + std::to_string(options_.web->port) + ": " +
               problem;
      }
    }
    if (!options_.pcap.empty()) {
      problem = pcap_.open(options_.pcap, server_.port());
      if (!problem.empty()) return "cannot write " + options_.pcap + ": " + problem;
      pcap_.on_failure(
          [this](const std::string& reason) { print_error("plc-sim: cannot write " + options_.pcap + ": " + reason); });
      server_.set_observer(&pcap_);
    }
    return {};
  }

  bool write_report() {
    const std::string report = make_report(store_, log_, report_format_for(options_.report));
    if (options_.report == "-") {
      print_output(report);
      return true;
    }
    std::ofstream file(options_.report, std::ios::binary);
    file << report;
    file.close();
    if (!file) print_error("plc-sim: cannot write " + options_.report);
    return static_cast<bool>(file);
  }

  void print_finding(const std::string& line) const {
    if (!options_.quiet || line.rfind("violation", 0) == 0) print_error(line);
  }

  void start_helpers() {
    uv_signal_init(&loop_.loop, &interrupt_);
    uv_signal_init(&loop_.loop, &terminate_);
    uv_timer_init(&loop_.loop, &animation_);
    interrupt_.data = terminate_.data = animation_.data = this;
    const auto on_signal = [](uv_signal_t* signal, int) { static_cast<Application*>(signal->data)->stop(); };
    uv_signal_start(&interrupt_, on_signal, SIGINT);
    uv_signal_start(&terminate_, on_signal, SIGTERM);
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
      uv_close(reinterpret_cast<uv_handle_t*>(&animation_), nullptr);
    }
  }

  Loop loop_;
  const Options& options_;
  VariableStore& store_;
  Controller controller_;
  Replay replay_;
  AskLog log_;
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
  uv_timer_t animation_{};
  uint64_t step_ = 0;
  bool has_helpers_ = false;
  bool is_stopping_ = false;
};

}  // namespace

int run_simulator(const Options& options) {
  VariableStore store;
  if (!load_tags(options, store)) return kNotStarted;
  if (options.sentinel) fill_with_sentinels(store);
  std::vector<Exchange> captured;
  if (!options.replay.empty()) {
    Capture capture = read_capture_file(options.replay);
    if (!capture.problem.empty()) print_error("plc-sim: " + options.replay + ": " + capture.problem);
    if (capture.exchanges.empty()) return kNotStarted;
    captured = std::move(capture.exchanges);
  }
  // A host that goes away while a reply is being sent must not end the controller.
  std::signal(SIGPIPE, SIG_IGN);
  return Application(options, store, std::move(captured)).run();
}

}  // namespace plc_sim
