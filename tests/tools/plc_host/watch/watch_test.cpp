// Tests of what watch notices, and of how it draws it.
#include <gtest/gtest.h>

#include <chrono>

#include "client/values/utf8_text.h"
#include "tests/client/host_test_records.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/watch/chart.h"
#include "tools/plc_host/watch/watch_output.h"
#include "tools/plc_host/watch/watch_screen.h"
#include "tools/plc_host/watch/watch_state.h"

namespace plc_host {
namespace {

using namespace plc_client_test;
using std::chrono::milliseconds;
using std::chrono::seconds;

const WallTime kNoon = std::chrono::system_clock::from_time_t(1700000000);

class WatchTest : public testing::Test {
 protected:
  WatchTest() {
    for (const Tag& tag : list_.tags) references_.push_back(whole_tag(tag));
    state_ = std::make_unique<WatchState>(references_);
  }

  TagResult value(size_t row, uint64_t bits) {
    TagResult result = unread(references_[row]);
    result.reading = {TagValue{{bits}, ""}, Quality::kGood, kNoon};
    return result;
  }

  TagResult failure(size_t row, bool connection_lost, Quality quality = Quality::kFailed) {
    TagResult result = unread(references_[row]);
    Failure failure;
    failure.quality = quality;
    failure.reason = "the transfer failed (3)";
    failure.code = 3;
    failure.connection_lost = connection_lost;
    result.reading = {failure, kNoon};
    return result;
  }

  TagResult left_out(size_t row) { return unread(references_[row]); }

  RoundOutcome round(const std::vector<TagResult>& results) {
    const WatchTime began = now_;
    now_ += seconds(2);
    return state_->take_round(results, began, now_);
  }

