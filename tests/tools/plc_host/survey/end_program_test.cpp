// How surveys end that do not come to their end: everything found is written, what was changed is put back or told, and
// a former survey stays until something was measured.
#include <unistd.h>

#include <filesystem>

#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

TEST_F(SurveyTest, InterruptedAtEachStep_EverythingFoundIsWrittenAndNothingElseToTheController) {
  for (const char* step : {"1", "2", "3", "4", "5", "6", "7"}) {
    const auto simulator = start_simulator({"--report", path("sim.json")});
    std::vector<std::string> options = scratch_options();
    options.insert(options.end(), {"--rate", "300", "--hours", "1", "--replace"});
    EXPECT_EQ(interrupted_at(step, options), 130) << step;
    const Json found = report();
    EXPECT_EQ(found.at("whole"), false) << step;
    EXPECT_EQ(found.at("ended"), "interrupted") << step;
    EXPECT_EQ(found.at("hours").at("step").at("why"), "interrupted") << step;
    EXPECT_EQ(found.at("writes").at("not_set_back"), Json::array()) << step;
    EXPECT_TRUE(has_all_files()) << step;
    simulator->close_input();
    simulator->wait();
    for (const auto& [name, count] : written()) {
      EXPECT_EQ(named_elements().count(name), 1U) << step << ": " << name;
      EXPECT_GE(count, 2) << step << ": " << name << " was not set back";
    }
  }
}

// The value that a survey writes to Big is in a capture as soon as it was sent, or received.
void wait_for_the_written_value_in(const std::string& capture) {
  const Clock::time_point end = Clock::now() + kPatience;
  for (;;) {
    const std::string bytes = file_text(capture);
    const bool has_it =
        bytes.find("\x77\x88\x55\x66") != std::string::npos || bytes.find("\x88\x77\x66\x55") != std::string::npos;
    if (has_it || Clock::now() > end) return;
    poll(nullptr, 0, 2);
  }
}

void wait_for(const std::string& bytes, const std::string& capture) {
  const Clock::time_point end = Clock::now() + kPatience;
  while (file_text(capture).find(bytes) == std::string::npos && Clock::now() < end) poll(nullptr, 0, 2);
  EXPECT_THAT(file_text(capture), HasSubstr(bytes));
}

// The simulator has the first write in its capture, and answers so late that the interruption meets it on a busy
// machine too. The survey's own capture has it only with what comes next.
TEST_F(SurveyTest, InterruptedWhileItWrites_PutsBackWithRequestsAsCorrectAsAllOthers) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "delay 4000 on=write", "--pcap", path("sim.pcap")});
  const std::map<std::string, std::string> before = values();
  Child survey(host_words(words({"--rate", "300", "--timeout", "20", "--write", "Big", "--write", "Speed"})),
               path("out"), path("err"));
  wait_for_the_written_value_in(path("sim.pcap"));
  survey.signal(SIGINT);
  EXPECT_EQ(survey.wait(), 130);
  EXPECT_THAT(file_text(path("err")), HasSubstr("plc-host: --write Speed: not written: the survey ended before it was "
                                                "written\n"));
  EXPECT_EQ(values(), before);
  end(*simulator);
  EXPECT_THAT(file_text(path("sim_out")), Not(HasSubstr("violation")));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "usable");
  EXPECT_EQ(found.at("heads").at("fields").at("sequence").at("right"), found.at("heads").at("replies"));
  const Json& writes = found.at("writes");
  EXPECT_EQ(writes.at("step").at("why"), "interrupted");
  EXPECT_EQ(writes.at("not_set_back"), Json::array());
  // Its neighbours were read before the write alone.
  EXPECT_EQ(writes.at("neighbours"), Json::array());
  EXPECT_EQ(writes.at("neighbours_not_compared"), (Json{"Total", "Speed", "Temp", "Exact"}));
  EXPECT_EQ(writes.at("findings").at(0).at("neighbours_kept"), nullptr);
  EXPECT_EQ(writes.at("findings").at(0).at("why"), "the survey ended behind the write");
  EXPECT_EQ(writes.at("findings").at(1).at("written"), false);
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("Of 1 write, 0 were acknowledged, read back and set back. What it did was not looked at. Its "
                        "neighbours were read before it, and not all of them behind it. Not written: 1 variable, see "
                        "the notes."));
}

