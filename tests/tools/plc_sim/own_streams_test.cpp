// The standard streams of plc-sim: no capture and no report goes where they lead, and what they do not take is said.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"

namespace plc_sim {
namespace {

using plc_test::TempDir;
using test::HostSocket;
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

// How many threads plc-sim has while it serves, its input redirected in this way.
std::ptrdiff_t threads_with_input(const std::string& redirection) {
  const TemporaryFile tags(kStreamTags);
  plc_test::SimProcess sim("/bin/sh", {"-c", R"(echo $$; exec "$0" "$1" )" + redirection, PLC_SIM_PROGRAM, tags.path()},
                           plc_test::SimProcess::Errors::kShown);
  const std::string process = sim.read_line();
  const uint16_t port = plc_test::SimProcess::port_in(sim.read_line());
  EXPECT_FALSE(HostSocket(port).exchange(plc_test::kDirectoryStart).empty()) << redirection;
  const std::filesystem::directory_iterator threads("/proc/" + process + "/task");
  const std::ptrdiff_t count = std::distance(begin(threads), end(threads));
  sim.send_signal(SIGTERM);
  EXPECT_EQ(sim.finish(), 0) << redirection;
  return count;
}

// Where a process may have no further thread, a file would end it.
TEST(PlcSim, InputFromAFile_TakesNoThreadAndKeepsNobodyWaiting) {
  EXPECT_EQ(threads_with_input("</dev/zero"), threads_with_input(""));
}

TEST(PlcSim, InputFromAFile_IsObeyedToItsEnd) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kStreamTags);
  std::string commands;
  for (int i = 0; i < 1000; ++i) commands += "set D 3\n";
  const std::string file = folder.write("commands", commands + "show D");
  plc_test::SimProcess sim("/bin/sh", {"-c", R"(exec "$0" "$1" <"$2")", PLC_SIM_PROGRAM, tags, file},
                           plc_test::SimProcess::Errors::kShown);
  sim.read_line();
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(sim.read_line(), "ok");
  EXPECT_EQ(sim.read_line(), "D = 3");
  EXPECT_EQ(sim.read_line(), "ok");
  EXPECT_EQ(sim.read_line(), "");
  EXPECT_EQ(sim.finish(), 0);
}

}  // namespace
}  // namespace plc_sim
