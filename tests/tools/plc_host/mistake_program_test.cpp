// Tests of what plc-host says of mistakes on its command line, word by word.
#include <algorithm>
#include <filesystem>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class MistakeTest : public ProgramTest {
 protected:
  // In the folder of the test, with the words of a line.
  Outcome type(const std::string& line) {
    write_file("typed", "cd " + folder_.path() + "\nexec " PLC_HOST_PROGRAM " " + line + "\n");
    return run_words({"/bin/sh", path("typed")});
  }
};

struct Mistake {
  const char* line;
  int code;
  const char* said;  // behind "plc-host: "
};

void PrintTo(const Mistake& mistake, std::ostream* out) { *out << mistake.line; }

constexpr Mistake kMistakes[] = {
    {"", 2, "which command: info, tags, check, read, write, batch, watch, why or survey?"},
    {"check --rules T999", 2, "no rule is called T999: they are called as T042; check --rules lists them"},
    {"raed X", 2, "unknown command 'raed', did you mean read?"},
    {"frobnicate", 2,
     "unknown command 'frobnicate'; the commands are info, tags, check, read, write, batch, watch, why or survey; "
     "plc-host "
     "--help tells more"},
    {"get X", 2, "unknown command 'get', did you mean read?"},
    {"set X=1", 2, "unknown command 'set', did you mean write?"},
    {"list machine.csv", 2, "unknown command 'list', did you mean tags?"},
    {"config", 2, "unknown command 'config', did you mean info?"},
    {"version", 2, "unknown command 'version', did you mean --version?"},
    {"read --host 127.0.0.1 X", 2, "unknown option --host, did you mean --address?"},
    {"read --ip 127.0.0.1 X", 2, "unknown option --ip, did you mean --address?"},
    {"read --plc=127.0.0.1 X", 2, "unknown option --plc, did you mean --address?"},
    {"read --file machine.csv X", 2, "unknown option --file, did you mean --tags?"},
    {"read \xE2\x80\x93"
     "address 127.0.0.1 X",
     2,
     "\xE2\x80\x93"
     "address begins with a dash that is not a hyphen: write --address; plc-host read --help tells more"},
    {"read X -\xE2\x80\x94"
     "address=127.0.0.1",
     2,
     "-\xE2\x80\x94"
     "address begins with a dash that is not a hyphen: write --address; plc-host read --help tells more"},
    {"read \xE2\x88\x92v X", 2,
     "\xE2\x88\x92v begins with a dash that is not a hyphen: write -v; plc-host read --help tells more"},
    {"\xE2\x80\x94hlep", 2, "\xE2\x80\x94hlep begins with a dash that is not a hyphen, did you mean --help?"},
    {"read X --tags --quiet", 2,
     "--tags lacks its value: --quiet is an option; write --tags=--quiet if that is meant; plc-host read --help tells "
     "more"},
    {"watch Speed --sim machine.csv --log --quiet", 2,
     "--log lacks its value: --quiet is an option; write --log=--quiet if a file is called so; plc-host watch --help "
     "tells more"},
    {"watch Speed --sim machine.csv --log -", 2,
     "--log -: name a file; one that is called so is ./-; plc-host watch --help tells more"},
    {"why Speed --sim machine.csv --pcap -", 2,
     "--pcap -: name a file; one that is called so is ./-; plc-host why --help tells more"},
    {"read X --sim machine.csv --sim-arg='--fault close'", 2,
     "--sim-arg '--fault close' is one word: write --sim-arg=--fault=close"},
    {"read X --sim machine.csv --sim-arg='--fault delay 200'", 2,
     "--sim-arg '--fault delay 200' is one word: write --sim-arg='--fault=delay 200'"},
    {"check machine.csv --live --sim machine.csv --sim-arg='--fault close'", 2,
     "--sim-arg '--fault close' is one word: write --sim-arg=--fault=close"},
    {"read --address 192.168.000.010:8500 X", 2,
     "--address 192.168.000.010:8500: write it without leading zeros: 192.168.0.10"},
    {"read --address 192.168.0.0256 X", 2,
     "--address 192.168.0.0256: an IPv4 address has four numbers up to 255: give one like 192.168.0.10 or plc1.local, "
     "with :8500 behind it or without"},
    {"read --address 0.0.0.0 X", 2,
     "--address 0.0.0.0: no machine has this address: give one like 192.168.0.10 or plc1.local, with :8500 behind it "
     "or without"},
    {"read --address ' 127.0.0.1' X", 2,
     "--address ' 127.0.0.1': this is not an address: give one like 192.168.0.10 or plc1.local, with :8500 behind it "
     "or "
     "without"},
    {"read --address -1 X", 2,
     "--address -1: this is not an address: give one like 192.168.0.10 or plc1.local, with :8500 behind it or "
     "without"},
    {"read --address 127.0.0.1: X", 2,
     "--address '127.0.0.1:': behind the colon stands the port: give a number from 1 to 65535"},
    {"read --address 127.0.0.1/24 X", 2,
     "--address 127.0.0.1/24: this is not an address: give one like 192.168.0.10 or plc1.local, with :8500 behind it "
     "or "
     "without"},
    {"read --address 127.0.0.1 --timeout 2s X", 2, "--timeout 2s: give whole seconds, from 1 to 86400"},
    {"read --address 127.0.0.1 --timeout 99999999999999999999 X", 2,
     "--timeout 99999999999999999999: give whole seconds, from 1 to 86400"},
    {"read --address 127.0.0.1 --address 127.0.0.2 X", 2, "--address is given twice; plc-host read --help tells more"},
    {"read --sim machine.csv --sim machine.csv X", 2, "--sim is given twice; plc-host read --help tells more"},
    {"read --sim machine.csv --profile folder X", 2,
     "--profile: cannot read folder: it is a folder. Try: the profile.toml that plc-host survey wrote"},
    {"read --sim machine.csv --profile none.toml X", 2,
     "--profile: cannot read none.toml: No such file or directory. Try: the profile.toml that plc-host survey wrote"},
    {"read --sim machine.csv --simulator ./none X", 6,
     "cannot start ./none: No such file or directory. Try: --simulator with the path of a plc-sim"},
    {"read --sim machine.csv --names-from folder", 2, "--names-from: cannot read folder: it is a folder"},
    {"read --sim machine.csv --names-from latin.txt", 2,
     "--names-from latin.txt: line 2 is not UTF-8: the list was probably saved as Latin-1 (ANSI). Try: save it as "
     "UTF-8"},
    {"write --sim machine.csv --names-from valueless.txt", 2,
     "--names-from valueless.txt: line 2: Total gives no value: write NAME=VALUE in each line"},
    {"read --sim machine.csv Speed --json --csv", 2, "which form? Give one of --json, --csv, --raw and --format"},
    {"read --sim machine.csv --id 5 Speed", 2, "--id reads one register: no names with it"},
    {"read --sim machine.csv --offset 3 Speed", 2, "--offset requires --id; plc-host read --help tells more"},
    {"write --sim machine.csv --dry-run --verify Speed=4", 2,
     "--verify and --dry-run exclude each other; plc-host write --help tells more"},
    {"write --sim machine.csv Speed = 4", 2, "Speed gives no value: write it as Speed=VALUE, in one word"},
    {"check folder", 4, "cannot read folder: it is a folder. Try: name the tag files in it, folder/*.csv"},
    {"read --sim folder X", 4, "cannot read the tag file folder: it is a folder. Try: name one of its files"},
    {"help nothing", 2,
     "unknown command 'nothing'; the commands are info, tags, check, read, write, batch, watch, why or survey"},
    {"help --version", 2, "help takes a command, not --version"},
    {"check machine.csv --fix machine.csv", 8,
     "cannot write machine.csv: it is a file that is read. Try: name another file"},
    {"check --rules T042 --json", 2, "--rules lists the rules as text: neither --json nor --sarif goes with it"},
    {"tags machine.csv --area 5", 2, "--area is that of a controller: give its --address too, or leave --area out"},
    {"tags --new X INT --id 16777216", 2,
     "--id 16777216: give a number from 0 to 16777215; plc-host tags --help tells more"},
    {"watch --sim machine.csv Speed --rounds 0", 2,
     "--rounds 0: give a number from 1 to 4294967295; plc-host watch --help tells more"},
    {"watch --sim machine.csv Speed --log a.csv --deadband nan", 2,
     "--deadband nan: give a number of 0 or more; plc-host watch --help tells more"},
    {"why --capture none.pcap Speed", 2, "none.pcap: cannot be read: No such file or directory"},
    {"why --sim machine.csv Speed Total", 2, "which variable? One NAME or --id"},
    {"survey --sim machine.csv --output out --hours -1", 2,
     "--hours -1: give hours, from 0 to 1000, as 8 or 0.5; plc-host survey --help tells more"},
    {"info --address x", 2,
     "info has no --address, which is for tags, check, read, write, batch, watch, why or survey; plc-host info --help "
     "tells more"},
    {"help raed", 2, "unknown command 'raed', did you mean read?"},
    {"help read write", 2, "help takes one command"},
    {"check --rules machine.csv", 2, "--rules lists the rules and checks no file: leave machine.csv away"},
    {"--port 8500 read X", 2, "--port stands behind the command: read --port; plc-host --help tells more"},
    {"read --adress 127.0.0.1 --port 8500 X", 2, "unknown option --adress, did you mean --address?"},
    {"read --frobnicate X", 2, "unknown option --frobnicate; plc-host read --help tells more"},
    {"-help", 2, "unknown option -help, did you mean --help?"},
    {"--read X", 2, "read is a command: write it without dashes; plc-host --help tells more"},
    {"read '--address 127.0.0.1 X'", 2,
     "'--address 127.0.0.1 X' is one word: write --address and its value apart; plc-host read --help tells more"},
    {"read --address http://127.0.0.1 X", 2, "--address http://127.0.0.1: leave http:// away"},
    {"read --sim machine.csv ''", 2, "a name is empty: give the one of a variable"},
    {"write --sim machine.csv =5", 2, "a name is empty: give the one of a variable"},
    {"read -x X", 2, "unknown option -x; plc-host read --help tells more"},
    {"read -minus --sim machine.csv", 2,
     "unknown option -m in -minus: a NAME that begins with - stands behind --, as in read -- -minus; plc-host read "
     "--help tells more"},
    {"write --sim machine.csv -minus=3", 2,
     "unknown option -m in -minus=3: a NAME=VALUE that begins with - stands behind --, as in write -- -minus=3; "
     "plc-host write --help tells more"},
    {"info -foo", 2, "unknown option -f; plc-host info --help tells more"},
    {"tags machine.csv --address 127.0.0.1", 2,
     "machine.csv is a file, not a variable: a tag file is given with --tags machine.csv"},
    {"tags machine.csv empty.csv", 2, "which tag file? One FILE: empty.csv stands where names do"},
    {"read empty.csv X", 2, "empty.csv is a file, not a variable: a tag file is given with --tags empty.csv"},
    {"watch latin.txt --address 127.0.0.1", 2,
     "latin.txt is a file, not a variable: a list of names is given with --names-from latin.txt"},
    {"why empty.csv", 2, "empty.csv is a file, not a variable: a tag file is given with --tags empty.csv"},
    {"write empty.csv Speed=1", 2, "empty.csv is a file, not a variable: a tag file is given with --tags empty.csv"},
    {"write --sim machine.csv empty.csv Speed=1", 2,
     "empty.csv is a file, not a variable: a tag file is given with --tags empty.csv"},
    {"read none.csv X", 2, "which controller? Give --address HOST, or --sim TAGFILE for a simulated one"},
    {"check --live machine.csv --sim machine.csv --address 127.0.0.1", 2, "--address and --sim exclude each other"},
    {"check --live machine.csv --sim machine.csv --driver contract", 3,
     "--live needs the guarded build: the contract build takes refusals for values; --driver chose contract. Try: "
     "--driver guarded"},
    {"batch --id 3 --sim machine.csv", 2,
     "batch has no --id, which is for tags, read or why; plc-host batch --help tells more"},
    {"write 'Table[0..2]=[1,' 2, '3]' --sim machine.csv", 2,
     "a list with blanks is several words: quote it, as in 'Table[0..2]=[1, 2, 3]'"},
    {"read --verify X", 2, "read has no --verify, which is for write; plc-host read --help tells more"},
    {"read X --address", 2, "--address lacks its value; plc-host read --help tells more"},
    {"read X --area 1 --area=2", 2, "--area is given twice; plc-host read --help tells more"},
    {"read --json=yes X", 2, "--json takes no value; plc-host read --help tells more"},
    {"read -v -q X", 2, "--quiet and --verbose exclude each other; plc-host read --help tells more"},
    {"info x", 2, "nothing is known to do with 'x'; plc-host info --help tells more"},
    {"tags", 2, "which tag file? Give FILE, or --address HOST for the one that the driver would take"},
    {"check", 2, "which tag file? Give FILE"},
    {"check --fix made.csv", 2, "--fix made.csv names the file to write; which tag file? Give FILE"},
    {"write --sim a", 2, "what to write? Give NAME=VALUE"},
    {"read X", 2, "which controller? Give --address HOST, or --sim TAGFILE for a simulated one"},
    {"read --sim machine.csv --address 127.0.0.1 X", 2, "--address and --sim exclude each other"},
    {"read --sim machine.csv --port 1 X", 2, "--port and --sim exclude each other"},
    {"why --capture a.pcap --address 127.0.0.1 X", 2, "--address and --capture exclude each other"},
    {"read --address 127.0.0.1 --port 99999 X", 2, "--port 99999: give a number from 1 to 65535"},
    {"read --address 127.0.0.1 --port= X", 2,
     "--port lacks its value: nothing stands behind the =; plc-host read --help tells more"},
    {"check ''", 4, "cannot read '': No such file or directory"},
    {"tags ''", 4, "cannot read the tag file '': No such file or directory"},
    {"check --rules ''", 2, "--rules lists the rules and checks no file: leave '' away"},
    {"read --format '' --sim machine.csv X", 2,
     "--format '': give text, json (an object a line) or csv; plc-host read --help tells more"},
    {"watch Speed --sim machine.csv --log a.csv --rotate ''", 2,
     "--rotate '': give a size from 1kB to 1000GB, daily, or both as 10MB,daily; plc-host watch --help tells more"},
    {"watch Speed --sim machine.csv --log a.csv --rotate daily,daily", 2,
     "--rotate daily,daily has daily twice: leave one out; plc-host watch --help tells more"},
    {"watch Speed --sim machine.csv --log a.csv --rotate 1MB,daily,2MB", 2,
     "--rotate 1MB,daily,2MB has two sizes: leave one out; plc-host watch --help tells more"},
    {"read --profile machine.csv --address 127.0.0.1 X", 2,
     "machine.csv:1:6: this is no TOML: no line sets a key, as in name = \"value\""},
    {"read --address 127.0.0.1 --port 0 X", 2, "--port 0: give a number from 1 to 65535"},
    {"read --address 127.0.0.1 --port http X", 2, "--port http: give a number from 1 to 65535"},
    {"read --address 127.0.0.1 --area -1 X", 2, "--area -1: give a number from 0 to 65535"},
    {"read --address 127.0.0.1 --timeout 0 X", 2, "--timeout 0: give whole seconds, from 1 to 86400"},
    {"read --address 127.0.0.1:1 --port 2 X", 2, "--address 127.0.0.1:1 and --port 2 name two ports: leave one out"},
    {"read --address 127.0.0.1:70000 X", 2,
     "--address 127.0.0.1:70000: behind the colon stands the port: give a number from 1 to 65535"},
    {"read --address [::1]:8500 X", 2,
     "--address [::1]:8500: the driver has no IPv6: give one like 192.168.0.10 or plc1.local, with :8500 behind it or "
     "without"},
    {"read --address ::1 X", 2,
     "--address '::1': the driver has no IPv6: give one like 192.168.0.10 or plc1.local, with :8500 behind it or "
     "without"},
    {"read --address 192.168.0 X", 2,
     "--address 192.168.0: an IPv4 address has four numbers up to 255: give one like 192.168.0.10 or plc1.local, with "
     ":8500 behind it or without"},
    {"read --address 'no where' X", 2,
     "--address no where: this is not an address: give one like 192.168.0.10 or plc1.local, with :8500 behind it or "
     "without"},
    {"read --driver guardd --address 127.0.0.1 X", 2,
     "--driver guardd: there is no such driver, did you mean guarded? A driver is guarded, contract, or the path of a "
     "library"},
    {"read --driver guardd.x --address 127.0.0.1 X", 3,
     "--driver guardd.x: there is no such driver. A driver is guarded, contract, or the path of a library"},
    {"read --color blue --address 127.0.0.1 X", 2, "--color blue: give auto, always or never"},
    {"read --id x --sim machine.csv", 2, "--id x: give a number from 0 to 4294967295; plc-host read --help tells more"},
    {"read --id 1 --offset 65536 --sim machine.csv", 2,
     "--offset 65536: give a number from 0 to 65535; plc-host read --help tells more"},
    {"watch --interval fast --sim machine.csv Speed", 2,
     "--interval fast: give whole milliseconds, from 0 to 86400000; plc-host watch --help tells more"},
    {"read --address 127.0.0.1 --delay 1.5 X", 2, "--delay 1.5: give whole milliseconds, from 0 to 1000000"},
    {"tags --new X INT --id -1", 2, "--id -1: give a number from 0 to 16777215; plc-host tags --help tells more"},
    {"tags --new X INT --program-number 3", 2, "--program-number requires --scope; plc-host tags --help tells more"},
    {"tags --new X INT --after ''", 2, "--after: name a file; plc-host tags --help tells more"},
    {"tags --new X INT --after empty.csv", 4,
     "empty.csv: the file is empty. Try: without --after for the first line of a file"},
    {"tags --new MAIN/Speed DINT", 2, "'MAIN/Speed' names a program: write tags --new Speed DINT --scope MAIN"},
    {"tags --new MAIN/Name 'STRING(20)'", 2,
     "'MAIN/Name' names a program: write tags --new Name 'STRING(20)' --scope MAIN"},
    {"write Speed --sim machine.csv", 2, "Speed gives no value: write it as Speed=VALUE, in one word"},
    {"write --sim machine.csv Speed: 5", 2, "Speed: gives no value: write it as Speed=VALUE, in one word"},
    {"tags nofile.csv", 4, "cannot read the tag file nofile.csv: No such file or directory"},
    {"tags .", 4, "cannot read the tag file .: it is a folder. Try: name one of its files"},
    {"read --address 127.0.0.1 --tags /usr X", 4,
     "cannot read the tag file /usr/PLC7F000001_0.csv: No such file or directory"},
    {"read --sim nofile.csv X", 4, "cannot read the tag file nofile.csv: No such file or directory"},
    {"read --address 127.0.0.1 --area 7 X", 4,
     "there is no PLC7F000001_7.csv in this folder, the tag file of 127.0.0.1:8500 and area 7; there is that of area 0 "
     "or 12. Try: --tags FILE, or --area 0"},
    {"read --address 200.123.45.67 X", 4,
     "there is no PLCC87B2D43_0.csv in this folder, the tag file of 200.123.45.67:8500 and area 0. Try: --tags FILE"},
    {"read --address 127.0.0.1 --area 1 X", 4,
     "there is no PLC7F000001_1.csv in this folder, the tag file of 127.0.0.1:8500 and area 1; PLC07F000001_1.csv is "
     "called differently. Try: rename it, or --tags PLC07F000001_1.csv"},
    {"read --address 10.1.2.4 X", 4,
     "there is no PLCA010204_0.csv in this folder, the tag file of 10.1.2.4:8500 and area 0; PLCA010204_00.csv is "
     "called differently. Try: rename it, or --tags PLCA010204_00.csv"},
    {"tags empty.csv", 4, "the driver cannot use the tag file empty.csv. Try: plc-host check empty.csv"},
};

