// plc-host survey as a program: what it says of a plain controller, that it leaves it as it was, and what it refuses.
#include <sys/stat.h>

#include <thread>

#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

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
                                      ": 21 variables, 20 read, 0 refused, 1 not tried\n"
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
  // A refusal with its status keeps the rules too.
  const std::string page = file_text(path("found/report.html"));
  EXPECT_THAT(page, HasSubstr("<tr><td>status</td><td></td><td><code>00 04</code></td></tr>"));
  EXPECT_THAT(page, Not(HasSubstr("class=\"wrong\"")));
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
  EXPECT_EQ(names, named_elements());
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

TEST_F(SurveyTest, FolderWithOtherFiles_IsRefusedAndLeftAsItIs) {
  ASSERT_EQ(mkdir(path("found").c_str(), 0700), 0);
  write_file("found/own.txt", "mine");
  const Outcome outcome = run(words({}));
  EXPECT_EQ(outcome.code, 8);
  EXPECT_THAT(outcome.err, HasSubstr("it holds own.txt, which is no survey's: name another folder"));
  EXPECT_TRUE(file_text(path("found/survey.pcapng")).empty());
}

TEST_F(SurveyTest, CommandThatCannotBeMeant_IsRefusedBeforeAnythingIsAsked) {
  struct Row {
    std::vector<std::string> words;
    const char* said;
  };
  const Row rows[] = {
      {{"--write", "Sped"}, "--write Sped: no tag file has a variable of this name; did you mean Speed?\n"},
      {{"--write", "Table(3)"}, "--write Table(3): no tag file has a variable of this name; did you mean Table[3]?\n"},
      {{"--period", "200"}, "--period is that of --hours: write --hours 2 --period 200, or leave it away"},
      {{"--output", "-"}, "--output -: a survey has four files: name a folder, or ./- for one of this name"},
  };
  for (const Row& row : rows) {
    std::vector<std::string> all = {"survey", "--address", "127.0.0.1:" + port_, "--tags", path("machine.csv")};
    if (row.words[0] != "--output") all.insert(all.end(), {"--output", path("found")});
    all.insert(all.end(), row.words.begin(), row.words.end());
    const Outcome outcome = run(all);
    EXPECT_EQ(outcome.code, 2) << row.said;
    EXPECT_THAT(outcome.err, HasSubstr(row.said));
    EXPECT_TRUE(file_text(path("found/survey.pcapng")).empty());
  }
}

TEST_F(SurveyTest, KindThatIsNotWritten_IsToldWhenQuietToo) {
  const auto simulator = start_simulator({"--report", path("sim.json")});
  const Outcome outcome = run(words({"--rate", "1000", "--gentle", "-q", "--write", "Byte"}));
  end(*simulator);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "plc-host: --write Byte: not written: the survey writes no values of this type\n");
  const Json finding = report().at("writes").at("findings").at(0);
  EXPECT_EQ(finding.at("written"), false);
  for (const char* flag : {"acknowledged", "read_back", "neighbours_kept", "set_back"}) {
    EXPECT_EQ(finding.at(flag), nullptr) << flag;
  }
  EXPECT_THAT(file_text(path("found/report.html")),
              HasSubstr("<td>-</td><td>-</td><td>-</td><td>-</td><td>the survey writes no values of this type</td>"));
  EXPECT_TRUE(written().empty());
}

TEST_F(SurveyTest, FolderOfTagFiles_IsThatOfTheControllersAreas) {
  const auto simulator = start_simulator();
  ASSERT_EQ(mkdir(path("tags").c_str(), 0700), 0);
  write_file("tags/PLC7F000001_0.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
  write_file("tags/PLC7F000001_2.csv", "Total,DINT,,,,,,0,1,0,0,,DM\nSped,INT,,,,,,1,1,0,0,,DM\n");
  write_file("tags/PLC7F000002_0.csv", "Big,LINT,,,,,,0,1,0,0,,DM\n");
  const std::vector<std::string> start = {"survey",   "--address", "127.0.0.1:" + port_, "--rate", "1000",
                                          "--gentle", "--output",  path("found"),        "--tags"};
  std::vector<std::string> folder = start;
  folder.push_back(path("tags"));
  EXPECT_EQ(run(folder).code, 1);
  end(*simulator);
  const Json found = report();
  EXPECT_EQ(found.at("tag_files"), (Json{path("tags/PLC7F000001_0.csv"), path("tags/PLC7F000001_2.csv")}));
  // The programmer learns where it is declared.
  EXPECT_THAT(found.at("questions").at(0).at("question").get<std::string>(),
              EndsWith(" Names that are near: Speed. It is declared in PLC7F000001_2.csv:2, area 2."));
  ASSERT_EQ(mkdir(path("none").c_str(), 0700), 0);
  folder = start;
  folder.push_back(path("none"));
  const Outcome outcome = run(folder);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("--tags " + path("none") +
                                     ": this folder has no PLC7F000001_0.csv nor another "
                                     "area's, the tag files of 127.0.0.1:" +
                                     port_ + ". Try: --tags FILE, once for each"));
}

