// What a survey advises, and what it does not advise of what was not measured.
#include "tools/plc_host/survey/recommend.h"

#include <gmock/gmock.h>

#include "profile/profile_use.h"
#include "tools/plc_host/survey_report/questions.h"
#include "tools/plc_host/survey_report/summary.h"

namespace {

using namespace plc_host::survey;
using testing::HasSubstr;
using Usable = Verdict::Usable;

// A whole survey with answers to the directory and, where they are given, to reads.
SurveyRecord record_with(Usable usable, const std::vector<double>& read_ms) {
  SurveyRecord record;
  record.is_whole = true;
  record.verdict.usable = usable;
  record.heads.replies = 8;
  record.heads.length.right = 8;
  record.times = {{"connect", 1, {9000}}, {"directory", 1, {40}}, {"resolve", 1, {2}}};
  if (!read_ms.empty()) record.times.push_back({"read", 1, read_ms});
  return record;
}

std::string value_of(const SurveyRecord& record, const std::string& setting) {
  for (const Recommendation& one : recommend(record)) {
    if (one.setting == setting) return one.value;
  }
  return "none";
}

std::string reason_of(const SurveyRecord& record, const std::string& setting) {
  for (const Recommendation& one : recommend(record)) {
    if (one.setting == setting) return one.because;
  }
  return "none";
}

TEST(Recommend, WithoutReads_TimeOutAndPauseAreNotKnown) {
  const SurveyRecord record = record_with(Usable::kUnknown, {});
  EXPECT_EQ(value_of(record, "timeout_s"), "none");
  EXPECT_EQ(value_of(record, "delay_ms"), "none");
}

TEST(Recommend, TimeOut_IsFiveTimesTheLongestAnswerOfAnyKind) {
  EXPECT_EQ(value_of(record_with(Usable::kYes, {3, 5}), "timeout_s"), "1");
  EXPECT_EQ(value_of(record_with(Usable::kYes, {3, 401}), "timeout_s"), "3");
  EXPECT_EQ(reason_of(record_with(Usable::kYes, {3, 5}), "timeout_s"),
            "the longest of 4 answers took 40.0 ms (directory, 1 name): five times that, in whole seconds");
}

// Reads of one name, three of which had no answer within two seconds, and two whose connection ended.
SurveyRecord record_with_losses() {
  SurveyRecord record = record_with(Usable::kYes, {3, 5});
  record.wait_ms = 2000;
  record.rate = 20;
  record.times.back().silent = 3;
  record.times.back().lost = 2;
  return record;
}

TEST(Recommend, TimeOut_CountsWhatWasNeverAnsweredAsLongAsItWasWaitedFor) {
  SurveyRecord record = record_with_losses();
  EXPECT_EQ(value_of(record, "timeout_s"), "10");
  EXPECT_EQ(reason_of(record, "timeout_s"),
            "the longest of 4 answers took 40.0 ms (directory, 1 name), and 3 requests had no answer within 2000 ms: "
            "five times that wait, in whole seconds. A survey with a longer --timeout tells whether their answers come "
            "later, or never");
  record.wait_ms = 30;
  EXPECT_EQ(value_of(record, "timeout_s"), "1");
  EXPECT_THAT(reason_of(record, "timeout_s"),
              HasSubstr(", and 3 requests had no answer within 30 ms: five times the longest, in whole seconds. "));
}

TEST(Recommend, WhatALimitExplains_IsNotCountedAsUnanswered) {
  SurveyRecord record = record_with_losses();
  record.times.back().names = 41;
  record.limits.values_per_request = 40;
  EXPECT_EQ(value_of(record, "timeout_s"), "1");
  EXPECT_EQ(unanswered_of(record).all(), 0U);
  record.limits.values_per_request = 41;
  EXPECT_EQ(unanswered_of(record).all(), 5U);
}

TEST(Recommend, OneConnectionTooMany_IsNotCountedAsUnansweredNorAskedAboutTwice) {
  SurveyRecord record = record_with(Usable::kYes, {3, 5});
  record.wait_ms = 2000;
  record.times.push_back({"directory start", 1, {2}, {}, 10, 0});
  record.link.connects_tried = 20;
  record.link.connect_ms.assign(20, 1);
  record.link.connect_failures.assign(10, "no answer to the directory start");
  EXPECT_EQ(unanswered_of(record).silent, 10U);
  EXPECT_EQ(questions(record).size(), 2U);
  EXPECT_EQ(
      found_sentences(record).at(1),
      "It took 20 of 20 connections. Half of them were open within 1.00 ms, and all within 1.00 ms. On 10 of them "
      "no directory came.");
  record.link.most_connections = 1;
  record.link.one_more = Reaction::kSilent;
  EXPECT_EQ(unanswered_of(record).silent, 0U);
  EXPECT_EQ(at_limit_of_connections(record), 10U);
  EXPECT_THAT(found_sentences(record).at(1),
              testing::EndsWith(
                  " On 10 of them no directory came. The limit of 1 connection at a time explains these failures: "
                  "the controller may still have counted the survey's own connection before."));
  EXPECT_EQ(value_of(record, "timeout_s"), "1");
  const std::vector<Question> asked = questions(record);
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_THAT(asked.front().what, HasSubstr("How many may be open at a time"));
}

TEST(Recommend, OneName_IsNoNamesAndValues) {
  SurveyRecord record = record_with(Usable::kYes, {3});
  record.limits.step.state = Step::State::kDone;
  record.limits.names_per_request = record.limits.names_tried = record.limits.values_tried = 1;
  record.limits.beyond = "refused";
  EXPECT_THAT(reason_of(record, "batch_names"), HasSubstr("requests of up to 1 name are answered; one more is not"));
}

TEST(Profile, OfAPartOfASurvey_ClaimsNoUsableGuardedBuild) {
  SurveyRecord record = record_with(Usable::kYes, {3});
  EXPECT_EQ(make_profile(record).guarded, plc_profile::Profile::Guarded::kUsable);
  record.is_whole = false;
  EXPECT_EQ(make_profile(record).guarded, plc_profile::Profile::Guarded::kUnknown);
}

TEST(Recommend, NoPause_IsSaidWithWhatHadNoAnswer) {
  SurveyRecord record = record_with_losses();
  EXPECT_EQ(value_of(record, "delay_ms"), "0");
  EXPECT_EQ(reason_of(record, "delay_ms"),
            "8 requests were answered, one following the other, at most 20 a second; 5 requests had no answer (2 "
            "connections ended in place of it). Whether a pause helps against that was not tried");
  record.times.back().silent = record.times.back().lost = 0;
  EXPECT_EQ(reason_of(record, "delay_ms"),
            "8 requests were answered, one following the other, at most 20 a second: no further pause was needed "
            "between them");
}

TEST(Recommend, Pause_IsLongerThanAnyAnswerForTheContractBuild) {
  EXPECT_EQ(value_of(record_with(Usable::kYes, {3, 5}), "delay_ms"), "0");
  for (const Usable usable :
       {Usable::kNotUsable, Usable::kWithoutStatus, Usable::kWithoutValueEnd, Usable::kWithoutBoth}) {
    EXPECT_EQ(value_of(record_with(usable, {3, 55.5}), "delay_ms"), "57");
  }
  EXPECT_EQ(
      reason_of(record_with(Usable::kNotUsable, {56}), "delay_ms"),
      "the longest of 3 answers took 56.0 ms (read, 1 name): the pause of the contract build has to be longer, so "
      "that no late reply meets the next request");
  // What is shown as 299.0 ms.
  EXPECT_EQ(value_of(record_with(Usable::kNotUsable, {298.96}), "delay_ms"), "300");
  EXPECT_EQ(value_of(record_with(Usable::kNotUsable, {999}), "delay_ms"), "1000");
  EXPECT_EQ(value_of(record_with(Usable::kNotUsable, {1000}), "delay_ms"), "1000");
  EXPECT_THAT(reason_of(record_with(Usable::kNotUsable, {1000}), "delay_ms"),
              HasSubstr("; no pause is longer than 1000 ms"));
}

TEST(ContractWarning, IsOfVerdictsThatLeadToTheContractBuild) {
  EXPECT_EQ(contract_warning(record_with(Usable::kYes, {1})), "");
  EXPECT_EQ(contract_warning(record_with(Usable::kUnknown, {1})), "");
  const std::string risk = contract_warning(record_with(Usable::kNotUsable, {1}));
  EXPECT_THAT(risk, HasSubstr("with result 0. Set delay_ms above the answer times, and read back what you write."));
  EXPECT_EQ(contract_warning(record_with(Usable::kWithoutStatus, {1})),
            "Hosts take the contract build here, unless a guarded one that is built so is named. " + risk);
}

// Replies of 60 bytes that came in two pieces, so often.
Split halves(uint32_t times) { return {60, {{{30, 30}, times}}, {5}}; }

TEST(ContractProblem, IsThatOfPiecesAndOfValuesWhereTheGuardedBuildCannotBeUsed) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.splits = {halves(1)};
  EXPECT_EQ(contract_problem(record), "");
  EXPECT_EQ(names_in_a_piece(record), std::nullopt);
  record.splits = {halves(2)};
  EXPECT_EQ(contract_problem(record), "replies come in pieces of 30 bytes");
  EXPECT_FALSE(takes_contract_build(record));
  record.verdict.usable = Usable::kWithoutStatus;
  EXPECT_EQ(contract_problem(record), "replies come in pieces of 30 bytes");
  for (const Usable usable : {Usable::kYes, Usable::kUnknown}) {
    record.verdict.usable = usable;
    EXPECT_EQ(contract_problem(record), "");
  }
  record = record_with(Usable::kNotUsable, {1});
  record.splits = {{3000, {{{1448, 1448, 104}, 9}}, {1}}};
  EXPECT_EQ(contract_problem(record), "");
  record.variables.compared = 45;
  record.variables.misread = 2;
  record.variables.compared_with = "1.1.0 guarded";
  EXPECT_EQ(contract_problem(record), "");
  record.variables.compared_with = "1.1.0 contract";
  EXPECT_EQ(contract_problem(record), "the contract build gave other values than the controller for 2 of 45 variables");
}

