// What report.json says of surveys that came to their end, and of those that did not.
#include "tools/plc_host/survey_report/report_json.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "base/json_text.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/plc_host/survey_report/sample_records.h"
#include "tools/plc_host/survey_report/survey_report.h"

namespace {

using Json = nlohmann::ordered_json;
using namespace plc_host::survey;
using testing::HasSubstr;

Json with(const Json& list, const std::string& key, const Json& value) {
  for (const Json& one : list) {
    if (one.at(key) == value) return one;
  }
  return {};
}

TEST(SurveyJson, FullSurvey_HasEachFigure) {
  const Json report = report_json(survey_test::full_record());
  EXPECT_EQ(report["report"], "plc-host survey");
  EXPECT_EQ(report["format"], 1);
  EXPECT_EQ(report["whole"], true);
  EXPECT_EQ(report["ended"], nullptr);
  EXPECT_EQ(report["link"]["connects_made"], 20);
  EXPECT_EQ(report["link"]["most_connections"], 3);
  EXPECT_EQ(report["link"]["one_more"], "refused");
  EXPECT_EQ(report["heads"]["fields"]["sequence"], (Json{{"right", 2}, {"zero", 1282}, {"other", 0}}));
  EXPECT_EQ(report["heads"]["statuses"][2]["status"], "0004");
  EXPECT_EQ(report["heads"]["statuses"][2]["first"]["packet"], 388);
  EXPECT_EQ(report["heads"]["statuses"][2]["first"]["reply"], "00 00 00 04 FF FF FF FB 00 29 0C 28 00 04");
  EXPECT_EQ(report["heads"]["status_done"], "0000");
  EXPECT_EQ(report["guarded"]["usable"], "not usable");
  EXPECT_EQ(report["limits"]["names_per_request"], 50);
  EXPECT_EQ(report["limits"]["values_per_request"], nullptr);
  EXPECT_EQ(report["hours"]["slices"][37]["losses"], 2);
  EXPECT_EQ(report["hours"]["lost_values"], 12);
  EXPECT_EQ(report["hours"]["longest_gap_ms"], 612.5);
  EXPECT_EQ(report["times"]["splits"][2]["ways"][0], (Json{{"pieces", {536, 80}}, {"replies", 58}}));
  EXPECT_EQ(report["not_done"], Json::array());
}

TEST(SurveyJson, Times_AreThoseThatWereMeasured) {
  SurveyRecord record;
  record.times = {{"read", 1, {4, 1.00049, 2, 3}}, {"read", 2, {}}};
  const Json times = report_json(record)["times"]["measured"];
  EXPECT_EQ(times[0], (Json{{"kind", "read"},
                            {"names", 1},
                            {"measured", 4},
                            {"p50", 2},
                            {"p99", 4},
                            {"largest", 4},
                            {"ms", {4.0, 1.0, 2.0, 3.0}},
                            {"silent", 0},
                            {"lost", 0},
                            {"damaged", 0}}));
  EXPECT_EQ(times[1]["p50"], nullptr);
  EXPECT_EQ(times[1]["measured"], 0);
}

TEST(SurveyJson, Variables_SayWhatBecameOfThem) {
  const Json findings = report_json(survey_test::full_record())["variables"]["findings"];
  const Json good = with(findings, "name", "Motor.Speed");
  EXPECT_EQ(good["state"], "good");
  EXPECT_EQ(good["value"], "1450");
  EXPECT_EQ(good["status"], nullptr);
  const Json refused = with(findings, "name", "Motor.Speeed");
  EXPECT_EQ(refused["state"], "refused");
  EXPECT_EQ(refused["value"], nullptr);
  EXPECT_EQ(refused["status"], "0004");
  EXPECT_EQ(refused["near"], Json::array({"Motor.Speed"}));
  EXPECT_EQ(with(findings, "name", "Table")["state"], "too short");
}

TEST(SurveyJson, WhatWasNotMeasured_IsNullAndSaysWhy) {
  const Json report = report_json(survey_test::interrupted_record());
  EXPECT_EQ(report["whole"], false);
  EXPECT_EQ(report["ended"], "interrupted");
  EXPECT_EQ(report["guarded"]["usable"], "not known");
  EXPECT_EQ(report["guarded"]["rules"][0]["holds"], true);
  EXPECT_EQ(report["guarded"]["rules"][1]["holds"], nullptr);
  EXPECT_EQ(report["heads"]["values"], nullptr);
  EXPECT_EQ(report["heads"]["status_done"], nullptr);
  EXPECT_EQ(with(report["variables"]["findings"], "name", "Later")["value"], nullptr);
  for (const char* figure : {"rounds", "losses", "lost_values", "longest_gap_ms", "slow", "drift_ms"})
    EXPECT_EQ(report["hours"][figure], nullptr);
  EXPECT_EQ(with(report["not_done"], "step", "hours"),
            (Json{{"step", "hours"}, {"state", "not done"}, {"why", "interrupted"}}));
  EXPECT_EQ(with(report["not_done"], "step", "variables")["state"], "partly");
  EXPECT_EQ(with(report["not_done"], "step", "writes")["why"], "--write names no variable");
}

TEST(SurveyJson, NothingMeasured_IsNoZero) {
  const Json report = report_json(survey_test::empty_record());
  EXPECT_EQ(report["link"]["connects_made"], nullptr);
  EXPECT_EQ(report["link"]["connect"]["p50"], nullptr);
  EXPECT_EQ(report["programs"]["directory"], nullptr);
  EXPECT_EQ(report["heads"]["fields"], nullptr);
  EXPECT_EQ(report["not_done"].size(), 8U);
  EXPECT_EQ(
      report["found"],
      Json::array({"The controller at press7:8500 was surveyed on 2026-11-22 09:30:00 UTC for 1.4 s; the survey did "
                   "not come to its end: the controller's name is not known.",
                   "Its name could not be resolved: Name or service not known."}));
}

TEST(SurveyJson, Questions_AreForTheProgrammer) {
  const Json questions = report_json(survey_test::full_record())["questions"];
  std::vector<std::string> about;
  for (const Json& one : questions) about.push_back(one["about"]);
  EXPECT_EQ(about, (std::vector<std::string>{"MAIN", "ConveyorStationNorthSide", "Recipes", "connections", "pieces",
                                             "sequence numbers", "limits", "Scratch.Flag", "hours", "Motor.Speeed",
                                             "Table", "Ticks"}));
  EXPECT_EQ(questions[0]["about"], "MAIN");
  EXPECT_EQ(questions[0]["question"], "Can one of the two be called otherwise? MAIN2 begins with this name.");
  EXPECT_EQ(with(questions, "about", "Recipes")["question"],
            "Is there such a program? The directory does not name it.");
  EXPECT_EQ(with(questions, "about", "Motor.Speeed")["question"],
            "Is it there, and under this name? The controller refused it, status 0004. Names that are near: "
            "Motor.Speed. It is declared in PLCC0A8000A_0.csv:9, area 0.");
  EXPECT_EQ(with(questions, "about", "Table")["question"],
            "Is it DINT in the controller too? The reply is too short: the reply has 2 bytes where DINT takes 4. It is "
            "declared in "
            "PLCC0A8000A_0.csv:10, area 0.");
}

TEST(SurveyJson, TextFromOutside_IsOneThatATerminalMayHave) {
  const std::string text = plc_base::json_text(report_json(survey_test::hostile_record()));
  EXPECT_EQ(text.find('\x1b'), std::string::npos);
  EXPECT_EQ(text.find("\xE2\x80\xAE"), std::string::npos);
  EXPECT_TRUE(nlohmann::json::accept(text));
}

TEST(SurveyReports, FolderThatIsNotThere_IsSaid) {
  const std::string problem = write_reports(survey_test::empty_record(), "/nonexistent/x");
  EXPECT_THAT(problem, HasSubstr("/nonexistent/x/report.json: No such file or directory"));
}

TEST(SurveyReports, Files_AreWhole) {
  const plc_test::TempDir folder;
  EXPECT_EQ(write_reports(survey_test::full_record(), folder.path()), "");
  EXPECT_EQ(Json::parse(folder.read("report.json")), report_json(survey_test::full_record()));
}

}  // namespace
