// Answers of the controller, each in its time.
#include "tests/tools/plc_gateway/simulation/world/sim_controller.h"

#include <utility>

namespace plc_gateway::simulation {

void SimController::serve(User* user, const Configuration* configuration) {
  ++process_;
  user_ = user;
  configuration_ = configuration;
  busy_ = false;
}

void SimController::later(Ms ms, std::function<void()> act) {
  events_.at(clock_.steady_ms() + ms, [this, process = process_, act = std::move(act)] {
    if (process == process_) act();
  });
}

Ms SimController::duration() {
  switch (mood_) {
    case Mood::kSilent:
      return kReplyMs;
    case Mood::kCrawling:
      return random_.between(100, kReplyMs - 100);
    case Mood::kRefusing:
    case Mood::kGarbage:
      return random_.between(0, 3);
    case Mood::kGood:
      break;
  }
  return random_.between(least_ms_, most_ms_);
}

void SimController::start_read(size_t piece) {
  if (user_->is_dead()) return;
  if (busy_) throw Violation("a read was begun before the last job of the controller was answered");
  busy_ = true;
  user_->read_begins(piece);
  later(duration(), [this, piece, began = mood_] { finish_read(piece, began); });
}

void SimController::finish_read(size_t piece, Mood began) {
  const bool was_well = began == Mood::kGood || began == Mood::kCrawling;
  if (was_well && mood_ == Mood::kSilent) {
    later(kReplyMs, [this, piece] { finish_read(piece, Mood::kSilent); });
    return;
  }
  const Mood mood = was_well && mood_ != Mood::kCrawling ? mood_ : began;
  busy_ = false;
  ReadResult result;
  result.piece = piece;
  result.link_lost = mood != Mood::kGood && mood != Mood::kCrawling;
  if (result.link_lost) {
    result.reason = mood == Mood::kSilent     ? plc_client::Reason::kNoAnswer
                    : mood == Mood::kRefusing ? plc_client::Reason::kNoConnection
                                              : plc_client::Reason::kForeign;
    result.error = "the controller is not there";
  }
  for (const uint32_t variable : configuration_->pieces[piece].variables) {
    Sample& sample = result.samples.emplace_back();
    sample.variable = variable;
    sample.time = clock_.wall_ms();
    if (result.link_lost) {
      sample.reason = result.reason;
      continue;
    }
    const Held& held = plant_.look(configuration_->held[variable], random_);
    sample.good = !held.refused;
    if (sample.good) {
      sample.bits = held.bits;
      sample.bytes = held.bytes;
    } else {
      sample.reason = plc_client::Reason::kRefused;
      sample.error = "the controller refused the name";
    }
  }
  user_->on_read(result);
}

void SimController::start_write(const WriteJob& job) {
  if (user_->is_dead()) return;
  if (busy_) throw Violation("a write was begun before the last job of the controller was answered");
  busy_ = true;
  user_->write_begins(job);
  later(duration(), [this, job, began = mood_] { finish_write(job, began); });
}

void SimController::finish_write(const WriteJob& job, Mood began) {
  busy_ = false;
  WriteOutcome outcome;
  outcome.time = clock_.wall_ms();
  const bool is_well = began == Mood::kGood || began == Mood::kCrawling;
  const bool reached = is_well || (began == Mood::kSilent && random_.percent(50));
  if (reached) plant_.write(configuration_->rules[job.rule].name, job.value);
  if (is_well) {
    outcome.outcome = plc_client::Outcome::kDone;
  } else {
    outcome.outcome = began == Mood::kRefusing ? plc_client::Outcome::kNotDone : plc_client::Outcome::kUnknown;
    outcome.reason = plc_client::Reason::kNoAnswer;
    outcome.error = "the controller did not answer";
  }
  user_->on_written(outcome);
}

}  // namespace plc_gateway::simulation
