// What a program gets wrong is thrown before anything is sent, with a sentence that names the thing and the remedy.
#include <filesystem>

#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

using plc_client::Error;
using plc_client::Input;
using plc_client::OutOfRange;
using plc_client::TypeMismatch;
using plc_client::UnknownVariable;

class MistakesTest : public ControllerTest {
 protected:
  void SetUp() override {
    start(tag_line("Motor.Speed", "INT") + tag_line("Motor.Spead", "UINT") + tag_line("Motor.On", "BOOL") +
          tag_line("Current", "REAL") + tag_line("Exact", "LREAL") + tag_line("Recipe", "STRING", "", "10") +
          tag_line("Table", "INT", "[2..5]") + tag_line("Grid", "DINT", "[0..1_0..2]") +
          tag_line("Step", "INT", "", "", "Main") + tag_line("Step", "INT", "", "", "Sub") + tag_line("Wide", "ULINT"));
    controller_ = std::make_unique<Controller>(options());
    memory_ = std::make_unique<Memory>(*sim_);
  }
  void TearDown() override {
    EXPECT_EQ(requests(), 0U);
    EXPECT_EQ(sim_->count("connections"), 0U);
    EXPECT_TRUE(memory() == *memory_);
    ControllerTest::TearDown();
  }

  std::string made(const Options& options) {
    return thrown<Error>([&] { Controller made(options); });
  }
  template <typename Wanted>
  std::string read(const std::string& name) {
    return thrown<Wanted>([&] { controller_->read(name); });
  }
  template <typename Wanted>
  std::string write(const std::string& name, const Input& value) {
    return thrown<Wanted>([&] { controller_->write(name, value); });
  }
  std::string tag_file() const { return folder_.file("PLC7F000001_0.csv"); }

  std::unique_ptr<Controller> controller_;
  std::unique_ptr<Memory> memory_;
};

TEST_F(MistakesTest, Folder_IsNamedWithWhatItLacks) {
  Options wrong = options();
  const plc_test::TempDir empty;
  wrong.tags = {empty.path()};
  const std::string remedy =
      ": give the controller's tag file this name (its address in hexadecimal, its area), or name the file itself";
  EXPECT_EQ(made(wrong), "the folder " + empty.path() + " has no PLC7F000001_0.csv" + remedy);
  empty.write("b.csv", "x");
  empty.write("PLC7F000002_0.csv", "x");
  EXPECT_EQ(made(wrong),
            "the folder " + empty.path() + " has no PLC7F000001_0.csv, only PLC7F000002_0.csv, b.csv" + remedy);
  wrong.tags = {empty.file("none")};
  EXPECT_EQ(made(wrong), "cannot open the tag file or folder " + empty.file("none") + ": No such file or directory");
  wrong.tags = {"no_such_folder/"};
  EXPECT_EQ(made(wrong),
            "cannot open the tag file or folder no_such_folder/: No such file or directory; "
            "the program runs in " +
                std::filesystem::current_path().string());
  wrong.tags = {};
  EXPECT_EQ(made(wrong), "no tag file is given: name the folder with PLC<address>_<area>.csv, or the file itself");
  wrong.tags = {""};
  EXPECT_EQ(made(wrong), "the name of a tag file is empty");
  wrong.tags = {folder_.path(), tag_file()};
  EXPECT_EQ(made(wrong), "both " + folder_.path() + "/PLC7F000001_0.csv and " + tag_file() +
                             " are given for area 0: an area has one tag file");
}

TEST_F(MistakesTest, FileThatIsNoTagFile_IsNamed) {
  Options wrong = options();
  wrong.tags = {folder_.write("empty.csv", "")};
  EXPECT_THAT(made(wrong), testing::StartsWith("the driver finds no variable in the tag file " + wrong.tags.front()));
  wrong.tags = {folder_.write("letter.txt", "Dear Sir,\nthe press, INT, is slow.\n\nYours\n")};
  EXPECT_EQ(made(wrong),
            wrong.tags.front() + " is not a tag file: none of its 4 lines has a type in its second column");
  wrong.tags = {PLC_TEST_SIMULATOR};
  EXPECT_THAT(made(wrong), testing::StartsWith(PLC_TEST_SIMULATOR " is not a tag file: none of its "));
}

