// What a survey says where few replies break a rule, and where those for one variable have another length than its
// type: neither is a verdict on the controller.
#include "tests/tools/plc_host/survey/own_server.h"
#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

constexpr char kOne[] = "Limit,INT,,,,,,0,1,0,0,,DM\n";
constexpr char kPair[] = "Limit,INT,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,1,1,0,0,,DM\n";
constexpr char kSeveral[] =
    "Limit,INT,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,1,1,0,0,,DM\nTotal,DINT,,,,,,2,1,0,0,,DM\nStep,INT,,,,,,3,1,0,0,,DM\n";

// What comes between the host and the controller, which sends the values of one variable otherwise.
class OtherLength {
 public:
  using Change = std::string (*)(std::string reply);
  OtherLength(const std::string& port, Change change) : change_(change) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address_.sin_port = htons(static_cast<uint16_t>(std::stoul(port)));
  }
  ~OtherLength() { close(controller_); }
  OtherLength(const OtherLength&) = delete;
  OtherLength& operator=(const OtherLength&) = delete;

  std::string operator()(const std::string& request) {
    constexpr size_t kFunctionAt = 10;
    constexpr char kResolve[] = "\x0C\x28";
    constexpr char kDirectoryStart[] = "\x0C\x2C";
    const std::string function = request.substr(kFunctionAt, 2);
    if (function == kDirectoryStart) connect_anew();
    if (function == kResolve) has_limit_ = request.find(std::string("i\0m\0i\0t", 7)) != std::string::npos;
    EXPECT_EQ(send(controller_, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    const std::string reply = received();
    constexpr char kClassOfValues = 0x1E;
    return has_limit_ && function[0] == kClassOfValues ? change_(reply) : reply;
  }

 private:
  // The first request of a host's connection.
  void connect_anew() {
    close(controller_);
    controller_ = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(connect(controller_, reinterpret_cast<sockaddr*>(&address_), sizeof address_), 0);
  }
  std::string received() const {
    std::array<char, 4096> bytes{};
    std::string reply;
    while (reply.size() < 4 ||
           reply.size() < size_t{10} + static_cast<uint8_t>(reply[2]) * 256U + static_cast<uint8_t>(reply[3])) {
      const ssize_t count = recv(controller_, bytes.data(), bytes.size(), 0);
      if (count <= 0) return reply;
      reply.append(bytes.data(), static_cast<size_t>(count));
    }
    return reply;
  }

  Change change_;
  bool has_limit_ = false;
  sockaddr_in address_{};
  int controller_ = -1;
};

// With two bytes more, in a head that says so.
std::string longer(std::string reply) {
  reply[3] = static_cast<char>(reply[3] + 2);
  reply[7] = static_cast<char>(reply[7] - 2);
  return reply + "\1\2";
}

std::string with_bytes_behind(std::string reply) { return reply + "\1\2"; }

std::string shorter(std::string reply) {
  reply[3] = static_cast<char>(reply[3] - 1);
  reply[7] = static_cast<char>(reply[7] + 1);
  reply.pop_back();
  return reply;
}

class SurveyUnfitTest : public SurveyTest {
 protected:
  Outcome survey_with(const std::string& tags, OtherLength::Change change) {
    write_file("machine.csv", tags);
    const auto simulator = start_simulator({"--sentinel"});
    OtherLength between(port_, change);
    const OwnServer server([&between](const std::string& request) { return between(request); });
    const Outcome outcome =
        run({"survey", "--address", "127.0.0.1:" + server.port(), "--tags", path("machine.csv"), "--output",
             path("found"), "--gentle", "--timeout", "1", "--rate", "1000", "--replace", "--driver", "guarded", "-q"});
    return outcome;
  }
  std::string because() const { return report().at("guarded").at("because"); }
};

constexpr char kRefusesIt[] =
    " The guarded build refuses Limit, and each request for it with others, until the tag file declares it with the "
    "size that the controller has.";

TEST_F(SurveyUnfitTest, LongerRepliesForOneVariable_AreAFindingOnItAndNoVerdictOnTheController) {
  const Outcome outcome = survey_with(kSeveral, longer);
  EXPECT_EQ(outcome.code, 1) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\nset driver: guarded\n"));
  EXPECT_EQ(because(),
            "Every other reply keeps the rules of the guarded build. The replies for 1 variable do not keep this: "
            "value replies end with their values." +
                std::string(kRefusesIt));
  const Json finding = report().at("variables").at("findings").at(0);
  EXPECT_EQ(finding.at("state"), "too long");
  EXPECT_THAT(finding.at("why").get<std::string>(),
              StartsWith("2 bytes behind the value; 1.1.0 guarded, tried 3 times: "));
  EXPECT_EQ(finding.at("value"), nullptr);
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nusable = \"yes\""));
}

