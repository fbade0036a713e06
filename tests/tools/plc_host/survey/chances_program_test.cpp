// What a survey makes of what happens by chance: replies that are refused once or twice, writes that go wrong in each
// way, and a BOOL that changes once.
#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

constexpr char kThree[] = "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,1,1,0,0,,DM\nReady,BOOL,,,,,,2,1,0,0,,MR\n";

class SurveyChancesTest : public SurveyTest {
 protected:
  Outcome survey_with(const std::string& fault, const std::vector<std::string>& more = {}) {
    write_file("machine.csv", kThree);
    const auto simulator = start_simulator({"--sentinel", "--fault", fault});
    std::vector<std::string> options = {"--gentle", "--timeout", "1", "--replace", "--rate", "1000"};
    options.insert(options.end(), more.begin(), more.end());
    const Outcome outcome = run(words(options));
    end(*simulator);
    return outcome;
  }
};

// The requests for names before it are the survey's own for three variables, one that nobody has and a batch, and the
// driver's three. The fourteenth asks for one name in the step of the limits.
TEST_F(SurveyChancesTest, NamesRefusedThreeTimes_AreALimitAndNotBefore) {
  for (const char* times : {"1", "2"}) {
    EXPECT_EQ(survey_with(std::string("refuse 25 on=resolve after=14 times=") + times).code, 0) << times;
    const Json limits = report().at("limits");
    EXPECT_EQ(limits.at("names_per_request"), nullptr) << times;
    EXPECT_EQ(limits.at("beyond"), nullptr) << times;
    EXPECT_THAT(file_text(path("found/profile.toml")),
                HasSubstr("\n# names is not known. A resolve request may have this many names.\n"));
  }
  EXPECT_EQ(survey_with("refuse 25 on=resolve after=14 times=3").code, 0);
  const Json limits = report().at("limits");
  EXPECT_EQ(limits.at("names_per_request"), 1);
  EXPECT_EQ(limits.at("beyond"), "refused, status 0x0019");
  EXPECT_THAT(file_text(path("found/profile.toml")),
              HasSubstr("\nnames = 1  # A resolve request may have this many names.\n"));
}

struct WriteRow {
  const char* fault;
  Json acknowledged;
  Json read_back;
  Json set_back;
  Json status;
  const char* why;  // with # for the former value
};

std::string with_value(std::string text, const std::string& value) {
  const size_t at = text.find('#');
  return at == std::string::npos ? text : text.replace(at, 1, value);
}

constexpr char kMayCome[] = "It reads so now, but a write was not answered: it may still be carried out";

TEST_F(SurveyChancesTest, Write_IsToldAsItEnded) {
  const WriteRow rows[] = {
      {"refuse 25 times=always on=write", false, false, true, "0019", "refused, status 0019; read back #"},
      {"refuse 25 on=write", false, false, true, "0019", "refused, status 0019; read back #"},
      {"status 5 times=always on=write", true, true, true, nullptr, ""},
      {"no-reply on=write", false, true, false, nullptr, "no acknowledgment"},
      {"close times=always on=write", false, true, false, nullptr,
       "no acknowledgment; the write that sets it back was not answered, three times"},
      {"wrong-sequence on=write", false, true, false, nullptr, "no acknowledgment"},
      {"cut 5 on=write", false, true, false, nullptr, "no acknowledgment"},
  };
  for (const WriteRow& row : rows) {
    const Outcome outcome = survey_with(row.fault, {"--write", "Speed", "-q"});
    const Json found = report();
    const std::string value = found.at("variables").at("findings").at(0).at("value");
    const Json& write = found.at("writes").at("findings").at(0);
    EXPECT_EQ(write.at("acknowledged"), row.acknowledged) << row.fault;
    EXPECT_EQ(write.at("read_back"), row.read_back) << row.fault;
    EXPECT_EQ(write.at("set_back"), row.set_back) << row.fault;
    EXPECT_EQ(write.at("status"), row.status) << row.fault;
    const std::string why = with_value(row.why, value);
    EXPECT_EQ(write.at("why"), why.empty() ? Json() : Json(why)) << row.fault;
    std::string said = why.empty() ? "" : "plc-host: --write Speed: " + why + "\n";
    if (row.set_back == false) {
      said += "plc-host: NOT SET BACK: Speed: it was " + value + ". " + kMayCome +
              ". Write it by hand: plc-host write, or at the controller\n";
    }
    EXPECT_EQ(outcome.err, said) << row.fault;
    EXPECT_EQ(outcome.code, why.empty() ? 0 : 1) << row.fault;
  }
}

// It has its former value for the survey, and another one for the driver.
TEST_F(SurveyChancesTest, BoolThatChangesOnce_IsNotMisread) {
  write_file("machine.csv", kThree);
  write_file("slow.toml", "[times]\nread_ms = 60\n");
  const auto simulator = start_simulator({"--profile", path("slow.toml")});
  Child survey(host_words(words({"--gentle", "--rate", "1000"})), path("out"), path("err"));
  EXPECT_TRUE(survey.wait_for("survey: step 4"));
  simulator->type("set Ready true\n");
  EXPECT_EQ(survey.wait(), 0) << file_text(path("out"));
  end(*simulator);
  const Json ready = report().at("variables").at("findings").at(2);
  EXPECT_EQ(ready.at("name"), "Ready");
  EXPECT_EQ(ready.at("state"), "good") << ready;
}

}  // namespace
