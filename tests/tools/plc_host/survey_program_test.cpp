// plc-host survey as a program: what it says of a plain controller, that it leaves it as it was, and that its files are
// there however it ends.
#include <sys/stat.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;
using Json = nlohmann::json;

constexpr const char* kScratch[] = {"Speed", "Ready", "Motor.Run", "Line[2].On", "Text", "Table[3]", "MAIN/Count"};

class SurveyTest : public ProgramTest {
 protected:
  // The words of a survey of the simulator at the test's port.
  std::vector<std::string> words(const std::vector<std::string>& more) const {
    std::vector<std::string> all = {"survey",   "--address",  "127.0.0.1:" + port_, "--tags", path("machine.csv"),
                                    "--output", path("found")};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  Json report() const { return Json::parse(file_text(path("found/report.json"))); }

  bool has_all_files() const {
    bool has_all = true;
    for (const char* name : {"report.json", "survey.pcapng", "profile.toml"}) {
      has_all = has_all && !file_text(path(std::string("found/") + name)).empty();
    }
    return has_all;
  }

  // How often each element was written, by the simulator's own count; its report is there once it has ended.
  std::map<std::string, int> written() const {
    std::map<std::string, int> counts;
    const Json sim = Json::parse(file_text(path("sim.json")));
    for (const Json& row : sim.at("asked")) {
      if (row.at("written") > 0) counts[row.at("name")] = row.at("written");
    }
    return counts;
  }

  std::vector<std::string> scratch_options() const {
    std::vector<std::string> options;
    for (const char* name : kScratch) options.insert(options.end(), {"--write", name});
    return options;
  }

  // The values of all variables, by plc-host read.
  std::map<std::string, std::string> values() {
    std::map<std::string, std::string> values;
    const Outcome outcome =
        run({"read", "--all", "--address", "127.0.0.1:" + port_, "--tags", path("machine.csv"), "--json"});
    for (const std::string& line : lines_of(outcome.out)) {
      const Json result = Json::parse(line);
      if (result.at("state") == "good") values[result.at("name")] = result.at("value").dump();
    }
    return values;
  }

  void end(Child& simulator) {
    simulator.close_input();
    EXPECT_EQ(simulator.wait(), 0) << file_text(path("sim_err"));
  }

  // A survey that is stopped as soon as it says that it is at the step.
  int interrupted_at(const std::string& step, const std::vector<std::string>& more) {
    Child survey(host_words(words(more)), path("out"), path("err"));
    EXPECT_TRUE(survey.wait_for("survey: step " + step));
    survey.signal(SIGINT);
    return survey.wait();
  }
};

std::string state_of(const Json& report, const std::string& name) {
  for (const Json& finding : report.at("variables").at("findings")) {
    if (finding.at("name") == name) return finding.at("state");
  }
  return "absent";
}

TEST_F(SurveyTest, PlainController_IsReportedAsItIs) {
  const auto simulator = start_simulator({"--sentinel"});
  const Outcome outcome = run(words({"--rate", "1000"}));
  end(*simulator);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, StartsWith("127.0.0.1:" + port_ +
                                      ": 25 variables, 24 read, 0 refused, 1 not tried\n"
                                      "guarded build: usable\nset driver: guarded\n"));
  const Json found = report();
  EXPECT_EQ(found.at("whole"), true);
  EXPECT_EQ(found.at("ended"), nullptr);
  EXPECT_EQ(found.at("guarded").at("usable"), "usable");
  for (const Json& rule : found.at("guarded").at("rules")) {
    EXPECT_TRUE(rule.at("holds")) << rule.at("rule");
    EXPECT_EQ(rule.at("broken"), 0) << rule.at("rule");
  }
  const Json& link = found.at("link");
  EXPECT_EQ(link.at("connects_tried"), 20);
  EXPECT_EQ(link.at("connect_failures"), Json::array());
  EXPECT_EQ(link.at("second_connection"), "accepted and answered");
  EXPECT_EQ(link.at("half_closed"), "accepted and answered");
  EXPECT_EQ(link.at("most_connections"), nullptr);
  EXPECT_EQ(found.at("programs").at("directory"), (Json{"MAIN", "SUB"}));
  EXPECT_EQ(found.at("guarded").at("rules").at(1).at("evidence").at(0).at("title"),
            "reply to directory start: sequence number 0, as asked");
  EXPECT_EQ(found.at("guarded").at("rules").at(2).at("evidence").at(0).at("title"),
            "reply to directory start: class and command 0C 2C, as asked");
  EXPECT_EQ(found.at("variables").at("compared_with"), "1.1.0 guarded");
  EXPECT_EQ(found.at("variables").at("not_compared"), nullptr);
  for (const Json& finding : found.at("variables").at("findings")) {
    EXPECT_EQ(finding.at("state"), finding.at("name") == "Byte" ? "not tried" : "good") << finding;
  }
  const Json& heads = found.at("heads");
  EXPECT_EQ(heads.at("unanswered"), 0);
  EXPECT_EQ(heads.at("bytes_unasked"), 0);
  for (const auto& [name, field] : heads.at("fields").items()) {
    EXPECT_EQ(field.at("right"), heads.at("replies")) << name;
  }
  EXPECT_EQ(heads.at("status_done"), "0000");
  EXPECT_EQ(heads.at("refusal_status"), "0004");
  EXPECT_EQ(heads.at("refusal_is_full"), true);
  EXPECT_EQ(found.at("limits").at("names_per_request"), nullptr);
  EXPECT_EQ(found.at("writes").at("step").at("why"), "--write names no variable");
}