class MistakeLineTest : public MistakeTest, public testing::WithParamInterface<Mistake> {};

INSTANTIATE_TEST_SUITE_P(Lines, MistakeLineTest, testing::ValuesIn(kMistakes), [](const auto& instance) {
  std::string name = "n" + std::to_string(instance.index) + "_" + instance.param.line;
  std::replace_if(
      name.begin(), name.end(), [](char sign) { return std::isalnum(static_cast<unsigned char>(sign)) == 0; }, '_');
  return name;
});

TEST_P(MistakeLineTest, SaysWhatIsWrongAndWhatToDo) {
  write_file("PLC7F000001_0.csv", kTagFile);
  write_file("PLC7F000001_12.csv", kTagFile);
  // What the driver would look for at no address and no area.
  write_file("PLC7F000001_70000.csv", kTagFile);
  write_file("PLC07F000001_1.csv", kTagFile);
  write_file("PLCA010204_00.csv", kTagFile);
  write_file("empty.csv", "");
  write_file("latin.txt", "Speed\nK\xFChlung\n");
  write_file("valueless.txt", "Speed = 4\nTotal\n");
  std::filesystem::create_directory(path("folder"));
  const Outcome outcome = type(GetParam().line);
  EXPECT_EQ(outcome.code, GetParam().code);
  EXPECT_EQ(outcome.out, "");
  if (GetParam().said != nullptr) {
    EXPECT_EQ(outcome.err, std::string("plc-host: ") + GetParam().said + "\n");
  } else {
    EXPECT_THAT(outcome.err, HasSubstr("nofile.csv: No such file or directory\n"));
  }
}

