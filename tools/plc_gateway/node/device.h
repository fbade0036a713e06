// The controller's side of the edge node: finds the controller, reads what is due, puts what changed into the journal,
// and carries out writes.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/model/counters.h"
#include "tools/plc_gateway/node/seams.h"
#include "tools/plc_gateway/poll/schedule.h"

namespace plc_gateway {

class Device {
 public:
  // All references outlive it.
  Device(const std::vector<Variable>& variables, const std::vector<Ms>& periods, const std::vector<Piece>& pieces,
         const Clock& clock, ControllerPort& port, Journal& journal, Counters& counters);

  void start();
  // Nothing more is begun, and writes that wait end without it; what is under way ends.
  void stop();
  // A write is under way. Of one that is not waited for any longer nobody knows how it ended.
  bool writing() const { return writing_; }
  void give_up_write();

  // To be called when next_ms() has come, and after each event.
  void step();
  void on_read(const ReadResult& result);
  // So many more writes may wait.
  bool has_room_for_writes(size_t count) const;
  // Hands the job to the controller as soon as it is free; `ended` is called once, from on_written or when the
  // controller is lost before the job was begun.
  using WriteEnded = std::function<void(const WriteJob&, const WriteOutcome&)>;
  void write(const WriteJob& job, WriteEnded ended);
  void on_written(const WriteOutcome& outcome);

  // Every variable was read since the controller was found, and it still answers.
  bool alive() const { return state_ == State::kAlive; }
  // It did not answer when it was last asked for, or there is nothing to ask for.
  bool away() const { return away_ || pieces_.empty(); }
  // What was read last. Nullptr: not since the controller was found.
  const Sample* current(uint32_t variable) const { return known_[variable] != 0 ? &current_[variable] : nullptr; }
  // The row of the journal that has it, or will have it next. 0: none, for it is within the deadband.
  uint64_t current_row(uint32_t variable) const { return current_rows_[variable]; }
  // Why the controller was lost, of that row of the journal; kNone when nobody knows it any more.
  plc_client::Reason loss_of(uint64_t row) const { return row == lost_row_ ? lost_reason_ : plc_client::Reason::kNone; }
  // All current values were published in a birth: deadbands count from them.
  void born() { published_ = current_; }
  // A steady time. Nothing: it waits for an answer.
  std::optional<Ms> next_ms() const;

 private:
  enum class State : uint8_t { kSearching, kRound, kAlive };
  struct Write {
    WriteJob job;
    WriteEnded ended;
  };

  void take(const ReadResult& result);
  void lose(const ReadResult& result);
  void finish_round();
  void flush();
  void start_read(size_t piece);
  void end_late_writes();
  void end_unbegun_writes(const char* why);

  const std::vector<Variable>& variables_;
  const std::vector<Piece>& pieces_;
  const Clock& clock_;
  ControllerPort& port_;
  Journal& journal_;
  Counters& counters_;
  Schedule schedule_;

  State state_ = State::kSearching;
  bool stopped_ = false;
  bool busy_ = false;
  bool writing_ = false;  // the first of writes_
  bool away_ = false;
  uint64_t lost_row_ = 0;  // of the journal: the last loss
  plc_client::Reason lost_reason_ = plc_client::Reason::kNone;
  Ms probe_ms_ = 0;   // when the controller is looked for again
  size_t round_ = 0;  // pieces of the round that were read
  std::vector<Sample> current_;
  std::vector<uint64_t> current_rows_;
  std::vector<uint8_t> known_;
  std::vector<Sample> published_;  // of each variable: what the journal or a birth has last
  std::vector<Sample> pending_;    // changes that are not in the journal yet
  Ms pending_ms_ = 0;              // steady time of the first of them
  std::deque<Write> writes_;
};

}  // namespace plc_gateway