// Of 100 bytes: with three names of 24 bytes behind the head of the reply.
SurveyRecord record_in_pieces() {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.splits = {{160, {{{100, 60}, 9}}, {5}}, {300, {{{200, 100}, 1}}, {5}}};
  record.limits.step.state = Step::State::kDone;
  return record;
}

TEST(ContractProblem, IsNoneOfPiecesThatTakeARepliesOfAFewNames) {
  SurveyRecord record = record_in_pieces();
  EXPECT_EQ(contract_problem(record), "");
  EXPECT_EQ(names_in_a_piece(record), 3U);
  EXPECT_EQ(value_of(record, "driver"), "contract");
  EXPECT_EQ(value_of(record, "batch_names"), "3");
  EXPECT_EQ(make_profile(record).batch_names, std::nullopt);
  const std::string pieces =
      " Replies come in pieces of 100 bytes, and the contract build takes the first one alone: ask for no more than 3 "
      "names at a time. A BOOL in a batch is two names.";
  EXPECT_EQ(verdict_sentence(record), "The guarded build cannot be used here: use the contract build." + pieces);
  EXPECT_THAT(contract_warning(record), HasSubstr("read back what you write." + pieces));
  for (const Usable usable : {Usable::kNotUsable, Usable::kWithoutStatus}) {
    record.verdict.usable = usable;
    EXPECT_THAT(reason_of(record, "driver"), testing::EndsWith(pieces));
  }
  record.verdict.usable = Usable::kNotUsable;
  record.recommendations = recommend(record);
  EXPECT_EQ(make_profile(record).batch_names, 3U);
  record.limits.names_per_request = record.limits.values_tried = 2;
  EXPECT_EQ(value_of(record, "batch_names"), "2");
  record.verdict.usable = Usable::kYes;
  record.limits.names_per_request = std::nullopt;
  EXPECT_EQ(value_of(record, "batch_names"), "none");
}

