// Tests of scrolling, filtering and looking back in the table of watch, with more variables than a terminal has lines.
#include "tools/plc_host/watch/screen_view.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <memory>

#include "client/values/utf8_text.h"
#include "tests/client/host_test_records.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {
namespace {

using namespace plc_client_test;
using Lines = std::vector<std::string>;

constexpr size_t kColumns = 80;
constexpr size_t kHeight = 23;
constexpr size_t kPage = 20;

class ScreenViewTest : public testing::Test {
 protected:
  ScreenViewTest() {
    std::vector<TagEntry> entries;
    for (int i = 0; i < 500; ++i) entries.push_back(make_entry("Motor" + std::to_string(i), kInt));
    list_ = make_list(entries);
    for (const Tag& tag : list_.tags) references_.push_back(whole_tag(tag));
    state_ = std::make_unique<WatchState>(references_);
    view_ = std::make_unique<ScreenView>(*state_);
    round(7, Quality::kGood);
  }

  // All variables have the value, or the quality of a failure.
  void round(uint64_t bits, Quality quality) {
    std::vector<TagResult> results;
    for (const TagReference& reference : references_) {
      results.push_back(unread(reference));
      Failure failure;
      failure.quality = quality;
      failure.reason = "no luck";
      results.back().reading =
          quality == Quality::kGood ? Reading({{bits}, ""}, quality, time_) : Reading(failure, time_);
    }
    view_->take_round(*state_, state_->take_round(results, now_, now_));
    time_ += std::chrono::seconds(1);
    now_ += std::chrono::seconds(60);
  }

  Lines draw() { return view_->draw(*state_, {now_}, kColumns, kHeight); }
  // The names on the screen, the marked one behind '>'.
  Lines names() {
    Lines names;
    const Lines lines = draw();
    for (size_t i = 1; i + 2 < lines.size(); ++i) {
      names.push_back(
          lines[i].substr(lines[i][0] == '>' ? 0 : 2, lines[i].find(' ', 2) - (lines[i][0] == '>' ? 0 : 2)));
    }
    return names;
  }
  std::string place() {
    const Lines lines = draw();
    return lines.at(lines.size() - 2);
  }

