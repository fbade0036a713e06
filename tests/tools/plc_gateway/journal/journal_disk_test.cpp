// Tests of the journal in a real folder: other processes, files that are put aside, and a limit of the system.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tools/plc_gateway/journal/journal.h"

namespace {

using plc_gateway::Journal;
using plc_gateway::JournalError;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;
using plc_test::ids_of;
using plc_test::number;
using plc_test::text;

constexpr plc_gateway::Ms kEvening = 1790000000000;

JournalOptions options_in(const std::string& folder) {
  JournalOptions options;
  options.folder = folder;
  return options;
}

uint64_t append_one(Journal& journal, uint64_t value) {
  return journal.append(JournalRow::Kind::kData, kEvening, {number(0, value, kEvening)});
}

TEST(JournalDisk, MissingFolder_IsToldWithTheRemedy) {
  const plc_test::TempDir dir;
  const std::string folder = dir.file("nowhere");
  try {
    const Journal journal(options_in(folder), {});
    FAIL() << "a journal without a folder";
  } catch (const JournalError& error) {
    EXPECT_EQ(std::string(error.what()),
              folder +
                  "/journal.sqlite: cannot be opened: unable to open database file; the folder must exist, and this "
                  "user must be allowed to write in it");
  }
}

TEST(JournalDisk, OtherProcessHasIt_UntilItIsKilled_AndItsRowsAreThere) {
  const plc_test::TempDir dir;
  int ready[2] = {};
  ASSERT_EQ(pipe(ready), 0);
  const pid_t other = fork();
  if (other == 0) {
    try {
      Journal journal(options_in(dir.path()), plc_test::variables(1));
      append_one(journal, 1);
      append_one(journal, 2);
      if (write(ready[1], "r", 1) == 1) pause();
    } catch (const JournalError&) {
    }
    _exit(1);
  }
  ASSERT_GT(other, 0);
  close(ready[1]);
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the other process could not open it";
  close(ready[0]);
  EXPECT_THROW(Journal(options_in(dir.path()), plc_test::variables(1)), JournalError);

  ASSERT_EQ(kill(other, SIGKILL), 0);
  ASSERT_EQ(waitpid(other, nullptr, 0), other);
  Journal journal(options_in(dir.path()), plc_test::variables(1));
  EXPECT_EQ(ids_of(journal.read(0, 10)), (std::vector<uint64_t>{1, 2}));
}

TEST(JournalDisk, DamagedDatabases_ArePutAsideWithTheirLogs_AndNeverFillTheDisk) {
  const plc_test::TempDir dir;
  for (int n = 1; n <= 12; ++n) {
    const std::string content = "damaged " + std::to_string(n) + std::string(600, '!');
    dir.write("journal.sqlite", content);
    dir.write("journal.sqlite-wal", "log " + std::to_string(n));
    Journal journal(options_in(dir.path()), plc_test::variables(1));
    EXPECT_EQ(journal.counters().lost_damage, 1U);
    EXPECT_EQ(append_one(journal, 1), 1U);
    const std::string aside = "journal.damaged." + std::to_string(n < 9 ? n : 9);
    EXPECT_EQ(dir.read(aside), content);
    EXPECT_FALSE(std::filesystem::exists(dir.file("journal.damaged.10")));
  }
}

TEST(JournalDisk, FilesThatSomebodyRemovesOrReplaces_AreMissedUntilTheyAreBack) {
  const plc_test::TempDir dir;
  Journal journal(options_in(dir.path()), plc_test::variables(1));
  const auto is_missed = [&journal] {
    journal.retry();
    return journal.counters().removed == 1;
  };
  EXPECT_FALSE(is_missed());
  for (const char* name : {"journal.sqlite", "journal.sqlite-wal"}) {
    SCOPED_TRACE(name);
    const std::string aside = dir.file("aside");
    std::filesystem::rename(dir.file(name), aside);
    EXPECT_TRUE(is_missed());
    dir.write(name, "another one");
    EXPECT_TRUE(is_missed());
    std::filesystem::rename(aside, dir.file(name));
    EXPECT_FALSE(is_missed());
  }
  std::filesystem::remove_all(dir.path());
  EXPECT_TRUE(is_missed());
  // It goes on with what it has.
  EXPECT_EQ(append_one(journal, 7), 1U);
  EXPECT_EQ(ids_of(journal.read(0, 10)), (std::vector<uint64_t>{1}));
}

TEST(JournalDisk, NewJournalInPlaceOfADamagedOne_IsNotMissed) {
  const plc_test::TempDir dir;
  dir.write("journal.sqlite", std::string(600, '!'));
  Journal journal(options_in(dir.path()), plc_test::variables(1));
  journal.retry();
  EXPECT_EQ(journal.counters().lost_damage, 1U);
  EXPECT_EQ(journal.counters().removed, 0U);
}

// The child's exit code: 0, or the number of what was not so.
int in_child(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

TEST(JournalDisk, FilesThatMayNotGrow_KeepTheNewestRows_CountedExactly) {
  const plc_test::TempDir dir;
  const int wrong = in_child([&dir] {
    Journal journal(options_in(dir.path()), plc_test::variables(2));
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit most{2U << 20U, 2U << 20U};
    if (setrlimit(RLIMIT_FSIZE, &most) != 0) return 1;
    for (uint64_t i = 1; i <= 200; ++i) {
      const plc_gateway::Sample large = text(1, std::string(20000, 'L'), kEvening);
      if (journal.append(JournalRow::Kind::kData, kEvening, {number(0, i, kEvening), large}) != i) return 2;
      if (journal.counters().in_memory != 0) return 3;
      if (journal.counters().dropped + journal.counters().values != 2 * i) return 4;
    }
    if (journal.counters().dropped == 0) return 5;
    if (journal.read(0, SIZE_MAX).size() != journal.counters().rows || journal.counters().rows < 80) return 6;
    if (journal.next_bd_seq() != std::optional<uint64_t>(0)) return 7;
    journal.remove(1, 198);
    return ids_of(journal.read(0, 10)) == std::vector<uint64_t>{199, 200} ? 0 : 8;
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_LE(std::filesystem::file_size(dir.file("journal.sqlite")), 2U << 20U);
  Journal journal(options_in(dir.path()), plc_test::variables(2));
  EXPECT_EQ(ids_of(journal.read(0, 10)), (std::vector<uint64_t>{199, 200}));
  EXPECT_EQ(append_one(journal, 1), 201U);
}

}  // namespace