TEST_F(MistakeTest, HostThatNobodyKnows_HasTheSystemsReason) {
  const Outcome outcome = type("read --address no-such-host.invalid X");
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err, StartsWith("plc-host: the system knows no host called 'no-such-host.invalid': "));
  EXPECT_THAT(outcome.err, EndsWith(". Try: its address, like 192.168.0.10, or correct the name\n"));
}

TEST_F(MistakeTest, NameThatIsWrittenWrongly_IsToldHow) {
  const auto said = [this](const std::string& words) {
    return type(words + " --sim machine.csv --simulator " PLC_HOST_SIMULATOR).err;
  };
  EXPECT_EQ(said("read 'Table[1,2]'"), "plc-host: Table[1,2]: it takes 1 subscript, not 2: INT[0..9]\n");
  EXPECT_EQ(said("read 'Table[0'"),
            "plc-host: Table[0: machine.csv has no variable of this name: no ] ends its subscripts; write it as in "
            "Table[0] or Table[0..4]\n");
  EXPECT_EQ(
      said("read motor.run"),
      "plc-host: motor.run: machine.csv has no variable of this name; did you mean Motor.Run (machine.csv:15)?\n");
  write_file("names.txt", "Speed\n");
  EXPECT_EQ(
      said("read names.txt"),
      "plc-host: names.txt: machine.csv has no variable of this name; names.txt is a file, not a variable: a list of "
      "names is given with --names-from names.txt\n");
  EXPECT_EQ(said("read none.csv"),
            "plc-host: none.csv: machine.csv has no variable of this name; a tag file is given with --tags none.csv\n");
  EXPECT_EQ(said("write --dry-run 'Speed = 4'"),
            "plc-host: 'Speed ': blanks stand before the name or before the =: write 'Speed=4'\n"
            "plc-host: nothing was written\n");
  EXPECT_EQ(said("survey --output out --write 'Motor.*'"),
            "plc-host: --write Motor.*: give one variable, not a pattern\n");
  EXPECT_THAT(type("why 'Motor.*' --sim machine.csv --simulator " PLC_HOST_SIMULATOR).out,
              EndsWith("  1. why follows one variable: Motor.* is a pattern\n"
                       "     Try: Give the whole name; plc-host tags FILE 'Motor.*' lists those that match.\n"));
}