TEST_F(MistakesTest, Address_IsNamed) {
  Options wrong = options();
  wrong.port = 0;
  EXPECT_EQ(made(wrong), "port 0 is none: give one from 1 to 65535");
  wrong = options();
  wrong.address = "";
  EXPECT_EQ(made(wrong), "the controller's address is empty: give one like 192.168.0.10");
  wrong.address = "no-such-host.invalid";
  EXPECT_THAT(
      made(wrong),
      testing::StartsWith("'no-such-host.invalid' is not an address, and the system knows no host of that name: "));
  for (const char* address : {"127.0.0", "8500", "10.1", "1.2.3.256", "0x7F000001"}) {
    wrong.address = address;
    EXPECT_EQ(made(wrong), "the controller's address '" + wrong.address +
                               "': an IPv4 address has four numbers up to 255; give one like 192.168.0.10");
  }
  wrong.address = "127.000.000.001";
  EXPECT_EQ(made(wrong), "the controller's address '127.000.000.001': write it without leading zeros: 127.0.0.1");
  wrong.address = "0.0.0.0";
  EXPECT_EQ(made(wrong), "the controller's address '0.0.0.0': no machine has this address; give one like 192.168.0.10");
  wrong.address = "127.0.0.1:8500";
  EXPECT_THAT(made(wrong), testing::EndsWith("; give an IPv4 address or a name, without a port"));
  wrong = options();
  wrong.delay_ms = 1001;
  EXPECT_EQ(made(wrong), "a delay is at most 1000 ms");
  wrong = options();
  wrong.reply_timeout_s = 86401;
  EXPECT_EQ(made(wrong), "a reply time-out is from 1 to 86400 s");
  wrong.reply_timeout_s = 0;
  EXPECT_EQ(made(wrong), "a reply time-out is from 1 to 86400 s");
}

// The system would take what stands before it, which is somebody else's name.
TEST_F(MistakesTest, ZeroByteInAnAddressOrAPath_IsRefused) {
  const std::string more("\0.csv", 5);
  Options wrong = options();
  wrong.address = "127.0.0.1" + more;
  EXPECT_THAT(made(wrong), testing::StartsWith("'127.0.0.1\\x00.csv' is not an address, and the system knows no host"));
  const std::string told = "cannot read " + folder_.file("there") + "\\x00.csv: no file has a zero byte in its name";
  wrong = options();
  wrong.driver = folder_.write("there", "text") + more;
  EXPECT_EQ(made(wrong), "cannot load the driver library: " + told);
  wrong = options();
  wrong.profile = folder_.file("there") + more;
  EXPECT_EQ(made(wrong), told);
  wrong = options();
  const std::string tags = wrong.tags.front();
  wrong.tags = {tags + more};
  EXPECT_EQ(made(wrong),
            "cannot open the tag file or folder " + tags + "\\x00.csv: no file has a zero byte in its name");
}

TEST_F(MistakesTest, Driver_IsNamed) {
  Options wrong = options();
  wrong.driver = folder_.file("no.so");
  EXPECT_THAT(made(wrong), testing::HasSubstr(folder_.file("no.so")));
  wrong.driver = "gaurded";
  EXPECT_THAT(made(wrong), testing::EndsWith("; a driver is guarded, contract, or a library's path"));
  wrong.driver = folder_.write("text.so", "text");
  EXPECT_THAT(made(wrong), testing::StartsWith("cannot load the driver library " + folder_.file("text.so") + ": "));
}

TEST_F(MistakesTest, Name_IsNamedWithThoseNearIt) {
  EXPECT_EQ(read<UnknownVariable>(""), "the name of a variable is empty");
  const std::string place = " (" + folder_.path() + "/PLC7F000001_0.csv:";
  EXPECT_EQ(read<UnknownVariable>("Motor.Sped"), "Motor.Sped: " + folder_.path() +
                                                     "/PLC7F000001_0.csv has no variable of this name; did you mean "
                                                     "Motor.Spead or Motor.Speed" +
                                                     place + "2)?");
  EXPECT_EQ(read<UnknownVariable>("Step"), "Step: which of them: Main/Step, Sub/Step?");
  EXPECT_EQ(read<UnknownVariable>("zzzzzzzzzzzz"),
            "zzzzzzzzzzzz: " + folder_.path() + "/PLC7F000001_0.csv has no variable of this name");
  try {
    controller_->read("Tabel[3]");
    FAIL();
  } catch (const UnknownVariable& error) {
    EXPECT_EQ(error.near(), std::vector<std::string>{"Table"});
  }
}

