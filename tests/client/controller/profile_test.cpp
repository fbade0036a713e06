// What a profile sets for a controller of the client library: the driver, the time-out, and how many names go at a
// time.
#include "client/controller/profiled_options.h"

#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ProfileTest : public ControllerTest {
 protected:
  Options with_profile(const std::string& toml) {
    Options options = this->options();
    options.profile = folder_.write("press1.toml", toml);
    return options;
  }
  std::string problem(const std::string& toml) {
    return thrown<plc_client::Error>([&] { const Controller controller(with_profile(toml)); });
  }
};

TEST_F(ProfileTest, ControllerThatTakesFewNames_GivesEveryValue) {
  const std::string limit = folder_.write("limit.toml", "[limits]\nnames = 5\nvalues = 4\n");
  start(tag_line("Table", "INT", "[0..19]") + tag_line("A", "INT") + tag_line("B", "INT") + tag_line("C", "INT") +
            tag_line("D", "INT") + tag_line("E", "INT") + tag_line("F", "INT"),
        {"--sentinel", "--profile", limit});
  const std::vector<std::string> names = {"Table", "A", "B", "C", "D", "E", "F"};
  Controller without(options());
  EXPECT_EQ(without.read("Table").error.reason, Reason::kRefused);

  Controller with(with_profile("[limits]\nnames = 5\nvalues = 4\n"));
  for (const Reading& reading : with.read(names)) EXPECT_TRUE(reading.ok()) << reading.name << reading.error.text;
  EXPECT_EQ(bits_of(with.read("Table").value), memory().bits("Table", 16));
  std::vector<int> values;
  for (int i = 0; i < 20; ++i) values.push_back(100 + i);
  EXPECT_TRUE(with.write("Table", values, Verify::kReadBack).ok());
  EXPECT_EQ(memory().bits("Table", 16).back(), 119U);
}

TEST_F(ProfileTest, DriverGivenByItsPath_StaysAndHasARemarkOnWhatSpeaksAgainstIt) {
  start(tag_line("A", "INT"));
  Options options = with_profile("[guarded]\nusable = \"without status\"\n");
  std::vector<std::string> lines;
  options.log = [&lines](const std::string& line) { lines.push_back(line); };
  const Controller controller(options);
  EXPECT_THAT(controller.driver_build(), EndsWith(" guarded"));
  EXPECT_EQ(
      controller.driver_remark(),
      folder_.file("press1.toml") +
          ": the guarded driver can be used here only if it is built with PLC_GUARD_STATUS=OFF. The driver that is "
          "named is kept. A contract build may take a late reply for that of another variable: keep delay_ms above "
          "the answer times, and read back what you write");
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), controller.driver_remark());
}

TEST_F(ProfileTest, DriverGivenByItsPath_HasARemarkOnTheContractBuildsProblem) {
  start(tag_line("A", "INT"));
  const Controller controller(
      with_profile("[guarded]\nusable = \"no\"\n[contract]\nproblem = \"replies come in pieces of 30 bytes\"\n"));
  EXPECT_EQ(controller.driver_remark(),
            folder_.file("press1.toml") +
                ": the guarded driver cannot be used with this controller, and the contract build does not read it: "
                "replies come in pieces of 30 bytes. The driver that is named is kept");
}

TEST_F(ProfileTest, DriverWithoutAProblem_HasNoRemark) {
  start(tag_line("A", "INT"));
  EXPECT_EQ(Controller(options()).driver_remark(), "");
  EXPECT_EQ(Controller(with_profile("[guarded]\nusable = \"yes\"\n")).driver_remark(), "");
  EXPECT_EQ(Controller(with_profile("[guarded]\nusable = \"unknown\"\n")).driver_remark(), "");
}

