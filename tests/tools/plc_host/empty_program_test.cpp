// Tests of options whose value is empty or a dash: none is taken for one that was not given.
#include <regex>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class EmptyTest : public ProgramTest {
 protected:
  // In the folder of the test, with the words of a line.
  Outcome type(const std::string& line) {
    write_file("typed", "cd " + folder_.path() + "\nexec " PLC_HOST_PROGRAM " " + line + "\n");
    return run_words({"/bin/sh", path("typed")});
  }
};

constexpr const char* kCommands[] = {"info", "tags", "check", "read", "write", "batch", "watch", "why", "survey"};

TEST_F(EmptyTest, Simulator_WithoutTagFileIsNotTheControllerOfTheSettings) {
  write_file("plc-host.toml", "address = \"127.0.0.1:" + port_ + "\"\ntags = \"machine.csv\"\n");
  const std::pair<std::string, std::string> lines[] = {{"read", "Speed"},
                                                       {"write", "Speed=1"},
                                                       {"batch", "Speed"},
                                                       {"watch", "Speed --rounds 1"},
                                                       {"survey", "--output found"},
                                                       {"check", "machine.csv --live"}};
  for (const auto& [command, words] : lines) {
    for (const char* sim : {" --sim ''", " --sim="}) {
      const Outcome outcome = type(std::string(command).append(" ").append(words).append(sim));
      EXPECT_EQ(outcome.code, 2) << command;
      EXPECT_EQ(outcome.out, "");
      EXPECT_EQ(outcome.err, "plc-host: --sim: name a tag file; plc-host " + command + " --help tells more\n");
    }
  }
}

TEST_F(EmptyTest, Texts_AreToldWhatToWrite) {
  const std::pair<std::string, std::string> cases[] = {
      {"read X --address ''", "--address: give an IPv4 address or a name"},
      {"read X --tags ''", "--tags: name a tag file"},
      {"read X --driver ''", "--driver: give guarded, contract or the path of a library"},
      {"read X --library ''", "--library: name a library"},
      {"read X --profile ''", "--profile: name a profile"},
      {"read --sim machine.csv --names-from ''", "--names-from: name a file, or - for standard input"},
      {"read X --sim machine.csv --simulator ''", "--simulator: name a program that is a simulator"},
      {"read X --sim machine.csv --sim-arg ''", "--sim-arg: give an argument of the simulator"},
      {"check machine.csv --address ''", "--address: give an IPv4 address or a name"},
      {"check machine.csv --fix ''", "--fix: name a file"},
      {"watch Speed --sim machine.csv --chart ''", "--chart: name a variable"},
      {"watch Speed --sim machine.csv --log ''", "--log: name a file"},
      {"why X --capture ''", "--capture: name a capture"},
      {"why X --sim machine.csv --pcap ''", "--pcap: name a file"},
      {"survey --sim machine.csv --output ''", "--output: name a folder"},
      {"survey --sim machine.csv --output x --write ''", "--write: name a variable"},
      {"tags --new X INT --output ''", "--output: name a file"},
      {"tags --new --from ''", "--from: name a file"},
      {"tags --new X INT --scope ''", "--scope: name a program"},
      {"tags --new X INT --scope P --program-number ''", "--program-number: give the number of a program"},
      {"tags --new X INT --ranges ''", "--ranges: give ranges, as 0..9 or 0..9_0..4"},
      {"tags --new X STRING --length ''", "--length: give a number of characters"},
      {"tags --new X INT --device ''", "--device: name a device, as MR0"},
  };
  for (const auto& [line, said] : cases) {
    const Outcome outcome = type(line);
    EXPECT_EQ(outcome.code, 2) << line;
    EXPECT_EQ(outcome.out, "") << line;
    std::string whole = "plc-host: " + said + "; plc-host ";
    whole.append(line, 0, line.find(' ')).append(" --help tells more\n");
    EXPECT_EQ(outcome.err, whole);
  }
}

// An option that is new and takes nothing for a value is found here.
TEST_F(EmptyTest, NoOption_TakesAnEmptyValue) {
  const std::regex option("\n  (--[a-z0-9-]+) [A-Z]{2}");
  for (const std::string command : kCommands) {
    const std::string help = type("help " + command).out;
    size_t count = 0;
    for (std::sregex_iterator at(help.begin(), help.end(), option), end; at != end; ++at, ++count) {
      const std::string name = (*at)[1];
      const Outcome outcome = type(std::string(command).append(" ").append(name).append(" ''"));
      EXPECT_EQ(outcome.code, 2) << command << " " << name;
      EXPECT_THAT(outcome.err, StartsWith("plc-host: --")) << command << " " << name;
    }
    EXPECT_GE(count, 3U) << command;
  }
}

TEST_F(EmptyTest, HelpOnHelp_IsTheHelp) {
  const std::string help = type("help").out;
  EXPECT_THAT(help, HasSubstr("Exit codes:"));
  for (const char* line : {"help help", "help --help", "help -h"}) {
    const Outcome outcome = type(line);
    EXPECT_EQ(outcome.code, 0) << line;
    EXPECT_EQ(outcome.out, help) << line;
  }
}

TEST_F(EmptyTest, FileThatIsWritten_IsNotADash) {
  write_file("machine.csv", kTagFile);
  EXPECT_EQ(type("check machine.csv --fix -").err,
            "plc-host: --fix -: name a file; one that is called so is ./-; plc-host check --help tells more\n");
  const Outcome outcome = type("tags --new X INT --output -");
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.err,
            "plc-host: --output -: name a file; one that is called so is ./-; plc-host tags --help tells more\n");
  EXPECT_EQ(access(path("-").c_str(), F_OK), -1);
}

TEST_F(EmptyTest, TagFileThatBeginsWithADash_IsNoOptionOfTheSimulator) {
  write_file("-x.csv", kTagFile);
  const Outcome outcome =
      type("read --quiet --driver " PLC_HOST_GUARDED " --sim -x.csv --simulator " PLC_HOST_SIMULATOR " --raw Speed");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "0\n");
}

}  // namespace
