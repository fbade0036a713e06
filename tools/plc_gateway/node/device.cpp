// Polls, changes and writes of one controller.
#include "tools/plc_gateway/node/device.h"

#include <utility>

#include "tools/plc_gateway/poll/change.h"

namespace plc_gateway {
namespace {

constexpr Ms kProbePauseMs = 250;    // the client library has pauses of its own between its connects
constexpr Ms kLongestPendingMs = 5;  // of a change in a poll of many pieces
constexpr size_t kMostWritesWaiting = 64;

}  // namespace

Device::Device(const std::vector<Variable>& variables, const std::vector<Ms>& periods, const std::vector<Piece>& pieces,
               const Clock& clock, ControllerPort& port, Journal& journal, Counters& counters)
    : variables_(variables),
      pieces_(pieces),
      clock_(clock),
      port_(port),
      journal_(journal),
      counters_(counters),
      schedule_(periods, pieces, counters.groups),
      current_(variables.size()),
      current_rows_(variables.size()),
      known_(variables.size()),
      published_(variables.size()) {}

void Device::start() { probe_ms_ = clock_.steady_ms(); }

// What was read of a poll that does not end any more is kept.
void Device::stop() {
  stopped_ = true;
  flush();
  end_unbegun_writes("the gateway stopped before the write was begun");
}

void Device::end_unbegun_writes(const char* why) {
  std::deque<Write> unbegun;
  unbegun.swap(writes_);
  if (writing_) {
    writes_.push_back(std::move(unbegun.front()));
    unbegun.pop_front();
  }
  WriteOutcome outcome;
  outcome.reason = plc_client::Reason::kNotTried;
  outcome.error = why;
  outcome.time = clock_.wall_ms();
  for (const Write& write : unbegun) write.ended(write.job, outcome);
}

void Device::give_up_write() {
  if (!writing_) return;
  WriteOutcome outcome;
  outcome.outcome = plc_client::Outcome::kUnknown;
  outcome.error = "the gateway stopped before the controller answered: read the variable";
  outcome.time = clock_.wall_ms();
  on_written(outcome);
}

void Device::start_read(size_t piece) {
  busy_ = true;
  port_.start_read(piece);
}

void Device::step() {
  if (busy_ || stopped_) return;
  const Ms now = clock_.steady_ms();
  switch (state_) {
    case State::kSearching:
      if (now >= probe_ms_ && !pieces_.empty()) start_read(0);
      return;
    case State::kRound:
      start_read(round_);
      return;
    case State::kAlive:
      break;
  }
  end_late_writes();
  if (!writes_.empty()) {
    busy_ = writing_ = true;
    port_.start_write(writes_.front().job);
    return;
  }
  schedule_.advance(now);
  if (const std::optional<size_t> piece = schedule_.next(now)) start_read(*piece);
}

std::optional<Ms> Device::next_ms() const {
  if (busy_ || stopped_) return std::nullopt;
  if (state_ == State::kSearching) return probe_ms_;
  return schedule_.next_turn();
}

void Device::on_read(const ReadResult& result) {
  busy_ = false;
  ++counters_.reads;
  if (result.link_lost) {
    lose(result);
    return;
  }
  take(result);
  if (state_ == State::kAlive) {
    const Ms now = clock_.steady_ms();
    const bool is_old = !pending_.empty() && now - pending_ms_ >= kLongestPendingMs;
    if (schedule_.done(result.piece, now) || stopped_ || is_old) flush();
    return;
  }
  if (state_ == State::kSearching) round_ = 0;
  state_ = State::kRound;
  if (++round_ == pieces_.size()) finish_round();
}

void Device::take(const ReadResult& result) {
  for (const Sample& sample : result.samples) {
    const uint32_t variable = sample.variable;
    if (sample.good) {
      ++counters_.values_read;
    } else {
      ++counters_.values_bad;
      ++counters_.failures[static_cast<size_t>(sample.reason)];
    }
    current_[variable] = sample;
    current_rows_[variable] = 0;
    known_[variable] = 1;
    if (state_ != State::kAlive || !has_changed(variables_[variable], published_[variable], sample)) continue;
    current_rows_[variable] = journal_.last_id() + 1;  // nobody else appends
    published_[variable] = sample;
    if (pending_.empty()) pending_ms_ = clock_.steady_ms();
    pending_.push_back(sample);
  }
}

void Device::flush() {
  if (pending_.empty()) return;
  journal_.append(JournalRow::Kind::kData, pending_.back().time, pending_);
  pending_.clear();
}

void Device::finish_round() {
  state_ = State::kAlive;
  away_ = false;
  counters_.controller_alive = true;
  published_ = current_;
  const Ms time = current_.empty() ? clock_.wall_ms() : current_.back().time;
  current_rows_.assign(current_.size(), journal_.append(JournalRow::Kind::kData, time, current_));
  schedule_.start(clock_.steady_ms());
}

void Device::lose(const ReadResult& result) {
  const Ms now = clock_.steady_ms();
  ++counters_.failures[static_cast<size_t>(result.reason)];
  probe_ms_ = now + kProbePauseMs;
  if (state_ == State::kAlive) {
    flush();
    schedule_.abort(now);
    lost_row_ = journal_.append(JournalRow::Kind::kLost, clock_.wall_ms(), {});
    lost_reason_ = result.reason;
    ++counters_.controller_losses;
    counters_.controller_alive = false;
  }
  state_ = State::kSearching;
  away_ = true;
  known_.assign(known_.size(), 0);
  end_unbegun_writes("the controller was lost before the write was begun");
}

// A command that waited for the controller longer than it may be old is not carried out any more.
void Device::end_late_writes() {
  const Ms now = clock_.wall_ms();
  while (!writes_.empty() && (now < writes_.front().job.not_before || now > writes_.front().job.not_after)) {
    WriteOutcome outcome;
    outcome.reason = plc_client::Reason::kNotTried;
    outcome.error = "it became too old while it waited for the controller";
    outcome.time = now;
    const Write write = std::move(writes_.front());
    writes_.pop_front();
    write.ended(write.job, outcome);
  }
}

bool Device::has_room_for_writes(size_t count) const { return writes_.size() + count <= kMostWritesWaiting; }

void Device::write(const WriteJob& job, WriteEnded ended) { writes_.push_back({job, std::move(ended)}); }

void Device::on_written(const WriteOutcome& outcome) {
  busy_ = writing_ = false;
  if (writes_.empty()) return;
  const Write write = std::move(writes_.front());
  writes_.pop_front();
  write.ended(write.job, outcome);
}

}  // namespace plc_gateway