// More than eight names get no answer: the survey waits for one to sixteen when it is stopped, and as long as the
// connection is there.
TEST_F(SurveyTest, InterruptedBeforeALimitWasFound_SaysHowFarItCame) {
  write_file("silent.toml", "[limits]\nnames = 8\nbeyond = \"silent\"\n");
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,1,1,0,0,,DM\n");
  const auto simulator = start_simulator({"--profile", path("silent.toml"), "--pcap", path("sim.pcap")});
  Child survey(host_words(words({"--rate", "1000", "--timeout", "60"})), path("out"), path("err"));
  wait_for(std::string("\x0C\x28\x00\x01\x00\x00\x00\x10", 8), path("sim.pcap"));
  survey.signal(SIGINT);
  end(*simulator);
  EXPECT_EQ(survey.wait(), 130);
  const std::string page = file_text(path("found/report.html"));
  EXPECT_THAT(page, HasSubstr("<dt>names in a request</dt><dd>answered up to 8; 16 were not answered, and the survey "
                              "ended before the limit was found</dd></div><div><dt>values in a request</dt><dd>not "
                              "measured</dd>"));
  EXPECT_THAT(page, HasSubstr("</code> is not set: how many names and values a request may have was measured in part "
                              "(names: answered up to 8; 16 were not answered, and the survey ended before the limit "
                              "was found. values: not measured): interrupted.</p>"));
  EXPECT_EQ(report().at("limits").at("names_answered"), 8);
}

TEST_F(SurveyTest, InterruptedBeforeBatches_CountsWhatWasReadSinglyAlone) {
  write_file("silent.toml", "[limits]\nnames = 1\nbeyond = \"silent\"\n");
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,1,1,0,0,,DM\n");
  const auto simulator = start_simulator({"--profile", path("silent.toml"), "--pcap", path("sim.pcap")});
  Child survey(host_words(words({"--rate", "1000", "--timeout", "60"})), path("out"), path("err"));
  wait_for(std::string("\x0C\x28\x00\x01\x00\x00\x00\x02", 8), path("sim.pcap"));
  survey.signal(SIGINT);
  end(*simulator);
  EXPECT_EQ(survey.wait(), 130);
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("Of 2 declared variables, 2 were read as declared. The survey ended before 2 of them were read "
                        "in a batch too, as hosts read."));
}

// That its type has no width is known without the driver.
TEST_F(SurveyTest, InterruptedBeforeTheDriverReads_ShowsNoValueOfATypeWithoutAWidth) {
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nDay,DATE,,,,,,1,1,0,0,,DM\n");
  write_file("slow.toml", "[times]\nread_ms = 1500\n");
  const auto simulator = start_simulator({"--sentinel", "--profile", path("slow.toml")});
  EXPECT_EQ(interrupted_at("4", {"--rate", "300", "--timeout", "9"}), 130);
  end(*simulator);
  const Json day = report().at("variables").at("findings").at(1);
  EXPECT_EQ(day.at("state"), "good");
  EXPECT_EQ(day.at("value"), nullptr);
  EXPECT_EQ(day.at("why"),
            "plc-host read shows no value: the driver stores a value of this type up to its first zero byte, and what "
            "follows is not known");
  EXPECT_THAT(file_text(path("out")), HasSubstr(": 2 variables, 1 read, 0 refused, 1 without a value: see the report"));
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("Nothing yet: every variable was tried, and not every value was compared."));
}

