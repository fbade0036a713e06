// Tests of settings: who says one, who wins, and what is said of files that are wrong.
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;
using Json = nlohmann::json;

class SettingsTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    ASSERT_EQ(mkdir(path("home").c_str(), 0700), 0);
    setenv("XDG_CONFIG_HOME", path("home").c_str(), 1);
  }
  void TearDown() override {
    for (const char* name : {"PLC_HOST_PORT", "PLC_HOST_ADDRESS", "PLC_HOST_DRIVER", "PLC_HOST_TAGS"}) unsetenv(name);
    ProgramTest::TearDown();
  }

  Outcome type(const std::string& line) {
    write_file("typed", "cd " + folder_.path() + "\nexec " PLC_HOST_PROGRAM " " + line + "\n");
    return run_words({"/bin/sh", path("typed")});
  }

  // "8501 from plc-host.toml:1"
  std::string shown(const char* name) {
    const Json setting = Json::parse(type("info --json").out)["settings"][name];
    return setting["value"].get<std::string>() + " from " + setting["from"].get<std::string>();
  }
};

TEST_F(SettingsTest, FirstOfThoseWhoSayOne_Wins) {
  EXPECT_EQ(shown("port"), "8500 from usual");
  write_file("home/plc-host.toml", "port = 8501\narea = 3\n");
  EXPECT_EQ(shown("port"), "8501 from " + path("home/plc-host.toml") + ":1");
  write_file("plc-host.toml", "# here\nport = 8502\n");
  EXPECT_EQ(shown("port"), "8502 from plc-host.toml:2");
  EXPECT_EQ(shown("area"), "3 from " + path("home/plc-host.toml") + ":2");
  setenv("PLC_HOST_PORT", "8503", 1);
  EXPECT_EQ(shown("port"), "8503 from PLC_HOST_PORT");
  const Outcome typed = type("read --address 127.0.0.1 --port 99999 X");
  EXPECT_EQ(typed.err, "plc-host: --port 99999: give a number from 1 to 65535\n");
}

TEST_F(SettingsTest, PortBehindAnAddress_IsShownWithItsOrigin) {
  write_file("plc-host.toml", "address = \"127.0.0.1:18600\"\n");
  EXPECT_EQ(shown("port"), "18600 from plc-host.toml:1");
  EXPECT_EQ(shown("address"), "127.0.0.1:18600 from plc-host.toml:1");
  EXPECT_THAT(type("info").out, HasSubstr("\nport     18600            plc-host.toml:1\n"));
  write_file("plc-host.toml", "address = \"127.0.0.1:18600\"\nport = 8501\n");
  const Outcome two = type("info");
  EXPECT_EQ(two.code, 2);
  EXPECT_EQ(two.err,
            "plc-host: plc-host.toml:1 127.0.0.1:18600 and plc-host.toml:2 8501 name two ports: leave one out\n");
}

TEST_F(SettingsTest, CommandNeedsNoOptions_WhenAFileSaysThem) {
  const std::unique_ptr<Child> simulator = start_simulator();
  write_file("plc-host.toml", "address = \"localhost:" + port_ + "\"\ntags = \"machine.csv\"\n");
  const Outcome outcome = type("read --driver " PLC_HOST_GUARDED " Speed");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, StartsWith("Speed  INT  good "));
  EXPECT_EQ(type("read --driver " PLC_HOST_GUARDED " --port 1 Speed").code, 7);
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
}

TEST_F(SettingsTest, SimulatedController_NeedsNoneOfThem) {
  write_file("plc-host.toml", "address = \"192.0.2.1\"\nport = 1\ntags = \"nofile.csv\"\n");
  const Outcome outcome =
      type("read --driver " PLC_HOST_GUARDED " --sim machine.csv --simulator " PLC_HOST_SIMULATOR " Speed");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
}

TEST_F(SettingsTest, TagFileOfAUsersFile_LiesBesideIt) {
  write_file("home/machine.csv", kTagFile);
  write_file("home/plc-host.toml", "tags = \"machine.csv\"\n");
  EXPECT_EQ(shown("tags"), path("home/machine.csv") + " from " + path("home/plc-host.toml") + ":1");
}