TEST_F(SurveyTest, Values_AreThoseOfPlcHostRead) {
  const auto simulator = start_simulator({"--sentinel"});
  std::map<std::string, std::string> read = values();
  EXPECT_EQ(run(words({"--rate", "1000"})).code, 0);
  end(*simulator);
  size_t compared = 0;
  const Json found = report();
  for (const Json& finding : found.at("variables").at("findings")) {
    // Of an array the survey shows one element.
    const auto value = read.find(finding.at("name"));
    if (value == read.end() || !finding.at("element").is_null() || finding.at("type").get<std::string>()[0] == 'W') {
      continue;
    }
    EXPECT_EQ(finding.at("value"), value->second) << finding.at("name");
    ++compared;
  }
  EXPECT_GE(compared, 8U);
}

TEST_F(SurveyTest, WithoutWrite_NothingIsWritten) {
  const auto simulator = start_simulator({"--report", path("sim.json")});
  EXPECT_EQ(run(words({"--rate", "1000"})).code, 0);
  end(*simulator);
  EXPECT_TRUE(written().empty());
}

TEST_F(SurveyTest, NamedVariables_AreWrittenEachWayAndSetBackAndNoOthers) {
  const auto simulator = start_simulator({"--sentinel", "--report", path("sim.json")});
  const std::map<std::string, std::string> before = values();
  std::vector<std::string> options = scratch_options();
  options.insert(options.end(), {"--rate", "1000"});
  EXPECT_EQ(run(words(options)).code, 0);
  EXPECT_GE(before.size(), 20U);
  EXPECT_EQ(values(), before);
  end(*simulator);
  std::vector<std::string> kinds;
  const Json found = report();
  for (const Json& finding : found.at("writes").at("findings")) {
    kinds.push_back(finding.at("name").get<std::string>() + " " + finding.at("kind").get<std::string>());
    for (const char* flag : {"acknowledged", "read_back", "neighbours_kept", "set_back"}) {
      EXPECT_EQ(finding.at(flag), true) << finding;
    }
  }
  EXPECT_EQ(kinds,
            (std::vector<std::string>{"Speed write", "Ready set", "Ready reset", "Motor.Run read-modify-write",
                                      "Line[2].On masked write", "Text write", "Table[3] write", "MAIN/Count write"}));
  EXPECT_EQ(found.at("writes").at("not_set_back"), Json::array());
  std::set<std::string> names;
  for (const auto& [name, count] : written()) {
    names.insert(name);
    EXPECT_EQ(count, 2) << name;
  }
  EXPECT_EQ(names,
            (std::set<std::string>{"Line[2].On", "MAIN/Count", "Motor.Run", "Ready", "Speed", "Table[3]", "Text[0]"}));
}