// Of the values that the driver was still to read nothing is known.
TEST_F(SurveyTest, InterruptedWhileTheDriverReads_AsksNoQuestionOfWhatWasNotCompared) {
  write_file("slow.toml", "[times]\nread_ms = 100\n");
  const auto simulator = start_simulator({"--sentinel", "--profile", path("slow.toml")});
  EXPECT_EQ(interrupted_at("4", {"--rate", "300"}), 130);
  end(*simulator);
  const Json found = report();
  const Json& variables = found.at("variables");
  EXPECT_EQ(variables.at("step").at("state"), "partly");
  EXPECT_EQ(variables.at("step").at("why"), "interrupted");
  EXPECT_EQ(variables.at("not_compared"), "not all of them were read by the driver: interrupted");
  EXPECT_LT(variables.at("compared"), variables.at("to_compare"));
  size_t not_compared = 0;
  for (const Json& finding : variables.at("findings")) {
    EXPECT_EQ(finding.at("state"), finding.at("name") == "Byte" ? "not tried" : "good") << finding;
    if (finding.at("why") == "not compared: interrupted") ++not_compared;
  }
  EXPECT_GT(not_compared, 0U);
  EXPECT_EQ(found.at("questions"), Json::array());
  // By then each was read in a batch.
  EXPECT_THAT(file_text(path("found/report.html")), Not(HasSubstr("in a batch too")));
}

TEST_F(SurveyTest, InterruptedWhileItConnects_CountsTheConnectsThatWereMade) {
  const auto simulator = start_simulator();
  Child survey(host_words(words({"--rate", "100"})), path("out"), path("err"));
  // The capture has a connect, a request and its reply by then, and more of them.
  constexpr size_t kBytesOfSomeConnects = 4000;
  const Clock::time_point end = Clock::now() + kPatience;
  while (file_text(path("found/survey.pcapng")).size() < kBytesOfSomeConnects && Clock::now() < end) {
    poll(nullptr, 0, 2);
  }
  survey.signal(SIGINT);
  EXPECT_EQ(survey.wait(), 130);
  const Json found = report();
  const int made = found.at("link").at("connects_made");
  EXPECT_GE(made, 1);
  EXPECT_EQ(found.at("link").at("connects_tried"), made);
}

// Of a variable that was written once more than put back.
bool is_told(const Json& not_set_back, const std::string& name) {
  const std::string variable = name.substr(0, name.rfind("[0]")) + ": it was ";
  for (const std::string text : not_set_back) {
    if (text.compare(0, variable.size(), variable) == 0) return true;
  }
  return false;
}

TEST_F(SurveyTest, ControllerThatDiesAtEachStep_EverythingFoundIsWrittenAndEachWriteToldOrTakenBack) {
  for (const char* step : {"1", "2", "3", "4", "5", "6", "7"}) {
    const auto simulator = start_simulator({"--report", path("sim.json")});
    std::vector<std::string> options = scratch_options();
    options.insert(options.end(), {"--rate", "300", "--hours", "0.0005", "--timeout", "1", "--replace"});
    Child survey(host_words(words(options)), path("out"), path("err"));
    EXPECT_TRUE(survey.wait_for(std::string("survey: step ") + step));
    simulator->close_input();
    simulator->wait();
    const int code = survey.wait();
    const Json found = report();
    EXPECT_TRUE(has_all_files()) << step;
    const Json& not_set_back = found.at("writes").at("not_set_back");
    for (const auto& [name, count] : written()) {
      EXPECT_EQ(named_elements().count(name), 1U) << step << ": " << name;
      EXPECT_TRUE(count % 2 == 0 || is_told(not_set_back, name)) << step << ": " << name << not_set_back;
    }
    if (std::string(step) == "7") {
      // These hours are there to see a controller that is away.
      EXPECT_EQ(found.at("hours").at("losses"), found.at("hours").at("rounds")) << step;
      continue;
    }
    EXPECT_EQ(code, 7) << step;
    EXPECT_EQ(found.at("whole"), false) << step;
    EXPECT_THAT(found.at("ended").get<std::string>(), HasSubstr("controller")) << step;
  }
}