  TagList list_;
  std::vector<TagReference> references_;
  std::unique_ptr<WatchState> state_;
  std::unique_ptr<ScreenView> view_;
  WatchTime now_ = WatchTime(std::chrono::hours(1));
  WallTime time_ = std::chrono::system_clock::from_time_t(1700006400);  // 2023-11-15T00:00:00Z
};

TEST_F(ScreenViewTest, Table_FitsATerminalAndSaysWhichRowsAreSeen) {
  const Lines lines = draw();
  ASSERT_EQ(lines.size(), kHeight);
  for (const std::string& line : lines) EXPECT_LE(display_width(line), kColumns) << line;
  EXPECT_EQ(lines[0], "  NAME      TYPE    AGE     STATE  VALUE");
  EXPECT_EQ(lines[1], "> Motor0    INT     60 s    good   7");
  EXPECT_EQ(lines[2], "  Motor1    INT     60 s    good   7");
  EXPECT_EQ(lines[21], "1-20 of 500; arrows, / filters, Return: history, q ends");
}

TEST_F(ScreenViewTest, Keys_ScrollAndStopAtTheEnds) {
  view_->take_keys("\x1b[A");
  EXPECT_EQ(names().front(), "> Motor0");
  view_->take_keys("\x1b[6~");
  EXPECT_EQ(names().back(), "> Motor20");
  EXPECT_EQ(place().substr(0, 11), "2-21 of 500");
  view_->take_keys("j\x1b[B\x1bOB");
  EXPECT_EQ(names().back(), "> Motor23");
  view_->take_keys("\x1b[5~k");
  EXPECT_EQ(names().front(), "> Motor2");
  view_->take_keys("\x1b[F");
  EXPECT_EQ(names().back(), "> Motor499");
  EXPECT_EQ(names().size(), kPage);
  view_->take_keys("\x1b[B\x1b[H");
  EXPECT_EQ(names().front(), "> Motor0");
}

TEST_F(ScreenViewTest, KeyInTwoPieces_IsOneKey) {
  view_->take_keys("\x1b[");
  view_->take_keys("B");
  EXPECT_EQ(names()[1], "> Motor1");
  view_->take_keys("\x1b[15~\x1b[1;5Bx");  // keys without a meaning here
  EXPECT_EQ(names()[1], "> Motor1");
}

TEST_F(ScreenViewTest, Filter_ShowsRowsWithItsText) {
  view_->take_keys("/oToR49");
  EXPECT_EQ(place(), "1-11 of 11, filter /oToR49_; Return ends its text, Escape the filter");
  view_->take_keys(
      "x\x7f"
      "8\r");
  EXPECT_EQ(names(), Lines{"> Motor498"});
  EXPECT_EQ(place(), "1-1 of 1, filter /oToR498; arrows, / filters, Return: history, q ends");
  view_->take_keys("\x1b");
  EXPECT_EQ(place().substr(0, 11), "1-20 of 500");
  view_->take_keys("/nothing");
  EXPECT_EQ(names(), Lines());
  EXPECT_EQ(place(), "no name fits the filter /nothing_; Return ends its text, Escape the filter");
  view_->take_keys("\r");
  EXPECT_EQ(place(), "no name fits the filter /nothing; / filters anew, Escape: all, q ends");
  view_->take_keys("\r\r");  // a history of no row
  EXPECT_EQ(names(), Lines());
}

TEST_F(ScreenViewTest, LowTerminals_KeepTheMarkedRowThenTheLastLines) {
  view_->take_keys("jj");
  const Lines four = view_->draw(*state_, {now_}, kColumns, 4);
  ASSERT_EQ(four.size(), 4U);
  EXPECT_EQ(four[1].substr(0, 8), "> Motor2");
  EXPECT_EQ(fit_rows(four, 5), four);
  EXPECT_EQ(fit_rows(four, 4), (Lines{four[1], four[2], four[3]}));
  EXPECT_EQ(fit_rows(four, 3), (Lines{four[1], four[3]}));
  EXPECT_EQ(fit_rows(four, 2), Lines{four[1]});
  EXPECT_EQ(fit_rows(four, 1), Lines{four[1]});
  EXPECT_EQ(fit_rows({"alone"}, 1), Lines{"alone"});
}

TEST_F(ScreenViewTest, LowTerminals_ShowTheFilterOfWhatTheyShow) {
  const auto shown = [this](size_t height) { return view_->draw(*state_, {now_}, kColumns, height); };
  EXPECT_EQ(shown(1), Lines{"> Motor0    INT     60 s    good   7"});
  EXPECT_EQ(shown(2)[1].substr(0, 8), "read at ");
  view_->take_keys("/r49");
  EXPECT_EQ(shown(1), Lines{"/r49_ > Motor49   INT     60 s    good   7"});
  view_->take_keys("\r");
  EXPECT_EQ(shown(1), Lines{"/r49 > Motor49   INT     60 s    good   7"});
  const std::string row = "> Motor49   INT     60 s    good   7";
  const std::string place = "1-1 of 11, filter /r49; arrows, / filters, Return: history, q ends";
  EXPECT_EQ(shown(2), (Lines{row, place}));
  const Lines three = shown(3);
  EXPECT_EQ((Lines{three[0], three[1]}), (Lines{row, place}));
  EXPECT_EQ(three[2].substr(0, 8), "read at ");
  view_->take_keys("/zzz\r");
  EXPECT_EQ(shown(1), Lines{"no name fits the filter /zzz; / filters anew, Escape: all, q ends"});
  view_->take_keys("/r4");
  EXPECT_EQ(view_->draw(*state_, {now_}, 9, 1), Lines{"/r\xE2\x80\xA6 > Mo\xE2\x80\xA6"});
}

TEST_F(ScreenViewTest, HistoryInLowTerminals_KeepsTheName) {
  round(8, Quality::kGood);
  view_->take_keys("j\r");
  const auto shown = [this](size_t height) { return view_->draw(*state_, {now_}, kColumns, height); };
  const std::string status = "Return: the table; Ctrl-C ends";
  const std::string newest = "2023-11-15T00:00:01.000Z  good  8";
  EXPECT_EQ(shown(1), Lines{"Motor1  " + newest});
  EXPECT_EQ(shown(2), (Lines{"Motor1  " + newest, status}));
  EXPECT_EQ(shown(3), (Lines{"Motor1  INT, newest first", newest, status}));
}

TEST_F(ScreenViewTest, History_ShowsChangesOfTheMarkedRowNewestFirst) {
  round(7, Quality::kGood);
  round(0, Quality::kRefused);
  round(8, Quality::kGood);
  view_->take_keys("j\r");
  EXPECT_EQ(draw(), (Lines{"Motor1  INT, newest first", "2023-11-15T00:00:03.000Z  good  8",
                           "2023-11-15T00:00:02.000Z  refused  no luck", "2023-11-15T00:00:00.000Z  good  7",
                           "Return: the table; Ctrl-C ends"}));
  view_->take_keys("\r");
  EXPECT_EQ(names()[1], "> Motor1");
}

TEST_F(ScreenViewTest, LongRun_KeepsWhatAScreenShowsAndNoMore) {
  for (uint64_t i = 0; i < 60; ++i) round(i, Quality::kGood);
  const size_t before = mallinfo2().uordblks;
  for (uint64_t i = 0; i < 60; ++i) round(100 + i, Quality::kGood);
  EXPECT_LE(mallinfo2().uordblks, before + 65536);  // of the blocks that deques move through
  view_->take_keys("\r");
  EXPECT_EQ(view_->draw(*state_, {now_}, kColumns, 100).size(), 52U);
  EXPECT_EQ(draw().size(), kHeight);
}

}  // namespace
}  // namespace plc_host