// The driver itself is not loaded: by its name alone it is found where it is installed.
TEST_F(ProfileTest, ContractBuildInPlaceOfTheGuardedOne_HasAWordOnWhatToLookAfter) {
  start(tag_line("A", "INT"));
  Options options = with_profile("[guarded]\nusable = \"no\"\n");
  options.driver = "guarded";
  const plc_client::ProfiledOptions profiled = plc_client::with_profile(options);
  EXPECT_EQ(profiled.options.driver, "contract");
  EXPECT_EQ(profiled.word,
            folder_.file("press1.toml") +
                ": the guarded driver cannot be used with this controller: the contract build is taken. It may take a "
                "late reply for that of another variable: keep delay_ms above the answer times, and read back what you "
                "write");
}

TEST_F(ProfileTest, ContractBuildOfRepliesInPieces_HasAWordOnHowManyNamesFit) {
  start(tag_line("A", "INT"));
  Options options =
      with_profile("[guarded]\nusable = \"no\"\n[replies]\npiece_bytes = 536\n[settings]\nbatch_names = 14\n");
  options.driver = "guarded";
  const plc_client::ProfiledOptions profiled = plc_client::with_profile(options);
  EXPECT_EQ(profiled.options.driver, "contract");
  EXPECT_THAT(profiled.word, EndsWith("and read back what you write. It takes the first piece of a reply alone, 536 "
                                      "bytes here: ask for no more than 14 names at a time"));
}

// A reply to a name has 36 bytes behind 17 of its head.
constexpr char kPieces[] =
    "[guarded]\nusable = \"yes\"\n[contract]\nnames = 3\n[replies]\npiece_bytes = 125\npiece_gap_ms = 20\n";

TEST_F(ProfileTest, ContractBuildThatIsNamedThoughTheGuardedOneIsUsable_KeepsToWhatFitsIntoAPiece) {
  const std::string imitated = folder_.write("imitated.toml", kPieces);
  std::string tags;
  for (const char* name : {"A", "B", "C", "D", "E", "F"}) tags += tag_line(name, "INT");
  start(tags, {"--sentinel", "--profile", imitated});
  const std::vector<std::string> names = {"A", "B", "C", "D", "E", "F"};
  Options guarded = with_profile(kPieces);
  EXPECT_EQ(Controller(guarded).driver_remark(), "");
  EXPECT_EQ(Controller(guarded).plan(names).exchanges(), 2U);
  Options contract = guarded;
  contract.driver = PLC_TEST_CONTRACT;
  Controller controller(contract);
  EXPECT_EQ(controller.driver_remark(),
            folder_.file("press1.toml") +
                ": the contract build is loaded. It takes the first piece of a reply alone, 125 bytes here: ask for no "
                "more than 3 names at a time");
  EXPECT_EQ(controller.plan(names).exchanges(), 4U);
  size_t at = 0;
  for (const Reading& reading : controller.read(names)) {
    EXPECT_EQ(bits_of(reading.value), memory().bits(names[at++], 16)) << reading.name;
  }
}

TEST_F(ProfileTest, ContractBuildThatIsNamedAndDoesNotReadIt_HasARemark) {
  start(tag_line("A", "INT"));
  Options options =
      with_profile("[guarded]\nusable = \"yes\"\n[contract]\nproblem = \"replies come in pieces of 20 bytes\"\n");
  EXPECT_EQ(Controller(options).driver_remark(), "");
  options.driver = PLC_TEST_CONTRACT;
  EXPECT_EQ(Controller(options).driver_remark(),
            folder_.file("press1.toml") +
                ": the contract build is loaded, and does not read this controller: replies come in pieces of 20 "
                "bytes. Its values may be wrong with result 0: load the guarded build");
}

TEST_F(ProfileTest, ContractBuildThatDoesNotReadItEither_LeavesTheGuardedOneWithAWord) {
  start(tag_line("A", "INT"));
  Options options = with_profile("[guarded]\nusable = \"no\"\n[contract]\nproblem = \"replies come in pieces\"\n");
  options.driver = "guarded";
  const plc_client::ProfiledOptions profiled = plc_client::with_profile(options);
  EXPECT_EQ(profiled.options.driver, "guarded");
  EXPECT_THAT(profiled.word, HasSubstr("and the contract build does not read it: replies come in pieces. The guarded "
                                       "build is kept"));
}