TEST_F(MistakeTest, ListOfNewTagsInLatin1_HasOneFindingWithTheCause) {
  write_file("list.csv",
             "Name;Type\nK\xFChlung;INT\nDr\xFC"
             "cke;INT\n");
  const Outcome outcome = type("tags --new --from list.csv");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err,
            "plc-host: list.csv:2: the name is not valid UTF-8\n"
            "plc-host:     The list was probably saved as Latin-1 (ANSI): save it as CSV UTF-8.\n"
            "plc-host: list.csv: and 1 more of T023\nplc-host: list.csv: nothing was written\n");
}

TEST_F(MistakeTest, HostOfADryRun_IsAskedForOnlyWhereItNamesTheTagFile) {
  const Outcome given = type("write --dry-run --address no-such-host.invalid --tags machine.csv -vv Speed=1");
  EXPECT_EQ(given.code, 0);
  EXPECT_THAT(given.out, StartsWith("Speed  INT  checked "));
  EXPECT_THAT(given.err, EndsWith("plc-host: 1 variable checked, nothing was sent\n"));
  EXPECT_THAT(given.err, Not(HasSubstr("no-such-host")));
  const Outcome missing = type("write --dry-run --address no-such-host.invalid Speed=1");
  EXPECT_EQ(missing.code, 7);
  EXPECT_THAT(missing.err, EndsWith(". Try: its address, like 192.168.0.10, or correct the name; or --tags FILE: "
                                    "--dry-run needs the address only for the tag file's name\n"));
}