TEST_F(MistakesTest, NameThatIsNone_SaysWhatItMayHaveMeant) {
  const std::string place = folder_.path() + "/PLC7F000001_0.csv";
  const std::string none = ": " + place + " has no variable of this name";
  EXPECT_EQ(read<UnknownVariable>("Motor"),
            "Motor" + none + "; did you mean Motor.Speed, Motor.Spead or Motor.On (" + place + ":1)?");
  EXPECT_EQ(read<UnknownVariable>("Mot"), "Mot" + none);
  EXPECT_EQ(read<UnknownVariable>("zzzz[1][2]"),
            "zzzz[1][2]" + none + "; subscripts stand in one pair of brackets: [1,2]");
  EXPECT_EQ(read<UnknownVariable>("Grid[1][2]"), "Grid[1][2]" + none + "; did you mean Grid[1,2] (" + place + ":8)?");
  EXPECT_EQ(read<UnknownVariable>("Table(3)"), "Table(3)" + none + "; did you mean Table[3] (" + place + ":7)?");
  EXPECT_EQ(read<UnknownVariable>("zzzzzz.*"),
            "zzzzzz.*" + none + "; patterns are for match() and, in Python, watch()");
  EXPECT_EQ(read<UnknownVariable>("zzzzzz\n\xff"), "zzzzzz\\n\\xff" + none);
  EXPECT_EQ(read<UnknownVariable>(std::string("zzzzzz\0z", 8)), "zzzzzz\\x00z" + none);
}

TEST_F(MistakesTest, Subscripts_AreComparedWithTheDeclaration) {
  EXPECT_EQ(read<OutOfRange>("Table[6]"), "Table[6]: subscript 6 is outside 2..5");
  EXPECT_EQ(read<OutOfRange>("Table[1..3]"), "Table[1..3]: subscript 1..3 is outside 2..5");
  EXPECT_EQ(read<TypeMismatch>("Table[2,3]"), "Table[2,3]: it takes 1 subscript, not 2: INT[2..5]");
  EXPECT_EQ(read<TypeMismatch>("Grid[1]"), "Grid[1]: it takes 2 subscripts, not 1: DINT[0..1,0..2]");
  EXPECT_EQ(read<TypeMismatch>("Current[1]"), "Current[1]: it is not an array: REAL");
  EXPECT_EQ(read<UnknownVariable>("Table[x]"), "Table[x]: 'x' is not a subscript: write 3 or 0..4");
  EXPECT_EQ(read<OutOfRange>("Table[4..3]"), "Table[4..3]: subscript 4..3 runs backwards");
  for (const char* subscript : {"99999999999999999999", "-99999999999999999999", "0..99999999999", "99999999999..0"}) {
    EXPECT_EQ(read<OutOfRange>("Table[" + std::string(subscript) + "]"),
              "Table[" + std::string(subscript) + "]: subscript " + subscript + " is outside 2..5");
  }
}

TEST_F(MistakesTest, LongDoubleThatNoVariableHolds_IsRefused) {
  using Limits = std::numeric_limits<long double>;
  const auto made_of = [](long double number) { return thrown<OutOfRange>([&] { const Input input(number); }); };
  EXPECT_EQ(made_of(1.5L), "");
  EXPECT_EQ(made_of(0.0L), "");
  EXPECT_EQ(made_of(Limits::infinity()), "");
  EXPECT_EQ(made_of(Limits::quiet_NaN()), "");
  if (sizeof(long double) == sizeof(double)) return;
  for (const long double number : {Limits::max(), Limits::lowest(), Limits::min(), -Limits::min()}) {
    EXPECT_EQ(made_of(number), "a long double is beyond the range of double, the widest type that variables have");
  }
}