TEST_F(SurveyUnfitTest, BytesBehindTheRepliesForOneVariable_AreAFindingOnItToo) {
  const Outcome outcome = survey_with(kSeveral, with_bytes_behind);
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n"));
  EXPECT_EQ(because(),
            "Every other reply keeps the rules of the guarded build. The replies for 1 variable do not keep this: "
            "nothing comes behind a reply; value replies end with their values." +
                std::string(kRefusesIt));
}

TEST_F(SurveyUnfitTest, ShorterRepliesForOneVariable_AreAFindingOnItToo) {
  const Outcome outcome = survey_with(kSeveral, shorter);
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n"));
  EXPECT_THAT(because(), EndsWith(kRefusesIt));
  EXPECT_EQ(report().at("variables").at("findings").at(0).at("state"), "too short");
}

// The controller may answer so, or the tag file may be wrong.
TEST_F(SurveyUnfitTest, LongerRepliesForOneOfTwoVariables_LeaveTheVerdictOpen) {
  for (const char* tags : {kOne, kPair}) {
    const Outcome outcome = survey_with(tags, longer);
    EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not known\n")) << tags;
    EXPECT_THAT(outcome.out, Not(HasSubstr("\nset driver: "))) << tags;
    EXPECT_EQ(because(),
              "Too few replies came to tell whether this holds: value replies end with their values. Either the "
              "controller answers so, or the tag file declares a variable with another size than the controller has. "
              "Survey again, with the tag files of more variables.")
        << tags;
    const std::string profile = file_text(path("found/profile.toml"));
    EXPECT_THAT(profile, HasSubstr("\nusable = \"unknown\"")) << tags;
    EXPECT_THAT(profile, HasSubstr("\n# bytes_behind_values is not known. ")) << tags;
    EXPECT_EQ(report().at("variables").at("findings").at(0).at("state"), "too long") << tags;
    const Json rules = report().at("guarded").at("rules");
    for (const Json& rule : rules) {
      if (rule.at("rule") == "value replies end with their values") {
        EXPECT_EQ(rule.at("holds"), nullptr) << tags;
      }
    }
    EXPECT_NE(file_text(path("found/report.html")).find("<td>not known: too few replies</td>"), std::string::npos)
        << tags;
  }
}

class SurveyDirectoryTest : public SurveyTest {};

// Its count is one byte, and it holds one program.
TEST_F(SurveyDirectoryTest, ProgramThatADirectoryDoesNotHoldWhereItCountsMore_IsNotKnown) {
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nStep,INT,,,,,,1,0,0,1,Main,DM\n");
  const auto simulator = start_simulator({"--sentinel"});
  OtherLength between(port_, longer);
  const OwnServer server([&between](const std::string& request) {
    constexpr char kDirectory[] = "\x0C\x25";
    std::string reply = between(request);
    if (request.substr(10, 2) == kDirectory) reply[14] = '\xFF';
    return reply;
  });
  write_file("tags.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nStep,INT,,,,,,1,0,0,1,Packing,DM\n");
  const Outcome outcome = run({"survey", "--address", "127.0.0.1:" + server.port(), "--tags", path("tags.csv"),
                               "--output", path("found"), "--gentle", "--timeout", "1", "--rate", "1000", "-q"});
  EXPECT_THAT(outcome.out, HasSubstr("\nprogram \"Packing\": not known: the controller's directory may have more "
                                     "programs than came with it\n"));
  const Json program = report().at("programs").at("findings").at(0);
  EXPECT_EQ(program.at("state"), "not known");
  EXPECT_EQ(program.at("number"), nullptr);
  EXPECT_EQ(report().at("variables").at("findings").at(1).at("why"),
            "whether the controller has a program \"Packing\" is not known: what answers could be another program's "
            "variable");
}

