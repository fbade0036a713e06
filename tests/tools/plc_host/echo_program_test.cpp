// Tests of why where an echo answers in the controller's place: it is named, and no variable is blamed.
#include "tests/support/peer/echo_server.h"
#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class EchoTest : public ProgramTest {
 protected:
  Outcome at_echo(std::vector<std::string> words) {
    words.insert(words.end(), {"--address", place_, "--tags", path("machine.csv")});
    return run(words);
  }

  const plc_test::EchoServer echo_;
  const std::string place_ = "127.0.0.1:" + std::to_string(echo_.port());
};

TEST_F(EchoTest, Why_NamesTheEchoAloneWithEitherBuild) {
  for (const char* library : {PLC_HOST_LIBRARY, PLC_HOST_GUARDED}) {
    library_ = library;
    const Outcome outcome = at_echo({"why", "MAIN/Count"});
    EXPECT_EQ(outcome.code, 1) << library;
    EXPECT_THAT(outcome.out, HasSubstr("\n\nWhat went wrong\n"
                                       "  1. exchange 3 (resolve): the request came back as it was sent: what answers "
                                       "is an echo, not a controller\n"
                                       "     Try: See whether the address and port are those of the controller's host "
                                       "link, and what stands in its place.\n"))
        << library;
    EXPECT_THAT(outcome.out, Not(HasSubstr("refused MAIN")));
    EXPECT_THAT(outcome.out, Not(HasSubstr("column 12")));
    EXPECT_THAT(outcome.out, Not(HasSubstr("No variable of this name")));
  }
}

}  // namespace
