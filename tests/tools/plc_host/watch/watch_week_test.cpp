// A week of a log in compressed time, with controller losses, full disks and files put aside; then the files are read
// as somebody would who has nothing else, and held against what the controller had.
#include <malloc.h>

#include <cstdlib>
#include <map>
#include <optional>

#include "tests/tools/plc_host/watch/watch_log_fixture.h"

namespace plc_host {
namespace {

using namespace plc_client_test;

constexpr int64_t kRoundS = 10;
constexpr int64_t kWeekS = 7 * 86400;
constexpr int64_t kDayS = 86400;
constexpr uint64_t kMostBytes = 100000;
constexpr size_t kSlack = 4096;  // of allocated bytes

// What the controller has, by the second of the week.
uint64_t count_at(int64_t second) { return static_cast<uint64_t>(second / 60 % 30000); }
uint64_t level_at(int64_t second) { return static_cast<uint64_t>((second * 7919 / kRoundS) % 1000); }
bool is_running_at(int64_t second) { return second / 3600 % 2 == 0; }
// Away for 5 minutes each 3 hours and 20 minutes, and for most of the fourth night.
bool is_away_at(int64_t second) {
  return second % 12000 < 300 || (second > 3 * kDayS + 1000 && second < 3 * kDayS + 30000);
}
// Full for 15 minutes each 7 hours, across losses, returns and midnights, and for an afternoon.
bool is_full_at(int64_t second) {
  return second % 25200 >= 24600 || second % 25200 < 300 ||
         (second > 5 * kDayS + 40000 && second < 5 * kDayS + 60000) || second % kDayS < 20;
}

// A row as its reader takes it apart; no cell of these rows has a comma but the last.
struct Row {
  int64_t second = 0;
  std::string name;
  std::string value;
  std::string state;
  std::string reason;
  size_t file = 0;
};

class WatchWeekTest : public WatchLogTest {
 protected:
  void run_week() {
    for (int64_t second = 0; second < kWeekS; second += kRoundS) {
      now_ = start_ + Seconds(second);
      // What is left of a disk seldom ends with a row.
      room_ = is_full_at(second) ? static_cast<size_t>(second % 30) : std::numeric_limits<size_t>::max();
      std::vector<TagResult> results = {value(0, {count_at(second)}), value(1, {level_at(second)}),
                                        value(2, {is_running_at(second) ? 1U : 0U})};
      if (is_away_at(second)) {
        results = {failure(0, Quality::kNoConnection), unread(references_[1]), unread(references_[2])};
      }
      round(results);
      told_.clear();
      if (second == kDayS) memory_of_a_day_ = mallinfo2().uordblks;
    }
    memory_of_a_week_ = mallinfo2().uordblks;
    room_ = std::numeric_limits<size_t>::max();
    log_->end(now_);
  }

  int64_t second_of(const std::string& stamp) const {
    struct tm parts {};
    EXPECT_NE(strptime(stamp.c_str(), "%Y-%m-%dT%H:%M:%S", &parts), nullptr) << stamp;
    return timegm(&parts) - std::chrono::system_clock::to_time_t(start_);
  }

  // Of all files, in the order of their names.
  std::vector<Row> read_rows() {
    std::vector<std::string> names = files();
    std::rotate(std::find(names.begin(), names.end(), "week.csv"), names.end() - 1, names.end());
    names.erase(std::find(names.begin(), names.end(), "week.csv"));
    names.emplace_back("week.csv");
    std::vector<Row> rows;
    for (const std::string& name : names) {
      const std::string all = folder_.read(name);
      EXPECT_LE(all.size(), kMostBytes) << name;
      EXPECT_EQ(all.back(), '\n') << name;
      const size_t first = rows.size();
      std::istringstream stream(all);
      std::string line;
      std::getline(stream, line);
      EXPECT_EQ(line + "\n", kLogHeading) << name;
      while (std::getline(stream, line)) {
        rows.push_back(row_of(line));
        rows.back().file = file_count_;
      }
      ++file_count_;
      EXPECT_EQ(rows.at(first).second / kDayS, rows.back().second / kDayS) << name;
    }
    return rows;
  }

