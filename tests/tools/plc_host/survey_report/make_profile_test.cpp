// What a profile takes from replies of which most are otherwise than a few, and figures of the page in their places.
#include <gmock/gmock.h>

#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey_report/page_parts.h"

namespace {

using namespace plc_host::survey;
using plc_profile::Echo;
using testing::HasSubstr;

SurveyRecord spoken_record() {
  SurveyRecord record;
  record.is_whole = true;
  record.verdict.usable = Verdict::Usable::kNotUsable;
  record.heads.replies = 8;
  record.heads.length.right = 8;
  return record;
}

// The contract build reads wrong values where it meets one of them all the same.
TEST(RareSplits, AreToldWithTheirCountAndAreNoPiecesOfEveryReply) {
  SurveyRecord record = spoken_record();
  record.splits = {{20, {{{20}, 50}}, {}}, {60, {{{60}, 5}, {{30, 30}, 5}}, {5}}};
  EXPECT_EQ(make_profile(record).piece_bytes, std::nullopt);
  EXPECT_EQ(make_profile(record).piece_gap_ms, std::nullopt);
  const std::string pieces = "5 of 60 replies came in pieces, the smallest first one of 30 bytes";
  EXPECT_EQ(contract_problem(record), pieces);
  EXPECT_EQ(pieces_sentence(record), pieces + ", and the contract build takes the first one alone");
  EXPECT_THAT(splits_html(record), HasSubstr("<p>5 of 10 replies of 60 bytes and more came in pieces. The contract"));
}

TEST(UsualSplits, AreThoseOfMostLongerReplies) {
  SurveyRecord record = spoken_record();
  record.splits = {{20, {{{20}, 50}}, {}}, {60, {{{60}, 5}, {{30, 30}, 6}}, {5}}};
  EXPECT_EQ(make_profile(record).piece_bytes, 30U);
  EXPECT_EQ(make_profile(record).piece_gap_ms, 5);
  EXPECT_EQ(contract_problem(record), "replies come in pieces of 30 bytes");
  EXPECT_EQ(pieces_sentence(record),
            "Replies come in pieces of 30 bytes, and the contract build takes the first one alone");
  record.splits[1].pieces.erase({60});
  EXPECT_THAT(splits_html(record), HasSubstr("<p>Replies of 60 bytes and more came in pieces. The contract"));
  record.splits.pop_back();
  EXPECT_EQ(pieces_sentence(record), "");
}

TEST(FieldOfHeads, IsTheProfilesWhereItIsSurelyNoFewDamagedReplies) {
  SurveyRecord record = spoken_record();
  const auto sequence = [&record](uint64_t right, uint64_t zero, uint64_t other) {
    record.heads.sequence = {right, zero, other};
    return make_profile(record).sequence;
  };
  EXPECT_EQ(sequence(100, 0, 0), Echo::kRight);
  EXPECT_EQ(sequence(95, 0, 5), Echo::kRight);
  EXPECT_EQ(sequence(95, 5, 0), Echo::kRight);
  EXPECT_EQ(sequence(30, 0, 70), Echo::kOther);
  EXPECT_EQ(sequence(30, 68, 2), Echo::kZero);
  EXPECT_EQ(sequence(1, 0, 1), std::nullopt);
  EXPECT_EQ(sequence(0, 1, 0), Echo::kZero);
  EXPECT_EQ(sequence(0, 0, 0), std::nullopt);
}

// Where the mark of a figure begins in the drawing: its place across, or down.
double place_of(const std::string& html, const std::string& figure, bool is_down) {
  const std::string mark = "<path class=\"" + figure + "\" d=\"M";
  const size_t across = html.find(mark) + mark.size();
  return std::stod(html.substr(is_down ? html.find(' ', across) + 1 : across));
}

std::string chart(const SurveyRecord& record, const std::string& title) {
  const std::string html = times_html(record);
  const size_t at = html.find("<figcaption>" + title);
  EXPECT_NE(at, std::string::npos) << title;
  return html.substr(at, html.find("<ul class=\"legend\">", at) - at);
}

TEST(TimesCharts, FiguresStandInTheirOrder) {
  std::vector<double> ms(97, 1);
  ms.insert(ms.end(), {3, 3, 10});
  SurveyRecord record = spoken_record();
  record.times_step.state = Step::State::kDone;
  record.times = {{"read", 1, ms}, {"read", 4, ms}};
  const std::string by_kind = chart(record, "Answer times by kind of request");
  EXPECT_LT(place_of(by_kind, "p50", false), place_of(by_kind, "p99", false));
  EXPECT_LT(place_of(by_kind, "p99", false), place_of(by_kind, "largest", false));
  const std::string by_names = chart(record, "Answer times of read by number of names");
  EXPECT_GT(place_of(by_names, "p50", true), place_of(by_names, "p99", true));
  EXPECT_GT(place_of(by_names, "p99", true), place_of(by_names, "largest", true));
}

// Where a telephone shows them below one another.
TEST(ColumnHeads, AreInTheStyleOfTheirTable) {
  SurveyRecord record = spoken_record();
  record.splits = {{20, {{{20}, 50}}, {}}};
  EXPECT_THAT(splits_html(record),
              HasSubstr("aria-label=\"Splitting\" style=\"--head1:&quot;reply&quot;;--head2:&quot;pieces, "
                        "in bytes&quot;;--head3:"));
}

TEST(HoursFigures, AreEachInItsOwnPlace) {
  SurveyRecord record = spoken_record();
  record.endurance.step.state = Step::State::kDone;
  record.endurance.rounds = 7;
  record.endurance.slow = 5;
  record.endurance.left_out = 3;
  const std::string html = hours_html(record);
  EXPECT_THAT(html, HasSubstr("<dt>rounds</dt><dd>7</dd>"));
  EXPECT_THAT(html, HasSubstr("<dt>slower than the period</dt><dd>5</dd>"));
  EXPECT_THAT(html, HasSubstr("<dt>turns left out</dt><dd>3</dd>"));
}

}  // namespace
