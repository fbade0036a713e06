// The worker's thread: takes a job, makes the client library's call, hands the result over.
#include "tools/plc_gateway/controller/controller_worker.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tools/plc_gateway/controller/pieces.h"
#include "tools/plc_gateway/model/driver_build.h"

namespace plc_gateway {
namespace {

using plc_client::Reading;
using plc_client::Reason;

// A controller that is back is to be found within seconds, however long it was away.
constexpr std::chrono::milliseconds kLongestPause{2000};
constexpr std::chrono::milliseconds kFirstSearchPause{250};

plc_client::Options paced(plc_client::Options options) {
  options.longest_pause = kLongestPause;
  return options;
}

std::string with_advice(const plc_client::Problem& problem) {
  return problem.advice.empty() ? problem.text : problem.text + ". " + problem.advice;
}

Ms now_ms() { return wall_ms_of(std::chrono::system_clock::now()); }

}  // namespace

ControllerWorker::ControllerWorker(const plc_client::Options& options, std::string tag_address,
                                   std::vector<Variable> variables, std::vector<CommandRule> rules,
                                   std::function<void()> wake)
    : variables_(std::move(variables)), rules_(std::move(rules)), wake_(std::move(wake)), options_(paced(options)) {
  plc_client::Options known = options_;
  known.address = std::move(tag_address);
  auto controller = std::make_unique<plc_client::Controller>(known);
  pieces_ = cut_into_pieces(*controller, variables_);
  if (known.address == options_.address) use(std::move(controller));
  thread_ = std::thread([this] { work(); });
}

void ControllerWorker::use(std::unique_ptr<plc_client::Controller> controller) {
  plans_.reserve(pieces_.size());
  for (const Piece& piece : pieces_) plans_.push_back(controller->plan(names_of(piece, variables_)));
  controller_ = std::move(controller);
}

// Nothing when it is there. A name server is asked in growing pauses.
plc_client::Problem ControllerWorker::find_controller() {
  if (controller_) return {};
  if (std::chrono::steady_clock::now() < next_search_) return {Reason::kNotTried, search_problem_, {}};
  try {
    use(std::make_unique<plc_client::Controller>(options_));
    return {};
  } catch (const plc_client::Error& error) {
    search_problem_ = error.what();
  }
  search_pause_ = std::clamp(2 * search_pause_, kFirstSearchPause, kLongestPause);
  next_search_ = std::chrono::steady_clock::now() + search_pause_;
  return {Reason::kNoConnection, search_problem_, {}};
}

ControllerWorker::~ControllerWorker() { stop(); }

void ControllerWorker::start(Job job) {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    job_ = std::move(job);
  }
  has_job_.notify_one();
}

void ControllerWorker::start_read(size_t piece) { start(piece); }
void ControllerWorker::start_write(const WriteJob& job) { start(job); }

std::vector<ControllerWorker::Result> ControllerWorker::take_results() {
  const std::lock_guard<std::mutex> hold(lock_);
  return std::exchange(results_, {});
}

void ControllerWorker::stop() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    is_stopping_ = true;
  }
  has_job_.notify_one();
  thread_.join();
}

LinkFigures ControllerWorker::figures() const { return {connected_, connects_, exchanges_, drops_}; }

std::optional<ControllerWorker::Job> ControllerWorker::next_job() {
  std::unique_lock<std::mutex> hold(lock_);
  has_job_.wait(hold, [this] { return is_stopping_ || job_.has_value(); });
  if (is_stopping_) return std::nullopt;
  return std::exchange(job_, std::nullopt);
}

void ControllerWorker::work() {
  while (const std::optional<Job> job = next_job()) {
    const size_t* piece = std::get_if<size_t>(&*job);
    Result result = piece != nullptr ? Result(read(*piece)) : Result(write(std::get<WriteJob>(*job)));
    note_figures();
    {
      const std::lock_guard<std::mutex> hold(lock_);
      results_.push_back(std::move(result));
    }
    wake_();
  }
  if (controller_) controller_->close();
  note_figures();
}

void ControllerWorker::note_figures() {
  if (!controller_) return;
  const plc_client::State state = controller_->state();
  connected_ = state.connected;
  connects_ = state.connects;
  exchanges_ = state.exchanges;
  drops_ = state.drops;
}

// The link is lost when one reading says so: what was read before it in the same call is older than the loss.
void ControllerWorker::take_readings(const Piece& piece, const std::vector<Reading>& readings, ReadResult& result) {
  result.samples.reserve(readings.size());
  for (size_t i = 0; i < readings.size(); ++i) {
    const uint32_t index = piece.variables[i];
    maker_.add(index, variables_[index], readings[i], result.samples);
    if (readings[i].ok() || result.link_lost) continue;
    const Reason reason = readings[i].error.reason;
    // The connection's state is asked for only where it makes a difference: a copy of it takes memory.
    if (!is_of_the_link(reason, reason == Reason::kFailed && controller_->state().connected)) continue;
    result.link_lost = true;
    result.reason = reason;
    result.error = readings[i].error.text;
    result.advice = readings[i].error.advice;
  }
}

ReadResult ControllerWorker::read(size_t piece) {
  ReadResult result;
  result.piece = piece;
  const plc_client::Problem unknown = find_controller();
  try {
    if (controller_) take_readings(pieces_[piece], controller_->read(plans_[piece]), result);
  } catch (const plc_client::Error& error) {
    result.link_lost = true;
    result.reason = Reason::kFailed;
    result.error = error.what();
  }
  if (!controller_) {
    result.link_lost = true;
    result.reason = unknown.reason;
    result.error = unknown.text;
    result.advice = unknown.advice;
  }
  if (!result.link_lost) return result;
  const Ms now = now_ms();
  result.samples.clear();
  for (const uint32_t index : pieces_[piece].variables) {
    Sample& sample = result.samples.emplace_back();
    sample.variable = index;
    sample.time = now;
    sample.reason = result.reason;
  }
  return result;
}

WriteOutcome ControllerWorker::write(const WriteJob& job) {
  WriteOutcome outcome;
  if (const plc_client::Problem unknown = find_controller(); !controller_) {
    outcome.reason = unknown.reason;
    outcome.error = unknown.text;
    outcome.time = now_ms();
    return outcome;
  }
  const CommandRule& rule = rules_[job.rule];
  const uint64_t calls = controller_->state().calls;
  try {
    const plc_client::WriteResult written = controller_->write(
        rule.name, job.value, rule.verify ? plc_client::Verify::kReadBack : plc_client::Verify::kNone);
    outcome.outcome = written.outcome;
    outcome.verified = written.verified;
    outcome.reason = written.error.reason;
    outcome.error = with_advice(written.error);
    outcome.time = wall_ms_of(written.time);
    if (outcome.outcome == plc_client::Outcome::kDone && !is_guarded_build(controller_->driver_build())) {
      outcome.outcome = plc_client::Outcome::kUnknown;
      outcome.error = outcome.verified ? "it was read back, but the contract build does not check replies"
                                       : "the contract build sees no acknowledgment: read the variable";
    }
  } catch (const plc_client::Error& error) {
    // Thrown before anything was sent, unless the driver broke its word in a call.
    const bool was_called = controller_->state().calls != calls;
    outcome.outcome = was_called ? plc_client::Outcome::kUnknown : plc_client::Outcome::kNotDone;
    outcome.reason = was_called ? Reason::kFailed : Reason::kImpossible;
    outcome.error = error.what();
    outcome.time = now_ms();
  }
  return outcome;
}

}  // namespace plc_gateway
