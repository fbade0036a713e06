// Tests of the journal on disks that are full, that refuse, and that damage what they hold.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
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
using plc_gateway::Sample;
using plc_test::ids_of;
using plc_test::number;
using plc_test::text;
using plc_test::variable;

constexpr auto kDataRow = JournalRow::Kind::kData;
constexpr plc_gateway::Ms kNoon = 1790000000000;
const std::string kDatabase = "folder/journal.sqlite";
const std::string kLog = "folder/journal.sqlite-wal";

class JournalFaults : public testing::Test {
 protected:
  JournalFaults() { open(); }

  void open() {
    journal_.reset();
    JournalOptions options;
    options.folder = "folder";
    options.vfs = disk_.vfs();
    journal_ = std::make_unique<Journal>(options, plc_test::variables(3));
  }

  uint64_t append(uint64_t value) { return journal_->append(kDataRow, kNoon, {number(0, value, kNoon)}); }
  uint64_t append_large(size_t bytes) {
    return journal_->append(kDataRow, kNoon, {number(0, 1, kNoon), text(1, std::string(bytes, 'L'), kNoon)});
  }
  std::vector<uint64_t> ids() const { return ids_of(journal_->read(0, SIZE_MAX)); }

  // What is closed and damaged here is found damaged when it is opened again.
  void damage(size_t from, size_t bytes) {
    journal_.reset();
    std::string content = disk_.content(kDatabase);
    content.replace(from, bytes, bytes, '\xA5');
    disk_.put(kDatabase, content);
    disk_.put(kLog, "");
  }

  plc_test::MemoryDisk disk_;
  std::unique_ptr<Journal> journal_;
};

TEST_F(JournalFaults, FullDisk_TakesNewRowsForOldOnes_CountedExactly) {
  disk_.limit(disk_.used());
  uint64_t values = 0;
  for (size_t i = 0; i < 2000; ++i) {
    append_large(i % 1500);
    values += 2;
  }
  EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(0));
  const JournalCounters counters = journal_->counters();
  EXPECT_EQ(counters.in_memory, 0U);
  EXPECT_EQ(counters.dropped + counters.values, values);
  EXPECT_GT(counters.values, 800U);
  EXPECT_EQ(ids().size(), counters.rows);
  EXPECT_EQ(ids().back(), 2000U);
  EXPECT_EQ(ids().front(), 2001 - counters.rows);

  journal_->remove(ids().front(), 1990);
  EXPECT_EQ(ids(), (std::vector<uint64_t>{1991, 1992, 1993, 1994, 1995, 1996, 1997, 1998, 1999, 2000}));
  EXPECT_EQ(journal_->counters().dropped, counters.dropped);
  journal_.reset();
  disk_.limit(disk_.used());
  open();
  EXPECT_EQ(ids().size(), 10U);
  EXPECT_EQ(journal_->counters().dropped, counters.dropped);
  EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(1));
  EXPECT_EQ(append(1), 2001U);
  EXPECT_EQ(journal_->counters().in_memory, 0U);
}

TEST_F(JournalFaults, RoomAgain_IsUsedAgain) {
  disk_.limit(disk_.used());
  for (int i = 0; i < 1000; ++i) append_large(1500);
  const uint64_t dropped = journal_->counters().dropped;
  EXPECT_GT(dropped, 0U);
  disk_.limit(UINT64_MAX);
  for (int i = 0; i < 1000; ++i) append_large(1500);
  EXPECT_EQ(journal_->counters().dropped, dropped);
}

TEST_F(JournalFaults, DiskFullBeforeTheFirstStart_IsToldWithTheRemedy) {
  plc_test::MemoryDisk full;
  full.limit(1U << 20);
  JournalOptions options;
  options.folder = "folder";
  options.vfs = full.vfs();
  try {
    const Journal journal(options, {});
    FAIL() << "a journal without room";
  } catch (const JournalError& error) {
    EXPECT_EQ(std::string(error.what()), kDatabase + ": the disk is full; free 3 MiB at least");
  }
}

TEST_F(JournalFaults, FullDisk_TakesNewVariablesToo) {
  disk_.limit(disk_.used());
  for (size_t i = 0; i < 1000; ++i) append_large(1500);
  const JournalCounters before = journal_->counters();
  journal_.reset();
  JournalOptions options;
  options.folder = "folder";
  options.vfs = disk_.vfs();
  Journal journal(options, plc_test::variables(3000));
  EXPECT_EQ(journal.alias(2999), 3000U);
  EXPECT_GT(journal.counters().dropped, before.dropped);
  EXPECT_EQ(journal.counters().dropped + journal.counters().values, before.dropped + before.values);
  EXPECT_EQ(journal.read(0, SIZE_MAX).size(), journal.counters().rows);
}