// A controller that answers with a record of zeros to a name that it does not have, and reads 0 from there.
constexpr char kZerosForRefused[] = "[refusal]\nshape = \"full\"\nstatus = 0x0000\n[[refused]]\nname = \"Limit\"\n";

TEST_F(ProfileTest, NameWhoseRefusalLooksLikeAValue_IsNotAskedFor) {
  const std::string imitated = folder_.write("imitated.toml", kZerosForRefused);
  start(tag_line("Limit", "INT") + tag_line("A", "INT"), {"--sentinel", "--profile", imitated});
  const Reading without = Controller(options()).read("Limit");
  EXPECT_TRUE(without.ok());  // which is wrong, and nothing but the profile tells
  Controller with(with_profile(kZerosForRefused));
  EXPECT_TRUE(with.read("A").ok());
  const std::string why =
      "the profile lists it under [[refused]], and what this controller answers in place of its value looks like a "
      "value. Survey the controller again once it has the variable";
  EXPECT_FALSE(with.read("Limit").ok());
  EXPECT_THAT(with.read("Limit").error.text, HasSubstr(why));
  EXPECT_THAT(thrown<plc_client::Error>([&with] { with.write("Limit", 9); }), HasSubstr(why));
  for (const Reading& reading : with.read({"A", "Limit"})) EXPECT_EQ(reading.ok(), reading.name == "A");
}

TEST_F(ProfileTest, NameWhoseRefusalIsTold_IsAskedFor) {
  start(tag_line("Limit", "INT"));
  for (const char* shape : {"shape = \"short\"\nstatus = 0x0000", "shape = \"full\"\nstatus = 0x0004"}) {
    const std::string refusal = std::string("[refusal]\n") + shape + "\n[[refused]]\nname = \"Limit\"\n";
    EXPECT_TRUE(Controller(with_profile("[guarded]\nusable = \"yes\"\n" + refusal)).read("Limit").ok()) << shape;
  }
  const std::string by_status = "[refusal]\nshape = \"full\"\nstatus = 0x0004\n[[refused]]\nname = \"Limit\"\n";
  EXPECT_FALSE(Controller(with_profile("[guarded]\nusable = \"no\"\n" + by_status)).read("Limit").ok());
}

TEST_F(ProfileTest, TimeOut_IsTheProfilesUnlessTheProgramSetsOne) {
  start(tag_line("A", "INT"), {"--sentinel", "--fault", "no-reply on=read times=2"});
  Controller profiled(with_profile("[settings]\ntimeout_s = 1\n"));
  EXPECT_THAT(profiled.read("A").error.text, HasSubstr("no answer within 1 s"));
  Options own = with_profile("[settings]\ntimeout_s = 60\n");
  own.reply_timeout_s = 1;
  EXPECT_THAT(Controller(own).read("A").error.text, HasSubstr("no answer within 1 s"));
}

TEST_F(ProfileTest, Mistakes_AreThrownWithTheirPlace) {
  start(tag_line("A", "INT"));
  EXPECT_EQ(problem("[settings]\ntimeout = 3\n"),
            folder_.file("press1.toml") + ":2:1: unknown key 'timeout' in [settings]; did you mean timeout_s?");
  EXPECT_THAT(problem("[reply]\n[x]\n[y]\n"), EndsWith("; and 2 more"));
  Options missing = options();
  missing.profile = "/nonexistent/p.toml";
  EXPECT_THAT(thrown<plc_client::Error>([&] { const Controller controller(missing); }),
              StartsWith("cannot read /nonexistent/p.toml: "));
}

}  // namespace
}  // namespace plc_client_test
