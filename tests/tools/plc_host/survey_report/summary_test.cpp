// What the sentences of a report count: only what was looked at.
#include "tools/plc_host/survey_report/summary.h"

#include <gmock/gmock.h>

namespace {

using namespace plc_host::survey;

WriteFinding write_with(std::optional<bool> neighbours_kept) {
  return {"Scratch", "INT", "write", true, true, true, neighbours_kept, true, ""};
}

std::string sentence_on(const std::vector<WriteFinding>& findings) {
  SurveyRecord record;
  record.link.connect_ms = {1};
  record.writes.step.state = Step::State::kDone;
  record.writes.findings = findings;
  return found_sentences(record).back();
}

TEST(SurveySummary, Neighbours_AreUnchangedOnlyWhereSomebodyLooked) {
  const WriteFinding looked = write_with(true);
  const WriteFinding unlooked = write_with(std::nullopt);
  const WriteFinding moved = write_with(false);
  EXPECT_EQ(sentence_on({looked}),
            "Of 1 write, 1 was acknowledged, read back and set back with its neighbours unchanged.");
  EXPECT_EQ(sentence_on({looked, looked}),
            "Of 2 writes, 2 were acknowledged, read back and set back with their neighbours unchanged.");
  EXPECT_EQ(sentence_on({unlooked}),
            "Of 1 write, 1 was acknowledged, read back and set back; no neighbour was watched.");
  EXPECT_EQ(sentence_on({looked, unlooked, looked}),
            "Of 3 writes, 3 were acknowledged, read back and set back; the neighbours of 2 were unchanged, those of 1 "
            "were not compared.");
  EXPECT_EQ(sentence_on({moved, unlooked}),
            "Of 2 writes, 1 was acknowledged, read back and set back; its neighbours were not compared.");
  EXPECT_EQ(sentence_on({moved}),
            "Of 1 write, 0 were acknowledged, read back and set back with their neighbours unchanged.");
}

TEST(SurveySummary, WriteBehindWhichTheSurveyEnded_ClaimsNothingThatWasNotLookedAt) {
  WriteFinding ended = write_with(std::nullopt);
  ended.has_open_neighbours = true;
  EXPECT_EQ(sentence_on({ended}),
            "Of 1 write, 1 was acknowledged, read back and set back. Its neighbours were read before it, and not all "
            "of them behind it.");
  ended.read_back.reset();
  EXPECT_EQ(sentence_on({ended}),
            "Of 1 write, 0 were acknowledged, read back and set back. What it did was not looked at. Its neighbours "
            "were read before it, and not all of them behind it.");
  WriteFinding untouched = ended;
  untouched.is_written = untouched.has_open_neighbours = false;
  EXPECT_EQ(sentence_on({write_with(true), ended, untouched}),
            "Of 2 writes, 1 was acknowledged, read back and set back with its neighbours unchanged. What 1 of them did "
            "was not looked at. The neighbours of 1 of them were read before it, and not all of them behind it. Not "
            "written: 1 variable, see the notes.");
}

TEST(SurveySummary, SlowRounds_AreCountedOfThoseThatLostNothing) {
  SurveyRecord record;
  record.link.connect_ms = {1};
  record.endurance.step.state = Step::State::kDone;
  record.endurance.period_ms = 200;
  record.endurance.rounds = 96;
  EXPECT_EQ(found_sentences(record).back(),
            "Over the hours, 96 rounds of reads, none lost; 0 rounds were slower than the period of 200 ms.");
  record.endurance.losses = 2;
  record.endurance.lost_values = 3;
  record.endurance.longest_gap_ms = 1000;
  EXPECT_THAT(found_sentences(record).back(),
              testing::EndsWith("; 0 other rounds were slower than the period of 200 ms."));
}

TEST(SurveySummary, TextThatMayGoOn_IsNotCalledOneWithoutAValue) {
  SurveyRecord record;
  record.link.connect_ms = {1};
  record.variables.step.state = Step::State::kPartly;
  record.variables.findings.resize(2);
  for (VariableFinding& one : record.variables.findings) one.state = VariableFinding::State::kGood;
  record.variables.findings[1].has_no_value = record.variables.findings[1].may_go_on = true;
  EXPECT_THAT(
      found_sentences(record).at(3),
      testing::StartsWith("Of 2 declared variables, 1 were read as declared, 1 answered with a text that may go "
                          "on, and not compared."));
  record.variables.findings[1].is_compared = true;
  EXPECT_THAT(found_sentences(record).at(3), testing::StartsWith("Of 2 declared variables, 1 were read as declared, 1 "
                                                                 "answered without a value that plc-host shows."));
}

}  // namespace