// Whoever loads the contract build all the same is told by the profile, whatever the guarded one does.
TEST(ContractProblem, IsInTheProfileOfAControllerThatTheGuardedBuildReadsToo) {
  SurveyRecord record = record_in_pieces();
  for (const Usable usable : {Usable::kYes, Usable::kUnknown, Usable::kNotUsable}) {
    record.verdict.usable = usable;
    EXPECT_EQ(make_profile(record).contract_names, 3U);
    EXPECT_EQ(make_profile(record).contract_problem, "");
  }
  record.verdict.usable = Usable::kYes;
  EXPECT_EQ(make_profile(record).batch_names, std::nullopt);
  record.variables.findings.resize(1);
  record.variables.findings[0].value_reply_bytes = 101;
  EXPECT_EQ(contract_problem(record), "");
  EXPECT_EQ(make_profile(record).contract_problem,
            "replies come in pieces of 100 bytes, and those with the values of 1 of 1 variable are longer");
  EXPECT_EQ(make_profile(record).contract_names, std::nullopt);
}

TEST(ContractProblem, IsWhatDoesNotFitIntoAPiece) {
  SurveyRecord record = record_in_pieces();
  record.variables.findings.resize(4);
  record.variables.findings[0].name_reply_bytes = 53;
  EXPECT_EQ(names_in_a_piece(record), 2U);
  record.variables.findings[1].value_reply_bytes = 100;
  EXPECT_EQ(contract_problem(record), "");
  record.variables.findings[2].value_reply_bytes = 101;
  EXPECT_EQ(contract_problem(record),
            "replies come in pieces of 100 bytes, and those with the values of 1 of 4 variables are longer");
  record.programs.reply_bytes = 120;
  EXPECT_EQ(contract_problem(record),
            "replies come in pieces of 100 bytes, and that with the names of the programs has 120");
  record.variables.findings[0].name_reply_bytes = 59;
  EXPECT_EQ(contract_problem(record), "replies come in pieces of 100 bytes");
}

