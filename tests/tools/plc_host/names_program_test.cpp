// Tests of plc-host as a program, about names that are not written out: patterns, files, standard input.
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>

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
  EXPECT_EQ(told_of("Motor.[Run]"), "plc-host: Motor.[Run]" + none + ": a bracket is one of the characters in it\n");
  EXPECT_EQ(told_of("Table[*]"), "plc-host: Table[*]: '*' is not a subscript: write 3 or 0..4\n");
}

TEST_F(NamesTest, NameInAnotherSpelling_IsToldInTheUsualOne) {
  const std::string file = path("machine.csv");
  const std::string none = ": " + file + " has no variable of this name";
  EXPECT_EQ(told_of("Speed "), "plc-host: 'Speed '" + none + "; did you mean Speed (" + file + ":2)?\n");
  EXPECT_EQ(told_of("Motor.Run:"), "plc-host: 'Motor.Run:'" + none + "; did you mean Motor.Run (" + file + ":15)?\n");
  EXPECT_EQ(told_of("Table(1)"), "plc-host: Table(1)" + none + "; did you mean Table[1] (" + file + ":9)?\n");
  EXPECT_EQ(told_of("Grid[1][2]"), "plc-host: Grid[1][2]" + none + "; did you mean Grid[1,2] (" + file + ":10)?\n");
  EXPECT_EQ(told_of("Table[0-4]"),
            "plc-host: Table[0-4]: '0-4' is not a subscript: write 3 or 0..4; did you mean Table[0..4]?\n");
  EXPECT_EQ(told_of("Motor.Run[0]"), "plc-host: Motor.Run[0]: it is not an array: BOOL; did you mean Motor.Run?\n");
  EXPECT_EQ(told_of("Motor.Run,Run,Speed"), "plc-host: Motor.Run,Run,Speed" + none +
                                                "; names stand apart, without commas: Motor.Run Motor.Run Speed\n");
  EXPECT_EQ(told_of("other.csv"), "plc-host: other.csv" + none + "; a tag file is given with --tags other.csv\n");
  EXPECT_EQ(told_of("motor*"),
            "plc-host: motor*: " + file + " has no variable that fits this pattern; did you mean 'Motor*'?\n");
  EXPECT_EQ(told_of("*motor*"), "plc-host: *motor*: " + file +
                                    " has no variable that fits this pattern: letter case counts, as in Motor.Run\n");
}

TEST_F(NamesTest, WhyOfANameInAnotherSpelling_AdvisesTheUsualOne) {
  const std::pair<const char*, const char*> names[] = {{"Table(1)", "Table(1)"}, {"Speed ", "'Speed '"}};
  for (const auto& [typed, told] : names) {
    EXPECT_THAT(
        run_on_simulator({"why", typed}).out,
        HasSubstr("  1. " + std::string(told) + ": the tag file has no variable of this name\n     Try: Did you " +
                  "mean " + (std::string(typed) == "Speed " ? "Speed" : "Table[1]") + "?\n"));
  }
}

TEST_F(NamesTest, FileOfAnotherKind_IsToldWhereItIsUsedAsATagFile) {
  write_file("notes.txt", "hello\nworld\n");
  const std::string file = path("notes.txt");
  const std::string none = ": none of its lines has a type. Try: plc-host check " + file + "\n";
  EXPECT_EQ(run({"write", "--dry-run", "--tags", file, "Speed=1"}).err,
            "plc-host: Speed: " + file + " has no variable of this name: none of its lines has a type. Try: plc-host " +
                "check " + file + "\nplc-host: nothing was written\n");
  EXPECT_EQ(run({"tags", file}).err, "plc-host: " + file + none);
  EXPECT_EQ(run({"tags", file, "X*"}).err, "plc-host: X*: " + file + " has no variable that fits this pattern" + none);
  EXPECT_EQ(run({"tags", file, "--quiet"}).err, "");
}

TEST_F(NamesTest, VariableWithoutAType_IsTold) {
  write_file("typeless.csv", "Speed,INT,,,,,,0,1,0,0,\nWeight,FLOAT,,,,,,1,1,0,0,\n");
  const std::string file = path("typeless.csv");
  EXPECT_EQ(run({"tags", file}).err, "plc-host: " + file +
                                         ": 1 of 2 variables has no type that the driver knows. "
                                         "Try: plc-host check " +
                                         file + "\n");
  EXPECT_EQ(run({"write", "--dry-run", "--tags", file, "Weight=1"}).err,
            "plc-host: Weight: its line in the tag file has no type. Try: plc-host check with that file\n"
            "plc-host: nothing was written\n");
}

