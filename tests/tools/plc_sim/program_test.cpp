// plc-sim as a program: its command line, its commands, its exit codes, and its faults on real connections.
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

#include "base/files.h"
#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kReadD;
using plc_test::kResolveD;
using test::from_hex;
using test::HostSocket;
using test::PlcSimProcess;
using test::TemporaryFile;
using test::to_hex;
using testing::HasSubstr;

constexpr const char* kProgramTags = "D,INT,,,a,b,c,0,1,0,0,,DM1\nL,INT,[0..2],,a,b,c,1,0,0,5,MAIN,\n";

struct Running {
  explicit Running(std::vector<std::string> arguments = {}) : process(with_file(std::move(arguments))) {
    port = PlcSimProcess::port_in(process.read_line());
  }
  std::vector<std::string> with_file(std::vector<std::string> arguments) const {
    arguments.push_back(file.path());
    return arguments;
  }
  unsigned count(const std::string& name) {
    const std::string text = process.command("counts");
    const size_t at = text.find(name + " ");
    return at == std::string::npos ? 0 : static_cast<unsigned>(std::stoul(text.substr(at + name.size())));
  }
  TemporaryFile file{kProgramTags};
  PlcSimProcess process;
  uint16_t port = 0;
};

TEST(PlcSim, ListeningLineComesFirst_AndClosedInputEndsItWithZero) {
  TemporaryFile file(kProgramTags);
  PlcSimProcess process({file.path()});
  const std::string line = process.read_line();
  EXPECT_THAT(line, testing::StartsWith("listening on 127.0.0.1:"));
  EXPECT_GT(PlcSimProcess::port_in(line), 0);
  EXPECT_EQ(process.finish(), 0);
}

TEST(PlcSim, WrongUsage_EndsWithTwo) {
  TemporaryFile good(kProgramTags);
  TemporaryFile bad("A,INT,,,a,b,c,1\nA,Bool,,,a,b,c,1\n");
  const std::vector<std::vector<std::string>> cases{{},
                                                    {"--nonsense", good.path()},
                                                    {"/nonexistent.csv"},
                                                    {"/"},
                                                    {"--listen", "nowhere", good.path()},
                                                    {"--listen", "127.0.0.1:70000", good.path()},
                                                    {"--fault", "dealy 5", good.path()},
                                                    {"--program", "MAIN=256", good.path()},
                                                    {"--directory-order", "random", good.path()},
                                                    {"--animate-ms", "0", good.path()},
                                                    {bad.path()}};
  for (const auto& arguments : cases) {
    PlcSimProcess process(arguments);
    EXPECT_EQ(process.finish(), 2) << (arguments.empty() ? "no arguments" : arguments[0]);
    EXPECT_FALSE(process.errors().empty());
  }
  PlcSimProcess process({bad.path()});
  process.finish();
  EXPECT_THAT(process.errors(), HasSubstr("plc-sim: " + bad.path() + ":2: error: unknown type 'Bool'"));
  PlcSimProcess lenient({"--skip-bad-lines", bad.path()});
  EXPECT_EQ(lenient.finish(), 0);
}

TEST(PlcSim, PortInUse_EndsWithTwo) {
  Running first;
  TemporaryFile file(kProgramTags);
  PlcSimProcess second({"--listen", "127.0.0.1:" + std::to_string(first.port), file.path()});
  EXPECT_EQ(second.finish(), 2);
  EXPECT_THAT(second.errors(), HasSubstr("cannot listen"));
}

TEST(PlcSim, HelpAndVersion_EndWithZero) {
  for (const char* option : {"--help", "--version"}) {
    PlcSimProcess process({option});
    EXPECT_EQ(process.finish(), 0) << option;
  }
}