TEST(ContractProblem, LeavesNoDriverToRecommendAndIsInTheProfile) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.splits = {halves(2)};
  EXPECT_EQ(value_of(record, "driver"), "none");
  EXPECT_EQ(value_of(record, "delay_ms"), "none");
  EXPECT_EQ(contract_warning(record),
            "Neither installed build reads this controller: replies come in pieces of 30 bytes. Hosts keep the guarded "
            "build, which fails where the contract build would show wrong values with result 0.");
  EXPECT_EQ(make_profile(record).contract_problem, "replies come in pieces of 30 bytes");
  EXPECT_EQ(verdict_sentence(record),
            "Neither installed build reads this controller: replies come in pieces of 30 bytes.");
  record.verdict.usable = Usable::kWithoutStatus;
  EXPECT_EQ(value_of(record, "driver"), "the path of a guarded driver built with PLC_GUARD_STATUS=OFF");
}

// With the profile hosts take the contract build, and say the same words.
TEST(Recommend, DriverOfOtherOptions_IsTheOneThatHostsTakeAndTheBetterOne) {
  const std::pair<Usable, const char*> verdicts[] = {
      {Usable::kWithoutStatus, "PLC_GUARD_STATUS=OFF"},
      {Usable::kWithoutValueEnd, "PLC_GUARD_VALUE_END=OFF"},
      {Usable::kWithoutBoth, "PLC_GUARD_STATUS=OFF and PLC_GUARD_VALUE_END=OFF"}};
  for (const auto& [usable, options] : verdicts) {
    const SurveyRecord record = record_with(usable, {1});
    const std::string better = std::string("better the path of a guarded driver built with ") + options;
    EXPECT_EQ(value_of(record, "driver"), "contract, " + better);
    EXPECT_EQ(plc_profile::driver_choice(make_profile(record)), "contract");
    EXPECT_THAT(plc_profile::contract_word(make_profile(record)),
                HasSubstr(std::string("only if it is built with ") + options +
                          ": the contract build is taken, better is the path of a guarded driver built with " +
                          options + ". It may take a late reply"));
  }
}

VariableFinding other_by_driver(const std::string& name) {
  VariableFinding finding;
  finding.name = name;
  finding.state = VariableFinding::State::kDifferent;
  finding.is_other_by_driver = true;
  return finding;
}

TEST(Questions, VariableWhoseValueAloneIsRefused_IsAskedForItsType) {
  SurveyRecord record;
  record.variables.findings.resize(1);
  VariableFinding& one = record.variables.findings.front();
  one.name = "Speed";
  one.type = "DINT";
  one.state = VariableFinding::State::kRefused;
  one.is_named = true;
  one.near = {"Speed2"};
  EXPECT_EQ(questions(record).back().what,
            "Is it DINT in the controller too? Its name was taken, and its value refused, status 0000.");
}

