// The controller of a life: answers, is silent, refuses, lies, crawls, and carries out writes, or perhaps not.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/world/plant.h"
#include "tests/tools/plc_gateway/simulation/world/world.h"
#include "tools/plc_gateway/node/seams.h"

namespace plc_gateway::simulation {

class SimController : public ControllerPort {
 public:
  enum class Mood { kGood, kRefusing, kSilent, kGarbage, kCrawling };

  // Who uses it, and who watches.
  class User {
   public:
    virtual ~User() = default;
    virtual void on_read(const ReadResult& result) = 0;
    virtual void on_written(const WriteOutcome& outcome) = 0;
    virtual void read_begins(size_t piece) = 0;
    virtual void write_begins(const WriteJob& job) = 0;
    // The process has died, and does not know it yet: nothing that it does has an effect.
    virtual bool is_dead() const = 0;
  };

  SimController(SimClock& clock, Events& events, Plant& plant, Random& random)
      : clock_(clock), events_(events), plant_(plant), random_(random) {}

  // A new process; what was under way for the last one is answered to nobody.
  void serve(User* user, const Configuration* configuration);
  void set_mood(Mood mood) { mood_ = mood; }
  Mood mood() const { return mood_; }
  // Of a read that goes well.
  void set_latency(Ms least, Ms most) {
    least_ms_ = least;
    most_ms_ = most;
  }

  void start_read(size_t piece) override;
  void start_write(const WriteJob& job) override;

 private:
  void finish_read(size_t piece, Mood began);
  void finish_write(const WriteJob& job, Mood began);
  Ms duration();
  void later(Ms ms, std::function<void()> act);

  static constexpr Ms kReplyMs = 2000;

  SimClock& clock_;
  Events& events_;
  Plant& plant_;
  Random& random_;
  User* user_ = nullptr;
  const Configuration* configuration_ = nullptr;
  uint64_t process_ = 0;
  bool busy_ = false;
  Mood mood_ = Mood::kGood;
  Ms least_ms_ = 1;
  Ms most_ms_ = 4;
};

}  // namespace plc_gateway::simulation