TEST_F(SettingsTest, Mistakes_AreToldWithTheirPlace) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"adress = \"127.0.0.1\"\n", "plc-host.toml:1:1: unknown key 'adress'; did you mean address?"},
      {"\n zzzzzzzz = 1\n",
       "plc-host.toml:2:2: unknown key 'zzzzzzzz'; the keys are address, port, area, tags, timeout, delay, driver, "
       "profile or color"},
      {"port = \"8500\"\n", "plc-host.toml:1:8: port is the text \"8500\": give a number from 1 to 65535"},
      {"port = 0\n", "plc-host.toml:1:8: port is the integer 0: give a number from 1 to 65535"},
      {"port = 18500.0\n",
       "plc-host.toml:1:8: port is the number 18500 with a decimal point: give a number from 1 to 65535"},
      {"[controller]\nport = 8500\n",
       "plc-host.toml:1:2: there are no sections: write the keys below [controller] without it, at the beginning"},
      {"timeout = 0\n", "plc-host.toml:1:11: timeout is the integer 0: give whole seconds, from 1 to 86400"},
      {"address = 5\n", "plc-host.toml:1:11: address is the integer 5: give a text in double quotes"},
      {"color = \"blue\"\n", "plc-host.toml:1:9: color is the text \"blue\": give \"auto\", \"always\" or \"never\""},
      {"tags = \"x\\u0000y\"\n",
       "plc-host.toml:1:8: tags is the text \"x\\x00y\": give a text without a zero character"},
      {"host = \"127.0.0.1\"\n", "plc-host.toml:1:1: unknown key 'host'; did you mean address?"},
      {"file = \"machine.csv\"\n", "plc-host.toml:1:1: unknown key 'file'; did you mean tags?"},
      {"driver = \"/tmp/evil.so\"\n",
       "plc-host.toml:1:10: driver is the text \"/tmp/evil.so\": give \"guarded\" or \"contract\"; a library's path is "
       "taken from --driver and PLC_HOST_DRIVER alone"},
      {"address = \"192.168.0.10\nport = 8500\n",
       "plc-host.toml:1:11: the text that begins here lacks its closing \": write it at the end of the text"},
      {"# it's\ntags = 'm.csv",
       "plc-host.toml:2:8: the text that begins here lacks its closing ': write it at the end of "
       "the text"},
      {"tags = \"\"\"m.csv\nport = 1\n",
       "plc-host.toml:1:8: the text that begins here lacks its closing \"\"\": write it at the end of the text"},
      {"\"tags\" = \"\xC3\xA4\", \"b\\\"\n",
       "plc-host.toml:1:13: this is no TOML (key-value pair: expected a comment or "
       "whitespace, saw ','): texts stand in double quotes, lists in brackets with commas, and yes and no are true and "
       "false"},
      {"tags = \"C:\\tags\\\"\n",
       "plc-host.toml:1:8: the text that begins here lacks its closing \": behind a \\ a quote "
       "is a part of the text; write \\\\ or / in paths"},
      {"address = 192.168.0.10\"\n",
       "plc-host.toml:1:18: this is no TOML (floating-point: expected decimal digit or exponent, saw '.'): texts stand "
       "in "
       "double quotes, lists in brackets with commas, and yes and no are true and false"},
  };
  for (const auto& [text, said] : cases) {
    write_file("plc-host.toml", text);
    const Outcome outcome = type("info");
    EXPECT_EQ(outcome.code, 2) << text;
    EXPECT_EQ(outcome.err, "plc-host: " + said + "\n");
    EXPECT_EQ(outcome.out, "");
  }
  write_file("plc-host.toml", "adress = 1\nprot = 2\n");
  EXPECT_EQ(lines_of(type("info").err).size(), 2U);
  write_file("plc-host.toml", "port = \n");
  EXPECT_THAT(type("info").err, StartsWith("plc-host: plc-host.toml:1:"));
}

TEST_F(SettingsTest, ValueOfTheEnvironment_IsToldToBeWrong) {
  setenv("PLC_HOST_PORT", "x", 1);
  EXPECT_EQ(type("info").err, "plc-host: PLC_HOST_PORT x: give a number from 1 to 65535\n");
  EXPECT_EQ(type("info --color blue").err, "plc-host: --color blue: give auto, always or never\n");
  setenv("PLC_HOST_PORT", "", 1);
  EXPECT_EQ(type("info").code, 0);
  setenv("PLC_HOST_DRIVER", PLC_HOST_LIBRARY, 1);
  EXPECT_EQ(shown("driver"), PLC_HOST_LIBRARY " from PLC_HOST_DRIVER");
}