TEST(Questions, VariablesThatPiecesExplain_AreOneQuestion) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.variables.findings = {other_by_driver("A"), other_by_driver("B")};
  EXPECT_EQ(questions(record).size(), 2U);
  record.splits = {halves(2)};
  record.heads.sequence.zero = 8;
  const std::vector<Question> all = questions(record);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].about, "pieces");
  EXPECT_EQ(all[0].what,
            "Can the controller, or what is between, send each reply in one piece? Replies come in pieces of 30 bytes, "
            "and the contract build takes the first one alone.");
  EXPECT_EQ(all[1].about, "sequence numbers");
  EXPECT_EQ(
      all[1].what,
      "Can the controller be set so that a reply repeats the sequence number of its request? Nothing else tells a "
      "late reply from the one that is waited for. It is not so in 8 of 8 replies.");
  EXPECT_EQ(all[2].about, "2 variables");
}

std::vector<std::string> subjects(const SurveyRecord& record) {
  std::vector<std::string> about;
  for (const Question& one : questions(record)) about.push_back(one.about);
  return about;
}

TEST(Questions, EachUnusualFinding_HasOne) {
  EXPECT_EQ(subjects(record_with(Usable::kYes, {3})), std::vector<std::string>{});
  SurveyRecord record = record_with(Usable::kYes, {3, 4, 5, 700});
  record.link.connect_failures = {"refused"};
  record.link.is_answered_when_half_closed = false;
  HeadCounts& heads = record.heads;
  heads.length.zero = heads.complement.zero = heads.request_class.other = heads.command.other = 1;
  heads.directory_status = 0x19;
  heads.directories = 22;
  heads.directories_refused = heads.with_more_behind = heads.foreign = 1;
  heads.refusals_untold = 2;
  heads.status_done = 0x0100;
  heads.values_longer = heads.values_shorter = 3;
  record.times.back().silent = record.times.back().lost = 1;
  record.limits.names_per_request = 40;
  EXPECT_EQ(subjects(record),
            (std::vector<std::string>{"connections", "connections", "length", "complement", "class", "command",
                                      "directory of programs", "refusals", "status", "bytes behind values",
                                      "values that are missing", "bytes behind replies", "doubled replies",
                                      "late answers", "requests without an answer", "connections that end", "limits"}));
}

TEST(Questions, LateAnswer_IsOneThatNoBusyNetworkMakes) {
  EXPECT_EQ(subjects(record_with(Usable::kYes, {3, 4, 5, 499})), std::vector<std::string>{});
  EXPECT_EQ(subjects(record_with(Usable::kYes, {300, 400, 500, 700})), std::vector<std::string>{});
  EXPECT_EQ(questions(record_with(Usable::kYes, {3, 4, 5, 700})).at(0).what,
            "What else does the controller do when it answers late? An answer (read, 1 name) took 700 ms, half of them "
            "no longer than 4.00 ms.");
}

TEST(Questions, MissingProgram_NamesTheOneThatIsItsBeginning) {
  SurveyRecord record = record_with(Usable::kYes, {3});
  record.programs.findings = {{"Main2", 0, ProgramFinding::State::kMissing, "Main"}};
  EXPECT_EQ(questions(record).at(0).what,
            "Is there such a program? The directory does not name it; it has Main, the beginning of its name: is that "
            "another program, or its name cut?");
}

TEST(Recommend, Poll_CountsEachAskedVariableAndThePauses) {
  SurveyRecord record = record_with(Usable::kNotUsable, {50});
  record.limits.step.state = Step::State::kDone;
  record.variables.findings.resize(40, other_by_driver("A"));
  record.variables.findings.push_back({});
  EXPECT_EQ(value_of(record, "delay_ms"), "51");
  EXPECT_EQ(value_of(record, "poll_ms"), "420");
  EXPECT_EQ(reason_of(record, "poll_ms"),
            "40 variables, 40 names in 2 batches of up to 32 names, with a pause of 51 ms before each: 206.0 ms for "
            "all of them "
            "when each answer is as slow as the slowest in a hundred; twice that");
}

