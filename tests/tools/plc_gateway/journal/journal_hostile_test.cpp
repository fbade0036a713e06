// Tests of a journal that somebody else has made, or changed.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/journal/sum.h"

namespace {

using plc_gateway::Journal;
using plc_gateway::JournalError;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;

class HostileJournal : public testing::Test {
 protected:
  std::unique_ptr<Journal> open(const std::vector<plc_gateway::Variable>& variables = plc_test::variables(3)) const {
    JournalOptions options;
    options.folder = dir.path();
    return std::make_unique<Journal>(options, variables);
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

  // The statement that gives the journal these counts, with their sum.
  static std::string life_of(const std::array<int64_t, 5>& counts) {
    plc_gateway::Sum sum;
    for (const int64_t count : counts) sum.add(static_cast<uint64_t>(count));
    std::string statement = "UPDATE life SET sum = " + std::to_string(sum.value());
    size_t place = 0;
    for (const char* column : {"last_id", "stored_rows", "stored_values", "dropped", "names"}) {
      statement += std::string(", ") + column;
      statement += " = " + std::to_string(counts[place++]);
    }
    return statement;
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

// Even with a sum that is right.
TEST_F(HostileJournal, NumbersThatNoJournalHas_AreDamage) {
  const std::array<int64_t, 5> cases[] = {
      {0, 0, 0, -1, 3}, {0, 0, -5, 0, 3}, {INT64_MAX, 0, 0, 0, 3}, {0, -1, 0, 0, 3}};
  for (const auto& counts : cases) {
    change(life_of(counts));
    EXPECT_EQ(open()->damage(), database + ": its counts are damaged");
  }
}

// Else a value would be published under the name of another variable.
TEST_F(HostileJournal, NamesThatSomebodyChanged_AreDamage) {
  for (const char* statement :
       {"UPDATE names SET name = 'Motor.Speed' WHERE alias = 1",
        "UPDATE names SET name = 'V' || (2 - alias) WHERE alias < 3", "UPDATE names SET type = 3 WHERE alias = 1",
        "UPDATE names SET declared = 'REAL' WHERE alias = 1", "UPDATE names SET shape = '10 ' WHERE alias = 1",
        "UPDATE names SET last_row = 0 WHERE alias = 1", "UPDATE names SET alias = 4 WHERE alias = 1",
        "DELETE FROM names WHERE alias = 1", "DELETE FROM names WHERE alias = 3", "DELETE FROM names",
        "UPDATE life SET dropped = 5"}) {
    change(statement);
    EXPECT_EQ(open()->counters().lost_damage, 1U) << statement;
  }
}

TEST_F(HostileJournal, Damage_IsToldWithWhatWasFound) {
  const std::pair<const char*, const char*> cases[] = {
      {"UPDATE names SET name = 'V3' WHERE alias = 2", "the name of alias 2 is damaged"},
      {"DELETE FROM names WHERE alias = 3", "it holds 2 of 3 names of variables"},
      {"UPDATE life SET stored_rows = 9", "its counts are damaged"},
      {"DELETE FROM life", "it lacks its counts"},
      // As the first gateways made it.
      {"ALTER TABLE names DROP COLUMN sum",
       "it was not made by this version of plc-gateway, or somebody has changed it: no such column: sum"},
  };
  EXPECT_EQ(open()->damage(), "");
  for (const auto& [statement, found] : cases) {
    change(statement);
    const std::unique_ptr<Journal> journal = open();
    EXPECT_EQ(journal->damage(), database + ": " + found);
    EXPECT_EQ(plc_test::ids_of(journal->read(0, SIZE_MAX)).size(), 0U);
  }
}

// Even with sums that are right.
TEST_F(HostileJournal, NamesThatNoGatewayWrites_AreDamage) {
  const std::pair<uint64_t, std::string> cases[] = {{4, "V1"}, {5, "V9"}, {4, "V\xFC"}};
  for (const auto& [alias, name] : cases) {
    plc_gateway::Sum sum;
    sum.add(alias);
    sum.add_text(name);
    sum.add(static_cast<uint64_t>(plc_gateway::DataType::kInt16));
    sum.add_text("INT");
    for (const uint64_t number : {0U, 0U, 0U}) sum.add(number);  // no shape; it is polled now
    std::string statement = life_of({0, 0, 0, 0, 4}) + "; INSERT INTO names VALUES(" + std::to_string(alias);
    statement += ", '" + name + "', 2, 'INT', '', NULL, " + std::to_string(sum.value()) + ")";
    change(statement);
    EXPECT_EQ(open()->damage(), database + ": the name of alias 4 is damaged") << name;
  }
}

// A gateway without topics for single variables takes them.
TEST_F(HostileJournal, HiddenCharacterInANameThatTheGatewayWrote_IsNoDamage) {
  const plc_gateway::Variable odd = plc_test::variable("Motor\x01.Speed");
  open({odd})->append(JournalRow::Kind::kData, 1790000000000, {plc_test::number(0, 7, 1790000000000)});
  const std::unique_ptr<Journal> journal = open();
  EXPECT_EQ(journal->damage(), "");
  ASSERT_EQ(journal->retired().size(), 1U);
  EXPECT_EQ(journal->retired().front().name, "Motor\x01.Speed");
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