TEST_F(SurveyTest, SimulatorOfItsOwn_SaysNothingOfTheNameThatNobodyHas) {
  const Outcome outcome = run({"survey", "--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR, "--output",
                               path("found"), "--rate", "1000", "--gentle", "-q"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(report().at("heads").at("refusal_status"), "0004");
}

TEST_F(SurveyTest, ContractBuild_IsWarnedOfWithThePauseThatItNeeds) {
  write_file("zero.toml", "[replies]\nsequence = \"zero\"\n[times]\nread_ms = 30\n");
  const auto simulator = start_simulator({"--profile", path("zero.toml")});
  const Outcome outcome = run(words({"--rate", "1000", "--gentle"}));
  end(*simulator);
  const std::string warning =
      "The contract build may take a late reply for the reply to the next request. A read then shows, and a write "
      "reaches, another variable, with result 0. Set delay_ms above the answer times, and read back what you write.";
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not usable\nwarning: " + warning + "\nset driver: contract\n"));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("warning"), warning);
  const Json& delay = found.at("recommendations").at(2);
  EXPECT_EQ(delay.at("setting"), "delay_ms");
  EXPECT_GT(std::stoi(delay.at("value").get<std::string>()), 30);
  EXPECT_THAT(file_text(path("found/report.html")), HasSubstr("<p class=\"verdict bad\">" + warning + "</p>"));
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("\nnote = \"" + warning + "\"  # "));
  EXPECT_THAT(profile, HasSubstr("\ndelay_ms = " + delay.at("value").get<std::string>() + "  # "));
}

TEST_F(SurveyTest, VariableOfWhichNoValueIsShown_IsNotCountedAsReadAndSaysWhy) {
  write_file("machine.csv", "Day,DATE,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,1,1,0,0,,DM\n");
  const auto simulator = start_simulator();
  const Outcome outcome = run(words({"--rate", "1000", "--gentle"}));
  end(*simulator);
  EXPECT_THAT(
      outcome.out,
      HasSubstr(": 2 variables, 1 read, 0 refused, 1 without a value: see the report\nguarded build: usable\n"));
  const Json day = report().at("variables").at("findings").at(0);
  EXPECT_EQ(day.at("value"), nullptr);
  const std::string why = day.at("why");
  EXPECT_THAT(why, StartsWith("plc-host read shows no value: "));
  EXPECT_THAT(file_text(path("found/report.html")), HasSubstr(why));
}

// The contract build takes the first piece for the whole reply.
TEST_F(SurveyTest, PiecesWithoutSequenceNumbers_LeaveNoBuildAndHostsKeepTheGuardedOne) {
  write_file("pieces.toml", "[replies]\nsequence = \"other\"\npiece_bytes = 30\npiece_gap_ms = 5\n");
  const auto simulator = start_simulator({"--profile", path("pieces.toml")});
  const Outcome outcome = run(words({"--rate", "1000", "--gentle"}));
  EXPECT_EQ(outcome.code, 1);
  const std::string says = "Neither installed build reads this controller: replies come in pieces of 30 bytes.";
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not usable\nwarning: " + says));
  EXPECT_THAT(outcome.out, Not(HasSubstr("set driver")));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("says"), says);
  ASSERT_EQ(found.at("questions").size(), 3U) << found.at("questions");
  EXPECT_EQ(found.at("questions").at(0).at("about"), "pieces");
  EXPECT_EQ(found.at("questions").at(1).at("about"), "sequence numbers");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nproblem = \"replies come in pieces of 30 bytes\""));
  end(*simulator);
}

// The controller has MAIN and SUB.
TEST_F(SurveyTest, NameOfAnotherProgram_IsNotTakenForACutOne) {
  const auto simulator = start_simulator();
  write_file("machine.csv", "Count,INT,,,,,,0,0,0,1,MAIN2\nCount,INT,,,,,,1,0,0,1,MAIN\nSpeed,INT,,,,,,2,1,0,0,\n");
  run(words({"--rate", "1000", "--gentle"}));
  end(*simulator);
  const Json missing = report().at("programs").at("findings").at(1);
  EXPECT_EQ(missing.at("scope"), "MAIN2");
  EXPECT_EQ(missing.at("state"), "missing");
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("\n# name_units is not known. "));
  EXPECT_THAT(
      profile,
      HasSubstr(
          "\nlongest_units = 4  # The longest name in the directory has this many characters, so that none is cut at "
          "fewer.\n"));
}

TEST_F(SurveyTest, NoController_SaysSoInItsReportToo) {
  const Outcome outcome = run(words({"--rate", "1000"}));
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.out, HasSubstr(" variables, none read: the controller does not answer: Connection refused\n"));
  EXPECT_EQ(report().at("ended"), "the controller does not answer: Connection refused");
  EXPECT_EQ(report().at("guarded").at("usable"), "not known");
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("usable = \"unknown\"  # "));
  for (const char* key : {"timeout_s", "one_more", "half_closed", "length", "complement", "sequence", "class",
                          "command", "status", "bytes_behind_values", "beyond", "shape"}) {
    EXPECT_THAT(profile, HasSubstr(std::string("\n# ") + key + " is not known. "));
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
  for (const Json& one : found.at("variables").at("findings")) EXPECT_EQ(one.at("state"), "not tried") << one;
  const std::string page = file_text(path("found/report.html"));
  EXPECT_EQ(page.find("Nothing that replies show"), std::string::npos);
  EXPECT_EQ(page.find("Every variable has the size that is declared"), std::string::npos);
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("note = \"what answers there does not speak this protocol\"  # "));
  EXPECT_THAT(profile, HasSubstr("usable = \"unknown\"  # "));
  EXPECT_THAT(profile,
              HasSubstr("\n# status is not known. Answers that refuse nothing have this in bytes 12 and 13.\n"));
}

}  // namespace