TEST_F(MistakeTest, HostOfACheck_LeavesTheFileCheckedWithoutIt) {
  const Outcome good = type("check --address no-such-host.invalid machine.csv");
  EXPECT_EQ(good.code, 7);
  EXPECT_THAT(good.out,
              EndsWith("machine.csv: the driver reads 22 plain records and 1 run of indexed ids up to 262146\n"));
  EXPECT_THAT(good.err, EndsWith(" or correct the name. The address tells what the file has to be called; all else was "
                                 "checked\n"));
  write_file("bad.csv", "Speed,INT,,,,,,0,1,0,0,");
  EXPECT_EQ(type("check --address no-such-host.invalid bad.csv").code, 1);
}

TEST_F(MistakeTest, UnknownName_IsToldWithNearOnesAndTheirPlace) {
  for (const char* command : {"read Sped", "batch Sped", "write Sped=1"}) {
    const Outcome outcome = type(std::string(command) + " --sim machine.csv --simulator " PLC_HOST_SIMULATOR);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, StartsWith("plc-host: Sped: machine.csv has no variable of this name; did you mean Speed "
                                        "(machine.csv:2)?\n"));
  }
  const Outcome member = type("read Motor --sim machine.csv --simulator " PLC_HOST_SIMULATOR);
  EXPECT_EQ(member.err,
            "plc-host: Motor: machine.csv has no variable of this name; did you mean Motor.Run (machine.csv:15)?\n");
  const Outcome far = type("read Frobnicate --sim machine.csv --simulator " PLC_HOST_SIMULATOR);
  EXPECT_EQ(far.err, "plc-host: Frobnicate: machine.csv has no variable of this name\n");
  const Outcome watch = type("watch Sped --sim machine.csv --simulator " PLC_HOST_SIMULATOR);
  EXPECT_EQ(watch.code, 1);
  EXPECT_EQ(watch.err,
            "plc-host: Sped: machine.csv has no variable of this name; did you mean Speed (machine.csv:2)?\n");
}

