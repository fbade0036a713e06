// Tests of plc-host as a program, about names that are not written out: patterns, files, standard input.
#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class NamesTest : public ProgramTest {
 protected:
  // The first word of each line.
  static std::vector<std::string> first_words(const std::string& text) {
    std::vector<std::string> words;
    for (const std::string& line : lines_of(text)) words.push_back(line.substr(0, line.find(' ')));
    return words;
  }

  // What standard error says of one pattern that no name fits.
  std::string told_of(const std::string& pattern) {
    const Outcome outcome = run_on_simulator({"read", pattern});
    EXPECT_EQ(outcome.code, 1) << pattern;
    return outcome.err;
  }

  std::vector<std::string> dry_write(std::vector<std::string> words) const {
    words.insert(words.begin(), "write");
    words.insert(words.end(), {"--dry-run", "--tags", path("machine.csv")});
    return words;
  }
};

TEST_F(NamesTest, Pattern_NamesEachVariableThatFitsOnce) {
  const Outcome outcome = run_on_simulator({"read", "Total", "T*", "*[[]2].On", "Idx[!2]", "MAIN/*"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(first_words(outcome.out),
            (std::vector<std::string>{"Total", "Temp", "Text", "Table", "Line[2].On", "Idx0", "Idx1", "MAIN/Count"}));
}

TEST_F(NamesTest, PatternWithoutAFit_SaysWhatWasMeantAndLeavesTheOthers) {
  const Outcome outcome = run_on_simulator({"read", "Moter.*", "Speed", "--json"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(R"("name":"Moter.*","state":"impossible")"));
  EXPECT_THAT(outcome.out, HasSubstr("\"value\":null,\"reason\":\"" + path("machine.csv") +
                                     " has no variable that fits this pattern; "
                                     R"(did you mean 'Motor.*'?"})"));
  EXPECT_THAT(outcome.out, HasSubstr(R"({"name":"Speed","id":1,"type":"INT","state":"good")"));
  const std::string none = ": " + path("machine.csv") + " has no variable that fits this pattern";
  EXPECT_EQ(told_of("zzz*"), "plc-host: zzz*" + none + "\n");
  EXPECT_EQ(told_of("*.Runn"), "plc-host: *.Runn" + none + "; did you mean '*.Run'?\n");
  EXPECT_EQ(told_of("Line[2].*"),
            "plc-host: Line[2].*" + none + ": a bracket begins a set of characters; did you mean 'Line[[]2].*'?\n");
  EXPECT_EQ(told_of("Table[*]"), "plc-host: Table[*]: '*' is no subscript: write 3 or 0..4\n");
}

TEST_F(NamesTest, PatternInWrite_IsRefusedAndNothingWritten) {
  const Outcome outcome = run_on_simulator({"write", "Speed=1", "T*=2", "--json"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(R"("reason":"write takes no patterns: give each variable by its name","written":)"
                                     R"(false,"verified":false})"));
  EXPECT_EQ(count_of(outcome.out, "\n"), 1U);
  EXPECT_EQ(outcome.err, "plc-host: nothing was written\n");
}

TEST_F(NamesTest, WatchOfAPattern_TakesWhatCanBeRead) {
  const Outcome outcome = run_on_simulator({"watch", "Idx*", "--rounds", "1", "--csv", "--quiet"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(lines_of(outcome.out)[0], "time,state,reason,Idx0,Idx1");
  EXPECT_THAT(outcome.err, StartsWith("plc-host: Idx2: "));
  EXPECT_THAT(outcome.err, HasSubstr("; not watched\n"));
  EXPECT_EQ(run_on_simulator({"watch", "zzz*", "--rounds", "1"}).code, 1);
}

TEST_F(NamesTest, NamesFromAFile_StandBehindThoseOfTheCommandLine) {
  write_file("names.txt", "\xEF\xBB\xBFTotal\r\n\r\n \tIdx[!2] \nTable[0..1]");
  const Outcome outcome = run_on_simulator({"read", "Speed", "--names-from", path("names.txt")});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(first_words(outcome.out), (std::vector<std::string>{"Speed", "Total", "Idx0", "Idx1", "Table[0..1]"}));
}

TEST_F(NamesTest, NamesFromStandardInput_AreReadToItsEnd) {
  const std::string command = "printf 'Speed\\nTotal\\n' | " PLC_HOST_PROGRAM
                              " read --names-from - --simulator " PLC_HOST_SIMULATOR " --sim " +
                              path("machine.csv") + " --driver " + library_;
  const Outcome outcome = run_words({"/bin/sh", "-c", command});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(first_words(outcome.out), (std::vector<std::string>{"Speed", "Total"}));
}

TEST_F(NamesTest, AssignmentsFromAFile_KeepTheirBlanks) {
  write_file("recipe.txt", "Text=pump \r\nSpeed=3\n");
  const Outcome outcome = run(dry_write({"--names-from", path("recipe.txt"), "--csv"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr(",pump ,\n"));
}

TEST_F(NamesTest, FileWithoutNames_IsAFaultOfTheCommandLine) {
  write_file("empty.txt", "\n  \n");
  write_file("wide.txt", std::string("S\0p\0", 4));
  const std::pair<std::string, std::string> refused[] = {
      {path("none.txt"), "--names-from: cannot read " + path("none.txt") + ": No such file or directory"},
      {path("empty.txt"), "--names-from " + path("empty.txt") + ": it has no names"},
      {path("wide.txt"),
       "--names-from " + path("wide.txt") + ": it is no text of names: save it as UTF-8, a name in each line"},
  };
  for (const auto& [file, reason] : refused) {
    const Outcome outcome = run_on_simulator({"read", "--names-from", file});
    EXPECT_EQ(outcome.code, 2) << file;
    EXPECT_EQ(outcome.err, "plc-host: " + reason + "\n");
    EXPECT_EQ(outcome.out, "");
  }
}

}  // namespace