TEST_F(MistakesTest, ValueOfAnotherType_IsNamedWithTheDeclaration) {
  EXPECT_EQ(write<TypeMismatch>("Recipe", 5), "Recipe is declared STRING(10): an integer is not a text");
  EXPECT_EQ(write<TypeMismatch>("Motor.Speed", "5"), "Motor.Speed is declared INT: a text is not an integer");
  EXPECT_EQ(write<TypeMismatch>("Motor.Speed", 1.5), "Motor.Speed is declared INT: a real number is not an integer");
  EXPECT_EQ(write<TypeMismatch>("Motor.Speed", true), "Motor.Speed is declared INT: a bool is not an integer");
  EXPECT_EQ(write<TypeMismatch>("Motor.On", 2), "Motor.On is declared BOOL: an integer is not a bool");
  EXPECT_EQ(write<TypeMismatch>("Current", "1"), "Current is declared REAL: a text is not a number");
  EXPECT_EQ(write<TypeMismatch>("Current", false), "Current is declared REAL: a bool is not a number");
}

TEST_F(MistakesTest, ValueOutsideItsRange_IsNamedWithTheRange) {
  EXPECT_EQ(write<OutOfRange>("Motor.Speed", 70000), "Motor.Speed is declared INT: 70000 is outside -32768 to 32767");
  EXPECT_EQ(write<OutOfRange>("Motor.Speed", -32769), "Motor.Speed is declared INT: -32769 is outside -32768 to 32767");
  EXPECT_EQ(write<OutOfRange>("Motor.Speed", 18446744073709551615U),
            "Motor.Speed is declared INT: 18446744073709551615 is outside -32768 to 32767");
  EXPECT_EQ(write<OutOfRange>("Motor.Spead", -1), "Motor.Spead is declared UINT: -1 is outside 0 to 65535");
  EXPECT_EQ(write<OutOfRange>("Wide", -1), "Wide is declared ULINT: -1 is outside 0 to 18446744073709551615");
  EXPECT_EQ(write<OutOfRange>("Current", int64_t{1} << 60),
            "Current is declared REAL: 1152921504606846976 is beyond 16777216, up to which it holds every integer; "
            "write a real number to have it rounded");
  EXPECT_EQ(write<OutOfRange>("Exact", (int64_t{1} << 53) + 1),
            "Exact is declared LREAL: 9007199254740993 is beyond 9007199254740992, up to which it holds every integer; "
            "write a real number to have it rounded");
  EXPECT_EQ(write<OutOfRange>("Current", 1e39), "Current is declared REAL: 1e+39 is more than it can hold");
  EXPECT_EQ(write<OutOfRange>("Current", 1e-50), "Current is declared REAL: 1e-50 is nearer to 0 than it can hold");
  EXPECT_EQ(write<OutOfRange>("Current", -1e-50), "Current is declared REAL: -1e-50 is nearer to 0 than it can hold");
  EXPECT_EQ(write<OutOfRange>("Current", 7e-46), "Current is declared REAL: 7e-46 is nearer to 0 than it can hold");
}

TEST_F(MistakesTest, ListOfAnotherShape_IsNamedWithWhatIsWanted) {
  using Numbers = std::vector<int>;
  EXPECT_EQ(write<TypeMismatch>("Table", 1),
            "Table is declared INT[2..5]: an integer where a list of 4 values must stand");
  EXPECT_EQ(write<TypeMismatch>("Table", Numbers{1, 2, 3}),
            "Table is declared INT[2..5]: a list of 3 values where 4 must stand");
  EXPECT_EQ(write<TypeMismatch>("Table[2..3]", Numbers{1, 2, 3}),
            "Table[2..3] is declared INT[2..5]: a list of 3 values where 2 must stand");
  EXPECT_EQ(write<TypeMismatch>("Table[2]", Numbers{1}),
            "Table[2] is declared INT[2..5]: the list has more dimensions than what it is to be written to");
  EXPECT_EQ(write<TypeMismatch>("Grid", Numbers{1, 2}),
            "Grid is declared DINT[0..1,0..2]: an integer where a list of 3 values must stand");
  EXPECT_EQ(write<TypeMismatch>("Grid", std::vector<Numbers>{{1, 2, 3}, {1, 2}}),
            "Grid is declared DINT[0..1,0..2]: a list of 2 values where 3 must stand");
  EXPECT_EQ(write<TypeMismatch>("Recipe", std::vector<std::string>{"a"}),
            "Recipe is declared STRING(10): a list is not a text");
  EXPECT_EQ(write<OutOfRange>("Table", Numbers{1, 2, 3, 40000}),
            "Table is declared INT[2..5]: 40000 is outside -32768 to 32767");
}