TEST_F(NamesTest, BracketsWithoutAName_AreToldAndNotTakenAway) {
  for (const char* word : {"[0]", "[0..3]", "[]", "[", "]"}) {
    const Outcome outcome = run_on_simulator({"read", word});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, std::string("plc-host: ") + word + ": " + path("machine.csv") +
                               " has no variable of this name: no name stands before the bracket; write it as in "
                               "Table[0] or Table[0..4]\n");
  }
  write_file("machine.csv", "a,INT,,,,,,0,1,0,0,\nb,INT,,,,,,1,1,0,0,\nab,INT,,,,,,2,1,0,0,\n");
  EXPECT_EQ(run_on_simulator({"read", "--json", "[ab]"}).out.substr(0, 11), "{\"name\":\"a\"");
}

// The program of one ends in a blank, and so does a name.
TEST_F(NamesTest, BlanksAtTheEndsOfNames_AreSeenInTextAndKeptElsewhere) {
  write_file("machine.csv", "Count,INT,,,,,,0,0,0,1,Main\nCount,INT,,,,,,1,0,0,2,Main \nSpeed ,INT,,,,,,2,1,0,0,\n");
  const std::string text = run_on_simulator({"read", "--all"}).out;
  EXPECT_THAT(text, StartsWith("Main/Count     INT  good "));
  EXPECT_THAT(text, HasSubstr("\n\"Main /Count\"  INT  good "));
  EXPECT_THAT(text, HasSubstr("\n\"Speed \"       INT  good "));
  EXPECT_THAT(run_on_simulator({"read", "--json", "Speed "}).out, StartsWith(R"({"name":"Speed ",)"));
  EXPECT_THAT(run_on_simulator({"watch", "Speed ", "--rounds", "1"}).out, HasSubstr(" good \"Speed \" = 0\n"));
  EXPECT_THAT(run({"tags", path("machine.csv")}).out, HasSubstr("  \"Speed \"  INT "));
  EXPECT_THAT(run({"tags", path("machine.csv"), "--csv"}).out, HasSubstr(",Speed ,INT,"));
  EXPECT_THAT(run_on_simulator({"read", "Count"}).err, HasSubstr("which of them: Main/Count, 'Main /Count'?\n"));
}

