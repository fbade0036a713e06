// Tests of a journal that somebody else has made, or changed.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tools/plc_gateway/journal/journal.h"

namespace {

using plc_gateway::Journal;
using plc_gateway::JournalError;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;

class HostileJournal : public testing::Test {
 protected:
  std::unique_ptr<Journal> open() const {
    JournalOptions options;
    options.folder = dir.path();
    return std::make_unique<Journal>(options, plc_test::variables(3));
  }
  // The sentence with which it is refused.
  std::string refusal() const {
    try {
      open();
    } catch (const JournalError& error) {
      return error.what();
    }
    return "it was opened";
  }
  // A journal with one row, then these statements.
  void change(const std::string& statements) const {
    constexpr plc_gateway::Ms kMidnight = 1790000000000;
    open()->append(JournalRow::Kind::kData, kMidnight, {plc_test::number(0, 7, kMidnight)});
    sqlite3* connection = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &connection), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(connection, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(connection);
  }

  const plc_test::TempDir dir;
  const std::string database = dir.file("journal.sqlite");
};

TEST_F(HostileJournal, Link_IsNotFollowed) {
  const std::string victim = dir.write("victim", "");
  ASSERT_EQ(symlink(victim.c_str(), database.c_str()), 0);
  EXPECT_EQ(refusal(), database + ": it is a symbolic link; remove it, or name another folder");
  EXPECT_EQ(dir.read("victim"), "");
  ASSERT_EQ(unlink(victim.c_str()), 0);
  EXPECT_EQ(refusal(), database + ": it is a symbolic link; remove it, or name another folder");
  EXPECT_NE(access(victim.c_str(), F_OK), 0);
}

TEST_F(HostileJournal, PipeOrFolder_IsRefused) {
  const std::string expected = database + ": it is not a regular file; remove it, or name another folder";
  ASSERT_EQ(mkfifo(database.c_str(), 0600), 0);
  EXPECT_EQ(refusal(), expected);
  ASSERT_EQ(unlink(database.c_str()), 0);
  ASSERT_EQ(mkdir(database.c_str(), 0700), 0);
  EXPECT_EQ(refusal(), expected);
}

// SQLite would open them beside the database, and wait for the writer of a pipe.
TEST_F(HostileJournal, LinkOrPipeForALog_IsRefused) {
  for (const char* suffix : {"-wal", "-journal"}) {
    const std::string log = database + suffix;
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), log + ": it is not a regular file; remove it, or name another folder");
    ASSERT_EQ(unlink(log.c_str()), 0);
    ASSERT_EQ(symlink(dir.file("victim").c_str(), log.c_str()), 0);
    EXPECT_EQ(refusal(), log + ": it is a symbolic link; remove it, or name another folder");
    EXPECT_NE(access(dir.file("victim").c_str(), F_OK), 0);
    ASSERT_EQ(unlink(log.c_str()), 0);
  }
}

TEST_F(HostileJournal, NumbersThatNoJournalHas_AreDamage) {
  for (const char* statement :
       {"INSERT INTO names VALUES(4294967290, 'x', 3, 'DINT', '', NULL)", "UPDATE names SET alias = -1 WHERE alias = 1",
        "UPDATE life SET dropped = -1", "UPDATE life SET stored_values = -5",
        "UPDATE life SET last_id = 9223372036854775807"}) {
    change(statement);
    EXPECT_EQ(open()->counters().lost_damage, 1U) << statement;
  }
}

TEST_F(HostileJournal, StoredTriggers_DoNothing) {
  change("CREATE TRIGGER t AFTER UPDATE ON life BEGIN DELETE FROM rows; END");
  const std::unique_ptr<Journal> journal = open();
  journal->remove(5, 6);
  EXPECT_EQ(plc_test::ids_of(journal->read(0, SIZE_MAX)).size(), 1U);
}

TEST_F(HostileJournal, StoredView_IsDamage) {
  change(
      "ALTER TABLE rows RENAME TO others; CREATE VIEW rows AS WITH RECURSIVE c(id) AS (SELECT 1 UNION ALL SELECT id + "
      "1 "
      "FROM c) SELECT id, 1 AS n, 0 AS time, x'00' AS body FROM c");
  EXPECT_EQ(open()->counters().lost_damage, 1U);
}

}  // namespace
