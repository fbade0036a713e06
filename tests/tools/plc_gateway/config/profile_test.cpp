// A configuration that names a profile: what it sets, what is noted, and its mistakes.
#include "tests/tools/plc_gateway/config/config_fixture.h"

namespace plc_gateway_test {
namespace {

using plc_gateway::ConfigResult;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;

class ProfileTest : public ConfigTest {
 protected:
  ConfigResult load_with(const std::string& profile, const std::string& keys = "") {
    folder_.write("press1_profile.toml", profile);
    Sections sections;
    sections.controller += "profile = \"press1_profile.toml\"\n" + keys;
    return load(sections);
  }
  static std::vector<std::string> said(const ConfigResult& result) {
    std::vector<std::string> lines;
    for (const plc_gateway::Finding& finding : result.findings) {
      lines.push_back((finding.is_error ? "error: " : "note: ") + finding.text);
    }
    return lines;
  }
};

TEST_F(ProfileTest, TimeOut_IsTheProfilesUnlessTheConfigurationSetsOne) {
  const ConfigResult result = load_with("[settings]\ntimeout_s = 5\n");
  EXPECT_TRUE(result.ok());
  EXPECT_EQ(result.config.controller.reply_timeout_s, 5U);
  EXPECT_EQ(result.config.controller.profile, folder_.file("press1_profile.toml"));
  EXPECT_EQ(load_with("[settings]\ntimeout_s = 5\n", "reply_timeout_s = 3\n").config.controller.reply_timeout_s, 3U);
  EXPECT_EQ(load_with("[settings]\ntimeout_s = 600\n").config.controller.reply_timeout_s, 60U);
}

TEST_F(ProfileTest, PollsThatAreFasterThanAdvised_AreNoted) {
  EXPECT_THAT(said(load_with("[settings]\npoll_ms = 1000\n")),
              IsSupersetOf({"note: every_ms is 500, and the profile advises against less than 1000"}));
  EXPECT_THAT(said(load_with("[settings]\npoll_ms = 500\n")), Not(testing::Contains(HasSubstr("advises"))));
}

TEST_F(ProfileTest, DriverGivenByItsPath_IsNotReplaced) {
  EXPECT_THAT(said(load_with("[guarded]\nusable = \"unknown\"\n")), IsEmpty());
  EXPECT_THAT(
      said(load_with("[guarded]\nusable = \"without status\"\n")),
      ElementsAre("note: the guarded driver can be used here only if it is built with PLC_GUARD_STATUS=OFF. The "
                  "driver that is named is kept. A contract build may take a late reply for that of another "
                  "variable: keep delay_ms above the answer times, and read back what you write"));
}

TEST_F(ProfileTest, GuardedDriverThatTheVerdictRulesOut_IsAnError) {
  const std::string start = "error: the profile rules the driver out: ";
  EXPECT_THAT(
      said(load_with("[guarded]\nusable = \"no\"\n")),
      ElementsAre(start + "the guarded driver cannot be used with this controller; set driver = \"contract\", whose "
                          "values are unguarded, or survey the controller again"));
  EXPECT_THAT(
      said(load_with("[guarded]\nusable = \"no\"\n[contract]\nproblem = \"replies come in pieces\"\n")),
      ElementsAre(start + "no installed driver reads this controller: the guarded driver cannot be used, and the "
                          "contract build does not read this controller: replies come in pieces; change that, survey "
                          "the controller again and name the new profile"));
}

TEST_F(ProfileTest, ContractBuildThatIsNotAccepted_IsAnErrorWithWhatThereIsInItsPlace) {
  const auto last_with = [&](const std::string& usable) {
    Sections sections;
    folder_.write("press1_profile.toml", "[guarded]\nusable = \"" + usable + "\"\n");
    sections.controller =
        "[controller]\nname = \"press1\"\naddress = \"192.168.0.10\"\ntags = \"tags\"\n"
        "driver = \"" PLC_TEST_CONTRACT "\"\nprofile = \"press1_profile.toml\"\n";
    const std::string text = said(load(sections)).front();
    return text.substr(text.rfind("; "));
  };
  EXPECT_EQ(last_with("yes"), "; set driver = \"guarded\", or set accept_unguarded = true");
  EXPECT_EQ(last_with("no"), "; set accept_unguarded = true");
  EXPECT_EQ(last_with("without both"),
            "; set driver to the path of a guarded driver built with PLC_GUARD_STATUS=OFF and PLC_GUARD_VALUE_END=OFF, "
            "or set accept_unguarded = true");
}

TEST_F(ProfileTest, ContractBuildWithAProblem_IsAnError) {
  const auto said_with = [&](const std::string& usable) {
    Sections sections;
    folder_.write("press1_profile.toml", "[guarded]\nusable = \"" + usable + "\"\n[contract]\nproblem = \"pieces\"\n");
    sections.controller =
        "[controller]\nname = \"press1\"\naddress = \"192.168.0.10\"\ntags = \"tags\"\n"
        "driver = \"" PLC_TEST_CONTRACT "\"\naccept_unguarded = true\nprofile = \"press1_profile.toml\"\n";
    return said(load(sections)).at(0);
  };
  const std::string start =
      "error: the profile rules the driver out: the contract build does not read this controller: pieces; set driver "
      "to ";
  EXPECT_EQ(said_with("yes"), start + "\"guarded\"");
  EXPECT_EQ(said_with("without status"), start + "the path of a guarded driver built with PLC_GUARD_STATUS=OFF");
  EXPECT_THAT(said_with("no"), HasSubstr("no installed driver reads this controller"));
}

TEST_F(ProfileTest, Mistakes_AreErrorsWithTheirPlace) {
  const ConfigResult result = load_with("[settings]\ntimeout = 5\n");
  EXPECT_FALSE(result.ok());
  EXPECT_THAT(said(result), IsSupersetOf({"error: " + folder_.file("press1_profile.toml") +
                                          ":2:1: unknown key 'timeout' in [settings]; did you mean timeout_s?"}));
}

}  // namespace
}  // namespace plc_gateway_test