TEST_F(NamesTest, PatternInWrite_IsRefusedAndNothingWritten) {
  const Outcome outcome = run_on_simulator({"write", "Speed=1", "T*=2", "--json"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(R"("reason":"write takes no patterns: give each variable by its name","written":)"
                                     R"(false,"verified":null})"));
  EXPECT_THAT(outcome.out, StartsWith(R"({"name":"Speed","id":1,"type":"INT","state":"not-written",)"));
  EXPECT_EQ(count_of(outcome.out, "\n"), 2U);
  EXPECT_EQ(outcome.err,
            "plc-host: 1 variable not written: the command has one that cannot be written\n"
            "plc-host: nothing was written\n");
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

TEST_F(NamesTest, NamesFromAFileOfCarriageReturns_AreALineEach) {
  write_file("names.txt", "Total\rSpeed\r");
  const Outcome outcome = run_on_simulator({"read", "--names-from", path("names.txt")});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(first_words(outcome.out), (std::vector<std::string>{"Total", "Speed"}));
}

TEST_F(NamesTest, NamesWithSignsThatNobodySees_AreListedSoThatAListOfNamesFindsThem) {
  const std::string names[] = {"Main\t", "Main", "Main ", "\xC2\xA0X\xE2\x80\xAE", " A B"};
  std::string lines;
  for (const std::string& name : names) lines += name + ",INT,,,,,," + std::to_string(lines.size() % 7) + ",1,0,0,\n";
  write_file("hidden.csv", lines);
  const Outcome listed = run({"tags", path("hidden.csv"), "--names"});
  EXPECT_EQ(listed.out, "Main\\t\nMain\nMain\\x20\n\\u{a0}X\\u{202e}\n\\x20A B\n");
  EXPECT_EQ(listed.err, "");
  write_file("names.txt", listed.out);
  const Outcome read = run({"read", "--names-from", path("names.txt"), "--json", "--sim", path("hidden.csv"),
                            "--simulator", PLC_HOST_SIMULATOR});
  EXPECT_EQ(read.code, 0) << read.err;
  const std::vector<std::string> objects = lines_of(read.out);
  ASSERT_EQ(objects.size(), std::size(names));
  for (size_t i = 0; i < objects.size(); ++i) EXPECT_EQ(nlohmann::json::parse(objects[i])["name"], names[i]);
}

TEST_F(NamesTest, NameThatIsListedLikeAnother_IsTold) {
  write_file("twins.csv", "M\\t,INT,,,,,,0,1,0,0,\nM\t,INT,,,,,,1,1,0,0,\n");
  const Outcome listed = run({"tags", path("twins.csv"), "--names"});
  EXPECT_EQ(listed.out, "M\\t\nM\\t\n");
  EXPECT_EQ(listed.err,
            "plc-host: M\\t is another variable's name too, and --names-from takes it for that one. Try: --json, which "
            "has the exact names\n");
}

TEST_F(NamesTest, UnknownNamesOfAWatch_AreAllToldAndNothingIsWatched) {
  const Outcome outcome = run_on_simulator({"watch", "Speed", "Nope", "Sped", "--rounds", "1"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  const std::string none = ": " + path("machine.csv") + " has no variable of this name";
  EXPECT_EQ(outcome.err, "plc-host: Nope" + none + "\nplc-host: Sped" + none + "; did you mean Speed (" +
                             path("machine.csv") +
                             ":2)?\nplc-host: nothing is watched: 2 of 3 variables cannot be read\n");
}

TEST_F(NamesTest, RefusedVariableOfAProfile_IsToldAndTheOthersAreWatched) {
  write_file("full.toml", "[refusal]\nshape = \"full\"\nstatus = 0\n[[refused]]\nname = \"Total\"\n");
  const std::vector<std::string> others = {"--rounds", "1", "--csv", "--profile", path("full.toml")};
  std::vector<std::string> words = {"watch", "Speed", "Total", "Temp"};
  words.insert(words.end(), others.begin(), others.end());
  const Outcome outcome = run_on_simulator(words);
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(lines_of(outcome.out)[0], "time,state,reason,Speed,Temp");
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: Total: the profile lists it under [[refused]], "));
  EXPECT_THAT(outcome.err, HasSubstr("once it has the variable; not watched\n"));
  words[1] = "Sped";
  const Outcome misspelt = run_on_simulator(words);
  EXPECT_EQ(misspelt.code, 1);
  EXPECT_EQ(misspelt.out, "");
  EXPECT_THAT(misspelt.err, HasSubstr("plc-host: nothing is watched: 1 of 2 variables cannot be read\n"));
}

TEST_F(NamesTest, NameWithAValue_IsToldThatOnlyWriteTakesIt) {
  write_file("names.txt", "Speed = 9\n");
  const Outcome outcome = run_on_simulator({"read", "--names-from", path("names.txt")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "plc-host: Speed = 9: " + path("machine.csv") +
                             " has no variable of this name; did you mean Speed? Only write takes values\n");
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

TEST_F(NamesTest, BlanksAroundNamesOfAssignments_AreIgnored) {
  write_file("recipe.txt", " Speed=3\n\tTotal = 4 \n  Text = \"pump \" \n");
  const Outcome outcome = run(dry_write({"--names-from", path("recipe.txt"), "--csv"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nSpeed,INT,checked,"));
  EXPECT_THAT(outcome.out, HasSubstr("\nTotal,DINT,checked,"));
  EXPECT_THAT(outcome.out, HasSubstr(",pump ,\n"));
  write_file("recipe.txt", " = 3\n");
  EXPECT_EQ(
      run(dry_write({"--names-from", path("recipe.txt")})).err,
      "plc-host: --names-from " + path("recipe.txt") + ": line 1: a name is empty: write NAME=VALUE in each line\n");
  write_file("blank.csv", " X,INT,,,,,,0,1,0,0,\nX,INT,,,,,,1,1,0,0,\n");
  write_file("recipe.txt", " X=3\n");
  EXPECT_THAT(run({"write", "--dry-run", "--tags", path("blank.csv"), "--names-from", path("recipe.txt"), "--csv"}).out,
              HasSubstr("\n X,INT,checked,"));
}

TEST_F(NamesTest, NamesFromClosedStandardInput_NameTheInput) {
  const std::string read = PLC_HOST_PROGRAM " read --names-from - --driver " + library_ + " --tags " +
                           path("machine.csv") + " --address 127.0.0.1";
  const Outcome closed = run_words({"/bin/sh", "-c", read + " <&-"});
  EXPECT_EQ(closed.code, 2);
  EXPECT_EQ(closed.err, "plc-host: --names-from -: standard input is closed. Try: --names-from FILE, or < FILE\n");
  EXPECT_EQ(run_words({"/bin/sh", "-c", read + " < /dev/null"}).err, "plc-host: --names-from -: it has no names\n");
}

TEST_F(NamesTest, TagFileOnStandardInput_IsNoListAndIsToldWithoutItsDash) {
  const Outcome outcome = run_words({"/bin/sh", "-c",
                                     PLC_HOST_PROGRAM " read --names-from - --driver " + library_ + " --tags " +
                                         path("machine.csv") + " --address 127.0.0.1 < " + path("machine.csv")});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(
      outcome.err,
      "plc-host: --names-from -: it is a tag file. Try: plc-host tags FILE --names lists the names in it, once it "
      "is saved as FILE\n");
}

TEST_F(NamesTest, TagsOfNamesAndPatterns_AreListedOnceInTheirOrder) {
  const std::string file = path("machine.csv");
  EXPECT_EQ(run({"tags", file, "Idx*", "T*l*", "Idx0", "--names"}).out, "Idx0\nIdx1\nTotal\nTable\n");
  const Outcome missing = run({"tags", "--tags", file, "Sped", "MAIN/*", "X*", "--csv"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.out,
            "number,reg_type,address,name,type,shape,bounds,scope,device,remark\n"
            "19,0,0x00130000,Count,INT,scalar,,\"local \"\"MAIN\"\"\",DM,\n");
  EXPECT_EQ(missing.err, "plc-host: Sped: " + file + " has no variable of this name; did you mean Speed (" + file +
                             ":2)?\nplc-host: X*: " + file + " has no variable that fits this pattern\n");
  EXPECT_THAT(run({"tags", file, "Idx2", "--csv"}).out,
              EndsWith(",Idx2,REAL,scalar,,global,,the largest indexed id of a file cannot be asked for\n"));
}

TEST_F(NamesTest, TagsWithoutAFile_AreThoseOfTheController) {
  write_file("PLCC0A8000A_2.csv", "Here,INT,,,,,,0,1,0,0,\n");
  const std::string in_folder = "cd " + folder_.path() + " && ";
  const std::string tags = PLC_HOST_PROGRAM " tags --names --driver " + library_;
  EXPECT_EQ(run_words({"/bin/sh", "-c", in_folder + tags + " --address 192.168.0.10:8500 --area 2"}).out, "Here\n");
  const std::string settings = "PLC_HOST_ADDRESS=192.168.0.10 PLC_HOST_AREA=2 ";
  EXPECT_EQ(run_words({"/bin/sh", "-c", in_folder + settings + tags}).out, "Here\n");
  const Outcome none = run_words({"/bin/sh", "-c", in_folder + tags});
  EXPECT_EQ(none.code, 2);
  EXPECT_EQ(none.err,
            "plc-host: which tag file? Give FILE, or --address HOST for the one that the driver would take\n");
  EXPECT_EQ(run({"tags", "Motor.*"}).err, "plc-host: which tag file? Give FILE before the pattern Motor.*\n");
  EXPECT_EQ(run({"tags", path("machine.csv"), "Sped"}).out, "");
  EXPECT_EQ(run({"tags", path("machine.csv"), "--names", "--json"}).err,
            "plc-host: --names has lines of its own: neither --json nor --csv goes with it\n");
}

TEST_F(NamesTest, FileWithoutNames_IsAFaultOfTheCommandLine) {
  write_file("empty.txt", "\n  \n");
  write_file("wide.txt", std::string("S\0p\0", 4));
  const std::pair<std::string, std::string> refused[] = {
      {path("none.txt"), "--names-from: cannot read " + path("none.txt") + ": No such file or directory"},
      {path("empty.txt"), "--names-from " + path("empty.txt") + ": it has no names"},
      {path("machine.csv"), "--names-from " + path("machine.csv") + ": it is a tag file. Try: plc-host tags " +
                                path("machine.csv") + " --names lists the names in it"},
      {path("wide.txt"),
       "--names-from " + path("wide.txt") + ": it is not a text of names: save it as UTF-8, a name in each line"},
  };
  EXPECT_EQ(run_on_simulator({"read", "--names", path("empty.txt")}).err,
            "plc-host: unknown option --names, did you mean --names-from?\n");
  for (const auto& [file, reason] : refused) {
    const Outcome outcome = run_on_simulator({"read", "--names-from", file});
    EXPECT_EQ(outcome.code, 2) << file;
    EXPECT_EQ(outcome.err, "plc-host: " + reason + "\n");
    EXPECT_EQ(outcome.out, "");
  }
}

TEST_F(NamesTest, LinesWithoutANameOfTheirOwn_AreNoNames) {
  write_file("semicolons.csv", "Speed;INT;;;;;;0;1;0;0;\nLamp;BOOL;;;;;;1;1;0;0;\n");
  const Outcome outcome = run({"tags", path("semicolons.csv"), "--names"});
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("none of its lines has a type. Try: plc-host check "));
}

TEST_F(NamesTest, NameWithAnEqualsSign_EndsWhereTheTagFileSays) {
  write_file("equals.csv", "A=B,INT,,,,,,0,1,0,0,\n");
  const Outcome outcome = run({"write", "--dry-run", "--tags", path("equals.csv"), "A=B=3"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("A=B  INT "));
}

TEST_F(NamesTest, EqualsSignInFront_IsPartOfADeclaredName) {
  write_file("equals.csv", "=cmd,INT,,,,,,0,1,0,0,\n=cmd=x,INT,,,,,,1,1,0,0,\n");
  const auto dry = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"write", "--dry-run", "--tags", path("equals.csv")});
    return run(words);
  };
  EXPECT_THAT(dry({"=cmd=5"}).out, HasSubstr("=cmd  INT "));
  EXPECT_THAT(dry({"=cmd=x=5"}).out, HasSubstr("=cmd=x  INT "));
  EXPECT_EQ(dry({"=5"}).err, "plc-host: a name is empty: give the one of a variable\n");
  write_file("list", "=cmd=5\n");
  EXPECT_EQ(dry({"--names-from", path("list")}).code, 0);
  write_file("list", "=cmd=5\n=7\n");
  EXPECT_THAT(dry({"--names-from", path("list")}).err,
              HasSubstr("line 2: a name is empty: write NAME=VALUE in each line"));
}

TEST_F(NamesTest, PortOfAnAddressFromTheEnvironment_IsTold) {
  setenv("PLC_HOST_ADDRESS", "127.0.0.1:1", 1);
  const Outcome outcome = run({"tags"});
  unsetenv("PLC_HOST_ADDRESS");
  EXPECT_THAT(outcome.err, HasSubstr("127.0.0.1:1"));
  EXPECT_THAT(outcome.err, testing::Not(HasSubstr("8500")));
}

TEST_F(NamesTest, FolderOfTagFiles_HasTheOneOfTheControllerAndItsArea) {
  std::filesystem::create_directory(path("panel"));
  write_file("panel/PLC7F000001_0.csv", kTagFile);
  write_file("panel/PLC7F000001_2.csv", "Other,INT,,,,,,0,1,0,0,\n");
  const auto simulator = start_simulator();
  const std::vector<std::string> place = {"--address", "127.0.0.1:" + port_, "--tags", path("panel")};
  const auto on_folder = [&](std::vector<std::string> words) {
    words.insert(words.end(), place.begin(), place.end());
    return run(words);
  };
  EXPECT_EQ(on_folder({"read", "--raw", "Speed"}).out, "0\n");
  EXPECT_THAT(on_folder({"read", "Speed", "--area", "2"}).err, HasSubstr("panel/PLC7F000001_2.csv has no variable"));
  EXPECT_EQ(on_folder({"why", "Speed"}).code, 0);
  const Outcome none = on_folder({"read", "Speed", "--area", "5"});
  EXPECT_EQ(none.code, 4);
  EXPECT_EQ(none.err,
            "plc-host: cannot read the tag file " + path("panel/PLC7F000001_5.csv") + ": No such file or directory\n");
}

TEST_F(NamesTest, SpreadsheetsOwnFile_IsNamedAsTheCause) {
  write_file("tags.xlsx", "PK\3\4...");
  EXPECT_THAT(run({"read", "--sim", path("tags.xlsx"), "--simulator", PLC_HOST_SIMULATOR, "Speed"}).err,
              HasSubstr("tags.xlsx is a spreadsheet's own file. Try: save it there as CSV\n"));
}

TEST_F(NamesTest, WhyOfANameOfSeveralPrograms_ShowsTheLineOfNone) {
  write_file("steps.csv", "Step,INT,,,,,,0,0,0,1,MAIN,\nStep,INT,,,,,,1,0,0,2,Fill,\n");
  const auto why = [this](const char* name) {
    return run({"why", "--sim", path("steps.csv"), "--simulator", PLC_HOST_SIMULATOR, name}).out;
  };
  const std::string open = why("Step");
  EXPECT_THAT(open, HasSubstr("Step: which of them: MAIN/Step, Fill/Step?\n"
                              "     Try: Write scope, name and subscripts as the tag line declares them.\n"));
  EXPECT_THAT(open, Not(HasSubstr("\ntag line ")));
  EXPECT_THAT(open, Not(HasSubstr("\nrecord ")));
  EXPECT_THAT(why("Fill/Step[3]"), HasSubstr("steps.csv:2: Step,INT,")) << "the one that was named";
  EXPECT_THAT(why("None/Step"), Not(HasSubstr("\ntag line ")));
}

}  // namespace
