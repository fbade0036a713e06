// Tests of what the journal still holds after kills and power cuts, at every operation of the disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tests/tools/plc_gateway/support/memory_vfs.h"
#include "tools/plc_gateway/journal/journal.h"

namespace {

using plc_gateway::Journal;
using plc_gateway::JournalCounters;
using plc_gateway::JournalError;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;
using plc_gateway::Ms;
using plc_gateway::Sample;
using plc_test::MemoryDisk;

constexpr size_t kVariables = 40;
constexpr Ms kMorning = 1790000000000;

// What one who watches every call knows of the journal, across its lives.
class Witness {
 public:
  explicit Witness(uint64_t seed) : random_(seed) {}

  void append(Journal& journal, size_t values, size_t text_bytes) {
    JournalRow row;
    row.time = kMorning + static_cast<Ms>(random_() % 100000);
    for (size_t i = 0; i < values; ++i) {
      Sample& sample = row.changes.emplace_back();
      sample = plc_test::number(static_cast<uint32_t>(i % kVariables), random_() % 65536, row.time);
      if (text_bytes != 0) sample = plc_test::text(sample.variable, std::string(text_bytes, 't'), row.time);
    }
    row.id = journal.append(row.kind, row.time, row.changes);
    EXPECT_GT(row.id, last_id_);
    (journal.counters().in_memory == 0 ? durable_ : doubtful_)[row.id] = row;
    if (journal.counters().in_memory == 0) last_id_ = row.id;
  }

  void remove(const MemoryDisk& disk, Journal& journal) {
    const uint64_t first = journal.first_id();
    if (first == 0 || is_disk_full_) return;
    const uint64_t from = first + random_() % 3;
    const uint64_t to = std::min(from + random_() % 5, journal.last_id());
    journal.remove(from, to);
    for (uint64_t id = from; id <= to; ++id) (disk.is_stopped() ? maybe_gone_ : gone_).insert(id);
  }

  void connect(Journal& journal) {
    const std::optional<uint64_t> number = journal.next_bd_seq();
    if (!number) return;
    const size_t recent = std::min<size_t>(numbers_.size(), 200);
    EXPECT_EQ(std::count(numbers_.end() - static_cast<std::ptrdiff_t>(recent), numbers_.end(), *number), 0)
        << "the number of a recent connection again";
    numbers_.push_back(*number);
  }

  void take_command(Journal& journal) {
    if (journal.take_commands({{"Speed", ++command_tried_}})) command_taken_ = command_tried_;
  }

  // On a full disk, the oldest rows go for new ones, and are counted.
  void expect_full_disk() { is_disk_full_ = true; }

  // After the disk was started again. What a power cut brought back, counts as there from now on.
  void look(Journal& journal, bool was_power_cut) {
    const std::vector<JournalRow> rows = journal.read(0, SIZE_MAX);
    std::set<uint64_t> there;
    uint64_t values = 0;
    uint64_t before = 0;
    for (const JournalRow& row : rows) {
      EXPECT_GT(row.id, before);
      before = row.id;
      there.insert(row.id);
      values += row.changes.size();
      const auto known = durable_.count(row.id) != 0 ? durable_.find(row.id) : doubtful_.find(row.id);
      ASSERT_TRUE(known != durable_.end() && known != doubtful_.end()) << row.id << " was never appended";
      EXPECT_EQ(row, known->second);
      EXPECT_TRUE(was_power_cut || gone_.count(row.id) == 0) << row.id << " was removed";
    }
    for (const auto& [id, row] : durable_) {
      if (there.count(id) != 0 || gone_.count(id) != 0 || maybe_gone_.count(id) != 0) continue;
      EXPECT_TRUE(is_disk_full_ && !rows.empty() && id < rows.front().id) << id << " is lost";
      dropped_ += row.changes.size();
    }
    EXPECT_GE(journal.last_id(), last_id_);
    last_id_ = journal.last_id();
    EXPECT_EQ(journal.first_id(), rows.empty() ? 0 : rows.front().id);
    const JournalCounters counters = journal.counters();
    EXPECT_EQ(counters.rows, rows.size());
    EXPECT_EQ(counters.values, values);
    EXPECT_EQ(counters.dropped, dropped_);
    EXPECT_EQ(counters.lost_damage, 0U);
    const auto& times = journal.command_times();
    const auto command = times.find("Speed");
    const Ms command_time = command == times.end() ? 0 : command->second;
    EXPECT_GE(command_time, command_taken_);
    EXPECT_LE(command_time, command_tried_);
    durable_.clear();
    for (const JournalRow& row : rows) durable_[row.id] = row;
    doubtful_.clear();
    gone_.clear();
    maybe_gone_.clear();
  }