// It has received the write and has not answered it yet when it goes.
TEST_F(SurveyTest, ControllerThatDiesRightBehindAWrite_LeavesTheFormerValueInReportAndMessage) {
  const auto simulator = start_simulator(
      {"--sentinel", "--fault", "delay 60000 on=write", "--pcap", path("sim.pcap"), "--report", path("sim.json")});
  const std::string before = values().at("Big");
  Child survey(host_words(words({"--rate", "1000", "--gentle", "--timeout", "60", "--write", "Big"})), path("out"),
               path("err"));
  wait_for_the_written_value_in(path("sim.pcap"));
  simulator->close_input();
  simulator->wait();
  EXPECT_EQ(survey.wait(), 7);
  EXPECT_EQ(written(), (std::map<std::string, int>{{"Big", 1}}));
  const std::string told =
      "Big: it was " + before + ". The write was not answered: it may have been carried out or not";
  const std::string said = file_text(path("err"));
  EXPECT_THAT(said, HasSubstr("plc-host: --write Big: the survey ended behind the write\n"));
  EXPECT_THAT(said, HasSubstr("plc-host: NOT SET BACK: " + told +
                              ". Write it by hand: plc-host write, or at the controller\n"));
  const Json found = report();
  EXPECT_EQ(found.at("writes").at("not_set_back"), Json{told});
  const Json& finding = found.at("writes").at("findings").at(0);
  EXPECT_EQ(finding.at("written"), true);
  EXPECT_EQ(finding.at("acknowledged"), false);
  for (const char* flag : {"read_back", "neighbours_kept", "set_back"}) EXPECT_EQ(finding.at(flag), nullptr) << flag;
  for (const Json& question : found.at("questions")) EXPECT_NE(question.at("about"), "Big") << question;
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("<p class=\"alarm\">Not set back, look after it now: " + told + "</p>"));
}

TEST_F(SurveyTest, PartOfASurvey_JudgesSoFar) {
  const auto simulator = start_simulator();
  EXPECT_EQ(interrupted_at("5", {"--rate", "300"}), 130);
  end(*simulator);
  EXPECT_THAT(file_text(path("out")), HasSubstr("\nguarded build: usable so far\nset driver: guarded\n"));
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("<p class=\"verdict unknown\">So far, the guarded build can be used here, with all of its "
                        "checks.</p>"));
  const Json found = report();
  EXPECT_EQ(found.at("recommendations").at(0).at("because"),
            "so far: Every reply keeps the rules of the guarded build.");
}

TEST_F(SurveyTest, WriteThatCannotBeTakenBack_IsToldLoudly) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "refuse on=write after=1 times=always"});
  const Outcome outcome = run(words({"--rate", "1000", "--write", "Speed"}));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: NOT SET BACK: Speed: it was "));
  const Json found = report();
  ASSERT_EQ(found.at("writes").at("not_set_back").size(), 1U);
  EXPECT_EQ(found.at("writes").at("findings").at(0).at("set_back"), false);
  EXPECT_EQ(found.at("guarded").at("usable"), "usable");
}

TEST_F(SurveyTest, FormerSurvey_IsReplacedWhenThatIsSaid) {
  const auto simulator = start_simulator();
  EXPECT_EQ(run(words({"--rate", "1000", "--gentle"})).code, 0);
  const Outcome again = run(words({"--rate", "1000", "--gentle"}));
  EXPECT_EQ(again.code, 8);
  EXPECT_THAT(again.err, HasSubstr("it holds a survey: name another folder, or --replace"));
  EXPECT_EQ(run(words({"--rate", "1000", "--gentle", "--replace"})).code, 0);
  EXPECT_EQ(report().at("link").at("second_connection"), "not tried: --gentle");
}

