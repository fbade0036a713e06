// plc-sim as a whole.
#include "simulator/application.h"

#include <uv.h>

#include <csignal>
#include <cstdio>
#include <memory>

#include "simulator/console.h"
#include "simulator/controller.h"
#include "simulator/line_input.h"
#include "simulator/server.h"
#include "simulator/values.h"

namespace plc_sim {
namespace {

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
    auto file = read_tag_file(path);
    if (!file) {
      print_error("plc-sim: cannot read " + path);
      return false;
    }
    for (const TagProblem& problem : file->problems) {
      const bool is_warning = problem.is_warning || options.skip_bad_lines;
      print_error(problem.file + ":" + std::to_string(problem.line) + (is_warning ? ": warning: " : ": error: ") +
                  problem.text);
      is_good = is_good && is_warning;
    }
    tags.insert(tags.end(), file->tags.begin(), file->tags.end());
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
  Application(const Options& options, VariableStore& store)
      : options_(options),
        store_(store),
        controller_(store),
        tally_([this](const std::string& line) { print_finding(line); }),
        server_(
            &loop_.loop, [this](Session& session, const Bytes& frame) { return controller_.handle(session, frame); },
            faults_, tally_),
        console_(store, faults_, tally_,
                 {[this](const Fault& fault) { server_.arm(fault); }, [this] { server_.clear_faults(); },
                  [this] { stop(); }, [](const std::string&) { return std::string(); }}),
        input_(
            &loop_.loop, [this](const std::string& line) { print_output(console_.run(line)); }, [this] { stop(); }) {}

  int run() {
    const std::string problem = server_.listen(options_.listen.host, options_.listen.port);
    if (!problem.empty()) {
      print_error("plc-sim: cannot listen on " + options_.listen.host + ":" + std::to_string(options_.listen.port) +
                  ": " + problem);
      stop();
      uv_run(&loop_.loop, UV_RUN_DEFAULT);
      return kNotStarted;
    }
    start_helpers();
    print_output("listening on " + options_.listen.host + ":" + std::to_string(server_.port()) + "\n");
    for (const Fault& fault : options_.faults) {
      server_.arm(fault);
    }
    if (!options_.ignore_stdin) {
      input_.start();
    }
    uv_run(&loop_.loop, UV_RUN_DEFAULT);
    return tally_.counts.violations == 0 ? kDone : kViolationSeen;
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

  void print_finding(const std::string& line) const {
    if (!options_.quiet || line.rfind("violation", 0) == 0) {
      print_error(line);
    }
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
    if (is_stopping_) {
      return;
    }
    is_stopping_ = true;
    input_.stop();
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
  FaultBook faults_;
  Tally tally_;
  Server server_;
  Console console_;
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
  if (!load_tags(options, store)) {
    return kNotStarted;
  }
  if (options.sentinel) {
    fill_with_sentinels(store);
  }
  // A host that goes away while a reply is being sent must not end the controller.
  std::signal(SIGPIPE, SIG_IGN);
  return Application(options, store).run();
}

}  // namespace plc_sim
