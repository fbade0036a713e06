// What goes wrong in a life, and for how long.
#include <algorithm>

#include "tests/tools/plc_gateway/simulation/life.h"

namespace plc_gateway::simulation {

void Life::plan_chaos() {
  events_.at(clock_.steady_ms() + random_.spread(pace_.calm_least, pace_.calm_most), [this] {
    if (is_healing_) return;
    make_chaos();
    plan_chaos();
  });
}

void Life::plan_command() {
  const Ms most = std::max<Ms>(pace_.longest_period, 10000);
  events_.at(clock_.steady_ms() + random_.spread(10, most), [this] {
    if (is_healing_) return;
    if (node_) broker_.deliver(hosts_.make(), random_.percent(90) ? random_.between(0, 5) : random_.spread(10, 15000));
    plan_command();
  });
}

void Life::for_a_while(const std::function<void()>& end) {
  events_.at(clock_.steady_ms() + random_.spread(1, pace_.trouble_most), [this, end] {
    if (!is_healing_) end();
  });
}

void Life::make_chaos() {
  const uint64_t kind = random_.below(100);
  if (kind < 20) {
    trouble_controller();
  } else if (kind < 50) {
    trouble_broker();
  } else if (kind < 60) {
    trouble_disk();
  } else if (kind < 78) {
    trouble_process();
  } else if (kind < 82) {
    trouble_clock();
  } else if (kind < 90) {
    trouble_host();
  } else {
    trouble_names();
  }
}

void Life::trouble_controller() {
  using Mood = SimController::Mood;
  const Mood mood = static_cast<Mood>(1 + random_.below(4));
  note("controller: mood " + std::to_string(static_cast<int>(mood)));
  controller_.set_mood(mood);
  for_a_while([this] {
    note("controller: good");
    controller_.set_mood(Mood::kGood);
  });
}

void Life::trouble_broker() {
  using Mood = SimBroker::Mood;
  const uint64_t kind = random_.below(6);
  note("broker: trouble " + std::to_string(kind));
  const auto recover = [this] {
    note("broker: good");
    broker_.set_mood(Mood::kGood);
  };
  switch (kind) {
    case 0:
      broker_.set_mood(Mood::kFrozen);
      for_a_while(recover);
      return;
    case 1:
    case 2:
      broker_.lose_connection(random_.spread(1, 10000));
      broker_.set_mood(kind == 1 ? Mood::kRefusing : Mood::kSilent);
      for_a_while(recover);
      return;
    case 3:
      broker_.set_latency(random_.spread(1, 1000), random_.spread(1, 1000));
      for_a_while([this] { broker_.set_latency(random_.between(0, 2), random_.between(0, 2)); });
      return;
    default:
      broker_.lose_connection(random_.spread(1, 10000));
  }
}

void Life::trouble_disk() {
  const uint64_t kind = random_.below(3);
  note("disk: trouble " + std::to_string(kind));
  if (kind == 2) {
    disk_failed_ = true;
    const uint64_t operations = random_.below(60);
    disk_.fail_after(operations);
    disk_fails_at_ = disk_.operations() + operations + 1;
    return;
  }
  disk_failed_ = is_disk_bad_ = true;
  if (kind == 0) {
    disk_.limit(disk_.used());
  } else {
    disk_.refuse(true);
  }
  for_a_while([this] {
    note("disk: good");
    disk_.limit(UINT64_MAX);
    disk_.refuse(false);
    is_disk_bad_ = false;
  });
}

void Life::trouble_process() {
  if (!node_) return;
  switch (random_.below(6)) {
    case 0:
    case 1:
      kill(random_.percent(50));
      return;
    case 2:
    case 3:
    case 4:
      note("the process will die at the disk");
      disk_.stop_after(static_cast<uint64_t>(random_.spread(1, 400)));
      return;
    default:
      if (is_stopping_) return;
      note("stop");
      is_stopping_ = true;
      step([](EdgeNode& node) { node.stop(); });
  }
}

// By whole periods back, the times of earlier readings come again.
void Life::trouble_clock() {
  const std::vector<Ms>& periods = configuration_.periods;
  const Ms by = random_.percent(30) ? -periods[random_.below(periods.size())] * random_.between(1, 5)
                                    : random_.spread(1, 3600000) * (random_.percent(50) ? 1 : -1);
  note("wall clock: " + std::to_string(by));
  clock_.jump(by);
}

// The clock is set back to when a host sent its last command, maybe to a process before this one, and it comes again.
void Life::repeat_command() {
  const Ms by = hosts_.last_made() - clock_.wall_ms();
  if (is_healing_ || !node_ || !hosts_.last() || by > 0) return;
  note("wall clock: " + std::to_string(by) + ", and the last command again");
  clock_.jump(by);
  broker_.deliver(*hosts_.last(), random_.between(0, 5));
}

// A host tells its going with the time of its coming; what it says itself has the time of saying.
void Life::set_host(bool online, bool from_the_past) {
  if (online) host_stamp_ = std::max(host_stamp_ + 1, clock_.wall_ms());
  host_online_ = online;
  const Ms stamp = from_the_past ? host_stamp_ - 1000 : host_stamp_;
  note(std::string("host: ") + (online ? "online" : "offline") + (from_the_past ? ", late" : ""));
  broker_.set_host_state(
      Observer::kStateTopic,
      std::string("{\"online\":") + (online ? "true" : "false") + ",\"timestamp\":" + std::to_string(stamp) + "}",
      online || from_the_past);
}

void Life::trouble_host() {
  if (!has_host_) return;
  if (host_online_ && random_.percent(30)) {
    set_host(false, true);
    set_host(true, false);
    return;
  }
  set_host(!host_online_, false);
}

void Life::trouble_names() {
  for (Held& held : plant_.all()) {
    if (random_.percent(20)) held.refused = !held.refused;
  }
}

}  // namespace plc_gateway::simulation
