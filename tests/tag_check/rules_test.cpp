// Every rule of the checker: fires on its bad sample, and no rule fires on any good one.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "checker.h"
#include "rule_list.h"

namespace tag_check {
namespace {

constexpr const char* kGoodName = "PLC7F000001_0.csv";

std::set<std::string> fired(const std::string& name, const std::string& text, const CheckOptions& options) {
  std::set<std::string> rules;
  for (const Finding& finding : check_text(name, text, options)) rules.insert(finding.rule);
  return rules;
}

std::string joined(const std::set<std::string>& rules) {
  std::string text;
  for (const std::string& rule : rules) text += rule + " ";
  return text;
}

class EveryRule : public testing::TestWithParam<size_t> {
 protected:
  const Rule& rule() const { return rule_list()[GetParam()]; }
};

TEST_P(EveryRule, OnItsBadSample_Fires) {
  const std::string code = rule().code;
  const CheckOptions other_controller = {true, 0x0A000001};
  const std::string name = code == "T010" ? "tags.csv" : kGoodName;
  const auto rules = fired(name, rule().bad, code == "T011" ? other_controller : CheckOptions());
  EXPECT_EQ(rules.count(code), 1U) << "fired: " << joined(rules);
}

TEST_P(EveryRule, OnItsGoodSample_IsSilent) {
  const CheckOptions same_controller = {true, 0x7F000001};
  EXPECT_EQ(joined(fired(kGoodName, rule().good, same_controller)), "");
}

TEST_P(EveryRule, OfTheList_SaysWhatItMeansAndWhatToDo) {
  EXPECT_GT(std::string(rule().title).size(), 0U);
  EXPECT_EQ(std::string(rule().explanation).back(), '.');
  EXPECT_EQ(std::string(rule().suggestion).back(), '.');
}

INSTANTIATE_TEST_SUITE_P(Rules, EveryRule, testing::Range(size_t{0}, rule_list().size()),
                         [](const auto& rule) { return std::string(rule_list()[rule.param].code); });

TEST(RuleT105, LastIdThatAHostCanForm_IsTheBorder) {
  constexpr const char* kRun = "V16777214,INT,,,,,,16777214,1,0,0,\nV16777215,INT,,,,,,16777215,1,0,0,\n";
  constexpr const char* kEnd = "_end,INT,,,,,,16785408,1,0,0,\n";
  constexpr const char* kPast = "V16777216,INT,,,,,,16777216,1,0,0,\nV16777217,INT,,,,,,16777217,1,0,0,\n";
  EXPECT_EQ(fired(kGoodName, std::string(kRun), {}).count("T105"), 0U);
  EXPECT_EQ(fired(kGoodName, std::string(kRun) + kEnd, {}).count("T105"), 0U);
  const std::vector<Finding> findings = check_text(kGoodName, kPast, {});
  const auto found = std::find_if(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.rule == std::string("T105"); });
  ASSERT_NE(found, findings.end());
  EXPECT_EQ(found->message, "ids end at 16777215: hosts cannot ask for this one");
}

TEST(RuleList, Codes_RiseAndAreAtLeastForty) {
  std::string last;
  for (const Rule& rule : rule_list()) {
    EXPECT_LT(last, rule.code);
    last = rule.code;
  }
  EXPECT_GE(rule_list().size(), 40U);
}

}  // namespace
}  // namespace tag_check
