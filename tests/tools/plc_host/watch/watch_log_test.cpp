// Tests of the rows and files of watch's log.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/tools/plc_host/watch/watch_log_fixture.h"

namespace plc_host {
namespace {

using namespace plc_client_test;
using Rows = std::vector<std::string>;

TEST_F(WatchLogTest, Changes_HaveARowEach) {
  watch({make_entry("Speed", kInt), make_entry("Table", kInt, {{0, 1}}), make_string("Name", 10)});
  EXPECT_EQ(open_log(), "");
  round({value(0, {0xFFFB}), value(1, {1, 2}), value(2, {}, "=1")});
  round({value(0, {0xFFFB}), value(1, {1, 3}), value(2, {}, "a,b")});
  round({value(0, {6}), value(1, {1, 3}), value(2, {}, "a,b")});
  log_->end(now_);
  EXPECT_EQ(text().substr(0, 81), std::string(kLogHeading) + "2023-11-15T00:00:00.000Z,,,started,a test\n2023-11-15");
  EXPECT_EQ(rows(),
            (Rows{"T00:00:00.000Z,,,started,a test", "T00:00:00.000Z,Speed,-5,good,", "T00:00:00.000Z,Table[0],1,good,",
                  "T00:00:00.000Z,Table[1],2,good,", "T00:00:00.000Z,Name,'=1,good,", "T00:00:01.000Z,Table[1],3,good,",
                  "T00:00:01.000Z,Name,\"a,b\",good,", "T00:00:02.000Z,Speed,6,good,", "T00:00:03.000Z,,,ended,"}));
  EXPECT_EQ(log_->written(), 9U);
  EXPECT_EQ(log_->dropped(), 0U);
}

TEST_F(WatchLogTest, EveryRound_HasRowsOfAllValues) {
  watch({make_entry("Speed", kInt), make_entry("Ready", kBool)}, {0, true});
  open_log();
  round({value(0, {1}), value(1, {1})});
  round({value(0, {1}), failure(1, Quality::kRefused)});
  round({value(0, {1}), failure(1, Quality::kRefused)});
  EXPECT_EQ(rows(),
            (Rows{"T00:00:00.000Z,,,started,a test", "T00:00:00.000Z,Speed,1,good,", "T00:00:00.000Z,Ready,true,good,",
                  "T00:00:01.000Z,Speed,1,good,", "T00:00:01.000Z,Ready,,refused,no luck",
                  "T00:00:02.000Z,Speed,1,good,", "T00:00:02.000Z,Ready,,refused,no luck"}));
}

TEST_F(WatchLogTest, LossAndReturn_HaveRowsAndNoValueBetween) {
  watch({make_entry("Speed", kInt), make_entry("Ready", kBool)});
  open_log();
  round({value(0, {1}), value(1, {0})});
  round({failure(0, Quality::kLost), unread(references_[1])});
  round({failure(0, Quality::kNoConnection), unread(references_[1])});
  round({failure(0, Quality::kNoConnection), unread(references_[1])});
  round({value(0, {1}), value(1, {0})});
  EXPECT_EQ(rows(), (Rows{"T00:00:00.000Z,,,started,a test", "T00:00:00.000Z,Speed,1,good,",
                          "T00:00:00.000Z,Ready,false,good,", "T00:00:01.000Z,,,lost,Speed: no luck",
                          "T00:00:01.000Z,Speed,,lost,no luck", "T00:00:01.000Z,Ready,,not-read,not read",
                          "T00:00:02.000Z,Speed,,no-connection,no luck", "T00:00:04.000Z,,,back,after 3.0 s",
                          "T00:00:04.000Z,Speed,1,good,", "T00:00:04.000Z,Ready,false,good,"}));
}

TEST_F(WatchLogTest, RowsOfARound_AreInTheOrderOfTheirTimes) {
  watch({make_entry("Speed", kInt), make_entry("Ready", kBool)});
  open_log();
  const auto later = [this](TagResult result, int ms) {
    result.reading = {*result.reading.value(), Quality::kGood, now_ + std::chrono::milliseconds(ms)};
    return result;
  };
  const auto round_of_ms = [this](const std::vector<TagResult>& results) {
    const WatchTime steady(now_.time_since_epoch());
    log_->take_round(*state_, state_->take_round(results, steady, steady), now_ + std::chrono::milliseconds(20));
    now_ += std::chrono::seconds(1);
  };
  round_of_ms({later(value(0, {1}), 4), later(value(1, {1}), 2)});
  round_of_ms({unread(references_[0]), failure(1, Quality::kLost)});
  round_of_ms({later(value(0, {1}), 3), later(value(1, {1}), 5)});
  EXPECT_EQ(rows(),
            (Rows{"T00:00:00.000Z,,,started,a test", "T00:00:00.002Z,Ready,true,good,", "T00:00:00.004Z,Speed,1,good,",
                  "T00:00:01.000Z,,,lost,Ready: no luck", "T00:00:01.000Z,Ready,,lost,no luck",
                  "T00:00:01.020Z,Speed,,not-read,not read", "T00:00:02.003Z,,,back,after 1.0 s",
                  "T00:00:02.003Z,Speed,1,good,", "T00:00:02.005Z,Ready,true,good,"}));
}

TEST_F(WatchLogTest, FileThatIsEmptied_BeginsWithItsHeadingAndTheValues) {
  watch({make_entry("Speed", kInt), make_entry("Ready", kBool)});
  open_log();
  round({value(0, {1}), value(1, {1})});
  std::filesystem::resize_file(path(), 0);
  round({value(0, {2}), value(1, {1})});
  EXPECT_EQ(rows(), (Rows{"T00:00:01.000Z,Ready,true,good,repeated; last row of 2023-11-15T00:00:00.000Z",
                          "T00:00:01.000Z,Speed,2,good,"}));
  EXPECT_EQ(told_, Rows{path() + " was emptied; the log goes on in it from the heading"});
  log_->end(now_);
  EXPECT_EQ(open_log(), "");
}

TEST_F(WatchLogTest, EmptyFile_IsALogThatBegins) {
  watch({make_entry("Speed", kInt)});
  folder_.write("week.csv", "");
  EXPECT_EQ(open_log(), "");
  EXPECT_EQ(rows(), Rows{"T00:00:00.000Z,,,started,a test"});
}

TEST_F(WatchLogTest, Deadband_CountsFromTheLastRow) {
  watch({make_entry("Speed", kInt), make_entry("Big", kUlint), make_entry("Low", kLint), make_entry("Temp", kReal),
         make_entry("Mask", kWord)},
        {2, false});
  open_log();
  const uint64_t top = std::numeric_limits<uint64_t>::max();
  const uint64_t lowest = uint64_t{1} << 63U;
  round({value(0, {0xFFFF}), value(1, {top}), value(2, {lowest}), value(3, {0x3F800000}), value(4, {1})});
  round({value(0, {1}), value(1, {top - 2}), value(2, {lowest + 2}), value(3, {0x40400000}), value(4, {2})});
  round({value(0, {2}), value(1, {top - 3}), value(2, {lowest - 1}), value(3, {0x7FC00000}), value(4, {2})});
  round({value(0, {3}), value(1, {top}), value(2, {lowest - 2}), value(3, {0x40400000}), value(4, {2})});
  const Rows all = rows();
  EXPECT_EQ(Rows(all.begin() + 6, all.end()),
            (Rows{"T00:00:01.000Z,Mask,0x0002,good,", "T00:00:02.000Z,Speed,2,good,",
                  "T00:00:02.000Z,Big,18446744073709551612,good,", "T00:00:02.000Z,Low,9223372036854775807,good,",
                  "T00:00:02.000Z,Temp,nan,good,", "T00:00:03.000Z,Big,18446744073709551615,good,",
                  "T00:00:03.000Z,Temp,3,good,"}));
}

TEST_F(WatchLogTest, RowsWithoutRoom_AreCountedAndValuesLoggedAnew) {
  watch({make_entry("Speed", kInt), make_entry("Ready", kBool)});
  open_log();
  round({value(0, {1}), value(1, {0})});
  const std::string before = text();
  room_ = 10;  // of a row that needs more
  round({value(0, {2}), value(1, {0})});
  EXPECT_EQ(text(), before);
  round({value(0, {3}), value(1, {1})});
  round({value(0, {3}), value(1, {1})});
  EXPECT_EQ(text(), before);
  room_ = 100000;
  round({value(0, {3}), value(1, {1})});
  EXPECT_EQ(rows_of("week.csv").size(), 6U);
  EXPECT_EQ(rows()[3],
            "T00:00:04.000Z,,,dropped,3 rows from 2023-11-15T00:00:01.000Z to 2023-11-15T00:00:02.000Z could not be "
            "written: No space left on device");
  EXPECT_EQ(rows()[4], "T00:00:04.000Z,Speed,3,good,");
  EXPECT_EQ(rows()[5], "T00:00:04.000Z,Ready,true,good,");
  EXPECT_EQ(log_->dropped(), 3U);
  ASSERT_EQ(told_.size(), 2U);
  EXPECT_EQ(told_[0], "cannot write " + path() + ": No space left on device; rows that are missing are counted");
}

TEST_F(WatchLogTest, RoomWithinARound_LeavesNoValueOutOfTheNext) {
  watch({make_entry("Speed", kInt), make_entry("Ready", kBool)});
  open_log();
  round({value(0, {1}), value(1, {0})});
  room_ = 0;
  now_ += Seconds(1);
  const WatchTime steady(now_.time_since_epoch());
  const TagResult ready = value(1, {1});
  log_->take_round(*state_, state_->take_round({value(0, {2}), ready}, steady, steady), now_);
  room_ = 100000;
  log_->end(now_);
  EXPECT_EQ(rows().at(3).substr(0, 30), "T00:00:02.000Z,,,dropped,2 row");
  round({value(0, {2}), value(1, {1})});
  EXPECT_EQ(rows().at(5), "T00:00:02.000Z,Speed,2,good,");
  EXPECT_EQ(rows().at(6), "T00:00:02.000Z,Ready,true,good,");
}

TEST_F(WatchLogTest, LogThatGoesOn_SaysSoBehindTheOldRows) {
  watch({make_entry("Speed", kInt)});
  open_log();
  round({value(0, {1})});
  log_->end(now_);
  open_log();
  EXPECT_EQ(rows().at(3), "T00:00:01.000Z,,,continued,a test; the last row before is of 2023-11-15T00:00:01.000Z");
  round({value(0, {1})});
  EXPECT_EQ(rows().at(4), "T00:00:01.000Z,Speed,1,good,");
}

TEST_F(WatchLogTest, RowThatWasCutOff_IsTakenAwayAndTold) {
  watch({make_entry("Speed", kInt)});
  folder_.write("week.csv", std::string(kLogHeading) + "2023-11-14T23:59:59.000Z,Speed,1,good,\n2023-11-15T00:00:00.0");
  open_log();
  EXPECT_EQ(rows(),
            (Rows{"T23:59:59.000Z,Speed,1,good,",
                  "T00:00:00.000Z,,,continued,\"a test; the last row before is of 2023-11-14T23:59:59.000Z; nobody "
                  "ended the log before, so rows may be missing; a row that was cut off is taken away\""}));
}

TEST_F(WatchLogTest, ForeignFile_IsRefusedAndStays) {
  watch({make_entry("Speed", kInt)});
  folder_.write("week.csv", "a letter\n");
  EXPECT_EQ(open_log(), "it is there and is not a log of plc-host");
  EXPECT_EQ(text(), "a letter\n");
  std::remove(path().c_str());
  folder_.write("other.csv", kLogHeading);
  ASSERT_EQ(symlink(folder_.file("other.csv").c_str(), path().c_str()), 0);
  EXPECT_EQ(open_log(), "it is a symbolic link");
  std::remove(path().c_str());
  ASSERT_EQ(link(folder_.file("other.csv").c_str(), path().c_str()), 0);
  EXPECT_EQ(open_log(), "it has a second name, a hard link");
  EXPECT_EQ(folder_.read("other.csv"), kLogHeading);
  std::remove(path().c_str());
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  EXPECT_EQ(open_log(), "it is not a regular file");
  std::remove(path().c_str());
  ASSERT_EQ(mkdir(path().c_str(), 0700), 0);
  EXPECT_EQ(open_log(), "it is a folder");
}

TEST_F(WatchLogTest, LogOfAnotherProgram_IsRefused) {
  watch({make_entry("Speed", kInt)});
  open_log();
  LogFileRules rules;
  rules.path = path();
  rules.heading = kLogHeading;
  LogFile second(rules, [](const std::string&) {});
  EXPECT_EQ(second.open(), "another program writes it");
}

TEST_F(WatchLogTest, FileThatIsTakenAway_IsMadeAnew) {
  watch({make_entry("Speed", kInt)});
  open_log();
  round({value(0, {1})});
  ASSERT_EQ(rename(path().c_str(), folder_.file("taken").c_str()), 0);
  round({value(0, {2})});
  EXPECT_EQ(rows(), Rows{"T00:00:01.000Z,Speed,2,good,"});
  EXPECT_EQ(told_, Rows{path() + " was taken away; the log goes on in a new file"});
}

TEST_F(WatchLogTest, Size_PutsFilesAsideAndKeepsTheNewest) {
  watch({make_entry("Speed", kInt)});
  file_rules_.most_bytes = 120;  // heading and two rows
  file_rules_.kept = 2;
  // Names that fit, of files that are none of this log's.
  folder_.write("week.20200101-000000.000Z.csv", "a letter\n");
  folder_.write("week.2020.csv", kLogHeading);
  open_log();
  for (uint64_t i = 1; i <= 8; ++i) round({value(0, {i})});
  EXPECT_EQ(files(), (Rows{"week.2020.csv", "week.20200101-000000.000Z.csv", "week.20231115-000005.000Z.csv",
                           "week.20231115-000007.000Z.csv", "week.csv"}));
  EXPECT_EQ(rows_of("week.20231115-000007.000Z.csv"),
            (Rows{"T00:00:05.000Z,Speed,6,good,", "T00:00:06.000Z,Speed,7,good,"}));
  EXPECT_EQ(rows(), Rows{"T00:00:07.000Z,Speed,8,good,"});
  EXPECT_EQ(folder_.read("week.20200101-000000.000Z.csv"), "a letter\n");
}

TEST_F(WatchLogTest, FileThatFollows_BeginsWithTheValuesSoFar) {
  watch({make_entry("Speed", kInt), make_entry("Table", kInt, {{0, 1}}), make_string("Name", 10),
         make_entry("Ready", kBool)});
  file_rules_.daily = true;
  now_ -= Seconds(2);
  open_log();
  round({value(0, {1}), value(1, {2, 3}), value(2, {}, "a,b"), failure(3, Quality::kRefused)});
  round({value(0, {1}), value(1, {2, 4}), value(2, {}, "a,b"), failure(3, Quality::kRefused)});
  round({value(0, {1}), value(1, {5, 4}), value(2, {}, "a,b"), failure(3, Quality::kRefused)});
  EXPECT_EQ(rows(), (Rows{"T00:00:00.000Z,Speed,1,good,repeated; last row of 2023-11-14T23:59:58.000Z",
                          "T00:00:00.000Z,Table[1],4,good,repeated; last row of 2023-11-14T23:59:59.000Z",
                          "T00:00:00.000Z,Name,\"a,b\",good,repeated; last row of 2023-11-14T23:59:58.000Z",
                          "T00:00:00.000Z,Ready,,refused,repeated; last row of 2023-11-14T23:59:58.000Z; no luck",
                          "T00:00:00.000Z,Table[0],5,good,"}));
  EXPECT_EQ(log_->written(), 12U);
}

TEST_F(WatchLogTest, FileThatBeginsWithinARound_RepeatsWhatTheRoundHasWritten) {
  watch({make_entry("Speed", kInt), make_entry("Total", kInt)});
  file_rules_.most_bytes = 425;
  open_log();
  for (uint64_t i = 1; files().size() < 2; ++i) round({value(0, {i}), value(1, {i})});
  const Rows first = rows();
  ASSERT_EQ(first.size(), 2U);
  EXPECT_EQ(first[0].substr(14), ",Speed,5,good,repeated; last row of 2023-11-15T00:00:04.000Z");
  EXPECT_EQ(first[1].substr(14), ",Total,5,good,");
  EXPECT_LE(folder_.read(files()[0]).size(), 425U);
}

// Nobody knows whether they stand: behind the row that says so all values are logged anew.
TEST_F(WatchLogTest, FileThatBeginsBehindAGap_RepeatsNothing) {
  watch({make_entry("Speed", kInt), make_entry("Total", kInt)});
  file_rules_.daily = true;
  now_ -= Seconds(2);
  open_log();
  round({value(0, {1}), value(1, {2})});
  room_ = 10;
  round({value(0, {3}), value(1, {2})});
  room_ = 100000;
  round({value(0, {3}), value(1, {2})});
  ASSERT_EQ(rows().size(), 3U);
  EXPECT_EQ(rows()[0].substr(0, 27), "T00:00:00.000Z,,,dropped,1 ");
  EXPECT_EQ(rows()[1], "T00:00:00.000Z,Speed,3,good,");
  EXPECT_EQ(rows()[2], "T00:00:00.000Z,Total,2,good,");
}

TEST_F(WatchLogTest, ValuesThatWouldFillTheFile_AreNotRepeatedAndToldOnce) {
  watch({make_entry("Speed", kInt), make_entry("Total", kInt)});
  file_rules_.most_bytes = 160;
  open_log();
  for (uint64_t i = 1; i <= 12; ++i) round({value(0, {i}), value(1, {1})});
  for (const std::string& row : rows()) EXPECT_EQ(row.find("repeated"), std::string::npos) << row;
  EXPECT_EQ(told_, Rows{path() + " begins without the values so far: they would take more than half of it. Try: "
                                 "--rotate 1kB"});
}

TEST_F(WatchLogTest, ClockPutBack_KeepsTheOrderOfFiles) {
  watch({make_entry("Speed", kInt)});
  file_rules_.most_bytes = 80;  // heading and a row
  folder_.write("week.20991231-235959.999Z.csv", kLogHeading);
  open_log();
  round({value(0, {1})});
  round({value(0, {2})});
  EXPECT_EQ(files(), (Rows{"week.20991231-235959.999Z.csv", "week.20991231-235960.000Z.csv",
                           "week.20991231-235960.001Z.csv", "week.csv"}));
}

TEST_F(WatchLogTest, Day_BeginsAFileAlsoWhereTheLogGoesOn) {
  watch({make_entry("Speed", kInt)});
  file_rules_.daily = true;
  folder_.write("week.csv", std::string(kLogHeading) + "2023-11-14T23:59:59.000Z,,,ended,\n");
  open_log();
  now_ += std::chrono::hours(24);
  round({value(0, {1})});
  EXPECT_EQ(files(), (Rows{"week.20231115-000000.000Z.csv", "week.20231116-000000.000Z.csv", "week.csv"}));
  EXPECT_EQ(rows_of("week.20231115-000000.000Z.csv"), Rows{"T23:59:59.000Z,,,ended,"});
  EXPECT_EQ(rows(), Rows{"T00:00:00.000Z,Speed,1,good,"});
}

}  // namespace
}  // namespace plc_host
