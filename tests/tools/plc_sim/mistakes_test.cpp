// What plc-sim says to people who typed something else than they meant: what is wrong, where, and what to do.
#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "tests/tools/plc_sim/plc_sim_process.h"

namespace plc_sim {
namespace {

using test::PlcSimProcess;

constexpr const char* kMistakeTags =
    "Speed,INT,,,a,b,c,0,1,0,0,,DM1\n"
    "Table,INT,[0..9],,a,b,c,1,1,0,0,,\n"
    "Grid,INT,[1..2_0..3],,a,b,c,2,1,0,0,,\n"
    "Step,INT,,,a,b,c,3,0,0,1,Main,\n"
    "Step,INT,,,a,b,c,4,0,0,2,Filling,\n";

class Mistakes : public testing::Test {
 protected:
  // What stands on standard error; nothing is served.
  std::string said_to(const std::vector<std::string>& arguments) {
    PlcSimProcess sim(arguments);
    EXPECT_EQ(sim.finish(), 2) << testing::PrintToString(arguments);
    return sim.errors();
  }

  plc_test::TempDir folder_;
  const std::string tags_ = folder_.write("tags.csv", kMistakeTags);
};

TEST_F(Mistakes, OnTheCommandLine_AreNamedWithWhatToDo) {
  struct Case {
    std::vector<std::string> arguments;
    const char* said;
  };
  const Case cases[] = {
      {{}, "no tag file is given. Try: plc-sim PLC7F000001_0.csv, or --replay with a capture"},
      {{"--reprot", "r", tags_}, "unknown option --reprot, did you mean --report?"},
      {{"--port", "8500", tags_}, "unknown option --port, use --listen HOST:PORT; plc-sim --help tells more"},
      {{tags_, "--web"}, "--web lacks its value; plc-sim --help tells more"},
      {{"--listen", "8500", tags_}, "--listen 8500: the address is missing, write 127.0.0.1:8500"},
      {{"--listen", "localhost", tags_},
       "--listen localhost: the port is missing, write localhost:8500, or localhost:0 for a free one"},
      {{"--web", "127.0.0.1:99999", tags_},
       "--web 127.0.0.1:99999: a port is a number from 0 to 65535, 0 for a free one"},
      {{"--listen", "[::1]:0", tags_},
       "--listen [::1]:0: write an IPv4 address or a name, and a port: 127.0.0.1:8500, localhost:0"},
      {{"--listen", "192.0.2.1:0", "--allow-remote", tags_},
       "cannot listen on 192.0.2.1:0: Cannot assign requested address. Try: an address that this machine has"},
      {{"--fault", "close times=2 times=3", tags_},
       "--fault 'close times=2 times=3': times= is given twice: leave one out"},
      {{"--fault", "close times=0", tags_},
       "--fault 'close times=0': times=0 would never happen: it begins with 1, or is always"},
      {{"--fault", "close foo=1", tags_},
       "--fault 'close foo=1': a fault has no setting 'foo': there are times, on, after and every"},
      {{"--program", "Main", tags_}, "--program Main: write NAME=NUMBER, with a number from 0 to 255"},
      {{"--profile", "none.toml", tags_},
       "--profile: cannot read none.toml: No such file or directory. Try: the profile.toml that plc-host survey wrote"},
      {{"--listen", "127.0.0.1:0", "--listen", "127.0.0.1:0", tags_},
       "--listen is given twice; plc-sim --help tells more"},
      {{"--animate-ms", "0", tags_},
       "--animate-ms 0: give whole milliseconds, from 1 to 60000; plc-sim --help tells more"},
      {{"--report", "--quiet", tags_},
       "--report lacks its value: --quiet is an option; write --report=--quiet if a file is called so; plc-sim --help "
       "tells more"},
      {{"--report", "day.pdf", tags_},
       "--report day.pdf: a report is HTML, JSON, CSV or text, by its name's end. Try: day.html"},
      {{"--report", "day.XLSX", tags_},
       "--report day.XLSX: a report is HTML, JSON, CSV or text, by its name's end. Try: day.csv"},
      {{"--pcap", "-", tags_}, "--pcap -: name a file; one that is called so is ./-; plc-sim --help tells more"},
      {{"--listen", "", tags_}, "--listen: give an address and a port, as 127.0.0.1:8500; plc-sim --help tells more"},
      {{"--web=", tags_}, "--web: give an address and a port, as 127.0.0.1:8080; plc-sim --help tells more"},
      {{"--pcap", "", tags_}, "--pcap: name a file; plc-sim --help tells more"},
      {{"--replay", ""}, "--replay: name a capture; plc-sim --help tells more"},
      {{"--profile", "", tags_}, "--profile: name a profile; plc-sim --help tells more"},
      {{"--report", "", tags_}, "--report: name a file, or - for standard output; plc-sim --help tells more"},
      {{"--web", "http://127.0.0.1:8080/", tags_},
       "--web http://127.0.0.1:8080/: write it without http://: 127.0.0.1:8080"},
      {{"\xE2\x80\x93listen", "127.0.0.1:0", tags_},
       "\xE2\x80\x93listen begins with a dash that is not a hyphen: write --listen; plc-sim --help tells more"},
      {{"--program", "Main=3", "--program", "Main=4", tags_}, "--program Main=4: the program has a number already"},
      {{"--program", "Main=3", "--program", "Side=3", tags_},
       "--program Side=3: Main has this number; give each another one"},
      {{"--animate-ms", "0", tags_},
       "--animate-ms 0: give whole milliseconds, from 1 to 60000; plc-sim --help tells more"},
      {{"--directory-order", "random", tags_},
       "--directory-order random: give longest-first or file; plc-sim --help tells more"},
  };
  for (const Case& each : cases) EXPECT_EQ(said_to(each.arguments), std::string("plc-sim: ") + each.said + "\n");
}

TEST_F(Mistakes, OptionsThatAReplayDoesNotHeed_AreNamed) {
  const std::vector<std::vector<std::string>> cases = {
      {"--profile", "p.toml"}, {"--skip-bad-lines"},          {"--sentinel"}, {"--animate"}, {"--animate-ms", "100"},
      {"--program", "Main=3"}, {"--directory-order", "file"},
  };
  for (const std::vector<std::string>& options : cases) {
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(), {"--replay", tags_});
    EXPECT_EQ(said_to(arguments), "plc-sim: " + options.front() +
                                      " and --replay exclude each other: a capture says by itself what is answered\n");
  }
}

TEST_F(Mistakes, InFaults_AreNamedWithWhatToDo) {
  const std::pair<const char*, const char*> cases[] = {
      {"delay 5 always", "'always' is written times=always"},
      {"delay 5 read", "'read' is written on=read"},
      {"close on read", "'on' is written on=REQUEST, as in: close on=read"},
      {"delay 5 times 3", "'times' is written times=N, as in: delay MS times=3"},
      {"close after 2", "'after' is written after=N, as in: close after=2"},
      {"close every 5", "'every' is written every=N, as in: close every=5"},
      {"dealy 5", "no fault is called 'dealy'; did you mean delay?"},
      {"delay", "the fault is written: delay MS"},
      {"close soon", "'soon' is not a number; the fault is written: close"},
      {"delay -1", "'-1' is not a number from 0 on; the fault is written: delay MS"},
      {"close on=raed",
       "no request is called 'raed': on= takes any, directory-start, directory, resolve, read, write, masked-write or "
       "bit"},
      {"gone on=read", "gone takes no on=: it happens as soon as it is armed; write gone [MS]"},
      {"gone 500 times=always", "gone takes no times=: it happens as soon as it is armed; write gone [MS]"},
      {"refuse-accept after=2",
       "refuse-accept takes no after=: it happens as soon as it is armed; write refuse-accept"},
      {"slow-accept 5 every=2", "slow-accept takes no every=: it happens as soon as it is armed; write slow-accept MS"},
      {"gone on", "'on' is not a number; the fault is written: gone [MS]"},
      {"gone foo=1", "a fault has no setting 'foo': there are times, on, after and every"},
      {"close times=0", "times=0 would never happen: it begins with 1, or is always"},
      {"close every=0", "every=0 would never happen: it begins with 1"},
      {"close time=3", "a fault has no setting 'time': there are times, on, after and every"},
  };
  for (const auto& [fault, said] : cases) {
    EXPECT_EQ(said_to({"--fault", fault, tags_}), std::string("plc-sim: --fault '") + fault + "': " + said + "\n");
  }
}

TEST_F(Mistakes, Help_ListsFaultsAndCommandsWithinATerminal) {
  std::string text;
  FILE* help = popen(PLC_SIM_PROGRAM " --help", "r");
  ASSERT_NE(help, nullptr);
  std::array<char, 4096> piece{};
  while (std::fgets(piece.data(), piece.size(), help) != nullptr) {
    EXPECT_LE(std::strlen(piece.data()), 81U) << piece.data();
    text += piece.data();
  }
  EXPECT_EQ(pclose(help), 0);
  EXPECT_THAT(text, testing::HasSubstr("\n  gone [MS]          all connections are reset"));
  EXPECT_THAT(text, testing::HasSubstr("\n  set NAME[subscripts] VALUE   give a variable a value\n"));
}

TEST_F(Mistakes, WithFiles_AreToldAtTheStart) {
  const std::string empty = folder_.write("empty", "");
  const std::string capture = folder_.write("a.pcap", std::string("\xD4\xC3\xB2\xA1\x02\x00\x04\x00", 8));
  const std::string in = folder_.path();
  std::string wide = "\xFF\xFE";
  for (const char* letter = kMistakeTags; *letter != '\0'; ++letter) wide += std::string(1, *letter) + '\0';
  for (const std::string& text : {wide, wide.substr(2), std::string("\xFE\xFF\0S", 4)}) {
    const std::string file = folder_.write("wide.csv", text);
    EXPECT_EQ(said_to({file}), "plc-sim: " + file + " is UTF-16, a tag file is UTF-8. Try: plc-host check " + file +
                                   " --fix NEW.csv, which writes it as UTF-8\n");
  }
  EXPECT_EQ(said_to({in}),
            "plc-sim: cannot read " + in + ": it is a folder. Try: name the tag files in it, " + in + "/*.csv\n");
  EXPECT_EQ(said_to({empty}), "plc-sim: " + empty + " is empty. Try: a tag file, which has a line for each variable\n");
  EXPECT_EQ(said_to({capture}), "plc-sim: " + capture + " is a capture. Try: --replay " + capture + "\n");
  EXPECT_EQ(said_to({"--replay", in}), "plc-sim: " + in + ": cannot be read: it is a folder\n");
  EXPECT_EQ(said_to({"--replay", empty}),
            "plc-sim: " + empty + ": it is empty. Try: a capture that tshark or --pcap wrote\n");
  EXPECT_EQ(said_to({"--replay", empty, tags_}),
            "plc-sim: --replay takes no tag files, the capture says what is answered. Try: without " + tags_ + "\n");
  for (const char* option : {"--report", "--pcap"}) {
    EXPECT_EQ(said_to({option, in, tags_}),
              "plc-sim: cannot write " + in + ": it is a folder. Try: name a file in it\n");
    EXPECT_EQ(said_to({option, in + "/no/where", tags_}),
              "plc-sim: cannot write " + in +
                  "/no/where: No such file or directory. Try: make its folder first, or name another one\n");
    EXPECT_EQ(said_to({option, tags_ + "/r", tags_}),
              "plc-sim: cannot write " + tags_ + "/r: Not a directory. Try: name a file in a folder\n");
  }
  EXPECT_EQ(
      said_to({"--pcap", "/dev/full", tags_}),
      "plc-sim: cannot write /dev/full: No space left on device. Try: make room, or name a file on another disk\n");
}

// Nothing was served that could be reported: the disk is met before that.
TEST_F(Mistakes, ReportOnAFullDisk_IsToldAtTheStart) {
  const std::string report = folder_.file("report");
  plc_test::SimProcess sim("/bin/sh",
                           {"-c", R"(ulimit -f 0; exec "$0" "$@")", PLC_SIM_PROGRAM, "--report", report, tags_},
                           plc_test::SimProcess::Errors::kKept);
  EXPECT_EQ(sim.read_line(), "");
  EXPECT_EQ(sim.finish(), 2);
  EXPECT_EQ(sim.errors(), "plc-sim: cannot write " + report +
                              ": File too large. Try: let files be larger (ulimit -f), or do without it\n");
}

TEST_F(Mistakes, InEveryLine_ArePrintedTenTimes) {
  std::string lines;
  for (int i = 0; i < 300; ++i) lines += "Speed;INT;;;a;b;c;" + std::to_string(i) + "\n";
  const std::string file = folder_.write("semicolons.csv", lines);
  std::string expected;
  for (int i = 1; i <= 10; ++i) {
    expected += "plc-sim: " + file + ":" + std::to_string(i) +
                ": error: the columns are separated by semicolons, commas are required\n";
  }
  EXPECT_EQ(said_to({file}), expected + "plc-sim: " + file + ": and 290 more errors\n" +
                                 "plc-sim: nothing was started. Try: plc-host check FILE\n");
}

// Together they would take what the machine has, whatever each of them has.
TEST_F(Mistakes, VariablesAbove128MiBInAll_AreRefusedByTheirLines) {
  std::string lines;
  for (int i = 0; i < 32; ++i) {
    const std::string number = std::to_string(i);
    lines += "A" + number + ",LREAL,[0..524287],,a,b,c," + number + ",1,0,0,,\n";
  }
  const std::string file = folder_.write("large.csv", lines + "Speed,INT,,,a,b,c,32,1,0,0,,DM1\n");
  const std::string refused =
      "plc-sim serves variables of at most 128 MiB in all, and this one does not fit. The line is no fault for a "
      "controller\n";
  EXPECT_EQ(said_to({file}), "plc-sim: " + file + ":33: error: " + refused +
                                 "plc-sim: nothing was started. Try: plc-host check FILE, or --skip-bad-lines\n");
  PlcSimProcess sim({"--skip-bad-lines", file});
  EXPECT_THAT(sim.read_line(), testing::StartsWith("listening on 127.0.0.1:"));
  EXPECT_EQ(sim.command("show A31[524287]"), "A31[524287] = 0\n");
  EXPECT_EQ(sim.finish(), 0);
  EXPECT_EQ(sim.errors(), "plc-sim: " + file + ":33: warning: " + refused);
}

TEST_F(Mistakes, OnTheConsole_AreNamedWithWhatToDo) {
  PlcSimProcess sim({tags_});
  sim.read_line();
  const std::pair<const char*, const char*> cases[] = {
      {"shwo", "no command is called 'shwo'; did you mean show?"},
      {"everything", "no command is called 'everything'; help lists them"},
      {"write Speed=5", "no command is called 'write'; did you mean set?"},
      {"set", "no variable is named; show lists them"},
      {"set Speed", "the value is missing: set Speed VALUE"},
      {"set 'Speed 5", "the name begins with a quote that has no end: write set 'Main /A' VALUE"},
      {"show \"Speed", "the name begins with a quote that has no end: write show 'Main /A'"},
      {"set Speed=5", "a blank stands between a name and its value: set Speed 5"},
      {"fault claer", "no fault is called 'claer'; did you mean clear?"},
      {"set Sped 5", "no variable is called 'Sped'; did you mean Speed?"},
      {"set Tabel[3] 5", "no variable is called 'Tabel'; did you mean Table?"},
      {"show Everything", "no variable is called 'Everything'; show lists them"},
      {"set Step 5", "no variable alone is called 'Step': write Main/Step or Filling/Step"},
      {"set Table[10] 5", "no variable is called 'Table[10]': the array is Table[0..9]"},
      {"show Table[-1]", "no variable is called 'Table[-1]': the array is Table[0..9]"},
      {"set Table[x] 5", "no variable is called 'Table[x]': the array is Table[0..9]"},
      {"set Grid[1] 5", "no variable is called 'Grid[1]': the array is Grid[1..2,0..3]"},
      {"set Speed[0] 5", "no variable is called 'Speed[0]': Speed is one value and takes no subscript"},
      {"fault", "a fault needs a name, as in: delay 200 times=3 on=read"},
      {"fault close on read", "'on' is written on=REQUEST, as in: close on=read"},
      {"fault delay 5 always", "'always' is written times=always"},
  };
  for (const auto& [line, said] : cases) EXPECT_EQ(sim.command(line), std::string("error: ") + said + "\n") << line;
  EXPECT_EQ(sim.finish(), 0);
}

TEST_F(Mistakes, TextWithoutAValue_IsNotEmptied) {
  const test::TemporaryFile tags("Name,STRING,,20,,,,0,1,0,0,\n");
  PlcSimProcess sim({tags.path()});
  sim.read_line();
  EXPECT_EQ(sim.command("set Name pump"), "");
  EXPECT_EQ(sim.command("set Name"), "error: the value is missing: set Name VALUE, or \"\" for an empty text\n");
  EXPECT_EQ(sim.command("show Name"), "Name = \"pump\"\n");
  EXPECT_EQ(sim.command("set Name \"\""), "");
  EXPECT_EQ(sim.command("show Name"), "Name = \"\"\n");
  EXPECT_EQ(sim.finish(), 0);
}

TEST_F(Mistakes, FileOfWhichNoLineIsLeft_StartsNothing) {
  const test::TemporaryFile bad("Long,STRING,,5000,,,,0,1,0,0,\n");
  const std::string place = "plc-sim: " + bad.path() + ":1: ";
  const std::string reason =
      "plc-sim serves strings of at most 4096 bytes, not of 5000. The line is no fault for a controller\n";
  EXPECT_EQ(said_to({bad.path()}),
            place + "error: " + reason + "plc-sim: nothing was started. Try: plc-host check FILE\n");
  EXPECT_EQ(said_to({"--skip-bad-lines", bad.path()}),
            place + "warning: " + reason +
                "plc-sim: nothing was started: no line can be declared. Try: plc-host check FILE\n");
}

TEST(NamesWithBlanks, StandBetweenQuotesAndAreExactlyTheRow) {
  const test::TemporaryFile tags(
      "A,INT,,,,,,0,0,0,1,Main,\nA,INT,,,,,,1,0,0,2, Main,\nA,INT,,,,,,2,0,0,3,Main ,\nMotor Speed,INT,,,,,,3,1,0,0,\n"
      "It's,INT,,,,,,4,1,0,0,\nsay \"it's\",INT,,,,,,5,1,0,0,\n");
  PlcSimProcess sim({tags.path()});
  sim.read_line();
  EXPECT_EQ(sim.command("set ' Main/A' 1"), "");
  EXPECT_EQ(sim.command("set \"Main /A\" 2"), "");
  EXPECT_EQ(sim.command("set Main/A 3"), "");
  EXPECT_EQ(sim.command("set \"Motor Speed\" 4"), "");
  EXPECT_EQ(sim.command("set 'It's' 5"), "");
  EXPECT_EQ(sim.command("set \"say \\\"it's\\\"\" 6"), "");
  EXPECT_EQ(sim.command("show"), "Main/A = 3\n Main/A = 1\nMain /A = 2\nMotor Speed = 4\nIt's = 5\nsay \"it's\" = 6\n");
  EXPECT_EQ(sim.command("show ' Main/A'"), " Main/A = 1\n");
  EXPECT_EQ(sim.command("show Motor Speed"), "Motor Speed = 4\n");
  const std::pair<const char*, const char*> cases[] = {
      {"set Main /A 5", "a name with a blank stands between quotes: set 'Main /A' VALUE"},
      {"set Motor Speed 5", "a name with a blank stands between quotes: set 'Motor Speed' VALUE"},
      {"set say \"it's\" 5", "a name with a blank stands between quotes: set \"say \\\"it's\\\"\" VALUE"},
      {"set 'Main /A'", "the value is missing: set 'Main /A' VALUE"},
      {"set MotorSpeed 5", "no variable is called 'MotorSpeed'; did you mean 'Motor Speed'?"},
      {"set A 5", "no variable alone is called 'A': write Main/A, ' Main/A' or 'Main /A'"},
  };
  for (const auto& [line, said] : cases) EXPECT_EQ(sim.command(line), std::string("error: ") + said + "\n") << line;
  EXPECT_EQ(sim.finish(), 0);
}

TEST_F(Mistakes, NumberOfAProgramThatNobodyHas_IsWarnedOf) {
  PlcSimProcess sim({"--program", "Mian=3", tags_});
  EXPECT_EQ(sim.finish(), 0);
  EXPECT_EQ(sim.errors(), "plc-sim: warning: --program Mian: no tag is of this program; did you mean Main?\n");
}

TEST_F(Mistakes, TimeOfAnimation_IsEnoughToAnimate) {
  PlcSimProcess sim({"--animate-ms", "1", tags_});
  sim.read_line();
  const std::string before = sim.command("show Speed");
  std::string after = before;
  for (int i = 0; i < 10000 && after == before; ++i) after = sim.command("show Speed");
  EXPECT_NE(after, before);
}

TEST_F(Mistakes, NameOfThisMachine_IsAnAddress) {
  PlcSimProcess sim({"--listen", "localhost:0", tags_});
  EXPECT_THAT(sim.read_line(), testing::StartsWith("listening on 127.0.0.1:"));
}

}  // namespace
}  // namespace plc_sim
