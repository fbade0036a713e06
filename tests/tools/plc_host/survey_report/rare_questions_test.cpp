// What a survey asks of what happened now and then.
#include <gtest/gtest.h>

#include "tools/plc_host/survey_report/questions.h"
#include "tools/plc_host/survey_report/summary.h"

namespace {

using namespace plc_host::survey;

TEST(Questions, RareEvents_AreAskedWithTheirCounts) {
  SurveyRecord record;
  record.is_whole = true;
  HeadCounts& heads = record.heads;
  heads.replies = heads.length.right = 390;
  heads.foreign = 2;
  heads.sequence = {389, 0, 1};
  heads.with_more_behind = 3;
  heads.bytes_unasked = 12;
  heads.directories = 22;
  heads.directories_refused = 1;
  heads.directory_status = 0x13;
  heads.statuses = {{0x13, "directory start", 4, {}}, {0x13, "resolve, refused", 8, {}}};
  const std::vector<Question> all = questions(record);
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[0].what, "Why does the controller refuse it, status 0013? It did so 1 of 22 times.");
  EXPECT_EQ(all[1].what,
            "Why does the controller refuse it now and then? 4 replies to directory start came with status 0013, with "
            "which it refuses other requests.");
  EXPECT_EQ(all[2].what,
            "What else answers, or what are the bytes that come behind 3 of the replies, 12 in all? A call of the "
            "guarded build fails when it meets them.");
  EXPECT_EQ(all[3].what,
            "What else answers, or why does the controller, or what is between, send a reply twice, or one that nobody "
            "asked for? 3 came, and 389 answers. A call of the guarded build may fail when it meets one.");
}

TEST(Questions, DirectoryThatCountsMoreThanItNames_IsAskedAbout) {
  SurveyRecord record;
  record.heads.replies = record.heads.length.right = 390;
  record.programs.step.state = Step::State::kDone;
  record.programs.directory = {"Main"};
  record.programs.announced = 1;
  EXPECT_EQ(questions(record).size(), 0U);
  record.programs.announced = 255;
  record.programs.findings = {{"Packing", 0, ProgramFinding::State::kNotKnown, ""}};
  ASSERT_EQ(questions(record).size(), 1U);
  EXPECT_EQ(questions(record).at(0).what,
            "How many programs are there? The directory counts 255, and names 1 of them.");
  EXPECT_EQ(found_sentences(record).size(), 2U);
  record.link.connect_ms = {1};
  EXPECT_EQ(found_sentences(record).at(2),
            "Its directory names 1 program, and counts 255; of 1 that the tag files name, of 1 it is not known whether "
            "it has them.");
}

// The same bytes are behind the values and behind the reply.
TEST(Questions, BytesBehindAWholeReply_AreAskedAboutOnce) {
  SurveyRecord record;
  HeadCounts& heads = record.heads;
  heads.replies = heads.length.right = 390;
  heads.with_more_behind = 8;
  heads.bytes_unasked = 48;
  heads.values_longer = heads.values_behind_end = 4;
  ASSERT_EQ(questions(record).size(), 1U);
  EXPECT_EQ(questions(record)[0].about, "bytes behind replies");
  heads.values_longer = 6;
  ASSERT_EQ(questions(record).size(), 2U);
  EXPECT_EQ(questions(record)[0].what, "What are the bytes that come behind the values in 2 of the replies?");
}

std::vector<Question> questions_of_directory(const std::vector<std::string>& names, size_t announced) {
  SurveyRecord record;
  record.is_whole = true;
  record.heads.replies = record.heads.length.right = 390;
  record.programs.step.state = Step::State::kDone;
  record.programs.directory = names;
  record.programs.announced = announced;
  return questions(record);
}

TEST(Questions, FullDirectory_IsAskedAboutWithTheMostThatItCanCount) {
  std::vector<std::string> names;
  for (int i = 0; i < 255; ++i) names.push_back("P" + std::to_string(i));
  const std::vector<Question> all = questions_of_directory(names, 255);
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].what, "How many programs are there? The directory names 255, which is the most that it can count.");
  EXPECT_EQ(questions_of_directory({"A"}, 1).size(), 0U);
}

TEST(Questions, ProgramsOfOneName_AreSaidToBeAskedWhereOneWas) {
  SurveyRecord record;
  record.heads.replies = record.heads.length.right = 390;
  record.programs.step.state = Step::State::kDone;
  record.programs.directory = {"MAIN", "MAIN"};
  record.programs.announced = 2;
  record.variables.findings.resize(1);
  record.variables.findings[0].program = "MAIN";
  EXPECT_EQ(questions(record)[0].what, "Which of the 2 programs of this name is meant? The survey asked none of them.");
  record.variables.findings[0].state = VariableFinding::State::kGood;
  EXPECT_EQ(questions(record)[0].what,
            "Which of the 2 programs of this name is meant? The survey asked the first one of the directory, as the "
            "guarded build does.");
}

TEST(Questions, ProgramsOfOneName_AreAskedAbout) {
  const std::vector<Question> all = questions_of_directory({"MAIN", "SUB", "MAIN"}, 3);
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].about, "MAIN");
  EXPECT_EQ(all[0].what, "Which of the 2 programs of this name is meant? The survey asked none of them.");
}

TEST(Questions, MistakesOfATagFile_LeadToItsCheck) {
  SurveyRecord record;
  record.is_whole = true;
  record.heads.replies = record.heads.length.right = 390;
  record.programs.findings = {{"", 0, ProgramFinding::State::kMissing, ""}};
  VariableFinding odd;
  odd.name = "Odd";
  odd.state = VariableFinding::State::kShort;
  record.variables.findings = {odd};
  const std::vector<Question> all = questions(record);
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].about, "tag files");
  EXPECT_EQ(all[0].what,
            "Which program do local variables without one belong to? plc-host check FILE tells what to write.");
  EXPECT_EQ(all[1].what, "What type has it? The tag file gives none: plc-host check FILE tells what to write.");
}

}  // namespace
