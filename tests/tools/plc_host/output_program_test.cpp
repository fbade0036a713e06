// Tests of plc-host whose output cannot be written: every command ends with a message and a code of its own.
#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

constexpr int kOutputCode = 8;

class OutputTest : public ProgramTest {
 protected:
  std::vector<std::string> on_simulator(std::vector<std::string> words) {
    words.insert(words.end(), {"--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR});
    return host_words(words);
  }
};

TEST_F(OutputTest, FullDevice_EndsEveryCommand) {
  const std::string file = path("machine.csv");
  const std::vector<std::vector<std::string>> commands = {
      host_words({"--help"}),
      host_words({"--version"}),
      host_words({"read", "--help"}),
      host_words({"info"}),
      host_words({"info", "--json"}),
      host_words({"tags", file}),
      host_words({"tags", file, "--json"}),
      host_words({"tags", file, "--names"}),
      host_words({"check", file}),
      host_words({"check", file, "--json"}),
      host_words({"check", file, "--sarif"}),
      host_words({"check", "--rules"}),
      on_simulator({"read", "Speed"}),
      on_simulator({"read", "--all", "--json"}),
      on_simulator({"read", "--id", "1"}),
      on_simulator({"write", "Speed=1"}),
      on_simulator({"write", "Speed=1", "Speed=nothing"}),
      on_simulator({"batch", "Speed", "Total"}),
      on_simulator({"watch", "Speed"}),
      on_simulator({"watch", "Speed", "--json"}),
      on_simulator({"watch", "Speed", "--csv"}),
      on_simulator({"watch", "Speed", "--chart", "Speed", "--rounds", "1"}),
      on_simulator({"why", "Speed"}),
      on_simulator({"why", "Speed", "--json"}),
  };
  for (const std::vector<std::string>& words : commands) {
    Child child(words, "/dev/full", path("err"));
    EXPECT_EQ(child.wait(), kOutputCode) << words[1] << " " << words.back();
    EXPECT_EQ(count_of(file_text(path("err")),
                       "plc-host: standard output cannot be written: No space left on device; 0 bytes were written\n"),
              1U)
        << words[1] << " " << words.back() << "\n"
        << file_text(path("err"));
  }
}

TEST_F(OutputTest, ClosedOutput_IsNoSuccess) {
  for (const char* command : {" --help >&-", " tags machine.csv >&-", " info >&-"}) {
    Child child({"/bin/sh", "-c", "cd " + folder_.path() + " && " PLC_HOST_PROGRAM + command}, path("out"),
                path("err"));
    EXPECT_EQ(child.wait(), kOutputCode) << command;
    EXPECT_EQ(file_text(path("err")), "plc-host: standard output cannot be written: Bad file descriptor\n") << command;
  }
}

TEST_F(OutputTest, DiskThatFillsUp_EndsWatchAndSaysThatARowIsCut) {
  const std::string command = "ulimit -f 1; exec " PLC_HOST_PROGRAM " watch --driver " PLC_HOST_GUARDED
                              " --quiet --csv --interval 1 Table --simulator " PLC_HOST_SIMULATOR " --sim " +
                              path("machine.csv");
  Child child({"/bin/bash", "-c", command}, path("out"), path("err"));
  EXPECT_EQ(child.wait(), kOutputCode);
  EXPECT_THAT(
      file_text(path("err")),
      HasSubstr("plc-host: standard output cannot be written: File too large; 1024 bytes were written, the last "
                "line is cut off\n"));
  EXPECT_EQ(file_text(path("out")).size(), 1024U);
}

TEST_F(OutputTest, ReaderWhoHasGone_EndsReadQuietly) {
  const std::string command = PLC_HOST_PROGRAM " read --driver " PLC_HOST_GUARDED
                                               " --quiet --json Speed Total --simulator " PLC_HOST_SIMULATOR " --sim " +
                              path("machine.csv") + " | true";
  Child child({"/bin/sh", "-c", command}, path("out"), path("err"));
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(file_text(path("err")), "");
}

TEST_F(OutputTest, CorrectedCopyThatCannotBeWritten_IsNoSuccess) {
  const Outcome outcome = run({"check", path("machine.csv"), "--fix", "/dev/full"});
  EXPECT_EQ(outcome.code, kOutputCode);
  EXPECT_EQ(outcome.err, "plc-host: cannot write /dev/full: No space left on device\n");
}

}  // namespace