TEST_F(MistakesTest, TextThatDoesNotFit_IsNamedWithItsLength) {
  EXPECT_EQ(write<OutOfRange>("Recipe", "elf bytes.."),
            "Recipe is declared STRING(10): the text has 11 bytes, at most 10 fit");
  EXPECT_EQ(write<OutOfRange>("Recipe", std::string("a\0b", 3)),
            "Recipe is declared STRING(10): a zero byte ends a text and cannot stand in it");
}

TEST_F(MistakesTest, ListWithOneMistake_SendsNothing) {
  EXPECT_THAT(thrown<UnknownVariable>([&] {
                controller_->read({"Motor.Speed", "Nobody", "Current"});
              }),
              testing::StartsWith("Nobody: "));
  EXPECT_THAT(thrown<UnknownVariable>([&] {
                controller_->plan({"Motor.Speed", "Nobody"});
              }),
              testing::StartsWith("Nobody: "));
  EXPECT_EQ(thrown<OutOfRange>([&] {
              controller_->write({{"Motor.Speed", 1}, {"Current", 1.5}, {"Motor.Spead", -1}});
            }),
            "Motor.Spead is declared UINT: -1 is outside 0 to 65535");
  EXPECT_THAT(thrown<UnknownVariable>([&] {
                controller_->write({{"Motor.Speed", 1}, {"Nobody", 1}});
              }),
              testing::StartsWith("Nobody: "));
}

TEST_F(MistakesTest, PlanOfAnotherController_IsNotRead) {
  Controller other(options());
  Plan plan = other.plan({"Motor.Speed"});
  EXPECT_EQ(thrown<Error>([&] { controller_->read(plan); }), "the plan belongs to another controller");
}

TEST_F(MistakesTest, PlanThatWasMovedAway_SaysSo) {
  Plan plan = controller_->plan({"Motor.Speed"});
  const Plan taken = std::move(plan);
  const std::string moved = "the plan was moved away: use the one that it was moved to";
  // NOLINTBEGIN(bugprone-use-after-move): that is what is tried
  EXPECT_EQ(thrown<Error>([&] { controller_->read(plan); }), moved);
  EXPECT_EQ(thrown<Error>([&] { plan.readings(); }), moved);
  EXPECT_EQ(thrown<Error>([&] { plan.exchanges(); }), moved);
  // NOLINTEND(bugprone-use-after-move)
  EXPECT_EQ(taken.exchanges(), 2U);
}

TEST_F(MistakesTest, Declarations_TellFileAndLine) {
  const plc_client::Declaration& grid = controller_->tag("Grid");
  EXPECT_EQ(grid.type, "DINT[0..1,0..2]");
  EXPECT_EQ(grid.line, 8U);
  EXPECT_EQ(grid.file, folder_.path() + "/PLC7F000001_0.csv");
  EXPECT_EQ(grid.bits, 32U);
  EXPECT_EQ(grid.kind, Kind::kSigned);
  EXPECT_EQ(controller_->tag("Sub/Step").scope, "Sub");
  EXPECT_EQ(controller_->tag("Recipe").length, 10U);
  EXPECT_EQ(controller_->match("Motor.*"), (std::vector<std::string>{"Motor.Speed", "Motor.Spead", "Motor.On"}));
  EXPECT_EQ(controller_->match("Main/S?ep"), std::vector<std::string>{"Main/Step"});
  EXPECT_EQ(controller_->match("nothing"), std::vector<std::string>{});
  EXPECT_THAT(controller_->driver_build(), testing::EndsWith(" guarded"));
}

}  // namespace
}  // namespace plc_client_test