TEST_F(SurveyTest, LinkToAFolder_IsNotWrittenThrough) {
  const auto simulator = start_simulator();
  const std::string other = path("other");
  std::filesystem::create_directory(other);
  std::filesystem::create_directory_symlink(other, path("found"));
  for (const char* end : {"", "/"}) {
    std::vector<std::string> all = words({"--rate", "1000", "--gentle"});
    all.at(6) += end;
    const Outcome outcome = run(all);
    EXPECT_EQ(outcome.code, 8);
    EXPECT_EQ(outcome.err,
              "plc-host: --output " + all.at(6) + ": it is a symbolic link: name the folder that it leads to\n");
  }
  EXPECT_TRUE(std::filesystem::is_empty(other));
}

TEST_F(SurveyTest, SecondSurveyIntoTheSameFolder_IsRefusedBeforeItAsksAndLeavesItsFiles) {
  const auto simulator = start_simulator({"--report", path("sim.json")});
  Child first(host_words(words({"--rate", "2"})), path("out"), path("err"));
  EXPECT_TRUE(first.wait_for("survey: step 1"));
  std::vector<std::string> second = words({"--rate", "1000", "--replace"});
  second.at(2) = "127.0.0.1:1";  // nobody is asked
  const Outcome outcome = run(second);
  EXPECT_EQ(outcome.code, 8);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "plc-host: cannot write into " + path("found") +
                             ": another survey writes there: wait for its end, or name another folder\n");
  first.signal(SIGINT);
  EXPECT_EQ(first.wait(), 130);
  EXPECT_EQ(report().at("ended"), "interrupted");
  EXPECT_EQ(run(words({"--rate", "1000", "--gentle", "--replace"})).code, 0);
  EXPECT_EQ(report().at("whole"), true);
}

TEST_F(SurveyTest, FormerSurvey_StaysWhereNothingWasMeasured) {
  const auto simulator = start_simulator();
  EXPECT_EQ(run(words({"--rate", "1000", "--gentle"})).code, 0);
  end(*simulator);
  std::map<std::string, std::string> before;
  for (const char* name : {"report.html", "report.json", "survey.pcapng", "profile.toml"}) {
    before[name] = file_text(path(std::string("found/") + name));
  }
  const Outcome outcome = run(words({"--rate", "1000", "--gentle", "--replace"}));
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.out,
              EndsWith("\nnot written: nothing was measured, and " + path("found") + " keeps the former survey\n"));
  for (const auto& [name, text] : before) EXPECT_EQ(file_text(path("found/" + name)), text) << name;
  EXPECT_NE(access(path("found/survey.pcapng.new").c_str(), F_OK), 0);
}

// The simulator carries it out and does not answer.
TEST_F(SurveyTest, WriteWithoutAnAnswer_IsInTheRedFrameThoughItReadsAsBefore) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "no-reply times=1 on=bit"});
  const std::string before = values().at("Ready");
  const Outcome outcome = run(words({"--rate", "1000", "--gentle", "--timeout", "1", "--write", "Ready"}));
  EXPECT_EQ(outcome.code, 1);
  const std::string told =
      "Ready: it was " + before + ". It reads so now, but a write was not answered: it may still be carried out";
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: NOT SET BACK: " + told + ". Write it by hand: "));
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("<p class=\"alarm\">Not set back, look after it now: " + told + "</p>"));
  const Json finding = report().at("writes").at("findings").at(0);
  EXPECT_EQ(finding.at("acknowledged"), false);
  EXPECT_EQ(finding.at("status"), nullptr);
  EXPECT_EQ(finding.at("set_back"), false);
}

