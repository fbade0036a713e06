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

TEST_F(ProfileTest, DriverGivenByItsPath_StaysAndTheProblemIsNoted) {
  EXPECT_THAT(said(load_with("[guarded]\nusable = \"no\"\n[contract]\nproblem = \"replies come in pieces\"\n")),
              IsSupersetOf({"note: the guarded driver cannot be used with this controller, and the contract build does "
                            "not read it: replies come in pieces. The driver that is named is kept"}));
  EXPECT_THAT(said(load_with("[guarded]\nusable = \"yes\"\n")), Not(testing::Contains(HasSubstr("driver"))));
}

TEST_F(ProfileTest, Mistakes_AreErrorsWithTheirPlace) {
  const ConfigResult result = load_with("[settings]\ntimeout = 5\n");
  EXPECT_FALSE(result.ok());
  EXPECT_THAT(said(result), IsSupersetOf({"error: " + folder_.file("press1_profile.toml") +
                                          ":2:1: unknown key 'timeout' in [settings]; did you mean timeout_s?"}));
}

}  // namespace
}  // namespace plc_gateway_test
