// What a survey says where replies are damaged or doubled, where a call of the driver fails once, and where no
// controller answers.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

constexpr char kFour[] =
    "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,1,1,0,0,,DM\nLimit,INT,,,,,,2,1,0,0,,DM\nStep,INT,,,,,,3,1,0,0,,DM\n";

class SurveyDamageTest : public SurveyTest {
 protected:
  Outcome survey_with(const std::vector<std::string>& sim_words) {
    write_file("machine.csv", kFour);
    std::vector<std::string> all = {"--sentinel"};
    all.insert(all.end(), sim_words.begin(), sim_words.end());
    const auto simulator = start_simulator(all);
    const Outcome outcome = run(words({"--gentle", "--timeout", "1", "--replace", "--rate", "1000"}));
    end(*simulator);
    return outcome;
  }
  void expect_all_good(const std::string& what) const {
    const Json variables = report().at("variables");
    for (const Json& finding : variables.at("findings")) {
      EXPECT_EQ(finding.at("state"), "good") << what << finding;
      EXPECT_EQ(finding.at("why"), nullptr) << what << finding;
    }
    EXPECT_EQ(variables.at("compared"), 4) << what;
  }
};

// The survey itself has sent four reads and a batch then.
TEST_F(SurveyDamageTest, CallOfTheDriverThatFailsOnce_IsNoFinding) {
  for (const char* fault : {"garbage on=read after=5", "refuse on=read after=5", "short 2 on=read after=5"}) {
    const Outcome outcome = survey_with({"--fault", fault});
    EXPECT_EQ(outcome.code, 0) << fault << outcome.out;
    expect_all_good(fault);
  }
}

TEST_F(SurveyDamageTest, ControllerWithOneConnection_IsReadByTheDriverToo) {
  write_file("one.toml", "[connections]\nmost = 1\none_more = \"refused\"\n");
  const Outcome outcome = survey_with({"--profile", path("one.toml")});
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  expect_all_good("one connection");
}

TEST_F(SurveyDamageTest, OneDamagedReply_IsNoRefusal) {
  for (const char* fault :
       {"refuse 25 on=resolve", "short 30 on=resolve after=1", "refuse 25 on=read", "short 2 on=read"}) {
    const Outcome outcome = survey_with({"--fault", fault});
    EXPECT_EQ(outcome.code, 0) << fault << outcome.out;
    expect_all_good(fault);
    EXPECT_THAT(file_text(path("found/profile.toml")), Not(HasSubstr("[[refused]]"))) << fault;
  }
}

TEST_F(SurveyDamageTest, RefusalThatComesThreeTimes_IsInTheProfile) {
  write_file("refusing.toml", "[[refused]]\nname = \"Limit\"\n");
  EXPECT_EQ(survey_with({"--profile", path("refusing.toml")}).code, 1);
  EXPECT_EQ(report().at("variables").at("findings").at(2).at("state"), "refused");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("[[refused]]\nname = \"Limit\"\n"));
}

TEST_F(SurveyDamageTest, DoubledReplies_LeaveTheGuardedBuildUnproved) {
  const Outcome outcome = survey_with({"--fault", "duplicate times=always"});
  EXPECT_EQ(outcome.code, 1) << outcome.out;
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "not known");
  EXPECT_THAT(
      found.at("guarded").at("because").get<std::string>(),
      testing::ContainsRegex(" But the guarded build did not read [1-4] of 4 variables that the survey read, each "
                             "tried three times\\."));
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nusable = \"unknown\""));
  bool is_asked = false;
  for (const Json& question : found.at("questions")) is_asked = is_asked || question.at("about") == "doubled replies";
  EXPECT_TRUE(is_asked) << found.at("questions");
  for (const Json& finding : found.at("variables").at("findings")) EXPECT_NE(finding.at("state"), "different");
}

// A refused name gets zeros here, and its status tells it from an answer only to a build that looks at it.
TEST_F(SurveyDamageTest, StatusOfOneKindOfAnswer_IsTheReasonAndAQuestion) {
  write_file("full.toml", "[refusal]\nshape = \"full\"\nstatus = 0x0019\n[[refused]]\nname = \"Limit\"\n");
  survey_with({"--profile", path("full.toml"), "--fault", "status 5 on=read times=always"});
  const Json found = report();
  EXPECT_THAT(found.at("guarded").at("because").get<std::string>(),
              testing::ContainsRegex("^[0-9]+ replies to read with status 0005, and these refuse nothing: the guarded "
                                     "build has to be built without its check of the status\\."));
  bool is_asked = false;
  for (const Json& question : found.at("questions")) {
    is_asked = is_asked || question.at("question").get<std::string>().find("What does status 0005 mean?") == 0;
  }
  EXPECT_TRUE(is_asked) << found.at("questions");
}

// Sends back what it gets, on one connection after the other.
class EchoServer {
 public:
  EchoServer() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const auto named = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener_, named, size), 0);
    EXPECT_EQ(listen(listener_, 8), 0);
    EXPECT_EQ(getsockname(listener_, named, &size), 0);
    port_ = std::to_string(ntohs(address.sin_port));
    thread_ = std::thread([this] { serve(); });
  }
  ~EchoServer() {
    is_over_ = true;
    thread_.join();
    close(listener_);
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;
  const std::string& port() const { return port_; }

 private:
  bool is_ready(int descriptor) const {
    pollfd waited{descriptor, POLLIN, 0};
    while (!is_over_) {
      if (poll(&waited, 1, 20) > 0) return true;
    }
    return false;
  }
  void serve() const {
    while (is_ready(listener_)) {
      const int taken = accept(listener_, nullptr, nullptr);
      std::array<char, 4096> bytes{};
      while (is_ready(taken)) {
        const ssize_t count = recv(taken, bytes.data(), bytes.size(), 0);
        if (count <= 0 || send(taken, bytes.data(), static_cast<size_t>(count), MSG_NOSIGNAL) < 0) break;
      }
      close(taken);
    }
  }

  int listener_ = socket(AF_INET, SOCK_STREAM, 0);
  std::string port_;
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

TEST_F(SurveyDamageTest, EchoOfRequests_IsNoController) {
  const EchoServer server;
  write_file("machine.csv", kFour);
  const Outcome outcome = run({"survey", "--address", "127.0.0.1:" + server.port(), "--tags", path("machine.csv"),
                               "--output", path("found"), "--gentle", "--timeout", "1", "--rate", "1000"});
  EXPECT_EQ(outcome.code, 7) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("what answers there does not speak this protocol"));
  EXPECT_EQ(report().at("recommendations"), Json::array());
}

}  // namespace
