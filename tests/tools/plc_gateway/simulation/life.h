// One life: a controller, a broker, a disk and hosts that do what the seed says, and the edge node between them.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/hosts.h"
#include "tests/tools/plc_gateway/simulation/judge/ledger.h"
#include "tests/tools/plc_gateway/simulation/judge/observer.h"
#include "tests/tools/plc_gateway/simulation/judge/poll_watch.h"
#include "tests/tools/plc_gateway/simulation/judge/readings.h"
#include "tests/tools/plc_gateway/simulation/world/plant.h"
#include "tests/tools/plc_gateway/simulation/world/sim_broker.h"
#include "tests/tools/plc_gateway/simulation/world/sim_controller.h"
#include "tests/tools/plc_gateway/simulation/world/world.h"
#include "tests/tools/plc_gateway/support/memory_vfs.h"

namespace plc_gateway::simulation {

class Life : private SimController::User, private SimBroker::User {
 public:
  // Tells what happens to `trace`, if there is one.
  Life(uint64_t seed, std::ostream* trace);
  ~Life() override;

  // Throws Violation, whose text names the seed, the simulated time and the step.
  Totals live();

 private:
  void on_read(const ReadResult& result) override;
  void on_written(const WriteOutcome& outcome) override;
  void read_begins(size_t piece) override;
  void write_begins(const WriteJob& job) override;
  void on_connected() override;
  void on_disconnected(const std::string& reason) override;
  void on_subscribed(bool ok) override;
  void on_acknowledged(int id) override;
  void on_message(const Message& message) override;
  bool is_dead() const override { return disk_.is_stopped(); }

  void live_all();
  void run_until(Ms end);
  void step(const std::function<void(EdgeNode&)>& act);
  void check_after_step();

  void start();
  bool open_journal();
  // The process ends without a word, with what it had given to the disk, or to what the disk had synced.
  void kill(bool power_cut);
  void stop_and_start();
  void start_later(Ms longest);

  void plan_chaos();
  void plan_command();
  void make_chaos();
  void trouble_controller();
  void trouble_broker();
  void trouble_disk();
  void trouble_process();
  void trouble_clock();
  void repeat_command();
  void trouble_host();
  void trouble_names();
  void set_host(bool online, bool from_the_past);
  // Until then, or until the life is healed.
  void for_a_while(const std::function<void()>& end);
  void heal();
  void check_healed();
  void note(const std::string& what);

  const uint64_t seed_;
  std::ostream* trace_;
  Random random_;
  Totals totals_;
  SimClock clock_;
  Events events_;
  Pace pace_;
  bool has_host_ = false;
  bool has_json_ = false;
  bool is_healing_ = false;
  Ms host_stamp_ = 0;
  bool host_online_ = false;
  uint64_t most_bytes_ = 0;
  Ms keep_alive_ms_ = 0;

  plc_test::MemoryDisk disk_;
  Plant plant_;
  SimController controller_;
  Ledger ledger_;
  Observer observer_;
  SimBroker broker_;
  Hosts hosts_;

  // Of one process.
  Configuration configuration_;
  std::unique_ptr<Journal> journal_;
  std::unique_ptr<Readings> readings_;
  std::unique_ptr<PollWatch> poll_watch_;
  std::unique_ptr<EdgeNode> node_;
  uint64_t process_ = 0;
  bool disk_failed_ = false;
  bool has_run_ = false;  // the last process did not end while it was starting
  bool is_stopping_ = false;
  bool is_disk_bad_ = false;
  uint64_t disk_fails_at_ = 0;  // the operation that will be refused, or was
  bool look_at_journal_ = false;
  Ledger::End end_;
  std::vector<std::string> written_;  // of the write under way
  uint64_t idle_wakes_ = 0;
};

}  // namespace plc_gateway::simulation