// What comes behind its declared length is the driver's to read.
TEST_F(SurveyDirectoryTest, TextThatMayGoOn_HasNoValueUntilItIsCompared) {
  write_file("machine.csv", "Text,STRING,,4,,,,0,1,0,0,,DM\nShort,STRING,,4,,,,1,1,0,0,,DM\n");
  write_file("slow.toml", "[times]\nread_ms = 1500\n");
  const auto simulator = start_simulator({"--profile", path("slow.toml")});
  simulator->type("set Text abcd\nset Short abc\n");
  EXPECT_EQ(interrupted_at("4", {"--gentle", "--rate", "300", "--timeout", "9"}), 130);
  const Json findings = report().at("variables").at("findings");
  EXPECT_EQ(findings.at(0).at("value"), nullptr);
  EXPECT_EQ(findings.at(0).at("why"),
            "the text fills its declared length and may go on behind it; it was not compared with what the driver "
            "gives");
  EXPECT_EQ(findings.at(1).at("value"), "\"abc\"");
}

class SurveyFewTest : public SurveyTest {
 protected:
  Outcome survey_with(const std::string& fault) {
    write_file("machine.csv", kSeveral);
    const auto simulator = start_simulator({"--sentinel", "--fault", fault});
    const Outcome outcome =
        run(words({"--gentle", "--timeout", "1", "--replace", "--rate", "1000", "--driver", "guarded", "-q"}));
    end(*simulator);
    return outcome;
  }
};

struct FewRow {
  const char* fault;
  const char* rules;
  const char* evidence;
};

TEST_F(SurveyFewTest, OneReplyThatBreaksARule_IsToldWithItsEvidenceAndIsNoVerdict) {
  const FewRow rows[] = {
      {"oversize 19 on=read", "nothing comes behind a reply; value replies end with their values",
       "reply to read: 3 bytes behind it"},
      {"oversize 19 on=read after=2", "nothing comes behind a reply; value replies end with their values",
       "reply to read: 1 byte behind the values"},
      {"oversize 300 on=directory", "nothing comes behind a reply", "reply to directory: 285 bytes behind it"},
      {"status 5 on=resolve after=3", "the status of what is not refused is 0", "reply to resolve: status 0x0005"},
  };
  for (const FewRow& row : rows) {
    const Outcome outcome = survey_with(row.fault);
    EXPECT_EQ(outcome.code, 0) << row.fault << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n")) << row.fault;
    const Json found = report();
    EXPECT_EQ(found.at("guarded").at("because"),
              "Every other reply keeps the rules of the guarded build. 1 of " + found.at("heads").at("replies").dump() +
                  " replies does not keep this: " + row.rules +
                  ". A call of the guarded build that meets such a reply fails, and gives no value.")
        << row.fault;
    size_t broken = 0;
    for (const Json& rule : found.at("guarded").at("rules")) {
      if (rule.at("broken") == 0) continue;
      ++broken;
      EXPECT_EQ(rule.at("holds"), true) << row.fault << rule;
      EXPECT_EQ(rule.at("evidence").size(), 2U) << row.fault << rule;
    }
    EXPECT_GT(broken, 0U) << row.fault;
    const std::string page = file_text(path("found/report.html"));
    EXPECT_NE(page.find("<td>with exceptions</td>"), std::string::npos) << row.fault;
    EXPECT_NE(page.find(row.evidence), std::string::npos) << row.fault;
  }
}

// plc-sim with the profile would do it with each reply.
TEST_F(SurveyFewTest, WhatAFewRepliesHave_IsNotInTheProfile) {
  survey_with("split 5 30 times=always every=20");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\n# piece_bytes is not known. "));
  EXPECT_THAT(report().at("questions").at(0).at("question").get<std::string>(),
              HasSubstr(" replies came in pieces, the smallest first one of 5 bytes, and the contract build takes the "
                        "first one alone."));
  survey_with("wrong-sequence times=always every=20");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nsequence = \"right\"  # "));
}

TEST_F(SurveyFewTest, ManyRepliesThatBreakARule_AreAVerdict) {
  EXPECT_THAT(survey_with("oversize 300 on=resolve times=always every=2").out,
              HasSubstr("\nguarded build: not usable\n"));
  EXPECT_THAT(survey_with("status 5 on=resolve times=always").out, HasSubstr("\nguarded build: not usable\n"));
}

}  // namespace
