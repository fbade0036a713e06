// Tests of a look at a journal: what it sees, and that nothing is changed by it.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/journal_rows.h"
#include "tools/plc_gateway/journal/row_store.h"

namespace {

using plc_gateway::Access;
using plc_gateway::DamagedDatabase;
using plc_gateway::Journal;
using plc_gateway::JournalError;
using plc_gateway::JournalOptions;
using plc_gateway::JournalRow;
using plc_gateway::RowFacts;
using plc_gateway::RowStore;

constexpr plc_gateway::Ms kDawn = 1790000000000;

class JournalLook : public testing::Test {
 protected:
  // As a kill leaves it: three rows, of which the log holds some.
  JournalLook() {
    const plc_test::TempDir alive;
    options.folder = alive.path();
    Journal journal(options, plc_test::variables(2));
    for (uint64_t i = 1; i <= 3; ++i) {
      journal.append(JournalRow::Kind::kData, kDawn, {plc_test::number(0, i, kDawn), plc_test::number(1, i, kDawn)});
    }
    for (const char* name : {"journal.sqlite", "journal.sqlite-wal"}) {
      std::filesystem::copy_file(alive.file(name), dir.file(name));
    }
    options.folder = dir.path();
  }

  void change(const char* statements) const {
    sqlite3* connection = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &connection), SQLITE_OK);
    int keep_log = 1;
    sqlite3_file_control(connection, "main", SQLITE_FCNTL_PERSIST_WAL, &keep_log);
    EXPECT_EQ(sqlite3_exec(connection, statements, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(connection);
  }

  // A word for each row, or why there is none; and nothing in the folder is another one than before.
  std::string seen() const {
    const std::map<std::string, std::string> before = files();
    std::string text;
    try {
      RowStore store(options, 0, Access::kLook);
      store.names();
      store.look_at_all([&text](const RowFacts& row) {
        text += std::to_string(row.id) + (row.is_whole ? " whole " : " damaged ");
        text += std::to_string(row.values) + (row.time == kDawn ? " dawn;" : " no time;");
      });
    } catch (const DamagedDatabase& damaged) {
      text = std::string("damaged: ") + damaged.what();
    } catch (const JournalError& error) {
      text = error.what();
    }
    EXPECT_TRUE(files() == before) << "the look has changed something";
    return text;
  }

  const plc_test::TempDir dir;
  const std::string database = dir.file("journal.sqlite");
  JournalOptions options;

 private:
  // Names, times of their last change, and contents.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
      std::string& text = all[entry.path().filename()];
      text = std::to_string(entry.last_write_time().time_since_epoch().count());
      text += ':' + dir.read(entry.path().filename().string());
    }
    return all;
  }
};

TEST_F(JournalLook, RowsOfALogThatAKillLeft_AreSeen) {
  EXPECT_EQ(seen(), "1 whole 2 dawn;2 whole 2 dawn;3 whole 2 dawn;");
  Journal(options, plc_test::variables(2)).remove(1, 1);
  EXPECT_EQ(seen(), "2 whole 2 dawn;3 whole 2 dawn;");
}

TEST_F(JournalLook, DamagedRow_HasNoFiguresOfItsOwn) {
  change("UPDATE rows SET n = 16777216, time = 9223372036854775807 WHERE id = 2");
  EXPECT_EQ(seen(), "1 whole 2 dawn;2 damaged 0 no time;3 whole 2 dawn;");
  change("UPDATE rows SET body = x'00' WHERE id = 3");
  EXPECT_EQ(seen(), "1 whole 2 dawn;2 damaged 0 no time;3 damaged 0 no time;");
}

TEST_F(JournalLook, DamagedJournal_IsToldAndNotPutAside) {
  change("UPDATE names SET name = 'V7' WHERE alias = 1");
  EXPECT_EQ(seen(), "damaged: " + database + ": the name of alias 1 is damaged");
  change("DROP TABLE names");
  EXPECT_EQ(seen(), "damaged: " + database +
                        ": it was not made by this version of plc-gateway, or somebody has changed it: no such table: "
                        "names");
  std::filesystem::remove(database + "-wal");
  dir.write("journal.sqlite", std::string(8192, 'x'));
  EXPECT_EQ(seen(), "damaged: " + database + ": cannot be read: file is not a database");
  dir.write("journal.sqlite-wal", std::string(70000, 'x'));
  EXPECT_EQ(seen(), "damaged: " + database + ": cannot be read: file is not a database");
}

// SQLite would delete, make or carry out what stands beside the database.
TEST_F(JournalLook, WhatCannotBeLookedAtWithoutAChange_IsTold) {
  const std::string log = dir.read("journal.sqlite-wal");
  std::filesystem::remove(database + "-wal");
  EXPECT_EQ(seen(), database + "-wal: it is missing, and the last changes with it; 'run' goes on without them");
  dir.write("journal.sqlite-wal", log);
  dir.write("journal.sqlite-journal", "");
  EXPECT_EQ(seen(), database + "-journal: an interrupted start has left it; 'run' clears it up");
  std::filesystem::remove(database + "-journal");
}

// A start that was interrupted leaves a database without tables too.
TEST_F(JournalLook, FolderWithoutAJournal_IsTold) {
  const std::string none = database + ": there is no journal yet; it begins with 'run'";
  const std::string first_page = dir.read("journal.sqlite").substr(0, 4096);
  change("DROP TABLE rows; DROP TABLE names; DROP TABLE life; DROP TABLE command_times");
  EXPECT_EQ(seen(), none);
  dir.write("journal.sqlite", "");
  EXPECT_EQ(seen(), none);
  std::filesystem::remove(database + "-wal");
  dir.write("journal.sqlite", first_page);
  dir.write("journal.sqlite-journal", "");
  EXPECT_EQ(seen(), none);
  std::filesystem::remove(database);
  EXPECT_EQ(seen(), none);
}

// What the gateway counts of a damaged row is never more than it can have held.
TEST_F(JournalLook, CountOfADroppedDamagedRow_IsBounded) {
  change("UPDATE rows SET n = 16777216 WHERE id = 2");
  Journal journal(options, plc_test::variables(2));
  EXPECT_EQ(plc_test::ids_of(journal.read(0, SIZE_MAX)), (std::vector<uint64_t>{1, 3}));
  EXPECT_EQ(journal.counters().dropped, 9U);  // its bytes
}

}  // namespace
