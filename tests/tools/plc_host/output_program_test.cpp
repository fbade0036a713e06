// Tests of plc-host whose output cannot be written: every command ends with a message and a code of its own.
#include <sys/stat.h>

#include <utility>

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

TEST_F(OutputTest, WritesOnAFullDisk_AreToldAllTheSame) {
  Child child(on_simulator({"write", "Speed=1", "Total=2"}), "/dev/full", path("err"));
  EXPECT_EQ(child.wait(), kOutputCode);
  EXPECT_EQ(file_text(path("err")),
            "plc-host: the controller was written to all the same: Speed written, Total written\n"
            "plc-host: standard output cannot be written: No space left on device; 0 bytes were written\n");
}

TEST_F(OutputTest, ClosedOutput_IsNoSuccess) {
  for (const char* command : {" --help >&-", " tags machine.csv >&-", " info >&-"}) {
    Child child({"/bin/sh", "-c", "cd " + folder_.path() + " && " PLC_HOST_PROGRAM + command}, path("out"),
                path("err"));
    EXPECT_EQ(child.wait(), kOutputCode) << command;
    EXPECT_EQ(file_text(path("err")),
              "plc-host: standard output cannot be written: Bad file descriptor; 0 bytes were written\n")
        << command;
  }
}

TEST_F(OutputTest, DiskThatFillsUp_EndsWatchAtAWholeRow) {
  const std::string command = "ulimit -f 1; exec " PLC_HOST_PROGRAM " watch --driver " PLC_HOST_GUARDED
                              " --quiet --csv --interval 1 Table --simulator " PLC_HOST_SIMULATOR " --sim " +
                              path("machine.csv");
  Child child({"/bin/bash", "-c", command}, path("out"), path("err"));
  EXPECT_EQ(child.wait(), kOutputCode);
  const std::string rows = file_text(path("out"));
  EXPECT_THAT(file_text(path("err")), HasSubstr("plc-host: standard output cannot be written: File too large; " +
                                                std::to_string(rows.size()) + " bytes were written\n"));
  EXPECT_GT(rows.size(), 900U);
  EXPECT_THAT(rows, EndsWith("\n"));
}

TEST_F(OutputTest, ReaderWhoHasGone_EndsQuietlyWithAShellsCodeForIt) {
  struct Case {
    const char* words;
    int code;
  };
  for (const Case& given :
       {Case{"read --json Speed Total", 141}, {"watch --interval 1 Speed", 141}, {"write Speed=1", 0}}) {
    const std::string command =
        "mkfifo " + path("gone") + "; { read line; } < " + path("gone") + " & exec 3> " + path("gone") + "; echo > " +
        path("gone") + "; wait; " PLC_HOST_PROGRAM " " + given.words +
        " --driver " PLC_HOST_GUARDED " --simulator " PLC_HOST_SIMULATOR " --sim " + path("machine.csv") + " >&3";
    Child child({"/bin/bash", "-c", command}, path("out"), path("err"));
    EXPECT_EQ(child.wait(), given.code) << given.words;
    EXPECT_THAT(file_text(path("err")), Not(HasSubstr("standard output"))) << given.words;
    std::remove(path("gone").c_str());
  }
}

TEST_F(OutputTest, StopSignal_EndsWatchAtAWholeRow) {
  for (const int number : {SIGINT, SIGTERM}) {
    std::remove(path("out").c_str());
    Child child(on_simulator({"watch", "--quiet", "--csv", "--interval", "1", "Table", "Text"}), path("out"),
                path("err"));
    ASSERT_TRUE(child.wait_for(",good,"));
    child.signal(number);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_THAT(file_text(path("out")), EndsWith("\n"));
  }
}

TEST_F(OutputTest, CorrectedCopyThatCannotBeWritten_IsNoSuccess) {
  const Outcome outcome = run({"check", path("machine.csv"), "--fix", path("missing/copy.csv")});
  EXPECT_EQ(outcome.code, kOutputCode);
  EXPECT_EQ(outcome.err, "plc-host: cannot write " + path("missing/copy.csv") +
                             ": No such file or directory. Try: make its folder first, or name another one\n");
}