  Row row_of(const std::string& line) const {
    std::istringstream stream(line);
    std::string stamp;
    Row row;
    std::getline(stream, stamp, ',');
    std::getline(stream, row.name, ',');
    std::getline(stream, row.value, ',');
    std::getline(stream, row.state, ',');
    std::getline(stream, row.reason);
    row.second = second_of(stamp);
    return row;
  }

  static std::string true_value(const std::string& name, int64_t second) {
    if (is_away_at(second)) return "";
    if (name == "Count") return std::to_string(count_at(second));
    if (name == "Level") return std::to_string(level_at(second));
    return is_running_at(second) ? "true" : "false";
  }

  // What each file by itself says of the variables at the end of each round, where it says that it knows.
  void judge_rounds(const std::vector<Row>& rows) {
    std::map<std::string, std::string> values;
    size_t next = 0;
    for (int64_t second = 0; second < kWeekS; second += kRoundS) {
      for (; next < rows.size() && rows[next].second <= second; ++next) {
        if (next > 0 && rows[next].file != rows[next - 1].file) values.clear();
        if (!rows[next].name.empty()) values[rows[next].name] = rows[next].value;
      }
      if (is_unknown(second)) continue;
      for (const char* name : {"Count", "Level", "Running"}) {
        ASSERT_EQ(values[name], true_value(name, second)) << name << " at second " << second;
      }
    }
  }

  // Between the first row that is missing and the row that tells of it.
  bool is_unknown(int64_t second) const {
    const auto gap = gaps_.upper_bound(second);
    return gap != gaps_.begin() && std::prev(gap)->second > second;
  }

  void take_gap(const Row& row) {
    std::istringstream words(row.reason);
    uint64_t count = 0;
    std::string word;
    std::string from;
    words >> count >> word >> word >> from;
    told_dropped_ += count;
    gaps_[second_of(from)] = row.second;
  }

  const WallTime start_ = now_;
  size_t memory_of_a_day_ = 0;
  size_t memory_of_a_week_ = 0;
  size_t file_count_ = 0;
  uint64_t told_dropped_ = 0;
  std::map<int64_t, int64_t> gaps_;
};

TEST_F(WatchWeekTest, NoRowIsLostInSilence_NoneLies_MemoryStays) {
  watch({make_entry("Count", kUint), make_entry("Level", kUint), make_entry("Running", kBool)});
  file_rules_.most_bytes = kMostBytes;
  file_rules_.daily = true;
  ASSERT_EQ(open_log(), "");
  run_week();
  std::map<std::string, size_t> events;
  const std::vector<Row> rows = read_rows();
  for (const Row& row : rows) {
    if (row.name.empty()) {
      ++events[row.state];
      if (row.state == "dropped") take_gap(row);
      continue;
    }
    if (row.reason.compare(0, 8, "repeated") == 0) ++events["repeated"];
    ASSERT_EQ(row.value, true_value(row.name, row.second)) << row.name << " at second " << row.second;
    ASSERT_EQ(row.state == "good", !row.value.empty()) << row.name << " at second " << row.second;
  }
  judge_rounds(rows);
  EXPECT_EQ(rows.size(), log_->written());
  EXPECT_EQ(told_dropped_, log_->dropped());
  RecordProperty("rows", std::to_string(rows.size()));
  RecordProperty("dropped", std::to_string(told_dropped_));
  RecordProperty("files", std::to_string(file_count_));
  // The week had all that it is to show.
  EXPECT_EQ(events["started"], 1U);
  EXPECT_EQ(events["ended"], 1U);
  EXPECT_GT(events["dropped"], 20U);
  EXPECT_GT(events["lost"], 40U);
  EXPECT_GT(events["back"], 40U);
  EXPECT_GT(told_dropped_, 1000U);
  EXPECT_GT(events["repeated"], 20U);
  EXPECT_GT(file_count_, 20U);
  EXPECT_GT(rows.size(), 40000U);
  EXPECT_LE(memory_of_a_week_, memory_of_a_day_ + kSlack);
}

}  // namespace
}  // namespace plc_host
