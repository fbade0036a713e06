// Tests of plc-host why as a program: replies that come twice, from nobody or as a refusal, as both builds take them.
#include <nlohmann/json.hpp>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;
using Json = nlohmann::json;

class WhyRepliesTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    library_ = PLC_HOST_LIBRARY;
  }

  Outcome why_with_fault(const std::string& name, const std::string& fault) {
    return run_on_simulator({"why", name, "--timeout", "1"}, {"--sentinel", "--fault=" + fault});
  }
};

// The faults, without what is worth knowing beside them.
std::string wrong_part(const Outcome& outcome) {
  const size_t from = outcome.out.find("What went wrong\n");
  return from == std::string::npos ? "" : outcome.out.substr(from, outcome.out.find("\n\n", from) - from);
}

TEST_F(WhyRepliesTest, GuardedBuildAndAForeignReply_IsSkippedAndTheValueIsThatOfTheRightOne) {
  library_ = PLC_HOST_GUARDED;
  const std::string said =
      "a foreign reply (sequence number 0000, class and command 1E09) came before the right one, and the guarded build "
      "skipped it";
  const Outcome read = why_with_fault("Speed", "foreign on=read");
  EXPECT_EQ(read.code, 0);
  EXPECT_EQ(wrong_part(read), "What went wrong\n  nothing");
  EXPECT_THAT(read.out, HasSubstr("Worth knowing\n  - exchange 4 (read): " + said + "\n"));
  EXPECT_EQ(read.out.find("sequence numbers"), std::string::npos);
  const Json road =
      Json::parse(run_on_simulator({"why", "Speed", "--json"}, {"--sentinel", "--fault=foreign on=resolve"}).out);
  EXPECT_EQ(road["exchanges"][2]["names"][0]["area"], 6) << "the handle is that of the right reply";
  ASSERT_EQ(road["worth_knowing"].size(), 1U);
  EXPECT_THAT(road["worth_knowing"][0]["what"], HasSubstr("class and command 0C28) came before the right one, and the "
                                                          "guarded build skipped it"));
}

TEST_F(WhyRepliesTest, Refusal_IsTheOnlyCause) {
  for (const char* library : {PLC_HOST_LIBRARY, PLC_HOST_GUARDED}) {
    library_ = library;
    for (const char* request : {"resolve", "read", "directory", "directory-start"}) {
      const std::string wrong = wrong_part(why_with_fault("Speed", std::string("refuse on=") + request));
      EXPECT_THAT(wrong, HasSubstr(": the controller refused ")) << request;
      EXPECT_EQ(wrong.find("  2. "), std::string::npos) << wrong;
      if (*request == 'd') {
        EXPECT_THAT(wrong, HasSubstr("Try: It was the controller's directory of programs that was asked for")) << wrong;
      }
    }
  }
}

// In which exchange the second one is seen depends on time.
TEST_F(WhyRepliesTest, DoubledReply_IsCalledSoInBothBuilds) {
  for (const char* library : {PLC_HOST_LIBRARY, PLC_HOST_GUARDED}) {
    library_ = library;
    const Outcome outcome = why_with_fault("Speed", "duplicate on=resolve");
    EXPECT_THAT(outcome.out, HasSubstr("): a doubled reply: ")) << library;
    EXPECT_THAT(outcome.out, HasSubstr("Try: Something between host and controller sends replies twice")) << library;
    EXPECT_EQ(outcome.out.find("Raise recv_timeout_s"), std::string::npos) << outcome.out;
  }
}

TEST_F(WhyRepliesTest, BytesOfNothingInAGuardedRead_WereRefusedAndTheReportShowsThem) {
  library_ = PLC_HOST_GUARDED;
  const Outcome outcome = why_with_fault("Speed", "stale 18 on=read");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out.find("contract build"), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find("plc-host why"), std::string::npos) << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr("Check both; what came stands under exchanges, all of its bytes with --json or "
                                     "--pcap FILE.\n"));
}

TEST_F(WhyRepliesTest, CaptureWithAForeignReply_SaysWhatEachBuildDoesWithIt) {
  run_on_simulator({"why", "Speed", "--pcap", path("road.pcap")}, {"--sentinel", "--fault=foreign on=read"});
  const Outcome later = run({"why", "Speed", "--capture", path("road.pcap"), "--tags", path("machine.csv")});
  EXPECT_EQ(later.code, 1);
  EXPECT_THAT(wrong_part(later),
              HasSubstr("  1. exchange 4 (read): a foreign reply (sequence number 0000, class and command 1E09) came "
                        "before the right one, which the contract build takes for the reply and the guarded build "
                        "skips\n"));
}

}  // namespace
