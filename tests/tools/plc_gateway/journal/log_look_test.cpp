// Tests of a journal whose log of changes is damaged.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/journal/log_look.h"

namespace {

using plc_gateway::Journal;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;
using plc_gateway::unreadable_changes;

constexpr plc_gateway::Ms kDusk = 1790000000000;
constexpr size_t kLogHead = 32;
constexpr size_t kLogFrame = 24 + 4096;

class LogLook : public testing::Test {
 protected:
  // As a kill leaves it: a log with 15 changes (the tables, the names, 10 numbers of connections, 3 rows), which begins
  // with the tables' pages.
  LogLook() {
    const plc_test::TempDir alive;
    options.folder = alive.path();
    Journal journal(options, plc_test::variables(2));
    for (int i = 0; i < 10; ++i) journal.next_bd_seq();
    for (uint64_t i = 1; i <= 3; ++i) {
      journal.append(JournalRow::Kind::kData, kDusk, {plc_test::number(0, i, kDusk)});
    }
    for (const char* name : {"journal.sqlite", "journal.sqlite-wal"}) {
      std::filesystem::copy_file(alive.file(name), dir.file(name));
    }
    options.folder = dir.path();
    whole = dir.read("journal.sqlite-wal");
    while (whole.substr(kLogHead + frames * kLogFrame + 8, 8) == whole.substr(16, 8)) ++frames;
  }

  // How many changes are unreadable when the byte is another one.
  uint64_t with_damage_at(size_t place) const {
    std::string log = whole;
    log[place] = static_cast<char>(log[place] ^ 0x20);
    dir.write("journal.sqlite-wal", log);
    return unreadable_changes(dir.file("journal.sqlite-wal"));
  }

  const plc_test::TempDir dir;
  JournalOptions options;
  std::string whole;
  size_t frames = 0;
};

TEST_F(LogLook, WholeLog_HasNone) {
  EXPECT_EQ(unreadable_changes(dir.file("journal.sqlite-wal")), 0U);
  EXPECT_EQ(unreadable_changes(dir.file("nothing")), 0U);
  for (const std::string& log : {std::string(), std::string(100, 'x'), std::string(2U << 20U, '\0')}) {
    dir.write("journal.sqlite-wal", log);
    EXPECT_EQ(unreadable_changes(dir.file("journal.sqlite-wal")), 0U) << log.size();
  }
}

TEST_F(LogLook, UsedAgainFromItsStart_HasNone) {
  for (int life = 0; life < 3; ++life) {
    EXPECT_EQ(unreadable_changes(dir.file("journal.sqlite-wal")), 0U);
    Journal journal(options, plc_test::variables(2));
    journal.append(JournalRow::Kind::kData, kDusk, {plc_test::number(0, 7, kDusk)});
    EXPECT_EQ(journal.counters().unreadable_changes, 0U);
  }
}

TEST_F(LogLook, ChangesBehindADamagedByte_AreCounted) {
  EXPECT_EQ(with_damage_at(20), 15U) << "the header's salt";
  EXPECT_EQ(with_damage_at(kLogHead + 100), 15U) << "the first page";
  EXPECT_EQ(with_damage_at(kLogHead + 9), 15U) << "the first frame's salt";
  EXPECT_EQ(with_damage_at(kLogHead + (frames - 2) * kLogFrame + 1000), 1U) << "the row before the last";
  // So a kill leaves the frame that was being written.
  EXPECT_EQ(with_damage_at(kLogHead + (frames - 1) * kLogFrame + 1000), 0U) << "the last row";
}

TEST_F(LogLook, FrameOfAChangeThatAKillCutOff_IsNone) {
  dir.write("journal.sqlite-wal", whole.substr(0, kLogHead + frames * kLogFrame - 1000));
  EXPECT_EQ(unreadable_changes(dir.file("journal.sqlite-wal")), 0U);
}

TEST_F(LogLook, JournalWithADamagedLog_TellsAndGoesOnFarFromTheLastNumberOfAConnection) {
  EXPECT_EQ(with_damage_at(kLogHead + (frames - 2) * kLogFrame + 1000), 1U);
  Journal journal(options, plc_test::variables(2));
  EXPECT_EQ(journal.counters().unreadable_changes, 1U);
  EXPECT_EQ(journal.counters().lost_damage, 0U);
  EXPECT_EQ(plc_test::ids_of(journal.read(0, SIZE_MAX)), (std::vector<uint64_t>{1}));
  EXPECT_EQ(journal.next_bd_seq(), std::optional<uint64_t>(9 + 128 + 1));
}

}  // namespace