TEST_F(SurveyTest, VariablesThatAreNotThere_AreListedWithNearNames) {
  const auto simulator = start_simulator();
  write_file("wrong.csv", "Sped,INT,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,1,1,0,0,,DM\nCount,INT,,,,,,2,0,0,1,MIAN,DM\n");
  const Outcome outcome = run({"survey", "--address", "127.0.0.1:" + port_, "--tags", path("wrong.csv"), "--output",
                               path("found"), "--rate", "1000"});
  simulator->close_input();
  EXPECT_EQ(outcome.code, 1);
  const Json found = report();
  EXPECT_EQ(state_of(found, "Sped"), "refused");
  EXPECT_EQ(state_of(found, "Speed"), "good");
  EXPECT_EQ(state_of(found, "MIAN/Count"), "not tried");
  const Json& refused = found.at("variables").at("findings").at(0);
  EXPECT_EQ(refused.at("near"), Json{"Speed"});
  EXPECT_EQ(refused.at("status"), "0004");
  EXPECT_EQ(found.at("programs").at("findings").at(0).at("state"), "missing");
}

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
    const std::set<std::string> named = {"Line[2].On", "MAIN/Count", "Motor.Run", "Ready",
                                         "Speed",      "Table[3]",   "Text[0]"};
    for (const auto& [name, count] : written()) {
      EXPECT_EQ(named.count(name), 1U) << step << ": " << name;
      EXPECT_GE(count, 2) << step << ": " << name << " was not set back";
    }
  }
}

// A profile with slow writes lets the interruption meet one.
TEST_F(SurveyTest, InterruptedWhileItWrites_PutsBackWithRequestsAsCorrectAsAllOthers) {
  write_file("slow.toml", "[times]\nwrite_ms = 1200\n");
  const auto simulator = start_simulator({"--sentinel", "--profile", path("slow.toml")});
  const std::map<std::string, std::string> before = values();
  Child survey(host_words(words({"--rate", "300", "--timeout", "5", "--write", "Big"})), path("out"), path("err"));
  // The value that is written is in the capture as soon as it is sent.
  const auto is_written = [this] {
    const std::string sent = file_text(path("found/survey.pcapng"));
    return sent.find("\x77\x88\x55\x66") != std::string::npos || sent.find("\x88\x77\x66\x55") != std::string::npos;
  };
  const Clock::time_point end_time = Clock::now() + kPatience;
  while (!is_written() && Clock::now() < end_time) poll(nullptr, 0, 2);
  survey.signal(SIGINT);
  EXPECT_EQ(survey.wait(), 130);
  EXPECT_EQ(values(), before);
  end(*simulator);
  EXPECT_THAT(file_text(path("sim_out")), Not(HasSubstr("violation")));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "usable");
  EXPECT_EQ(found.at("heads").at("fields").at("sequence").at("right"), found.at("heads").at("replies"));
  EXPECT_EQ(found.at("writes").at("step").at("why"), "interrupted");
  EXPECT_EQ(found.at("writes").at("not_set_back"), Json::array());
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
  size_t not_compared = 0;
  for (const Json& finding : variables.at("findings")) {
    EXPECT_EQ(finding.at("state"), finding.at("name") == "Byte" ? "not tried" : "good") << finding;
    if (finding.at("why") == "not compared: interrupted") ++not_compared;
  }
  EXPECT_GT(not_compared, 0U);
  EXPECT_EQ(found.at("questions"), Json::array());
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