TEST_F(JournalFaults, FullDisk_TakesCommandsToo) {
  disk_.limit(disk_.used());
  for (size_t i = 0; i < 1000; ++i) append_large(1500);
  Journal::CommandTimes times;
  for (int i = 0; i < 200; ++i) times[std::string(100, 'V') + std::to_string(i)] = kNoon + i;
  EXPECT_TRUE(journal_->take_commands(times));
  open();
  EXPECT_EQ(journal_->command_times(), times);
}

TEST_F(JournalFaults, CommandThatTheDiskRefuses_IsNotTaken) {
  disk_.refuse(true);
  EXPECT_FALSE(journal_->take_commands({{"Speed", kNoon}}));
  EXPECT_TRUE(journal_->command_times().empty());
  disk_.refuse(false);
  EXPECT_TRUE(journal_->take_commands({{"Speed", kNoon}}));
  EXPECT_EQ(journal_->command_times().at("Speed"), kNoon);
}

TEST_F(JournalFaults, DatabaseThatTakesNothing_DoesNotMakeTheLogGrow) {
  disk_.refuse_writes(kDatabase);
  for (int i = 0; i < 600; ++i) append_large(3000);
  EXPECT_GT(journal_->counters().in_memory, 0U);
  EXPECT_LT(journal_->counters().in_memory, 500U);
  EXPECT_LT(disk_.content(kLog).size(), (2U << 20U) + 20000U);
  disk_.refuse_writes("");
  journal_->retry();
  EXPECT_EQ(journal_->counters().in_memory, 0U);
  EXPECT_EQ(ids().size(), 600U);
  EXPECT_EQ(journal_->counters().dropped, 0U);
}

TEST_F(JournalFaults, RefusedRows_AreInMemory_AndComeToTheDiskInTheirOrder) {
  append(1);
  disk_.refuse(true);
  EXPECT_EQ(append(2), 2U);
  EXPECT_EQ(append(3), 3U);
  EXPECT_EQ(journal_->counters().in_memory, 2U);
  EXPECT_GT(journal_->counters().failures, 0U);
  EXPECT_EQ(journal_->next_bd_seq(), std::nullopt);
  journal_->retry();
  EXPECT_EQ(journal_->counters().in_memory, 2U);

  disk_.refuse(false);
  EXPECT_EQ(ids(), (std::vector<uint64_t>{1, 2, 3}));
  EXPECT_EQ(append(4), 4U);
  EXPECT_EQ(journal_->counters().in_memory, 3U) << "a row is never before an older one on the disk";
  journal_->retry();
  EXPECT_EQ(journal_->counters().in_memory, 0U);
  EXPECT_EQ(journal_->counters().rows, 4U);
  EXPECT_EQ(journal_->counters().values, 4U);
  EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(0));
  disk_.stop();
  journal_.reset();
  disk_.cut_power();
  open();
  EXPECT_EQ(ids(), (std::vector<uint64_t>{1, 2, 3, 4}));
}

TEST_F(JournalFaults, RowsInMemory_AreReadAndRemovedLikeOthers) {
  append(1);
  append(2);
  disk_.refuse(true);
  for (uint64_t i = 3; i <= 6; ++i) append(i);
  journal_->remove(2, 4);
  disk_.refuse(false);
  EXPECT_EQ(ids(), (std::vector<uint64_t>{1, 5, 6}));
  EXPECT_EQ(ids_of(journal_->read(2, 1)), (std::vector<uint64_t>{5}));
  journal_->remove(1, 1);
  EXPECT_EQ(journal_->first_id(), 5U);
  journal_->retry();
  EXPECT_EQ(ids(), (std::vector<uint64_t>{5, 6}));
  EXPECT_EQ(journal_->counters().rows, 2U);
  EXPECT_EQ(journal_->counters().dropped, 0U);
  EXPECT_EQ(append(7), 7U);
}