TEST_F(MistakeTest, PortThatNobodyListensOn_IsNamedWithEitherBuild) {
  const std::string target = " --quiet --address 127.0.0.1:" + port_ + " --tags machine.csv ";
  const std::string refused = "refused: nothing listens on 127.0.0.1:" + port_;
  const std::string advice = ". Try: Check the port, and whether the controller's host link is switched on.\n";
  const Outcome guarded = type("read --driver " PLC_HOST_GUARDED + target + "Speed");
  EXPECT_EQ(guarded.code, 7);
  EXPECT_EQ(guarded.err, "plc-host: Speed: " + refused + " (2)" + advice);
  for (const char* command : {"read", "batch"}) {
    const Outcome contract = type(std::string(command) + " --driver " PLC_HOST_LIBRARY + target + "Speed");
    EXPECT_EQ(contract.code, 7) << command;
    EXPECT_EQ(contract.err, "plc-host: Speed: " + refused + " (3)" + advice) << command;
  }
}

TEST_F(MistakeTest, Help_FitsATerminalAndHasAnExample) {
  for (const char* command : {"", "info", "tags", "check", "read", "write", "batch", "watch", "why"}) {
    const Outcome help = type(std::string("help ") + command);
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out, HasSubstr("\n  plc-host " + std::string(command)));
    for (const std::string& line : lines_of(help.out)) EXPECT_LE(line.size(), 80U) << line;
    EXPECT_EQ(help.out, type(std::string(command) + " --help").out);
  }
  EXPECT_EQ(type("-V").out, type("--version").out);
}