  TagList list_ = make_list({make_entry("Speed", kInt), make_entry("Ready", kBool)});
  std::vector<TagReference> references_;
  std::unique_ptr<WatchState> state_;
  WatchTime now_ = WatchTime(std::chrono::hours(1));
};

TEST_F(WatchTest, FirstRound_EveryValueIsNew) {
  EXPECT_EQ(round({value(0, 1), value(1, 0)}).changed, (std::vector<size_t>{0, 1}));
}

TEST_F(WatchTest, UnchangedValue_IsNoNews) {
  round({value(0, 1), value(1, 0)});
  EXPECT_EQ(round({value(0, 2), value(1, 0)}).changed, std::vector<size_t>{0});
  EXPECT_TRUE(round({value(0, 2), value(1, 0)}).changed.empty());
}

TEST_F(WatchTest, ControllerGoesAwayAndComesBack_EachIsSaidOnce) {
  round({value(0, 1), value(1, 0)});
  const RoundOutcome lost = round({failure(0, true, Quality::kLost), left_out(1)});
  EXPECT_EQ(contact_text(lost, "10.0.0.1:8500"), "10.0.0.1:8500 does not answer; asking on");
  EXPECT_EQ(state_->contact(), Contact::kSilent);
  EXPECT_FALSE(round({failure(0, true, Quality::kNoConnection), left_out(1)}).contact);
  const RoundOutcome back = round({value(0, 1), value(1, 0)});
  EXPECT_EQ(back.contact, Contact::kValues);
  EXPECT_EQ(contact_text(back, "10.0.0.1:8500"), "10.0.0.1:8500 answers again after 6.0 s");
  EXPECT_FALSE(round({value(0, 1), value(1, 0)}).contact);
}

TEST_F(WatchTest, Outage_CountsFromTheFirstFailureOfARoundThatHadAValueToo) {
  round({value(0, 1), value(1, 0)});
  EXPECT_FALSE(round({value(0, 1), failure(1, true, Quality::kLost)}).contact);
  round({failure(0, true, Quality::kNoConnection), left_out(1)});
  EXPECT_EQ(round({value(0, 1), value(1, 0)}).away, seconds(6));
}

TEST_F(WatchTest, ControllerThatAnswersWithoutValues_IsNotSaidToBeSilent) {
  for (const Quality quality : {Quality::kRefused, Quality::kForeign, Quality::kIncomplete}) {
    state_ = std::make_unique<WatchState>(references_);
    round({value(0, 1), value(1, 0)});
    const RoundOutcome outcome = round({failure(0, false, quality), failure(1, false, quality)});
    EXPECT_EQ(contact_text(outcome, "10.0.0.1:8500"), "no values: Ready: the transfer failed (3); asking on");
    EXPECT_EQ(draw_table(*state_, {now_}, 80, 24).back(),
              "no values, asked at " + local_time_text(kNoon) + "; Ctrl-C ends");
    EXPECT_EQ(round({failure(0, false, quality), failure(1, false, quality)}).failed, (std::vector<size_t>{0, 1}));
    EXPECT_EQ(round({failure(0, true, Quality::kNoAnswer), left_out(1)}).contact, Contact::kSilent);
    EXPECT_EQ(round({failure(0, false, quality), failure(1, false, quality)}).contact, Contact::kNoValues);
    const RoundOutcome back = round({value(0, 1), value(1, 0)});
    EXPECT_EQ(contact_text(back, "10.0.0.1:8500"), "10.0.0.1:8500 gives values again after 10.0 s");
  }
}

TEST_F(WatchTest, ControllerThatNeverAnswered_IsAwayFromTheStart) {
  const RoundOutcome outcome = round({failure(0, true, Quality::kNoConnection), left_out(1)});
  EXPECT_EQ(outcome.contact, Contact::kSilent);
  EXPECT_TRUE(outcome.failed.empty());
}

TEST_F(WatchTest, RefusedFromTheStart_IsSaidToHaveNoValues) {
  const auto refused = [this] { return round({failure(0, false, Quality::kRefused), left_out(1)}); };
  const RoundOutcome outcome = refused();
  EXPECT_EQ(outcome.contact, Contact::kNoValues);
  EXPECT_EQ(contact_text(outcome, "10.0.0.1:8500"), "no values: Speed: the transfer failed (3); asking on");
  EXPECT_EQ(outcome.failed, std::vector<size_t>{0});
  EXPECT_EQ(draw_table(*state_, {now_}, 80, 24).back(),
            "no values, asked at " + local_time_text(kNoon) + "; Ctrl-C ends");
  EXPECT_FALSE(refused().contact);
  EXPECT_EQ(round({value(0, 1), value(1, 0)}).contact, Contact::kValues);
}

TEST_F(WatchTest, TableBeforeAnythingWasRead_NamesNoTime) {
  EXPECT_EQ(draw_table(*state_, {now_}, 80, 24).back(), "nothing read yet; Ctrl-C ends");
  round({failure(0, false, Quality::kImpossible), failure(1, false, Quality::kImpossible)});
  EXPECT_EQ(state_->contact(), Contact::kValues) << "nothing was asked";
  EXPECT_EQ(draw_table(*state_, {now_}, 80, 24).back(), "nothing read; Ctrl-C ends");
}

TEST_F(WatchTest, OutageWithoutAClosedSocket_IsNoticedToo) {
  round({value(0, 1), value(1, 0)});
  EXPECT_EQ(round({failure(0, false, Quality::kNoAnswer), left_out(1)}).contact, Contact::kSilent);
}

TEST_F(WatchTest, VariableThatNeverHadAValue_IsReportedAtOnceAndOnce) {
  EXPECT_EQ(round({value(0, 1), failure(1, false)}).failed, std::vector<size_t>{1});
  EXPECT_TRUE(round({value(0, 1), failure(1, false)}).failed.empty());
}

TEST_F(WatchTest, VariableThatFailsOnce_ChangesItsStateAndIsNotReported) {
  round({value(0, 1), value(1, 0)});
  const RoundOutcome failed = round({value(0, 1), failure(1, false)});
  EXPECT_EQ(failed.changed, std::vector<size_t>{1});
  EXPECT_TRUE(failed.failed.empty());
  EXPECT_EQ(round({value(0, 1), value(1, 0)}).changed, std::vector<size_t>{1});
}

TEST_F(WatchTest, VariableThatKeepsFailing_IsReportedAndItsReturnToo) {
  round({value(0, 1), value(1, 0)});
  round({value(0, 1), failure(1, false)});
  const RoundOutcome still = round({value(0, 1), failure(1, false)});
  EXPECT_EQ(still.failed, std::vector<size_t>{1});
  EXPECT_TRUE(still.changed.empty());
  EXPECT_EQ(round({value(0, 1), failure(1, false, Quality::kRefused)}).changed, std::vector<size_t>{1});
  EXPECT_EQ(round({value(0, 1), value(1, 0)}).changed, std::vector<size_t>{1});
}

TEST_F(WatchTest, RowThatARoundDidNotGetTo_HasNoValueOfTheRoundBefore) {
  round({value(0, 1), value(1, 7)});
  EXPECT_EQ(round({failure(0, true), left_out(1)}).changed, (std::vector<size_t>{0, 1}));
  for (const WatchRow& row : state_->rows()) EXPECT_EQ(row.latest.reading.value(), nullptr) << row.latest.name;
  EXPECT_EQ(state_->rows()[1].latest.reading.quality(), Quality::kNotRead);
}

TEST_F(WatchTest, ControllerThatNeverAnswered_GivesEveryRowItsStateOnce) {
  EXPECT_EQ(round({failure(0, true), left_out(1)}).changed, (std::vector<size_t>{0, 1}));
  EXPECT_TRUE(round({failure(0, true), left_out(1)}).changed.empty());
}

TEST_F(WatchTest, StateThatChangesWhileTheControllerIsAway_IsNews) {
  round({value(0, 1), value(1, 7)});
  round({failure(0, true, Quality::kLost), left_out(1)});
  EXPECT_EQ(round({failure(0, true, Quality::kNoConnection), left_out(1)}).changed, std::vector<size_t>{0});
  EXPECT_TRUE(round({failure(0, true, Quality::kNoConnection), left_out(1)}).changed.empty());
  EXPECT_EQ(round({left_out(0), left_out(1)}).changed, std::vector<size_t>{0});
}

TEST_F(WatchTest, RoundWord_IsTheStateOfAllOrPartial) {
  round({value(0, 1), value(1, 7)});
  EXPECT_EQ(round_word(state_->rows()), "good");
  EXPECT_EQ(round_reason(state_->rows()), "");
  round({value(0, 1), failure(1, false, Quality::kRefused)});
  EXPECT_EQ(round_word(state_->rows()), "partial");
  EXPECT_EQ(round_reason(state_->rows()), "Ready: the transfer failed (3)");
  round({failure(0, true, Quality::kNoAnswer), left_out(1)});
  EXPECT_EQ(round_word(state_->rows()), "no-answer");
  EXPECT_EQ(round_reason(state_->rows()), "Speed: the transfer failed (3); Ready: not read");
  round({left_out(0), left_out(1)});
  EXPECT_EQ(round_word(state_->rows()), "not-read");
}

// Rows of the variables "a" to "e" that nobody read.
std::vector<WatchRow> five_unread_rows(const TagList& list) {
  std::vector<TagReference> references;
  for (const Tag& tag : list.tags) references.push_back(whole_tag(tag));
  return WatchState(references).rows();
}

TagList list_of_five() {
  std::vector<TagEntry> entries;
  for (const char* name : {"a", "b", "c", "d", "e"}) entries.push_back(make_entry(name, kInt));
  return make_list(entries);
}

TEST(WatchOutput, ReasonOfManyRows_NamesThreeOfThem) {
  const TagList list = list_of_five();
  EXPECT_EQ(round_reason(five_unread_rows(list)), "a, b, c and 2 more: not read");
}

TEST(WatchOutput, ReasonOfManyRowsWhereOneHasAValue_NamesThemAll) {
  const TagList list = list_of_five();
  std::vector<WatchRow> rows = five_unread_rows(list);
  rows.back().latest.reading = {TagValue{{7}, ""}, Quality::kGood, WallTime()};
  EXPECT_EQ(round_reason(rows), "a, b, c, d: not read");
}

TEST_F(WatchTest, DriverLines_AreShownOncePerOutage) {
  EXPECT_TRUE(state_->is_new_line("select time out"));
  EXPECT_FALSE(state_->is_new_line("select time out"));
  round({failure(0, true), left_out(1)});
  round({value(0, 1), value(1, 0)});
  EXPECT_TRUE(state_->is_new_line("select time out"));
}

TEST_F(WatchTest, Table_ShowsValueMarkAndAge) {
  round({value(0, 12), failure(1, false)});
  const std::vector<std::string> fresh = draw_table(*state_, {now_ + milliseconds(400)}, 80, 24);
  ASSERT_EQ(fresh.size(), 4U);
  EXPECT_EQ(fresh[0], "NAME   TYPE    AGE     STATE   VALUE");
  EXPECT_EQ(fresh[1], "Speed  INT   * 0.4 s   good    12");
  EXPECT_EQ(fresh[2], "Ready  BOOL    -       failed  the transfer failed (3)");
  EXPECT_EQ(fresh[3], "read at " + local_time_text(kNoon) + "; Ctrl-C ends");
  EXPECT_EQ(draw_table(*state_, {now_ + seconds(30)}, 80, 24)[1], "Speed  INT     30 s    good    12");
}

TEST_F(WatchTest, Table_SaysHowOldAValueIsThatIsNotOfThisRound) {
  round({value(0, 12), value(1, 1)});
  round({failure(0, true, Quality::kLost), left_out(1)});
  const std::vector<std::string> lines = draw_table(*state_, {now_}, 80, 24);
  EXPECT_EQ(lines[1], "Speed  INT     -       lost      the transfer failed (3); 12 was read 2.0 s ago");
  EXPECT_EQ(lines[2], "Ready  BOOL    -       not-read  not read; true was read 2.0 s ago");
  EXPECT_EQ(lines[3], "the controller does not answer, asked at " + local_time_text(kNoon) + "; Ctrl-C ends");
}

TEST_F(WatchTest, TableDuringALongCall_ShowsNoValueAsOneOfThisRound) {
  round({value(0, 12), failure(1, false)});
  now_ += seconds(3);
  const DrawTime waiting{now_, now_ - milliseconds(2500)};
  const std::vector<std::string> lines = draw_table(*state_, waiting, 80, 24);
  EXPECT_EQ(lines[0], "NAME   TYPE    AGE     STATE    VALUE");
  EXPECT_EQ(lines[1], "Speed  INT     -       waiting  no reply for 2.5 s; 12 was read 3.0 s ago");
  EXPECT_EQ(lines[2], "Ready  BOOL    -       waiting  no reply for 2.5 s");
  EXPECT_EQ(lines[3], "no reply for 2.5 s; Ctrl-C ends");
  const std::vector<std::string> part = draw_part(*state_, waiting, 80, {{0}, 0, "1-1 of 2"});
  EXPECT_EQ(part[1], "> Speed  INT     -       waiting  no reply for 2.5 s; 12 was read 3.0 s ago");
  EXPECT_EQ(part[3], "no reply for 2.5 s; Ctrl-C ends");
}

TEST_F(WatchTest, Table_ShowsNoPartOfAnOldValue) {
  round({value(0, 15568), value(1, 1)});
  round({failure(0, true, Quality::kLost), left_out(1)});
  const std::string whole = "Speed  INT     -       lost      the transfer failed (3); 15568 was read 2.0 s ago";
  EXPECT_EQ(draw_table(*state_, {now_}, whole.size(), 24)[1], whole);
  for (size_t columns = whole.size() - 1; columns > 57; --columns) {
    EXPECT_EQ(draw_table(*state_, {now_}, columns, 24)[1], "Speed  INT     -       lost      the transfer failed (3)");
  }
}

TEST_F(WatchTest, Table_ShowsNoPartOfANumber) {
  round({value(0, 15568), value(1, 1)});
  EXPECT_EQ(draw_table(*state_, {now_}, 36, 24)[1], "Speed  INT   * 0.0 s   good   15568");
  EXPECT_EQ(draw_table(*state_, {now_}, 34, 24)[1], "Speed  INT   * 0.0 s   good   \xE2\x80\xA6");
}

TEST(WatchTable, ListThatIsTooLong_EndsBehindAWholeNumber) {
  const TagList list = make_list({make_entry("Row", kInt, {{0, 2}})});
  const TagReference reference = whole_tag(list.tags[0]);
  WatchState state({reference});
  TagResult result = unread(reference);
  result.reading = {TagValue{{100, 200, 300}, ""}, Quality::kGood, kNoon};
  state.take_round({result}, WatchTime(), WatchTime());
  const std::string start = draw_table(state, {WatchTime()}, 80, 24)[1];
  const std::string before = start.substr(0, start.find("[100"));
  const std::string cut = "\xE2\x80\xA6";
  EXPECT_EQ(start, before + "[100, 200, 300]");
  EXPECT_EQ(draw_table(state, {WatchTime()}, before.size() + 14, 24)[1], before + "[100, 200," + cut);
  EXPECT_EQ(draw_table(state, {WatchTime()}, before.size() + 11, 24)[1], before + "[100, 200," + cut);
  EXPECT_EQ(draw_table(state, {WatchTime()}, before.size() + 10, 24)[1], before + "[100," + cut);
  EXPECT_EQ(draw_table(state, {WatchTime()}, before.size() + 5, 24)[1], before + cut);
}

TEST_F(WatchTest, Table_KeepsToTheTerminal) {
  round({value(0, 12), value(1, 1)});
  const std::vector<std::string> lines = draw_table(*state_, {now_}, 12, 4);
  for (const std::string& line : lines) EXPECT_LE(display_width(line), 12U) << line;
  const std::vector<std::string> low = draw_table(*state_, {now_}, 80, 3);
  EXPECT_EQ(low.at(1), "... and 2 more");
}

TEST(AgeText, Ages_AreRounded) {
  EXPECT_EQ(age_text(milliseconds(400)), "0.4 s");
  EXPECT_EQ(age_text(seconds(12)), "12 s");
  EXPECT_EQ(age_text(seconds(180)), "3 min");
  EXPECT_EQ(age_text(std::chrono::hours(5)), "5 h");
}

TEST(Chart, Samples_FillFromTheRight) {
  Chart chart("Speed");
  for (const double sample : {0.0, 5.0, 10.0}) chart.add(sample);
  chart.add(std::nullopt);
  const std::vector<std::string> lines = chart.draw(20, 2);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "Speed");
  EXPECT_EQ(lines[1], "        10 |  \xE2\x96\x88 ");
  EXPECT_EQ(lines[2], "         0 |\xE2\x96\x81\xE2\x96\x88\xE2\x96\x88 ");
}

TEST(Chart, ValueThatDoesNotMove_IsALineWithItsNumber) {
  for (const double value : {0.0, 7.0}) {
    Chart chart("Speed");
    chart.add(value);
    chart.add(std::nullopt);
    chart.add(value);
    const std::string number(1, value == 0 ? '0' : '7');
    const std::string line = "         " + number + " |\xE2\x96\x81 \xE2\x96\x81";
    const std::string empty = "           |   ";
    EXPECT_EQ(chart.draw(20, 4), (std::vector<std::string>{"Speed", empty, empty, line, empty}));
    EXPECT_EQ(chart.draw(20, 1), (std::vector<std::string>{"Speed", line}));
  }
}

TEST(Chart, NothingToShow_IsAnEmptyScale) {
  Chart chart("Speed");
  chart.add(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(chart.draw(20, 1).at(1), "           | ");
  EXPECT_EQ(chart.draw(5, 4).size(), 1U);
}

TEST(Chart, SpreadBeyondTheLargestNumber_IsDrawn) {
  Chart chart("Speed");
  chart.add(std::numeric_limits<double>::max());
  chart.add(std::numeric_limits<double>::lowest());
  EXPECT_EQ(chart.draw(20, 1).at(1).substr(12), "\xE2\x96\x88\xE2\x96\x81");
}

TEST(Chart, MoreSamplesThanColumns_TheNewestAreShown) {
  Chart chart("Speed");
  for (int i = 0; i < 2000; ++i) chart.add(i < 1990 ? 1000 : i);
  EXPECT_EQ(chart.draw(22, 1).at(1).substr(0, 12), "      1999 |");
  EXPECT_EQ(chart.draw(22, 2).at(2).substr(0, 12), "      1990 |");
}

TEST(WatchOutput, SummaryWithoutSuccess_HasNoTimes) {
  EXPECT_EQ(summary_text({}), "0 calls, 0 failures, round trip - / - / - ms (shortest / mean / longest)");
  CallFigures figures;
  figures.calls = figures.failures = 1;
  EXPECT_EQ(summary_text(figures), "1 call, 1 failure, round trip - / - / - ms (shortest / mean / longest)");
  figures = {2, 1, milliseconds(2), milliseconds(2), milliseconds(2)};
  EXPECT_EQ(summary_text(figures), "2 calls, 1 failure, round trip 2.00 / 2.00 / 2.00 ms (shortest / mean / longest)");
  figures.of_others = 1;
  EXPECT_EQ(summary_text(figures), "2 calls, 2 failures, round trip 2.00 / 2.00 / 2.00 ms (shortest / mean / longest)");
}

TEST(Utf8Text, Width_CountsCharacters) {
  EXPECT_EQ(display_width("abc"), 3U);
  EXPECT_EQ(display_width("\xC3\xA9"), 1U);
  EXPECT_EQ(display_width("\xE4\xB8\xAD"), 2U);
  EXPECT_EQ(display_width("\xFF"), 1U);
}

TEST(Utf8Text, CutText_FitsAndSaysSo) {
  EXPECT_EQ(fit_columns("abcdef", 4), "abc\xE2\x80\xA6");
  EXPECT_EQ(fit_columns("\xE4\xB8\xAD\xE4\xB8\xAD", 3), "\xE4\xB8\xAD\xE2\x80\xA6");
  EXPECT_EQ(fit_columns("abc", 3), "abc");
  EXPECT_EQ(pad_columns("\xE4\xB8\xAD", 4), "\xE4\xB8\xAD  ");
}

}  // namespace
}  // namespace plc_host