TEST(PlcSim, ValuesSetOnTheConsole_AreReadOnTheWire) {
  Running sim;
  EXPECT_EQ(sim.process.command("set D 4660"), "");
  HostSocket host(sim.port);
  EXPECT_EQ(to_hex(host.exchange(kDirectoryStart)), "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  host.exchange(kDirectoryRead);
  host.exchange(kResolveD);
  EXPECT_EQ(to_hex(host.exchange(kReadD)), "00 00 00 06 FF FF FF F9 00 01 1E 09 00 00 12 34");
  EXPECT_EQ(sim.count("requests"), 4U);
  EXPECT_EQ(sim.count("violations"), 0U);
  EXPECT_EQ(sim.process.finish(), 0);
}

TEST(PlcSim, Console_ShowsElementsAndSaysWhatIsWrong) {
  Running sim;
  EXPECT_EQ(sim.process.command("show MAIN/L"), "MAIN/L[0] = 0\nMAIN/L[1] = 0\nMAIN/L[2] = 0\n");
  EXPECT_EQ(sim.process.command("set MAIN/L[1] -5"), "");
  EXPECT_EQ(sim.process.command("show L[1]"), "L[1] = -5\n");
  EXPECT_EQ(sim.process.command("dump"), "06 values 000000: 0000\n1e values 000000: 0000 fffb 0000\n");
  EXPECT_THAT(sim.process.command("dump --json"), HasSubstr(R"("name":"L[1]","program":"MAIN","raw":"fffb")"));
  EXPECT_THAT(sim.process.command("show"), HasSubstr("D = 0"));
  for (const char* bad :
       {"set D 70000", "set L 5", "set Nobody 1", "show Nobody", "nonsense", "dump x", "counts x", "fault nonsense"}) {
    EXPECT_THAT(sim.process.command(bad), testing::StartsWith("error: ")) << bad;
  }
  EXPECT_THAT(sim.process.command("help"), HasSubstr("set NAME"));
  EXPECT_THAT(sim.process.command("faults"), HasSubstr("split N MS"));
  EXPECT_EQ(sim.process.command("faults clear"), "error: faults takes nothing; fault clear disarms them\n");
  EXPECT_EQ(sim.process.command("fault clear all"), "error: fault clear takes nothing: it disarms all\n");
  EXPECT_EQ(sim.process.command("quit now"), "error: quit takes nothing\n");
}

TEST(PlcSim, ListOnTheConsole_SetsAWholeArrayOrNothing) {
  Running sim;
  EXPECT_EQ(sim.process.command("set MAIN/L [1, 0x10, -3]"), "");
  EXPECT_EQ(sim.process.command("show MAIN/L"), "MAIN/L[0] = 1\nMAIN/L[1] = 16\nMAIN/L[2] = -3\n");
  EXPECT_EQ(sim.process.command("set MAIN/L [7, 8, 70000]"),
            "error: '70000' is no INT value: outside -32768 to 32767\n");
  EXPECT_EQ(sim.process.command("set MAIN/L [1, 2]"), "error: '[1, 2]' has 2 values where 3 belong\n");
  EXPECT_EQ(sim.process.command("set MAIN/L 5"), "error: '5' is not a list: write [1, 2, ...]\n");
  EXPECT_EQ(sim.process.command("show L[0]"), "L[0] = 1\n");
}

TEST(PlcSim, Violation_IsPrintedCountedAndMakesTheExitCodeOne) {
  Running sim;
  HostSocket host(sim.port);
  host.exchange("00 00 00 06 FF FF FF F9 00 07 0C 2C 00 00 00 00");
  EXPECT_EQ(sim.count("violations"), 1U);
  EXPECT_EQ(sim.process.finish(), 1);
  EXPECT_THAT(sim.process.errors(), HasSubstr("plc-sim: violation: connection 1, request 1 (directory start)"));
}

TEST(PlcSim, Hangup_EndsItWithItsReport) {
  TemporaryFile tags("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  const plc_test::TempDir folder;
  PlcSimProcess sim({"--no-stdin", "--report", folder.file("report.txt"), tags.path()});
  sim.read_line();
  sim.send_signal(SIGHUP);
  EXPECT_EQ(sim.read_line(), "");
  EXPECT_EQ(sim.finish(), 0);
  EXPECT_THAT(plc_base::read_file(folder.file("report.txt"), 100000).text, HasSubstr("never asked for:\n  D\n"));
}

TEST(PlcSim, HangupThatIsIgnoredFromTheStart_StaysIgnored) {
  TemporaryFile tags("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  const auto before = std::signal(SIGHUP, SIG_IGN);
  PlcSimProcess sim({tags.path()});
  std::signal(SIGHUP, before);
  sim.read_line();
  sim.send_signal(SIGHUP);
  EXPECT_EQ(sim.command("show D"), "D = 0\n");
  EXPECT_EQ(sim.finish(), 0);
}

TEST(PlcSim, QuitCommand_EndsIt) {
  Running sim;
  EXPECT_EQ(sim.process.command("quit"), "");
  EXPECT_EQ(sim.process.read_line(), "");
  EXPECT_EQ(sim.process.finish(), 0);
}

TEST(PlcSim, RequestInPieces_IsPutTogether) {
  Running sim;
  HostSocket host(sim.port);
  const Bytes start = from_hex(kDirectoryStart);
  for (const uint8_t byte : start) host.send({byte});
  EXPECT_EQ(host.receive().size(), 16U);
  EXPECT_EQ(sim.count("violations"), 0U);
}

TEST(PlcSim, RequestCutOff_IsAViolation) {
  Running sim;
  {
    HostSocket host(sim.port);
    host.send(from_hex("00 00 00 06 FF"));
    EXPECT_GE(host.receive().size(), 14U);
  }
  EXPECT_EQ(sim.count("violations"), 1U);
}

TEST(PlcSim, FaultsOnReplies_HappenAndAreCounted) {
  Running sim({"--fault", "cut 5"});
  HostSocket host(sim.port);
  EXPECT_EQ(host.exchange(kDirectoryStart).size(), 5U);
  sim.process.command("fault stale 3");
  const Bytes stale = host.exchange(kDirectoryRead);
  ASSERT_GE(stale.size(), 3U);
  EXPECT_EQ(to_hex(Bytes(stale.begin(), stale.begin() + 3)), "EE EE EE");
  EXPECT_EQ(sim.count("fault.cut"), 1U);
  EXPECT_EQ(sim.count("fault.stale"), 1U);
  EXPECT_EQ(sim.count("fault.delay"), 0U);
}

TEST(PlcSim, RefusedAndIncompleteReplies_AreWholeFramesAndNoViolations) {
  Running sim;
  EXPECT_EQ(sim.process.command("set D 4660"), "");
  HostSocket host(sim.port);
  host.exchange(kDirectoryStart);
  host.exchange(kDirectoryRead);
  host.exchange(kResolveD);
  sim.process.command("fault refuse 17 on=read");
  EXPECT_EQ(to_hex(host.exchange(kReadD)), "00 00 00 04 FF FF FF FB 00 01 1E 09 00 11");
  EXPECT_EQ(sim.count("fault.refuse"), 1U);
  EXPECT_EQ(sim.count("violations"), 0U);
}

TEST(PlcSim, DelayedReply_ComesNoEarlier) {
  Running sim({"--fault", "delay 120"});
  HostSocket host(sim.port);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(host.exchange(kDirectoryStart).size(), 16U);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(119));
  EXPECT_EQ(sim.count("fault.delay"), 1U);
}

TEST(PlcSim, RequestAfterThePieceOfASplitReply_IsAnsweredBehindTheRest) {
  Running sim({"--fault", "split 4 150"});
  HostSocket host(sim.port);
  EXPECT_EQ(host.exchange(kDirectoryStart).size(), 4U);
  host.send(from_hex(kDirectoryRead));
  Bytes rest;
  while (rest.size() < 12 + 29) {
    const Bytes part = host.receive();
    ASSERT_FALSE(part.empty());
    rest.insert(rest.end(), part.begin(), part.end());
  }
  EXPECT_EQ(to_hex(Bytes(rest.begin(), rest.begin() + 12)), "FF FF FF F9 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(rest[12 + 11], 0x25);
  EXPECT_EQ(sim.count("violations"), 0U);
}

TEST(PlcSim, RequestBeforeADelayedReply_IsAViolation) {
  Running sim({"--fault", "delay 150"});
  HostSocket host(sim.port);
  host.send(from_hex(kDirectoryStart));
  while (sim.count("requests") < 1) {
  }
  host.send(from_hex(kDirectoryRead));
  EXPECT_EQ(host.receive().size(), 16U);
  EXPECT_EQ(sim.count("violations"), 1U);
}

TEST(PlcSim, ClosedAndResetConnections_End) {
  Running sim({"--fault", "close", "--fault", "reset", "--fault", "reset-after 4"});
  {
    HostSocket host(sim.port);
    EXPECT_TRUE(host.exchange(kDirectoryStart).empty());
  }
  {
    HostSocket host(sim.port);
    EXPECT_TRUE(host.exchange(kDirectoryStart).empty());
  }
  {
    HostSocket host(sim.port);
    EXPECT_LE(host.exchange(kDirectoryStart).size(), 4U);
    EXPECT_TRUE(host.receive().empty());
  }
  EXPECT_EQ(sim.count("fault.close"), 1U);
  EXPECT_EQ(sim.count("fault.reset"), 1U);
  EXPECT_EQ(sim.count("fault.reset-after"), 1U);
}

TEST(PlcSim, FullBacklog_HoldsAConnectBackUntilCleared) {
  Running sim;
  sim.process.command("fault refuse-accept");
  EXPECT_EQ(sim.count("fault.refuse-accept"), 1U);
  EXPECT_FALSE(test::connects_within(sim.port, 60));
  sim.process.command("fault clear");
  HostSocket host(sim.port);
  ASSERT_TRUE(host.is_connected());
  EXPECT_EQ(host.exchange(kDirectoryStart).size(), 16U);
}

TEST(PlcSim, GoneController_RefusesUntilItIsBackAtTheSamePort) {
  Running sim;
  HostSocket before(sim.port);
  EXPECT_EQ(before.exchange(kDirectoryStart).size(), 16U);
  sim.process.command("fault gone");
  EXPECT_TRUE(before.receive().empty());
  EXPECT_FALSE(HostSocket(sim.port).is_connected());
  sim.process.command("fault clear");
  HostSocket after(sim.port);
  ASSERT_TRUE(after.is_connected());
  EXPECT_EQ(after.exchange(kDirectoryStart).size(), 16U);
  EXPECT_EQ(sim.count("fault.gone"), 1U);
}

TEST(PlcSim, Sentinels_DifferFromElementToElement) {
  Running sim({"--sentinel"});
  const std::string shown = sim.process.command("show MAIN/L");
  EXPECT_THAT(shown, testing::Not(HasSubstr("= 0\n")));
}

TEST(PlcSim, Animation_MovesValues) {
  Running sim({"--animate", "--animate-ms", "1"});
  const std::string before = sim.process.command("show D");
  std::string after = before;
  for (int i = 0; i < 10000 && after == before; ++i) after = sim.process.command("show D");
  EXPECT_NE(after, before);
}

}  // namespace
}  // namespace plc_sim