TEST_F(MistakeTest, Color_IsForTerminalsUnlessToldOtherwise) {
  const std::string line = " Sped --sim machine.csv --simulator " PLC_HOST_SIMULATOR;
  EXPECT_EQ(count_of(type("read" + line).err, "\033"), 0U);
  const Outcome always = type("read --color always" + line);
  EXPECT_EQ(always.err.find("\033[31mplc-host:\033[0m Sped: "), 0U) << always.err;
  EXPECT_THAT(always.out, HasSubstr("\033[31mimpossible   \033[0m"));
  setenv("NO_COLOR", "1", 1);
  EXPECT_THAT(type("read --color always" + line).err, HasSubstr("\033[31m"));
  unsetenv("NO_COLOR");
}

TEST_F(MistakeTest, WhyWithWordsThatDoNotFit_IsRefused) {
  const std::vector<std::vector<std::string>> wrong = {{"why", "--sim", "a.csv"},
                                                       {"why", "Speed"},
                                                       {"why", "Speed", "Total", "--sim", "a.csv"},
                                                       {"why", "Speed", "--id", "1", "--sim", "a.csv"},
                                                       {"why", "Speed", "--capture", "a", "--sim", "a.csv"},
                                                       {"why", "Speed", "--capture", "a", "--pcap", "b"},
                                                       {"why", "Speed", "--capture-port", "1", "--sim", "a.csv"}};
  for (const std::vector<std::string>& words : wrong) {
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.code, 2) << words.back();
    EXPECT_NE(outcome.err, "") << words.back();
    EXPECT_EQ(outcome.out, "") << words.back();
  }
}

TEST_F(MistakeTest, FolderForTemporaryFilesThatIsNotThere_IsNoFaultOfTheTagFile) {
  setenv("TMPDIR", path("nowhere").c_str(), 1);
  for (const char* command : {"read", "why"}) {
    const Outcome outcome = run({command, "Speed", "--address", "127.0.0.1:" + port_, "--tags", path("machine.csv")});
    EXPECT_EQ(outcome.code, 2) << command;
    EXPECT_EQ(outcome.out, "") << command;
    EXPECT_EQ(outcome.err, "plc-host: cannot make a folder like " + path("nowhere") +
                               "/plc-host.XXXXXX: No such file or directory. Try: TMPDIR=FOLDER, one that this user "
                               "may write to\n")
        << command;
  }
}

}  // namespace