// Of names and values, so that one slow answer in a hundred does not lose a round.
TEST(Recommend, Poll_TakesP99OfBoth) {
  SurveyRecord record = record_with(Usable::kYes, {1, 60});
  record.times[2].ms = {2, 80};
  record.limits.step.state = Step::State::kDone;
  record.variables.findings.resize(1, other_by_driver("A"));
  EXPECT_EQ(value_of(record, "poll_ms"), "280");
}

TEST(Recommend, Poll_CountsEachElementThatAHostAsksFor) {
  SurveyRecord record = record_with(Usable::kNotUsable, {50});
  record.limits.step.state = Step::State::kDone;
  record.variables.findings.resize(2, other_by_driver("A"));
  record.variables.findings.back().names = 60;
  record.variables.findings.push_back({});
  record.variables.findings.back().names = 1000;
  EXPECT_EQ(value_of(record, "poll_ms"), "420");
  EXPECT_THAT(reason_of(record, "poll_ms"),
              testing::StartsWith("2 variables, 61 names in 2 batches of up to 32 names,"));
}

std::string left_out_reason(const SurveyRecord& record, const std::string& setting) {
  for (const LeftOut& one : left_out(record)) {
    if (one.setting == setting) return one.because;
  }
  return "set";
}

TEST(LeftOut, BatchAndPoll_SayWhichDataAreLacking) {
  SurveyRecord record = record_with(Usable::kYes, {3});
  record.limits.step.why = "interrupted";
  EXPECT_EQ(left_out_reason(record, "batch_names"),
            "how many names and values a request may have was not measured: interrupted");
  EXPECT_EQ(left_out_reason(record, "poll_ms"), "no variable was asked for");
  record.variables.findings.resize(1, other_by_driver("A"));
  EXPECT_EQ(left_out_reason(record, "poll_ms"),
            "how many names and values a request may have was not measured: interrupted");
  record.limits.step = {Step::State::kDone, ""};
  record.limits.names_tried = 111;
  record.limits.values_tried = 1;
  EXPECT_EQ(left_out_reason(record, "batch_names"), "no limit was met, up to 111 names and 1 value in a request");
  record.times.erase(record.times.begin() + 2);
  EXPECT_EQ(left_out_reason(record, "poll_ms"), "no time of a request for names was measured");
  record.times.pop_back();
  EXPECT_EQ(left_out_reason(record, "poll_ms"), "no time of a read was measured");
}

TEST(LeftOut, IsNothingThatIsSet) {
  SurveyRecord record = record_with(Usable::kYes, {3});
  record.variables.findings.resize(1, other_by_driver("A"));
  record.limits.step.state = Step::State::kDone;
  record.limits.names_per_request = record.limits.values_tried = 20;
  record.recommendations = recommend(record);
  EXPECT_EQ(left_out(record).size(), 0U);
  record.heads.length = {};
  EXPECT_EQ(left_out(record).size(), 0U) << "of what is no controller";
}

TEST(LeftOut, WhereNeitherBuildReads_SaysThat) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.splits = {halves(2)};
  record.recommendations = recommend(record);
  EXPECT_EQ(left_out_reason(record, "batch_names"), "neither installed build reads this controller");
  EXPECT_EQ(left_out_reason(record, "poll_ms"), "neither installed build reads this controller");
}

TEST(Recommend, RequestsThatWereAnsweredInPart_HadNoWholeAnswer) {
  SurveyRecord record = record_with_losses();
  record.heads.unfinished = 1;
  EXPECT_THAT(reason_of(record, "timeout_s"), HasSubstr(", and 3 requests had no whole answer within 2000 ms: "));
  EXPECT_THAT(reason_of(record, "delay_ms"), HasSubstr("; 5 requests had no whole answer (2 connections "));
  EXPECT_EQ(questions(record).at(0).what,
            "Why does the controller not answer, or not wholly? 3 requests had no whole answer within 2.0 s.");
}

TEST(ContractWarning, IsInTheNoteOfTheProfileBehindWhyItIsNotWhole) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  const std::string warning = contract_warning(record);
  EXPECT_EQ(make_profile(record).note, warning);
  record.is_whole = false;
  record.ended = "interrupted";
  EXPECT_EQ(make_profile(record).note, "the survey did not come to its end: interrupted. " + warning);
}

}  // namespace