TEST_F(OutputTest, CorrectedCopy_IsWrittenThroughNoLinkAndOverNoInput) {
  write_file("open.csv", "Speed,INT,,,,,,0,1,0,0,");
  write_file("victim", "mine");
  ASSERT_EQ(symlink(path("victim").c_str(), path("link.csv").c_str()), 0);
  ASSERT_EQ(::link(path("open.csv").c_str(), path("again.csv").c_str()), 0);
  const std::pair<std::string, std::string> refused[] = {
      {path("link.csv"), "it is a symbolic link. Try: name the file that it leads to"},
      {path("open.csv"), "it is a file that is read. Try: name another file"},
      {path("again.csv"), "it is a file that is read. Try: name another file"},
      {"/dev/full", "it is not a regular file. Try: name a file"}};
  for (const auto& [copy, reason] : refused) {
    const Outcome outcome = run({"check", path("open.csv"), "--fix", copy});
    EXPECT_EQ(outcome.code, kOutputCode);
    EXPECT_EQ(outcome.err, "plc-host: cannot write " + copy + ": " + reason + "\n");
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_EQ(file_text(path("victim")), "mine");
  EXPECT_EQ(file_text(path("open.csv")), "Speed,INT,,,,,,0,1,0,0,");
}

TEST_F(OutputTest, CorrectedCopyOverAFile_TakesAWordOfConsent) {
  write_file("open.csv", "Speed,INT,,,,,,0,1,0,0,");
  write_file("other.csv", "Torque,INT,,,,,,0,1,0,0,\n");
  const std::string copy = path("other.csv");
  const Outcome refused = run({"check", path("open.csv"), "--fix", copy});
  EXPECT_EQ(refused.code, kOutputCode);
  EXPECT_EQ(refused.err, "plc-host: cannot write " + copy +
                             ": there is a file of this name; add --overwrite if it is to be replaced\n");
  EXPECT_EQ(file_text(copy), "Torque,INT,,,,,,0,1,0,0,\n");
  EXPECT_NE(run({"check", path("open.csv"), "--fix", copy, "--overwrite"}).code, kOutputCode);
  EXPECT_EQ(file_text(copy), "Speed,INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(run({"check", path("open.csv"), "--overwrite"}).code, 2);
}

TEST_F(OutputTest, FilesOfSettingsAndTheirProfile_AreNotWrittenOver) {
  write_file("open.csv", "Speed,INT,,,,,,0,1,0,0,");
  write_file("plc-host.toml", "profile = \"learnt.toml\"\n");
  write_file("learnt.toml", "[settings]\ntimeout_s = 7\n");
  for (const char* name : {"plc-host.toml", "learnt.toml"}) {
    const std::string former = file_text(path(name));
    for (const Outcome& outcome : {run({"check", path("open.csv"), "--fix", path(name), "--overwrite"}),
                                   run({"tags", "--new", "A", "INT", "--output", path(name), "--overwrite"})}) {
      EXPECT_EQ(outcome.code, kOutputCode);
      EXPECT_EQ(outcome.err,
                "plc-host: cannot write " + path(name) + ": it is a file that is read. Try: name another file\n");
    }
    EXPECT_EQ(file_text(path(name)), former);
  }
}

// The loader would wait for somebody who writes into it.
TEST_F(OutputTest, DriverThatIsAPipe_IsRefusedAtOnce) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  ASSERT_EQ(symlink(path("pipe").c_str(), path("link").c_str()), 0);
  for (const std::string& driver : {path("pipe"), path("link")}) {
    const Outcome outcome = run({"info", "--driver", driver});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_THAT(outcome.err, StartsWith("plc-host: cannot load the driver library: cannot read " + driver +
                                        ": it is not a regular file. Try: give the path of a libplc_driver.so.1"));
  }
}

TEST_F(OutputTest, CorrectedCopyOnAFullDisk_LeavesTheOldOne) {
  write_file("long.csv", std::string(2000, '\n') + "Speed,int,,,,,,2000,1,0,0,\n");
  write_file("copy.csv", "what was there before\n");
  const std::string command = "ulimit -f 1; exec " PLC_HOST_PROGRAM " check --driver " PLC_HOST_GUARDED " " +
                              path("long.csv") + " --fix " + path("copy.csv") + " --overwrite > /dev/null";
  Child child({"/bin/bash", "-c", command}, path("out"), path("err"));
  EXPECT_EQ(child.wait(), kOutputCode);
  EXPECT_EQ(file_text(path("err")), "plc-host: cannot write " + path("copy.csv") +
                                        ": File too large. Try: let files be larger (ulimit -f), or do without it\n");
  EXPECT_EQ(file_text(path("copy.csv")), "what was there before\n");
}

TEST_F(OutputTest, CaptureOverTheTagFile_IsRefusedBeforeAnythingIsAsked) {
  const Outcome outcome = run_on_simulator({"why", "Speed", "--pcap", path("machine.csv")});
  EXPECT_EQ(outcome.code, kOutputCode);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: cannot write " + path("machine.csv") +
                                     ": it is a file that is read. Try: name another file\n"));
  EXPECT_EQ(file_text(path("machine.csv")), kTagFile);
}

TEST_F(OutputTest, CaptureOverAnotherKindOfFile_IsRefusedBeforeAnythingIsAsked) {
  const std::string log = "time,name,value,state,reason\n";
  write_file("week.csv", log);
  const Outcome outcome = run_on_simulator({"why", "Speed", "--pcap", path("week.csv")});
  EXPECT_EQ(outcome.code, kOutputCode);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: cannot write " + path("week.csv") +
                                     ": the file that is there is no capture, and stays. Try: name another file, or "
                                     "remove it first\n"));
  EXPECT_EQ(file_text(path("week.csv")), log);
}