TEST_F(SettingsTest, Profile_SpeaksBehindEverybodyButWhatIsUsual) {
  write_file("press1.toml", "[guarded]\nusable = \"no\"\n[settings]\ntimeout_s = 7\ndelay_ms = 20\n");
  write_file("plc-host.toml", "profile = \"press1.toml\"\ndelay = 30\n");
  EXPECT_EQ(shown("profile"), "press1.toml from plc-host.toml:1");
  EXPECT_EQ(shown("timeout"), "7 from press1.toml");
  EXPECT_EQ(shown("delay"), "30 from plc-host.toml:2");
  EXPECT_EQ(shown("driver"), "contract from press1.toml");
  EXPECT_EQ(type("info --quiet").err, "");
  EXPECT_EQ(type("info").err,
            "plc-host: press1.toml: the guarded driver cannot be used with this controller: the contract build is "
            "taken. It may take a late reply for that of another variable: keep delay_ms above the answer times, and "
            "read back what you write\n");
  write_file("press1.toml",
             "[guarded]\nusable = \"no\"\n[contract]\nproblem = \"replies come in pieces\"\n"
             "[settings]\ntimeout_s = 7\n");
  EXPECT_EQ(shown("driver"), "guarded from press1.toml");
  EXPECT_THAT(
      type("info").err,
      HasSubstr("plc-host: press1.toml: the guarded driver cannot be used with this controller, and the contract "
                "build does not read it: replies come in pieces. The guarded build is kept: it fails where the "
                "contract build would give wrong values\n"));
  setenv("PLC_HOST_DRIVER", PLC_HOST_GUARDED, 1);
  EXPECT_EQ(shown("driver"), PLC_HOST_GUARDED " from PLC_HOST_DRIVER");
  // Whoever names a driver hears of the problem too.
  const std::string problem = "plc-host: press1.toml: the guarded driver cannot be used with this controller";
  const std::string pieces =
      problem + ", and the contract build does not read it: replies come in pieces. The driver that is named is kept\n";
  EXPECT_EQ(type("info").err, pieces);
  EXPECT_EQ(type("info --driver " PLC_HOST_LIBRARY).err, pieces);
  EXPECT_EQ(type("info --quiet").err, "");
  write_file("press1.toml", "[guarded]\nusable = \"no\"\n[replies]\npiece_bytes = 536\n[settings]\nbatch_names = 14\n");
  EXPECT_EQ(type("info").err,
            problem +
                ". The driver that is named is kept. A contract build may take a late reply for that of another "
                "variable: keep delay_ms above the answer times, and read back what you write. It takes the first "
                "piece of a reply alone, 536 bytes here: ask for no more than 14 names at a time\n");
  write_file("press1.toml", "[guarded]\nusable = \"yes\"\n");
  EXPECT_EQ(type("info").err, "");
  write_file("home/press2.toml", "[settings]\ntimeout_s = 9\n");
  write_file("home/plc-host.toml", "profile = \"press2.toml\"\n");
  write_file("plc-host.toml", "");
  EXPECT_EQ(shown("timeout"), "9 from " + path("home/press2.toml"));
}

TEST_F(SettingsTest, ContractBuildThatIsNamedWhereRepliesComeInPieces_SaysItAndKeepsToTheNumber) {
  std::string tags;
  for (int i = 0; i < 12; ++i) tags += "V" + std::to_string(i) + ",INT,,,,,,0,1,0,0,,DM" + std::to_string(i) + "\n";
  write_file("many.csv", tags);
  write_file("press1.toml",
             "[guarded]\nusable = \"yes\"\n[contract]\nnames = 3\n[replies]\npiece_bytes = 125\npiece_gap_ms = 20\n");
  const auto batch = [this](const std::string& driver, const std::string& more) {
    return type("batch --all --driver " + driver +
                " --sim many.csv --simulator " PLC_HOST_SIMULATOR
                " --sim-arg=--quiet --sim-arg=--sentinel --sim-arg=--profile --sim-arg=press1.toml" +
                more);
  };
  const Outcome truth = batch(PLC_HOST_GUARDED, " --profile press1.toml");
  EXPECT_EQ(truth.code, 0) << truth.err;
  EXPECT_THAT(truth.err, Not(HasSubstr("press1.toml")));
  const Outcome outcome = batch(PLC_HOST_LIBRARY, " --profile press1.toml --json");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: press1.toml: the contract build is loaded. It takes the first piece of "
                                     "a reply alone, 125 bytes here: ask for no more than 3 names at a time\n"));
  const auto values = [](const std::string& text) {
    std::vector<std::string> all;
    for (const std::string& line : lines_of(text)) {
      const auto result = nlohmann::json::parse(line);
      if (result.contains("value")) all.push_back(result.at("name").dump() + result.at("value").dump());
    }
    return all;
  };
  EXPECT_EQ(values(outcome.out), values(batch(PLC_HOST_GUARDED, " --profile press1.toml --json").out));
}

TEST_F(SettingsTest, TextOfAProfileWithoutItsClosingQuote_IsToldWhereItBegins) {
  write_file("press1.toml", "[settings]\ndriver = \"guarded\ntimeout_s = 2\n");
  EXPECT_EQ(type("info --profile press1.toml").err,
            "plc-host: press1.toml:2:10: the text that begins here lacks its closing \": write it at the end of the "
            "text\n");
}

