// Every row that the journal has taken, and how much of it the broker has accepted.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/plc_gateway/simulation/judge/readings.h"
#include "tests/tools/plc_gateway/simulation/world/wire.h"
#include "tests/tools/plc_gateway/simulation/world/world.h"
#include "tests/tools/plc_gateway/support/memory_vfs.h"
#include "tools/plc_gateway/journal/journal.h"

namespace plc_gateway::simulation {

class Ledger {
 public:
  // A sample of a row as it is to be seen at the broker.
  struct Cell {
    uint64_t alias = 0;
    DataType type = DataType::kInt16;
    Ms time = 0;
    bool good = false;
    bool is_loss = false;  // of a row that tells the controller's loss, which no birth says
    uint64_t bits = 0;
    std::string bytes;
    unsigned jumps_back = 0;
    uint64_t handed_over = 0;  // on which connection last
    bool accepted = false;
  };
  struct Place {
    uint64_t row = 0;
    size_t cell = 0;
  };
  // A birth of the device: what it said of each variable, by alias.
  struct Birth {
    struct Value {
      Ms time = 0;
      bool good = false;
      uint64_t bits = 0;
      std::string bytes;
      unsigned jumps_back = 0;  // of the clock until it was read: behind one the same time comes again
    };
    uint64_t connection = 0;
    bool is_accepted = false;
    std::map<uint64_t, Value> values;
  };

  // The disk is that of the journal, which is asked and must not notice.
  Ledger(plc_test::MemoryDisk& disk, Totals& totals) : disk_(disk), totals_(totals) {}

  // How the last process ended.
  struct End {
    bool is_first = true;
    bool power_cut = false;
    bool in_mid_step = false;
    bool disk_failed = false;  // at any time of its life
    uint64_t in_memory = 0;    // rows
  };
  // Compares what is there with what must be.
  void open(const Journal& journal, const Configuration& configuration, Readings& readings, const End& end);
  void close() { journal_ = nullptr; }

  // Takes what was appended since the last look.
  void catch_up();
  // What left the journal had arrived, or was counted as dropped.
  void check_leavings();
  // At the end of a life that was healed: nothing is left, nothing is missing.
  void check_end() const;

  uint64_t last_row() const { return journal_->last_id(); }
  uint64_t alias(size_t variable) const { return aliases_[variable]; }
  size_t retired() const { return journal_->retired().size(); }
  bool knows(uint64_t alias) const { return name_of_.count(alias) != 0; }
  bool is_empty() const { return journal_ != nullptr && journal_->first_id() == 0; }

  void begin_connection(uint64_t connection);
  // The rows of now are history from here on.
  void device_birth(std::shared_ptr<Birth> birth);
  void accept_birth(Birth& birth);
  // The row that a published sample belongs to: behind the ones that were published before, none between them left out.
  Place match(const Metric& metric, bool historical);
  uint64_t match_death();

  const Cell* cell(Place place);
  // True when it had been accepted before.
  bool accept(Place place);
  void accept_death(uint64_t row);

 private:
  struct Row {
    uint64_t id = 0;
    bool is_lost = false;
    Ms time = 0;
    std::vector<Cell> cells;
    uint64_t values = 0;
    bool is_complete = false;
    bool death_accepted = false;
    uint64_t death_handed_over = 0;  // on which connection
  };

  static constexpr size_t kAllValues = size_t{1} << 40U;

  class Look {
   public:
    explicit Look(plc_test::MemoryDisk& disk) : disk_(disk) { disk_.spare(true); }
    ~Look() { disk_.spare(false); }
    Look(const Look&) = delete;
    Look& operator=(const Look&) = delete;

   private:
    plc_test::MemoryDisk& disk_;
  };

  Row take(const JournalRow& row) const;
  Row* find(uint64_t id);
  std::deque<Row>::iterator from(uint64_t id);
  void complete(Row& row);
  static const Birth::Value* born_with(const Birth& birth, const Cell& cell);
  bool is_handed_over(const Row& row) const;
  void name_variables();
  void compare(const std::vector<JournalRow>& there, const End& end, uint64_t newly_dropped);
  // Samples that could not be published any more, and went.
  uint64_t take_replaced(Row& known) const;
  void check_same(Row& known, const JournalRow& there) const;
  std::string told(const Row& row) const;

  plc_test::MemoryDisk& disk_;
  Totals& totals_;
  const Journal* journal_ = nullptr;
  const Configuration* configuration_ = nullptr;
  Readings* readings_ = nullptr;
  std::map<std::pair<std::string, DataType>, uint64_t> alias_of_;  // for ever
  std::map<uint64_t, std::pair<std::string, DataType>> name_of_;
  std::vector<uint64_t> aliases_;  // of the configuration's variables
  std::deque<Row> rows_;           // not known to have left, in the order of their numbers
  std::deque<Row> left_;           // those that left last: a power cut may bring them back
  uint64_t seen_ = 0;
  uint64_t incomplete_ = 0;
  uint64_t dropped_ = 0;

  uint64_t connection_ = 0;
  uint64_t history_end_ = 0;
  uint64_t next_history_ = 0;
  uint64_t next_live_ = 0;
  std::deque<std::shared_ptr<Birth>> births_;  // the last ones, of earlier connections too
};

}  // namespace plc_gateway::simulation
