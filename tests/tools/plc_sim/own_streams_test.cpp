// The standard streams of plc-sim: no capture and no report goes where they lead, and what they do not take is said.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "tests/tools/plc_sim/plc_sim_process.h"

namespace plc_sim {
namespace {

using plc_test::TempDir;
using test::TemporaryFile;

constexpr char kStreamTags[] = "D,INT,,,a,b,c,0,1,0,0,,DM1\n";

// What it says would be lost in the file, and the file's bytes before.
TEST(PlcSim, FileBehindAStandardStream_KeepsItsBytesAndGetsNoCaptureOrReport) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kStreamTags);
  const std::string kept = folder.file("keep.log");
  struct Case {
    const char* redirection;
    const char* option;
    std::string path;
    const char* problem;
  };
  const char* const kOutput = R"(>>"$KEPT")";
  const char* const kErrors = R"(2>>"$KEPT")";
  const char* const kThird = R"(3>>"$KEPT")";
  const char* const kInput = R"(<"$KEPT")";
  const char* const kLink = "it is a symbolic link. Try: name the file that it leads to";
  for (const Case& each :
       std::vector<Case>{{kOutput, "--pcap", "/dev/stdout", "standard output goes there too. Try: name another file"},
                         {kOutput, "--pcap", "/dev/fd/1", "standard output goes there too. Try: name another file"},
                         {kOutput, "--pcap", kept, "standard output goes there too. Try: name another file"},
                         {kOutput, "--report", kept, "standard output goes there too. Try: name another file"},
                         {kOutput, "--report", "/dev/stdout", kLink},
                         {kOutput, "--pcap", "/proc/self/fd/1", kLink},
                         {kErrors, "--pcap", "/dev/stderr", "standard error goes there too. Try: name another file"},
                         {kErrors, "--report", kept, "standard error goes there too. Try: name another file"},
                         {kThird, "--pcap", "/dev/fd/3", kLink},
                         {kInput, "--pcap", kept, "it is a file that is read. Try: name another file"}}) {
    folder.write("keep.log", "old\n");
    const std::string script = "KEPT=$1; shift; exec \"$0\" \"$@\" " + std::string(each.redirection);
    plc_test::SimProcess sim("/bin/sh", {"-c", script, PLC_SIM_PROGRAM, kept, each.option, each.path, tags},
                             plc_test::SimProcess::Errors::kKept);
    EXPECT_EQ(sim.finish(), 2) << each.redirection << " " << each.option << " " << each.path;
    const std::string told = "plc-sim: cannot write " + each.path + ": " + each.problem + "\n";
    const bool is_in_file = each.redirection == kErrors;
    EXPECT_EQ(sim.errors(), is_in_file ? "" : told);
    EXPECT_EQ(folder.read("keep.log"), is_in_file ? "old\n" + told : "old\n");
  }
}

// As a shell makes one for --pcap >(PROGRAM).
TEST(PlcSim, CaptureInAPipeThatIsNoStandardStream_HasItsPackets) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kStreamTags);
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  plc_test::SimProcess sim(
      "/bin/sh", {"-c", R"(P=$1; shift; exec "$0" "$@" 3>"$P")", PLC_SIM_PROGRAM, pipe, "--pcap", "/dev/fd/3", tags},
      plc_test::SimProcess::Errors::kKept);
  EXPECT_EQ(sim.finish(), 0) << sim.errors();
  std::array<char, 64> bytes{};
  EXPECT_EQ(read(reader, bytes.data(), bytes.size()), 24);
  EXPECT_EQ(std::string(bytes.data(), 4), "\xD4\xC3\xB2\xA1");
  close(reader);
}

TEST(PlcSim, CaptureInThePipeOfItsOutput_IsRefused) {
  TemporaryFile tags(kStreamTags);
  for (const char* path : {"/dev/stdout", "/dev/fd/1", "/dev/fd/3"}) {
    plc_test::SimProcess sim("/bin/sh", {"-c", R"(exec "$0" "$@" 3>&1)", PLC_SIM_PROGRAM, "--pcap", path, tags.path()},
                             plc_test::SimProcess::Errors::kKept);
    EXPECT_EQ(sim.read_line(), "");
    EXPECT_EQ(sim.finish(), 2);
    EXPECT_EQ(sim.errors(), "plc-sim: cannot write " + std::string(path) +
                                ": standard output goes there too. Try: name another file\n");
  }
}

TEST(PlcSim, OutputThatCannotBePrinted_IsSaidAndEndsWithTwo) {
  TemporaryFile tags(kStreamTags);
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {tags.path()}, {"--report", "-", tags.path()}, {"--help"}, {"--version"}}) {
    std::vector<std::string> arguments{"-c", R"(exec "$0" "$@" >/dev/full)", PLC_SIM_PROGRAM};
    arguments.insert(arguments.end(), words.begin(), words.end());
    plc_test::SimProcess sim("/bin/sh", arguments, plc_test::SimProcess::Errors::kKept);
    EXPECT_EQ(sim.finish(), 2);
    EXPECT_EQ(sim.errors(), "plc-sim: cannot write to standard output: No space left on device\n");
  }
}

// Whoever read it has not seen all of it.
TEST(PlcSim, ReaderOfTheOutputWhoHasGone_IsSaidAndEndsWithTwo) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kStreamTags);
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const char* command : {"show", "dump", "quit"}) {
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    // The command follows when the reader has gone.
    plc_test::SimProcess sim(
        "/bin/sh", {"-c", R"(P=$1; shift; exec "$0" "$@" >"$P")", PLC_SIM_PROGRAM, pipe, "--report", "-", tags},
        plc_test::SimProcess::Errors::kKept);
    pollfd ready{reader, POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 10000), 1);
    close(reader);
    EXPECT_EQ(sim.command(command), "");
    EXPECT_EQ(sim.finish(), 2) << command;
    EXPECT_EQ(sim.errors(), "plc-sim: cannot write to standard output: Broken pipe\n") << command;
  }
}

}  // namespace
}  // namespace plc_sim