TEST_F(SurveyTest, ControllerThatDiesAtEachStep_EverythingFoundIsWritten) {
  for (const char* step : {"1", "2", "3", "4", "5", "6", "7"}) {
    auto simulator = start_simulator();
    std::vector<std::string> options = scratch_options();
    options.insert(options.end(), {"--rate", "300", "--hours", "0.0005", "--timeout", "1", "--replace"});
    Child survey(host_words(words(options)), path("out"), path("err"));
    EXPECT_TRUE(survey.wait_for(std::string("survey: step ") + step));
    simulator.reset();
    const int code = survey.wait();
    const Json found = report();
    EXPECT_TRUE(has_all_files()) << step;
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

TEST_F(SurveyTest, FolderWithOtherFiles_IsRefusedAndLeftAsItIs) {
  ASSERT_EQ(mkdir(path("found").c_str(), 0700), 0);
  write_file("found/own.txt", "mine");
  const Outcome outcome = run(words({}));
  EXPECT_EQ(outcome.code, 8);
  EXPECT_THAT(outcome.err, HasSubstr("it holds own.txt, which is no survey's: name another folder"));
  EXPECT_TRUE(file_text(path("found/survey.pcapng")).empty());
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

TEST_F(SurveyTest, UnknownScratchVariable_IsRefusedBeforeAnythingIsAsked) {
  const Outcome outcome = run(words({"--write", "Sped"}));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("--write Sped: "));
  EXPECT_TRUE(file_text(path("found/survey.pcapng")).empty());
}

TEST_F(SurveyTest, NoController_SaysSoInItsReportToo) {
  const Outcome outcome = run(words({"--rate", "1000"}));
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(report().at("ended"), "the controller does not answer: Connection refused");
  EXPECT_EQ(report().at("guarded").at("usable"), "not known");
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("usable = \"unknown\"  # "));
  for (const char* key : {"timeout_s", "one_more", "half_closed", "length", "complement", "sequence", "class",
                          "command", "status", "bytes_behind_values", "beyond", "shape"}) {
    EXPECT_THAT(profile, HasSubstr(std::string("\n# ") + key + " is not known: "));
    EXPECT_THAT(profile, Not(HasSubstr(std::string("\n") + key + " = ")));
  }
}

// Answers each request as a web server does.
class WebServer {
 public:
  WebServer() : server_([this] { serve(); }) {}
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;
  ~WebServer() {
    shutdown(listener_.fd(), SHUT_RDWR);
    server_.join();
  }
  std::string port() const { return std::to_string(listener_.port()); }

 private:
  void serve() const {
    const std::string answer = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    for (;;) {
      const plc_test::ScopedDescriptor client(accept(listener_.fd(), nullptr, nullptr));
      if (client.get() < 0) return;
      char request[512];
      if (recv(client.get(), request, sizeof request, 0) <= 0) continue;
      send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    }
  }

  plc_test::LoopbackSocket listener_{SOCK_STREAM, 5};
  std::thread server_;
};

TEST_F(SurveyTest, WebServer_IsNoControllerAndNothingIsRecommended) {
  const WebServer server;
  const Outcome outcome = run({"survey", "--address", "127.0.0.1:" + server.port(), "--tags", path("machine.csv"),
                               "--output", path("found"), "--rate", "1000", "--gentle", "--timeout", "1", "-q"});
  EXPECT_EQ(outcome.code, 7) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not known: what answers there does not speak this protocol\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("\nset ")));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "not known");
  EXPECT_EQ(found.at("guarded").at("because"),
            "What answers there does not speak this protocol: no reply has the form of one.");
  EXPECT_EQ(found.at("recommendations"), Json::array());
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("note = \"what answers there does not speak this protocol\"  # "));
  EXPECT_THAT(profile, HasSubstr("usable = \"unknown\"  # "));
  EXPECT_THAT(profile, HasSubstr("\n# status is not known: bytes 12 and 13 of answers that are no refusal\n"));
}

}  // namespace
