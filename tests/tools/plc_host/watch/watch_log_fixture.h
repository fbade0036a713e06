// A log in a folder of its own, on a disk that has as much room as a test says, with rounds at times that it gives.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/client/host_test_records.h"
#include "tests/support/temp_dir.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/watch_log/change_log.h"

namespace plc_host {

class WatchLogTest : public testing::Test {
 protected:
  using Seconds = std::chrono::seconds;

  void watch(const std::vector<TagEntry>& entries, ChangeLogRules rules = {}) {
    list_ = plc_client_test::make_list(entries);
    references_.clear();
    for (const Tag& tag : list_.tags) references_.push_back(whole_tag(tag));
    rules_ = rules;
  }

  // Why the log could not be opened; begins it where it could.
  std::string open_log() {
    log_.reset();
    file_.reset();
    state_ = std::make_unique<WatchState>(references_);
    LogFileRules rules = file_rules_;
    rules.path = path();
    rules.heading = kLogHeading;
    const auto tell = [this](const std::string& text) { told_.push_back(text); };
    file_ = std::make_unique<LogFile>(rules, tell, [this](int file, const void* data, size_t size) {
      if (room_ == 0) errno = ENOSPC;
      const ssize_t written = room_ == 0 ? -1 : write(file, data, std::min(size, room_));
      if (written > 0) room_ -= static_cast<size_t>(written);
      return written;
    });
    const std::string problem = file_->open();
    if (!problem.empty()) return problem;
    log_ = std::make_unique<ChangeLog>(*file_, rules_, references_, tell);
    log_->begin("a test", now_);
    return {};
  }

  TagResult value(size_t row, std::vector<uint64_t> bits, const std::string& text = "") const {
    TagResult result = unread(references_.at(row));
    result.reading = {TagValue{std::move(bits), text}, Quality::kGood, now_};
    return result;
  }

  TagResult failure(size_t row, Quality quality) const {
    TagResult result = unread(references_.at(row));
    Failure failure;
    failure.quality = quality;
    failure.reason = "no luck";
    failure.connection_lost = quality == Quality::kLost || quality == Quality::kNoConnection;
    result.reading = {failure, now_};
    return result;
  }

  void round(const std::vector<TagResult>& results) {
    const WatchTime steady(now_.time_since_epoch());
    log_->take_round(*state_, state_->take_round(results, steady, steady), now_);
    now_ += Seconds(1);
  }

  std::string path() const { return folder_.file("week.csv"); }
  std::string text() const { return folder_.read("week.csv"); }

  // Rows without the heading, each without the date: "T00:00:00.000Z,Speed,1,good,".
  std::vector<std::string> rows() const { return rows_of("week.csv"); }
  std::vector<std::string> rows_of(const std::string& name) const {
    std::vector<std::string> rows;
    std::istringstream stream(folder_.read(name));
    for (std::string row; std::getline(stream, row);) rows.push_back(row);
    EXPECT_EQ(rows.empty() ? "" : rows[0] + "\n", kLogHeading);
    if (!rows.empty()) rows.erase(rows.begin());
    for (std::string& row : rows) row.erase(0, row.find('T'));
    return rows;
  }

  // Names of the files in the folder, in order.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  plc_test::TempDir folder_;
  LogFileRules file_rules_;
  ChangeLogRules rules_;
  TagList list_;
  std::vector<TagReference> references_;
  std::unique_ptr<WatchState> state_;
  std::unique_ptr<LogFile> file_;
  std::unique_ptr<ChangeLog> log_;
  std::vector<std::string> told_;
  size_t room_ = std::numeric_limits<size_t>::max();
  WallTime now_ = std::chrono::system_clock::from_time_t(1700006400);  // 2023-11-15T00:00:00Z
};

}  // namespace plc_host