TEST_F(OutputTest, CaptureOverAnEarlierOneOrAnEmptyFile_ReplacesIt) {
  for (const char* beginning : {"", "\xD4\xC3\xB2\xA1", "\xA1\xB2\xC3\xD4 and more", "\x4D\x3C\xB2\xA1",
                                "\xA1\xB2\x3C\x4D", "\x0A\x0D\x0D\x0A"}) {
    write_file("road.pcap", beginning);
    EXPECT_EQ(run_on_simulator({"why", "Speed", "--pcap", path("road.pcap")}).code, 0);
    EXPECT_GT(file_text(path("road.pcap")).size(), 24U);
  }
}

TEST_F(OutputTest, CaptureWhereTheResultsGo_IsRefusedBeforeAnythingIsAsked) {
  std::vector<std::string> words = {"/bin/sh", "-c", "file=$1; shift; exec \"$@\" >\"$file\"", "sh", path("road")};
  for (const std::string& word : on_simulator({"why", "Speed", "--pcap", path("road")})) words.push_back(word);
  const Outcome outcome = run_words(words);
  EXPECT_EQ(outcome.code, kOutputCode);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: cannot write " + path("road") +
                                     ": standard output goes there too. Try: name another file\n"));
  EXPECT_EQ(file_text(path("road")), "");
}

// What is no file has no end, or would be waited for.
TEST_F(OutputTest, InputThatIsNoRegularFile_IsRefusedAtOnce) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  for (const std::string& file : {path("pipe"), folder_.path(), std::string("/dev/zero"), std::string("/dev/null")}) {
    const std::string in_folder = "it is a folder. Try: name the tag files in it, " + file + "/*.csv";
    const std::string reason = file == folder_.path() ? in_folder : "it is not a regular file";
    const Outcome outcome = run({"check", file});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.err, "plc-host: cannot read " + file + ": " + reason + "\n");
  }
}

// What the test itself was started with comes along either way.
TEST_F(OutputTest, ProgramThatIsStarted_HasNoDescriptorOfPlcHosts) {
  write_file("lister", "#!/bin/sh\nexec /bin/ls /proc/self/fd >&2\n");
  ASSERT_EQ(chmod(path("lister").c_str(), 0700), 0);
  const Outcome outcome = run({"read", "Speed", "--sim", path("machine.csv"), "--simulator", path("lister")});
  const Outcome alone = run_words({path("lister")});
  EXPECT_EQ(outcome.err, alone.err + "plc-host: the simulator " + path("lister") + " ended before it listened\n");
}

// It is no plc-sim, however long plc-host reads on.
TEST_F(OutputTest, FirstLineOfASimulatorThatIsTooLong_IsCalledThatAndReadNoFurther) {
  const std::string command = "/dev/zero 2>/dev/null | tr '\\0' x 2>/dev/null\n";
  const std::string told = "plc-host: the simulator " + path("other") + " named no port: ";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"cat " + command, "its first line is longer than 4096 bytes"},
      {"head -c 4097 " + command + "echo\n", "its first line is longer than 4096 bytes"},
      {"head -c 4096 " + command + "echo\n", "its first line is '" + std::string(4096, 'x') + "'"},
      {"echo\n", "its first line is ''"},
      {"echo listening on 127.0.0.1:65536\n", "its first line is 'listening on 127.0.0.1:65536'"},
      {"echo listening on 127.0.0.1:80 now\n", "its first line is 'listening on 127.0.0.1:80 now'"},
  };
  for (const auto& [script, problem] : cases) {
    write_file("other", "#!/bin/sh\n" + script);
    ASSERT_EQ(chmod(path("other").c_str(), 0700), 0);
    const Outcome outcome = run({"read", "Speed", "--sim", path("machine.csv"), "--simulator", path("other")});
    EXPECT_EQ(outcome.code, 6) << script;
    EXPECT_EQ(outcome.err, told + problem + ". Try: --simulator with the path of a plc-sim\n") << script;
  }
}

// What stands behind the line end would look like a line of the driver, which prints the name.
TEST_F(OutputTest, InputWhoseNameHoldsALineEnd_IsRefused) {
  write_file("x\n--timeout--", kTagFile);
  for (const char* command : {"tags", "check"}) {
    const Outcome outcome = run({command, path("x\n--timeout--")});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.err,
              "plc-host: cannot use the tag file " + path("x\\n--timeout--") + ": its name contains a newline\n");
  }
}

TEST_F(OutputTest, InputAboveTheLimit_IsRefused) {
  write_file("large.csv", "");
  ASSERT_EQ(truncate(path("large.csv").c_str(), (int64_t{256} << 20) + 1), 0);
  const Outcome outcome = run({"check", path("large.csv")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.err, "plc-host: cannot read " + path("large.csv") + ": it has more than 268435456 bytes\n");
}

}  // namespace
