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
            "were not looked at.");
  EXPECT_EQ(sentence_on({moved, unlooked}),
            "Of 2 writes, 1 was acknowledged, read back and set back; its neighbours were not looked at.");
  EXPECT_EQ(sentence_on({moved}),
            "Of 1 write, 0 were acknowledged, read back and set back with their neighbours unchanged.");
}

}  // namespace