TEST_F(SurveyTest, SettingBackWithoutAnAnswer_IsTriedAgainUntilItHasOne) {
  const auto simulator =
      start_simulator({"--sentinel", "--report", path("sim.json"), "--fault", "no-reply after=1 times=1 on=write"});
  const Outcome outcome = run(words({"--rate", "1000", "--gentle", "--timeout", "1", "--write", "Speed"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(report().at("writes").at("findings").at(0).at("set_back"), true);
  end(*simulator);
  EXPECT_GE(written().at("Speed"), 2);
}

// Beyond what steady controllers do.
TEST_F(SurveyTest, RefusedWrite_IsNoReasonAgainstTheGuardedBuild) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "refuse 25 times=always on=write"});
  const Outcome outcome = run(words({"--rate", "900", "--write", "Speed"}));
  end(*simulator);
  EXPECT_EQ(outcome.code, 1) << outcome.err;
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "usable");
  EXPECT_EQ(found.at("heads").at("status_done"), "0000");
  const Json& finding = found.at("writes").at("findings").at(0);
  EXPECT_EQ(finding.at("acknowledged"), false);
  EXPECT_EQ(finding.at("status"), "0019");
  EXPECT_EQ(finding.at("read_back"), false);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: --write Speed: refused, status 0019; read back "));
  EXPECT_THAT(file_text(path("found/report.html")), HasSubstr("<span class=\"wrong\">refused, status 0019</span>"));
}

TEST_F(SurveyTest, RefusedDirectory_IsAReasonAgainstTheGuardedBuild) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "refuse 25 times=always on=directory"});
  run(words({"--rate", "900"}));
  end(*simulator);
  const Json guarded = report().at("guarded");
  EXPECT_EQ(guarded.at("usable"), "not usable");
  EXPECT_EQ(guarded.at("because"),
            "The directory of programs is refused, status 0x0019: the guarded build does not connect then.");
}

TEST_F(SurveyTest, DirectoryRefusedOnce_IsAnExceptionAndAQuestion) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "refuse 19 on=directory after=5"});
  EXPECT_EQ(run(words({"--rate", "900"})).code, 0);
  end(*simulator);
  const Json found = report();
  const std::string times = "1 of " + std::to_string(found.at("link").at("connects_tried").get<int>() + 2) + " times";
  EXPECT_EQ(found.at("guarded").at("usable"), "usable");
  EXPECT_THAT(found.at("guarded").at("because").get<std::string>(),
              HasSubstr(" The directory of programs was refused " + times +
                        ", status 0x0013: the guarded build does not connect when it meets this."));
  EXPECT_EQ(found.at("questions").at(0).at("about"), "directory of programs");
  EXPECT_EQ(found.at("questions").at(0).at("question"),
            "Why does the controller refuse it, status 0013? It did so " + times + ".");
}

TEST_F(SurveyTest, RepliesThatLackValues_AreToldAndLimitNothingToZero) {
  const auto simulator = start_simulator({"--sentinel", "--fault", "short 1 times=always every=4"});
  EXPECT_EQ(run(words({"--rate", "900"})).code, 1);
  end(*simulator);
  const Json found = report();
  EXPECT_THAT(found.at("guarded").at("because").get<std::string>(),
              AllOf(StartsWith("Replies keep the form that the guarded build demands, but "),
                    HasSubstr(" of them lacked something that was asked for: such a transfer fails.")));
  EXPECT_NE(found.at("limits").at("values_per_request"), 0);
  EXPECT_NE(found.at("limits").at("names_per_request"), 0);
  EXPECT_THAT(file_text(path("found/profile.toml")), Not(HasSubstr(" = 0  # A resolve request may have ")));
}

TEST_F(SurveyTest, LargestRate_IsNotExceeded) {
  const auto simulator = start_simulator({"--sentinel"});
  EXPECT_EQ(run(words({"--rate", "1000"})).code, 0);
  end(*simulator);
  const Json found = report();
  EXPECT_GE(found.at("took_s").get<double>() * 1000 + 1, found.at("heads").at("replies").get<double>());
}

}  // namespace