  uint64_t dropped() const { return dropped_; }
  uint64_t random(uint64_t below) { return random_() % below; }

 private:
  std::mt19937_64 random_;
  std::map<uint64_t, JournalRow> durable_;
  std::map<uint64_t, JournalRow> doubtful_;  // the disk refused them: they may be there
  std::set<uint64_t> gone_, maybe_gone_;
  std::vector<uint64_t> numbers_;
  uint64_t last_id_ = 0;
  uint64_t dropped_ = 0;  // values
  Ms command_tried_ = 0;
  Ms command_taken_ = 0;
  bool is_disk_full_ = false;
};

JournalOptions options_on(const MemoryDisk& disk) {
  JournalOptions options;
  options.folder = "folder";
  options.vfs = disk.vfs();
  return options;
}

// Calls until the disk stops, at most so many; some rows are large, so that checkpoints come.
void live(MemoryDisk& disk, Witness& witness, int calls, size_t large) {
  try {
    Journal journal(options_on(disk), plc_test::variables(kVariables));
    for (int i = 0; i < calls && !disk.is_stopped(); ++i) {
      const uint64_t what = witness.random(9);
      if (what < 5) witness.append(journal, witness.random(kVariables), what == 0 ? large : 0);
      if (what == 5 || what == 6) witness.remove(disk, journal);
      if (what == 7) witness.connect(journal);
      if (what == 8) witness.take_command(journal);
    }
  } catch (const JournalError&) {
    EXPECT_TRUE(disk.is_stopped());
  }
}

void look_again(MemoryDisk& disk, Witness& witness, bool is_power_cut) {
  if (is_power_cut) {
    disk.cut_power();
  } else {
    disk.start();
  }
  Journal journal(options_on(disk), plc_test::variables(kVariables));
  witness.look(journal, is_power_cut);
  witness.connect(journal);
  witness.append(journal, 3, 0);
}

// From the first operation of a new journal to the last of its first life.
void stop_everywhere(bool is_power_cut) {
  uint64_t stops = 0;
  for (bool was_stopped = true; was_stopped; ++stops) {
    SCOPED_TRACE("stopped behind operation " + std::to_string(stops));
    MemoryDisk disk(stops + 1);
    Witness witness(7);
    disk.stop_after(stops);
    live(disk, witness, 40, 0);
    was_stopped = disk.is_stopped();
    look_again(disk, witness, is_power_cut);
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(stops, 100U);
}

TEST(JournalLives, KilledAtAnyOperation_HoldsWhatItTook) { stop_everywhere(false); }

TEST(JournalLives, PowerCutAtAnyOperation_LeavesWhatItTook) { stop_everywhere(true); }

// Many lives of one journal, with enough changes that the log begins anew several times.
void live_often(bool is_power_cut) {
  for (uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    MemoryDisk disk(seed);
    Witness witness(seed);
    for (int life = 0; life < 12; ++life) {
      disk.stop_after(witness.random(600));
      live(disk, witness, 150, 3000);
      look_again(disk, witness, is_power_cut);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(JournalLives, KilledAgainAndAgain_HoldsWhatItTook) { live_often(false); }

TEST(JournalLives, PowerCutAgainAndAgain_LeavesWhatItTook) { live_often(true); }

// A row that went for another one is counted if and only if the other one is there.
void live_on_a_full_disk(bool is_power_cut) {
  for (uint64_t seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    MemoryDisk disk(seed);
    disk.limit(7ULL << 19U);
    Witness witness(seed);
    witness.expect_full_disk();
    for (int life = 0; life < 12; ++life) {
      disk.stop_after(400 + witness.random(1200));
      live(disk, witness, 300, 3000);
      look_again(disk, witness, is_power_cut);
      if (testing::Test::HasFailure()) return;
    }
    EXPECT_GT(witness.dropped(), 0U);
  }
}

TEST(JournalLives, KilledOnAFullDisk_CountsWhatItDroppedExactly) { live_on_a_full_disk(false); }

TEST(JournalLives, PowerCutOnAFullDisk_CountsWhatItDroppedExactly) { live_on_a_full_disk(true); }

}  // namespace