TEST_F(SettingsTest, MistakesOfAProfile_AreToldWithTheirPlace) {
  write_file("press1.toml", "[settings]\ntimeout = 7\n[guarded]\nusable = \"maybe\"\n");
  const Outcome outcome = type("info --profile press1.toml");
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(
      outcome.err,
      "plc-host: press1.toml:2:1: unknown key 'timeout' in [settings]; did you mean timeout_s?\n"
      "plc-host: press1.toml:4:10: [guarded] usable is the text \"maybe\": give one of yes, without status, without "
      "value end, without both, no or unknown\n");
  EXPECT_EQ(
      type("info --profile missing.toml").err,
      "plc-host: --profile: cannot read missing.toml: No such file or directory. Try: the profile.toml that plc-host "
      "survey wrote\n");
}

TEST_F(SettingsTest, ControllerThatTakesFewNames_IsReadWithItsProfile) {
  write_file("many.csv", "Table,INT,[0..29],,a,b,c,0,1,0,0,,DM1\n");
  write_file("press1.toml", "[limits]\nnames = 8\n");
  const std::string command = "read --driver " PLC_HOST_GUARDED " --sim many.csv --simulator " PLC_HOST_SIMULATOR
                              " --sim-arg=--quiet --sim-arg=--profile --sim-arg=press1.toml Table";
  EXPECT_EQ(type(command).code, 1);
  const Outcome outcome = type(command + " --profile press1.toml");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
}

TEST_F(SettingsTest, VariableThatIsNoSetting_IsTold) {
  const std::pair<const char*, const char*> variables[] = {
      {"PLC_HOST_ADRESS", "did you mean PLC_HOST_ADDRESS?"},
      {"PLC_HOST_LIBRARY", "did you mean PLC_HOST_DRIVER?"},
      {"PLC_HOST_HOST", "did you mean PLC_HOST_ADDRESS?"},
      {"PLC_HOST_FREQUENCIES", "plc-host info lists them"},
  };
  for (const auto& [name, said] : variables) {
    setenv(name, "x", 1);
    const Outcome outcome = type("info");
    unsetenv(name);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err,
              std::string("plc-host: the variable ") + name + " of the environment is not a setting; " + said + "\n");
  }
}

TEST_F(SettingsTest, LinkToAMissingFile_IsNamed) {
  ASSERT_EQ(symlink("nowhere.toml", path("plc-host.toml").c_str()), 0);
  const Outcome dangling = type("info");
  EXPECT_EQ(dangling.code, 0);
  EXPECT_EQ(dangling.err, "plc-host: plc-host.toml is not used: it is a link to a file that is not there\n");
}

// Whoever may write it would say which controller is asked.
TEST_F(SettingsTest, FileOfSomebodyElse_IsNotUsed) {
  write_file("plc-host.toml", "port = 1\n");
  ASSERT_EQ(chmod(path("plc-host.toml").c_str(), 0666), 0);
  const Outcome open = type("info --json");
  EXPECT_EQ(open.code, 0);
  EXPECT_EQ(open.err, "plc-host: plc-host.toml is not used: everybody on this machine may write it\n");
  EXPECT_EQ(Json::parse(open.out)["settings"]["port"]["value"], "8500");
  ASSERT_EQ(chmod(path("plc-host.toml").c_str(), 0644), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(path("plc-host.toml").c_str(), 12345, 12345), 0);
    EXPECT_EQ(type("info").err, "plc-host: plc-host.toml is not used: it belongs to another user\n");
    // A file of one's own, chosen by somebody else.
    ASSERT_EQ(chown(path("plc-host.toml").c_str(), geteuid(), getegid()), 0);
    ASSERT_EQ(rename(path("plc-host.toml").c_str(), path("own.toml").c_str()), 0);
    ASSERT_EQ(symlink("own.toml", path("plc-host.toml").c_str()), 0);
    EXPECT_THAT(type("info").err, Not(HasSubstr("is not used")));
    ASSERT_EQ(lchown(path("plc-host.toml").c_str(), 12345, 12345), 0);
    EXPECT_EQ(type("info").err, "plc-host: plc-host.toml is not used: it is a link of another user's\n");
  }
}

TEST_F(SettingsTest, Info_NamesTagFilesOfTheFolder) {
  write_file("PLC7F000001_12.csv", kTagFile);
  write_file("PLC7F000001_0.csv", kTagFile);
  write_file("PLCx_0.csv", kTagFile);
  EXPECT_EQ(Json::parse(type("info --json").out)["tag_files"], Json({"PLC7F000001_0.csv", "PLC7F000001_12.csv"}));
  EXPECT_THAT(type("info").out,
              HasSubstr("tag files here  PLC7F000001_0.csv\n                PLC7F000001_12.csv\n\nSETTING"));
}

}  // namespace