TEST_F(JournalFaults, RemovalThatTheDiskRefused_IsSeenAtOnce_AndDoneWithTheNextRow) {
  for (uint64_t i = 1; i <= 4; ++i) append(i);
  disk_.refuse(true);
  journal_->remove(1, 2);
  journal_->remove(3, 3);
  disk_.refuse(false);
  EXPECT_EQ(journal_->first_id(), 4U);
  EXPECT_EQ(ids(), (std::vector<uint64_t>{4}));
  append(5);
  EXPECT_EQ(journal_->counters().rows, 2U);
  open();
  EXPECT_EQ(ids(), (std::vector<uint64_t>{4, 5}));
  EXPECT_EQ(journal_->counters().dropped, 0U);
}

TEST_F(JournalFaults, MemoryIsBounded_AndWhatWentIsCountedForGood) {
  disk_.refuse(true);
  for (int i = 0; i < 200; ++i) append_large(50000);
  const JournalCounters refused = journal_->counters();
  EXPECT_LT(refused.in_memory, 100U);
  EXPECT_GT(refused.in_memory, 50U);
  EXPECT_EQ(refused.dropped + refused.values, 400U);
  disk_.refuse(false);
  journal_->retry();
  EXPECT_EQ(journal_->counters().in_memory, 0U);
  open();
  EXPECT_EQ(journal_->counters().dropped, refused.dropped);
  EXPECT_EQ(journal_->counters().values, refused.values);
  EXPECT_EQ(ids().back(), 200U);
}

TEST_F(JournalFaults, OneFailureAtAnyOperation_LosesNothing) {
  uint64_t failed_at = 0;
  for (bool has_failed = true; has_failed; ++failed_at) {
    SCOPED_TRACE("failure behind operation " + std::to_string(failed_at));
    plc_test::MemoryDisk disk;
    JournalOptions options;
    options.folder = "folder";
    options.vfs = disk.vfs();
    Journal journal(options, plc_test::variables(2));
    const uint64_t begin = disk.operations();
    disk.fail_after(failed_at);
    std::set<uint64_t> numbers;
    for (uint64_t i = 1; i <= 12; ++i) {
      EXPECT_EQ(journal.append(kDataRow, kNoon, {number(0, i, kNoon)}), i);
      if (i % 4 == 0) journal.remove(i - 3, i - 2);
      const std::optional<uint64_t> connection = journal.next_bd_seq();
      EXPECT_TRUE(!connection || numbers.insert(*connection).second) << *connection << " again";
    }
    EXPECT_GE(numbers.size(), 11U);
    has_failed = disk.operations() - begin > failed_at;
    journal.retry();
    EXPECT_EQ(journal.counters().in_memory, 0U);
    EXPECT_EQ(ids_of(journal.read(0, SIZE_MAX)), (std::vector<uint64_t>{3, 4, 7, 8, 11, 12}));
    EXPECT_EQ(journal.first_id(), 3U);
    EXPECT_EQ(journal.counters().rows, 6U);
    EXPECT_EQ(journal.counters().lost_damage, 0U);
    if (HasFailure()) return;
  }
  EXPECT_GT(failed_at, 40U);
}

TEST_F(JournalFaults, OneFailureAtAnyOperationOfAnOpening_LosesNoSampleOfFormerVariables) {
  JournalOptions options;
  options.folder = "folder";
  options.vfs = disk_.vfs();
  for (int i = 0; i < 300; ++i) append_large(3000);  // the first one and the last one lie in different pages
  journal_.reset();
  uint64_t operations = 0;
  for (bool was_reached = true; was_reached && operations < 500; ++operations) {
    SCOPED_TRACE("operation " + std::to_string(operations) + " refused");
    const uint64_t before = disk_.operations();
    disk_.fail_after(operations);
    try {
      const Journal refused(options, plc_test::variables(1));
    } catch (const JournalError&) {
    }
    was_reached = disk_.operations() - before > operations;
    disk_.fail_after(UINT64_MAX / 2);
    journal_ = std::make_unique<Journal>(options, plc_test::variables(1));
    const std::vector<JournalRow> rows = journal_->read(0, SIZE_MAX);
    ASSERT_EQ(rows.size(), 300U);
    for (const JournalRow& row : rows) ASSERT_EQ(row.changes.size(), 2U);
    ASSERT_EQ(journal_->counters().dropped, 0U);
    open();  // with all three, so that the next opening has something to do
    journal_.reset();
  }
  EXPECT_GT(operations, 10U);
}

