// Tests of profiles: each key reaches its place, each mistake is told with its place, and what is written reads back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/files.h"
#include "profile/profile_file.h"
#include "profile/profile_keys.h"
#include "profile/profile_use.h"
#include "tests/support/temp_dir.h"

namespace plc_profile {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> lines_of(const ProfileResult& result) {
  std::vector<std::string> lines;
  for (const plc_toml::Finding& finding : result.findings) lines.push_back(finding_line(finding));
  return lines;
}

std::vector<std::string> findings_of(const std::string& text) { return lines_of(parse_profile(text, "p.toml")); }

// A value for the key that no profile has without it.
std::string unusual_value(const KeyRow& row) {
  if (std::holds_alternative<std::string Profile::*>(row.slot)) return "\"a text\"";
  if (std::holds_alternative<std::optional<bool> Profile::*>(row.slot)) return "\"not answered\"";
  if (std::holds_alternative<std::optional<Echo> Profile::*>(row.slot)) return "\"other\"";
  if (std::holds_alternative<std::optional<Turned> Profile::*>(row.slot)) return "\"silent\"";
  if (std::holds_alternative<std::optional<Profile::Shape> Profile::*>(row.slot)) return "\"short\"";
  if (std::holds_alternative<Profile::Guarded Profile::*>(row.slot)) return "\"without both\"";
  return std::to_string(row.high);
}

TEST(ReadProfile, NoLine_SaysNothing) {
  const ProfileResult result = parse_profile("", "p.toml");
  EXPECT_TRUE(result.ok());
  const Profile& profile = result.profile;
  EXPECT_EQ(profile.length, std::nullopt);
  EXPECT_EQ(profile.shape, std::nullopt);
  EXPECT_EQ(profile.refusal_status, std::nullopt);
  EXPECT_EQ(profile.status_done, std::nullopt);
  EXPECT_EQ(profile.read.first_ms, std::nullopt);
  EXPECT_FALSE(profile.most_connections || profile.piece_bytes || profile.names_per_request);
  EXPECT_EQ(profile.guarded, Profile::Guarded::kUnknown);
}

TEST(ReadProfile, EveryKey_ReachesAPlaceOfItsOwn) {
  const std::string plain = profile_text({});
  std::set<std::string> texts;
  for (const KeyRow& row : key_rows()) {
    const std::string text = std::string("[") + row.section + "]\n" + row.name + " = " + unusual_value(row) + "\n";
    const ProfileResult result = parse_profile(text, "p.toml");
    EXPECT_THAT(lines_of(result), ElementsAre()) << text;
    EXPECT_NE(profile_text(result.profile), plain) << text;
    EXPECT_TRUE(texts.insert(profile_text(result.profile)).second) << text;
  }
}

TEST(ReadProfile, Values_AreThoseOfTheFile) {
  const ProfileResult result = parse_profile(
      "[guarded]\nusable = \"without value end\"\n[settings]\ntimeout_s = 3\nbatch_names = 40\n"
      "[connections]\nmost = 1\none_more = \"closed\"\nhalf_closed = \"not answered\"\nsegment_bytes = 536\n"
      "[replies]\nsequence = \"zero\"\nclass = \"other\"\nstatus = 0x8000\nbytes_behind_values = 2\npiece_bytes = 536\n"
      "[times]\nresolve_ms = 40\nresolve_each_ms = 0.25\n[limits]\nnames = 20\nbeyond = \"silent\"\nstatus = 0x21\n"
      "[refusal]\nshape = \"short\"\nstatus = 0x0102\n[directory]\nname_units = 20\nlongest_units = 21\n"
      "[[refused]]\nname = \"Motor.Speed\"\n[[refused]]\nname = \"Step\"\nprogram = \"MAIN\"\n",
      "p.toml");
  ASSERT_THAT(lines_of(result), ElementsAre());
  const Profile& profile = result.profile;
  EXPECT_EQ(profile.guarded, Profile::Guarded::kWithoutValueEnd);
  EXPECT_EQ(profile.recv_timeout_s, 3U);
  EXPECT_EQ(profile.batch_names, 40U);
  EXPECT_EQ(profile.most_connections, 1U);
  EXPECT_EQ(profile.one_more, Turned::kClosed);
  EXPECT_EQ(profile.answers_half_closed, false);
  EXPECT_EQ(profile.segment_bytes, 536U);
  EXPECT_EQ(profile.sequence, Echo::kZero);
  EXPECT_EQ(profile.request_class, Echo::kOther);
  EXPECT_EQ(profile.command, std::nullopt);
  EXPECT_EQ(profile.status_done, 0x8000);
  EXPECT_EQ(profile.bytes_behind_values, 2U);
  EXPECT_EQ(profile.piece_bytes, 536U);
  EXPECT_EQ(profile.resolve.first_ms, 40);
  EXPECT_EQ(profile.resolve.each_ms, 0.25);
  EXPECT_EQ(profile.names_per_request, 20U);
  EXPECT_EQ(profile.beyond, Turned::kSilent);
  EXPECT_EQ(profile.status_beyond, 0x21);
  EXPECT_EQ(profile.shape, Profile::Shape::kShort);
  EXPECT_EQ(profile.refusal_status, 0x0102);
  EXPECT_EQ(profile.program_name_units, 20U);
  EXPECT_EQ(profile.longest_name_units, 21U);
  ASSERT_EQ(profile.refused.size(), 2U);
  EXPECT_EQ(profile.refused[0].name, "Motor.Speed");
  EXPECT_EQ(profile.refused[0].program, "");
  EXPECT_EQ(profile.refused[1].program, "MAIN");
}

TEST(ReadProfile, UnknownKeyAndSection_AreToldWithWhatWasMeant) {
  EXPECT_THAT(
      findings_of("[replies]\nlenght = \"zero\"\n\n[reply]\n[x]\n[refusal]\nx = 1\n"),
      ElementsAre("p.toml:2:1: unknown key 'lenght' in [replies]; did you mean length?",
                  HasSubstr("p.toml:4:2: unknown section 'reply'; there are survey, guarded, contract, settings,"),
                  HasSubstr("p.toml:5:2: unknown section 'x'; there are "),
                  "p.toml:7:1: unknown key 'x' in [refusal]; it takes shape or status"));
}

TEST(ReadProfile, WrongTypeRangeOrWord_IsToldWithWhatToGive) {
  EXPECT_THAT(
      findings_of("guarded = 1\n[replies]\nlength = \"wrong\"\nstatus = 65536\npiece_bytes = 0\ncommand = 1\n"
                  "[times]\nread_ms = -1\nwrite_ms = nan\nresolve_ms = \"40\"\n[survey]\nnote = 5\n"),
      ElementsAre("p.toml:1:11: guarded is the integer 1: write [guarded], its keys below it",
                  "p.toml:3:10: [replies] length is the text \"wrong\": give one of right, zero or other",
                  "p.toml:4:10: [replies] status is the integer 65536: give an integer from 0 to 65535",
                  "p.toml:5:15: [replies] piece_bytes is the integer 0: give an integer from 1 to 4096",
                  "p.toml:6:11: [replies] command is the integer 1: give one of right, zero or other",
                  "p.toml:8:11: [times] read_ms is the integer -1: give a number of milliseconds from 0 to 600000",
                  "p.toml:9:12: [times] write_ms is the number nan: give a number of milliseconds from 0 to 600000",
                  "p.toml:10:14: [times] resolve_ms is the text \"40\": give a number of milliseconds from 0 to 600000",
                  "p.toml:12:8: [survey] note is the integer 5: give a text in double quotes"));
}

TEST(ReadProfile, RefusedVariables_HaveNamesAndDoubleBrackets) {
  EXPECT_THAT(findings_of("[refused]\nname = \"A\"\n"),
              ElementsAre("p.toml:1:1: refused is a table: write [[refused]] for each variable, its name below it"));
  EXPECT_THAT(findings_of("[[refused]]\nprogram = \"MAIN\"\n[[refused]]\nname = 1\n[[refused]]\nnam = \"A\"\n"),
              ElementsAre("p.toml:1:1: [[refused]] has no name: write name = \"Speed\"",
                          "p.toml:3:1: [[refused]] has no name: write name = \"Speed\"",
                          "p.toml:4:8: [[refused]] name is the integer 1: give a text in double quotes",
                          "p.toml:5:1: [[refused]] has no name: write name = \"Speed\"",
                          "p.toml:6:1: unknown key 'nam' in [[refused]]; did you mean name?"));
}

TEST(ReadProfile, RefusedValue_HasAShapeAndAStatusOfItsOwn) {
  const std::string text = "[[refused]]\nname = \"A\"\nwhat = \"value\"\nshape = \"full\"\nstatus = 0x19\n";
  const ProfileResult result = parse_profile(text, "p.toml");
  ASSERT_THAT(lines_of(result), ElementsAre());
  ASSERT_EQ(result.profile.refused.size(), 1U);
  const Profile::Refused& refused = result.profile.refused[0];
  EXPECT_EQ(refused.what, Profile::Refused::What::kValue);
  EXPECT_EQ(refused.shape, Profile::Shape::kFull);
  EXPECT_EQ(refused.status, 0x19);
  EXPECT_THAT(
      profile_text(result.profile),
      HasSubstr("\n# A declared variable whose name the controller knows. It refuses the value, with this shape "
                "and status.\n[[refused]]\nname = \"A\"\nwhat = \"value\"\nshape = \"full\"\nstatus = 0x0019\n"));
}

TEST(ReadProfile, ShapeOrStatusOfARefusedName_IsToldWithWhatToWrite) {
  EXPECT_THAT(findings_of("[[refused]]\nname = \"A\"\nstatus = 4\n[[refused]]\nname = \"B\"\nwhat = \"name\"\nshape = "
                          "\"short\"\n[[refused]]\nname = \"C\"\nwhat = \"all\"\n"),
              ElementsAre("p.toml:1:1: [[refused]] has a shape or status of its own, which only a refused value has: "
                          "write what = \"value\"",
                          "p.toml:4:1: [[refused]] has a shape or status of its own, which only a refused value has: "
                          "write what = \"value\"",
                          "p.toml:10:8: [[refused]] what is the text \"all\": give one of name or value"));
}

// By its own shape and status, where it has some.
TEST(AbsentNames, RefusedValueThatLooksLikeOne_IsAmongThem) {
  const auto absent = [](const std::string& text, bool is_guarded) {
    return absent_names(parse_profile(text, "p.toml").profile, is_guarded).size();
  };
  const std::string value = "[[refused]]\nname = \"A\"\nwhat = \"value\"\n";
  const std::string full = "[refusal]\nshape = \"full\"\nstatus = 0\n";
  EXPECT_EQ(absent(full + value, true), 1U);
  EXPECT_EQ(absent(full + value + "shape = \"short\"\n", true), 0U);
  EXPECT_EQ(absent(full + value + "status = 4\n", true), 0U);
  EXPECT_EQ(absent(full + value + "shape = \"short\"\n", false), 1U);
  EXPECT_EQ(absent("[refusal]\nshape = \"short\"\n" + value + "shape = \"full\"\nstatus = 0\n", true), 1U);
}

TEST(ReadProfile, NoToml_IsToldAndTheRestIsRead) {
  const ProfileResult result = parse_profile("[limits]\nnames = twenty\nvalues = 30\n", "p.toml");
  EXPECT_THAT(lines_of(result), ElementsAre(HasSubstr("p.toml:2:")));
  EXPECT_EQ(result.profile.values_per_request, 30U);
}

TEST(ReadProfile, FileThatIsNotThere_IsAFinding) {
  EXPECT_THAT(lines_of(read_profile("/nonexistent/p.toml")),
              ElementsAre("cannot read /nonexistent/p.toml: No such file or directory"));
}

TEST(WriteProfile, EveryKey_ReadsBackAsItWas) {
  std::string text;
  std::string section;
  for (const KeyRow& row : key_rows()) {
    if (section != row.section) text += "[" + (section = row.section) + "]\n";
    text += row.name;
    text += " = " + unusual_value(row) + "\n";
  }
  const Profile profile = parse_profile(text, "p.toml").profile;
  const std::string written = profile_text(profile);
  const ProfileResult again = parse_profile(written, "p.toml");
  EXPECT_THAT(lines_of(again), ElementsAre());
  EXPECT_EQ(profile_text(again.profile), written);
  EXPECT_EQ(again.profile.poll_ms, 86400000U);
  EXPECT_EQ(again.profile.write.each_ms, 600000);
  EXPECT_EQ(again.profile.status_done, 0xFFFF);
}

TEST(WriteProfile, ZeroWithAMinus_IsZero) {
  const Profile profile = parse_profile("[times]\ndirectory_ms = -0.0\n", "p.toml").profile;
  const std::string written = profile_text(profile);
  EXPECT_THAT(written, HasSubstr("\ndirectory_ms = 0  #"));
  EXPECT_EQ(profile_text(parse_profile(written, "p.toml").profile), written);
}

TEST(WriteProfile, Lines_SayWhatTheyMeanAndWhatIsNotKnown) {
  Profile profile;
  profile.most_connections = 4;
  profile.status_done = 0x12;
  const std::string text = profile_text(profile);
  EXPECT_THAT(
      text, HasSubstr("\n[connections]\nmost = 4  # The controller serves at most this many connections at a time.\n"));
  EXPECT_THAT(text, HasSubstr("\nstatus = 0x0012  # Answers that refuse nothing have this in bytes 12 and 13.\n"));
  EXPECT_THAT(text, HasSubstr("\n# names is not known. A resolve request may have this many names.\n"));
  EXPECT_THAT(text, Not(HasSubstr("[survey]")));
  EXPECT_THAT(
      text,
      HasSubstr("\n# one_more is not known. This happens to one more connection: it is refused, closed or silent.\n"
                "# half_closed is not known. This happens to a request behind which the host ends its side.\n"));
  EXPECT_THAT(text,
              HasSubstr("\n# length is not known. Bytes 0 to 3 of a reply, its length, are right, zero or other.\n"));
  EXPECT_THAT(text,
              HasSubstr("\n# beyond is not known. This happens to a longer request: it is refused, closed or silent.\n"
                        "# status is not known. A longer request is refused with this status.\n"));
  EXPECT_THAT(text, HasSubstr("\n[refusal]\n# shape is not known. "));
  // No host holds to it by itself.
  EXPECT_THAT(text, HasSubstr("\n# poll_ms is not known. Polling more often than once in this time is too often: "
                              "plc-gateway check notes it.\n"));
}

TEST(WriteProfile, TextsFromOutside_StayInTheirQuotes) {
  Profile profile;
  profile.note = "a \"b\" \\ c\n# d\x7F \xC3\xA4 \xE2\x80\xAE";
  profile.refused = {{"Motor.\"x\"", "MAIN"}};
  const std::string text = profile_text(profile);
  EXPECT_THAT(text, HasSubstr("note = \"a \\\"b\\\" \\\\ c\\u000A# d\\u007F \xC3\xA4 \\u202E\"  # "));
  const ProfileResult again = parse_profile(text, "p.toml");
  ASSERT_THAT(lines_of(again), ElementsAre());
  EXPECT_EQ(again.profile.note, profile.note);
  ASSERT_EQ(again.profile.refused.size(), 1U);
  EXPECT_EQ(again.profile.refused[0].name, profile.refused[0].name);
  EXPECT_EQ(again.profile.refused[0].program, "MAIN");
}

TEST(WriteProfile, File_IsTheTextAndReplacesNoInput) {
  const plc_test::TempDir folder;
  const std::string path = folder.path() + "/profile.toml";
  EXPECT_EQ(write_profile(path, {}, {}), "");
  EXPECT_EQ(plc_base::read_file(path, 100000).text, profile_text({}));
  EXPECT_NE(write_profile(path, {}, {path}), "");
}

// The controllers that surveys are tried with.
TEST(TriedProfiles, Each_IsReadDiffersAndSaysItsVerdict) {
  const std::map<std::string, std::string> verdicts = {{"yes", "usable."},
                                                       {"no", "not usable."},
                                                       {"without status", "usable without status."},
                                                       {"without value end", "usable without value end."},
                                                       {"without both", "usable without both."}};
  std::set<std::string> texts;
  for (const auto& entry : std::filesystem::directory_iterator(PLC_PROFILES_DIR)) {
    const std::string path = entry.path().string();
    const ProfileResult result = read_profile(path);
    EXPECT_THAT(lines_of(result), ElementsAre());
    // These two are plain, and differ by how check_profiles.py starts plc-sim.
    const std::string name = entry.path().stem().string();
    if (name != "34_changing_variables" && name != "35_late_and_lost") {
      EXPECT_TRUE(texts.insert(profile_text(result.profile)).second) << path;
    }
    std::string text = plc_base::read_file(path, 100000).text;
    std::replace(text.begin(), text.end(), '\n', ' ');
    const std::string word = words_of(Profile::Guarded{}).at(static_cast<size_t>(result.profile.guarded));
    ASSERT_EQ(verdicts.count(word), 1U) << path;
    EXPECT_THAT(text, HasSubstr("The guarded build is " + verdicts.at(word))) << path;
  }
  EXPECT_GE(texts.size(), 25U);
}

}  // namespace
}  // namespace plc_profile
