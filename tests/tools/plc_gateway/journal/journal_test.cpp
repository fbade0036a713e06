// Tests of what the journal promises while the disk does what it should.
#include "tools/plc_gateway/journal/journal.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tests/tools/plc_gateway/support/memory_vfs.h"

namespace {

using plc_gateway::DataType;
using plc_gateway::Journal;
using plc_gateway::JournalCounters;
using plc_gateway::JournalError;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;
using plc_gateway::Ms;
using plc_gateway::Sample;
using plc_gateway::Variable;
using plc_test::bad;
using plc_test::ids_of;
using plc_test::number;
using plc_test::text;
using plc_test::variable;
using plc_test::variables;

constexpr auto kData = JournalRow::Kind::kData;
constexpr auto kLost = JournalRow::Kind::kLost;
constexpr Ms kDay = 1790000000000;

class JournalTest : public testing::Test {
 protected:
  JournalOptions options() const {
    JournalOptions made;
    made.folder = "folder";
    made.vfs = disk_.vfs();
    return made;
  }
  Journal& open(const std::vector<Variable>& list) {
    journal_.reset();
    journal_ = std::make_unique<Journal>(options(), list);
    return *journal_;
  }
  Journal& reopen() { return open(variables(3)); }

  plc_test::MemoryDisk disk_;
  std::unique_ptr<Journal> journal_;
};

TEST_F(JournalTest, NewJournal_IsEmpty) {
  Journal& journal = reopen();
  EXPECT_EQ(journal.first_id(), 0U);
  EXPECT_EQ(journal.last_id(), 0U);
  EXPECT_TRUE(journal.read(0, 100).empty());
  const JournalCounters counters = journal.counters();
  EXPECT_EQ(counters.rows, 0U);
  EXPECT_EQ(counters.values, 0U);
  EXPECT_EQ(counters.oldest, 0);
  EXPECT_EQ(counters.dropped, 0U);
  EXPECT_EQ(counters.failures, 0U);
  EXPECT_EQ(counters.lost_damage, 0U);
}

TEST_F(JournalTest, Row_IsReadAsItWasAppended_AlsoByTheNextProcess) {
  const std::vector<Sample> changes = {number(2, 0xFFFFFFFFFFFFFFFF, kDay), number(0, 0, kDay + 1),
                                       bad(1, plc_client::Reason::kRefused, kDay - 5),
                                       text(0, std::string("a\0\xFFz", 4), kDay), number(1, 1, kDay)};
  EXPECT_EQ(reopen().append(kData, kDay, changes), 1U);
  EXPECT_EQ(journal_->append(kLost, kDay + 7, {}), 2U);
  const std::vector<JournalRow> expected = {{1, kData, kDay, changes}, {2, kLost, kDay + 7, {}}};
  EXPECT_EQ(journal_->read(0, 100), expected);
  EXPECT_EQ(reopen().read(0, 100), expected);
}

TEST_F(JournalTest, Numbers_GoOnAcrossRestarts_AlsoWhenEverythingWasRemoved) {
  reopen();
  for (uint64_t id = 1; id <= 3; ++id) EXPECT_EQ(journal_->append(kData, kDay, {number(0, id, kDay)}), id);
  journal_->remove(1, 3);
  EXPECT_EQ(journal_->first_id(), 0U);
  EXPECT_EQ(journal_->last_id(), 3U);
  reopen();
  EXPECT_EQ(journal_->last_id(), 3U);
  EXPECT_EQ(journal_->append(kData, kDay, {number(0, 4, kDay)}), 4U);
}

TEST_F(JournalTest, Read_EndsWithTheRowThatFillsTheMeasure) {
  reopen();
  for (int i = 0; i < 5; ++i) journal_->append(kData, kDay, {number(0, 1, kDay), number(1, 2, kDay)});
  EXPECT_EQ(ids_of(journal_->read(0, 3)), (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(ids_of(journal_->read(3, 2)), (std::vector<uint64_t>{3}));
  EXPECT_EQ(ids_of(journal_->read(4, 100)), (std::vector<uint64_t>{4, 5}));
  EXPECT_TRUE(journal_->read(6, 100).empty());
}

TEST_F(JournalTest, RowsRemovedFromTheMiddle_AreGoneAndCountedAsDelivered) {
  reopen();
  for (Ms i = 0; i < 6; ++i) journal_->append(kData, kDay + i, {number(0, 1, kDay + i), number(1, 2, kDay + i)});
  journal_->remove(3, 4);
  EXPECT_EQ(ids_of(journal_->read(0, 100)), (std::vector<uint64_t>{1, 2, 5, 6}));
  EXPECT_EQ(journal_->first_id(), 1U);
  journal_->remove(1, 2);
  EXPECT_EQ(journal_->first_id(), 5U);
  for (int open = 0; open < 2; ++open) {
    const JournalCounters counters = journal_->counters();
    EXPECT_EQ(counters.rows, 2U);
    EXPECT_EQ(counters.values, 4U);
    EXPECT_EQ(counters.oldest, kDay + 4);
    EXPECT_EQ(counters.dropped, 0U);
    reopen();
  }
}

TEST_F(JournalTest, Counts_AreRightAfterARestart_WhateverTheNumberOfRows) {
  reopen();
  for (uint64_t i = 1; i <= 700; ++i) {
    journal_->append(kData, kDay, std::vector<Sample>(i % 4, number(0, i, kDay)));
    if (i % 137 != 0) continue;
    const JournalCounters before = journal_->counters();
    EXPECT_EQ(before.rows, i);
    reopen();
    EXPECT_EQ(journal_->counters().rows, i);
    EXPECT_EQ(journal_->counters().values, before.values);
  }
}

TEST_F(JournalTest, LargeBacklog_IsNotReadAtTheOpening) {
  reopen();
  for (int i = 0; i < 9000; ++i) journal_->append(kData, kDay, {text(0, std::string(1200, 'x'), kDay)});
  journal_.reset();
  const uint64_t before = disk_.operations();
  reopen();
  EXPECT_LT(disk_.operations() - before, 1500U) << "3000 pages hold the rows";
  EXPECT_EQ(journal_->counters().rows, 9000U);
}

TEST_F(JournalTest, ConnectionNumbers_GoRoundAndSurviveRestarts) {
  reopen();
  for (uint64_t i = 0; i < 600; ++i) {
    EXPECT_EQ(journal_->next_bd_seq(), std::optional<uint64_t>(i % 256));
    if (i % 100 == 99) reopen();
  }
}

TEST_F(JournalTest, TimesOfCommands_AreTheNewestAndSurviveRestarts) {
  reopen();
  EXPECT_TRUE(journal_->command_times().empty());
  EXPECT_TRUE(journal_->take_commands({{"Speed", kDay}, {"Name", kDay + 1}}));
  EXPECT_TRUE(journal_->take_commands({{"Speed", kDay - 1}, {"Name", kDay + 2}}));
  EXPECT_EQ(journal_->command_times(), (Journal::CommandTimes{{"Speed", kDay}, {"Name", kDay + 2}}));
  reopen();
  EXPECT_EQ(journal_->command_times(), (Journal::CommandTimes{{"Speed", kDay}, {"Name", kDay + 2}}));
  const uint64_t operations = disk_.operations();
  EXPECT_TRUE(journal_->take_commands({{"Speed", kDay}}));
  EXPECT_EQ(disk_.operations(), operations) << "what is known already is written again";
}

TEST_F(JournalTest, SecondOpener_IsToldWhoHasIt) {
  reopen();
  try {
    const Journal second(options(), variables(1));
    FAIL() << "two journals in one folder";
  } catch (const JournalError& error) {
    EXPECT_EQ(std::string(error.what()),
              "folder/journal.sqlite: another process has it open; give every gateway a journal folder of "
              "its own");
  }
  EXPECT_EQ(journal_->append(kData, kDay, {}), 1U);
}

TEST_F(JournalTest, SameNameWithTheSameType_KeepsItsAlias) {
  open({variable("A"), variable("B"), variable("C")});
  EXPECT_EQ(journal_->alias(0), 1U);
  EXPECT_EQ(journal_->alias(2), 3U);
  open({variable("C"), variable("New"), variable("B", DataType::kFloat), variable("A")});
  EXPECT_EQ(journal_->alias(0), 3U);
  EXPECT_EQ(journal_->alias(1), 4U);
  EXPECT_EQ(journal_->alias(2), 5U);
  EXPECT_EQ(journal_->alias(3), 1U);
  open({variable("B")});
  EXPECT_EQ(journal_->alias(0), 2U);
}

TEST_F(JournalTest, RetiredVariables_AreThoseWithStoredSamples_BehindTodaysInTheOrderOfTheirAliases) {
  open({variable("A"), variable("B"), variable("C"), variable("D")});
  journal_->append(kData, kDay, {number(3, 40, kDay), number(1, 20, kDay)});
  journal_->append(kData, kDay, {number(0, 10, kDay)});
  for (int start = 0; start < 2; ++start) {
    open({variable("A"), variable("E")});
    ASSERT_EQ(journal_->retired().size(), 2U);
    EXPECT_EQ(journal_->retired()[0].name, "B");
    EXPECT_EQ(journal_->retired()[0].declared_type, "INT");
    EXPECT_EQ(journal_->retired()[1].name, "D");
    EXPECT_EQ(journal_->alias(2), 2U);
    EXPECT_EQ(journal_->alias(3), 4U);
    EXPECT_EQ(journal_->read(0, 9),
              (std::vector<JournalRow>{{1, kData, kDay, {number(3, 40, kDay), number(2, 20, kDay)}},
                                       {2, kData, kDay, {number(0, 10, kDay)}}}));
  }
  journal_->remove(1, 1);
  open({variable("A")});
  EXPECT_TRUE(journal_->retired().empty());
  EXPECT_EQ(ids_of(journal_->read(0, 9)), (std::vector<uint64_t>{2}));
}

TEST_F(JournalTest, SamplesOfAVariableThatChangedItsType_AreDroppedAndCountedOnce) {
  open({variable("A"), variable("B")});
  journal_->append(kData, kDay, {number(0, 1, kDay), number(1, 2, kDay)});
  journal_->append(kData, kDay, {number(0, 3, kDay)});
  journal_->append(kLost, kDay, {});
  for (int start = 0; start < 2; ++start) {
    open({variable("A", DataType::kFloat), variable("B")});
    EXPECT_TRUE(journal_->retired().empty());
    EXPECT_EQ(journal_->read(0, 9),
              (std::vector<JournalRow>{{1, kData, kDay, {number(1, 2, kDay)}}, {3, kLost, kDay, {}}}));
    EXPECT_EQ(journal_->counters().dropped, 2U);
    EXPECT_EQ(journal_->counters().values, 1U);
    EXPECT_EQ(journal_->counters().rows, 2U);
  }
}

TEST_F(JournalTest, ManyRowsOfAChangedType_AreAllRewritten) {
  open({variable("A"), variable("B")});
  for (uint64_t i = 1; i <= 300; ++i) journal_->append(kData, kDay, {number(0, i, kDay), number(1, i, kDay)});
  open({variable("A", DataType::kFloat), variable("B")});
  EXPECT_EQ(journal_->counters().dropped, 300U);
  EXPECT_EQ(journal_->counters().rows, 300U);
  const std::vector<JournalRow> rows = journal_->read(0, 1000);
  ASSERT_EQ(rows.size(), 300U);
  for (const JournalRow& row : rows) {
    ASSERT_EQ(row.changes.size(), 1U);
    EXPECT_EQ(row.changes[0], number(1, row.id, kDay));
  }
}

TEST_F(JournalTest, MostBytes_BoundTheFiles_AndTheOldestGoCountedExactly) {
  JournalOptions small = options();
  small.most_bytes = 5ULL << 20;
  Journal journal(small, variables(1));
  uint64_t appended = 0;
  for (int i = 0; i < 4000; ++i) {
    std::vector<Sample> changes;
    for (int k = 0; k < 10; ++k) changes.push_back(text(0, std::string(static_cast<size_t>(100 + i % 50), 'x'), kDay));
    appended += changes.size();
    journal.append(kData, kDay, changes);
  }
  const JournalCounters counters = journal.counters();
  EXPECT_LE(disk_.used(), small.most_bytes);
  EXPECT_EQ(counters.bytes, disk_.used());
  EXPECT_EQ(counters.dropped + counters.values, appended);
  EXPECT_EQ(counters.in_memory, 0U);
  EXPECT_EQ(counters.failures, 0U);
  const std::vector<JournalRow> rows = journal.read(0, appended);
  EXPECT_EQ(rows.size(), counters.rows);
  EXPECT_EQ(rows.front().id, journal.first_id());
  EXPECT_EQ(rows.back().id, 4000U);
  EXPECT_EQ(rows.front().id + rows.size() - 1, 4000U);
  // As good as all of it is in use.
  EXPECT_GT(rows.size() * 1260, 2300000U);
}

}  // namespace