TEST_F(JournalFaults, DamagedDatabase_IsReplaced_AndTheNumberOfTheNextConnectionIsFarFromTheLast) {
  for (int i = 0; i < 10; ++i) journal_->next_bd_seq();
  append(1);
  damage(4096, disk_.content(kDatabase).size() - 4096);
  open();
  EXPECT_EQ(journal_->counters().lost_damage, 1U);
  EXPECT_TRUE(ids().empty());
  EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(9 + 128 + 1));
  EXPECT_EQ(append(1), 1U);
  EXPECT_EQ(journal_->alias(0), 1U);
  open();
  EXPECT_EQ(journal_->counters().lost_damage, 0U);
  EXPECT_EQ(ids(), (std::vector<uint64_t>{1}));
}

TEST_F(JournalFaults, DatabaseThatIsNone_IsReplaced) {
  for (const char* content : {"no database at all", "SQLite format 3"}) {
    SCOPED_TRACE(content);
    journal_.reset();
    disk_.put(kDatabase, std::string(content) + std::string(5000, '\x5A'));
    disk_.put(kLog, std::string(70000, '\x5A'));
    open();
    EXPECT_EQ(journal_->counters().lost_damage, 1U);
    EXPECT_EQ(append(1), 1U);
    EXPECT_TRUE(journal_->next_bd_seq());
  }
}

TEST_F(JournalFaults, DamageOfAnyPage_IsSurvived) {
  for (int i = 0; i < 300; ++i) append_large(1000);
  journal_.reset();
  const std::string whole = disk_.content(kDatabase);
  for (size_t page = 0; page * 4096 < whole.size(); page += page < 16 ? 1 : 17) {
    SCOPED_TRACE("page " + std::to_string(page + 1));
    journal_.reset();
    disk_.put(kDatabase, whole);
    damage(page * 4096, 4096);
    open();
    const std::vector<JournalRow> rows = journal_->read(0, SIZE_MAX);
    for (const JournalRow& row : rows) {
      EXPECT_EQ(row.changes, (std::vector<Sample>{number(0, 1, kNoon), text(1, std::string(1000, 'L'), kNoon)}));
    }
    const uint64_t next = journal_->last_id() + 1;
    EXPECT_EQ(append(7), next);
    EXPECT_EQ(ids_of(journal_->read(next, 1)), (std::vector<uint64_t>{next}));
    EXPECT_EQ(journal_->counters().in_memory, 0U);
    if (HasFailure()) return;
  }
}

TEST_F(JournalFaults, DamagedRow_IsDroppedAndCounted_TheOthersStay) {
  append(1);
  journal_->append(kDataRow, kNoon, {number(0, 1, kNoon), text(1, "MARK", kNoon), number(2, 1, kNoon)});
  append(3);
  journal_.reset();
  std::string content = disk_.content(kDatabase);
  content[content.find("MARK")] = 'm';
  disk_.put(kDatabase, content);
  disk_.put(kLog, "");
  open();
  EXPECT_EQ(ids(), (std::vector<uint64_t>{1, 3}));
  EXPECT_EQ(journal_->counters().dropped, 3U);
  EXPECT_EQ(journal_->counters().rows, 2U);
  EXPECT_EQ(journal_->counters().values, 2U);
  EXPECT_EQ(journal_->counters().lost_damage, 0U);
}

TEST_F(JournalFaults, DamageFoundWhileRunning_LosesWhatWasStored_AndNumbersAndAliasesGoOn) {
  journal_->next_bd_seq();
  journal_->take_commands({{"Speed", kNoon}});
  for (int i = 0; i < 400; ++i) append_large(3000);
  disk_.put(kDatabase, std::string(disk_.content(kDatabase).size(), '\xA5'));
  disk_.put(kLog, std::string(disk_.content(kLog).size(), '\xA5'));
  journal_->read(0, SIZE_MAX);
  EXPECT_EQ(journal_->counters().lost_damage, 1U);
  EXPECT_EQ(journal_->counters().dropped, 800U);
  EXPECT_EQ(journal_->counters().rows, 0U);
  EXPECT_EQ(append(1), 401U);
  EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(1));
  EXPECT_EQ(journal_->alias(2), 3U);
  open();
  EXPECT_EQ(ids(), (std::vector<uint64_t>{401}));
  EXPECT_EQ(journal_->counters().dropped, 800U);
  EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(2));
  EXPECT_EQ(journal_->alias(2), 3U);
  EXPECT_EQ(journal_->command_times(), (Journal::CommandTimes{{"Speed", kNoon}}));
}

}  // namespace
