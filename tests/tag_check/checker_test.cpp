// Places, corrections, reports of the checker, and that its statement about the driver is the driver's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "checker.h"
#include "plc_driver/tags/tag_file.h"
#include "report.h"
#include "rule_list.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_dir.h"

namespace tag_check {
namespace {

constexpr const char* kName = "PLC7F000001_0.csv";

std::vector<Finding> check(const std::string& text) { return check_text(kName, text, {}); }

// "T001 1:1, T002 2:5" in their order.
std::string finding_places(const std::string& text) {
  std::string places;
  for (const Finding& finding : check(text)) {
    places += (places.empty() ? "" : ", ") + std::string(finding.rule) + " " + std::to_string(finding.line) + ":" +
              std::to_string(finding.column);
  }
  return places;
}

std::string fixed(const std::string& text) {
  size_t made = 0;
  return apply_edits(text, check(text), &made);
}

TEST(Checker, Finding_HasItsLineAndColumn) {
  const auto findings = check("Speed,INT,,,,,,0,1,0,0,\nLamp,BLOB,,,,,,1,1,0,0,\n");
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_STREQ(findings[0].rule, "T041");
  EXPECT_EQ(findings[0].line, 2U);
  EXPECT_EQ(findings[0].column, 6U);
  EXPECT_EQ(findings[0].message, "'BLOB' is not a type: did you mean BOOL?");
}

TEST(Checker, JoinedName_CountsColumnsAsTheDriverDoes) {
  const auto findings = check("Grid[1,2],INTEGER,,,,,,0,1,0,0,\n");
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_STREQ(findings[0].rule, "T041");
  EXPECT_EQ(findings[0].column, 11U);
}

TEST(Checker, NameThatIsNoStrictUtf8_IsSaidWithItsColumn) {
  // Longer than needed, half of a surrogate pair, beyond the last code point.
  for (const char* bytes : {"\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80"}) {
    const auto findings = check("Sp" + std::string(bytes) + ",INT,,,,,,0,1,0,0,\n");
    ASSERT_EQ(findings.size(), 1U) << testing::PrintToString(bytes);
    EXPECT_STREQ(findings[0].rule, "T023") << testing::PrintToString(bytes);
    EXPECT_EQ(findings[0].column, 3U) << testing::PrintToString(bytes);
  }
}

TEST(Checker, CharacterThatIsNotSeen_IsSaidWithItsColumn) {
  // Escape, a control of two bytes, a line separator, a sign of direction, no width.
  const std::pair<const char*, const char*> unseen[] = {{"\x1B", "U+001B"},
                                                        {"\xC2\x9B", "U+009B"},
                                                        {"\xE2\x80\xA8", "U+2028"},
                                                        {"\xE2\x80\xAE", "U+202E"},
                                                        {"\xEF\xBB\xBF", "U+FEFF"}};
  for (const auto& [bytes, name] : unseen) {
    const auto in_name = check("Sp" + std::string(bytes) + "eed,INT,,,,,,0,1,0,0,\n");
    ASSERT_EQ(in_name.size(), 1U) << name;
    EXPECT_STREQ(in_name[0].rule, "T028");
    EXPECT_EQ(in_name[0].column, 3U);
    EXPECT_EQ(in_name[0].message, "the name holds " + std::string(name) + ", which is not seen");
    const auto in_scope = check("Speed,INT,,,,,,0,0,0,1,M" + std::string(bytes) + "\n");
    ASSERT_EQ(in_scope.size(), 1U) << name;
    EXPECT_STREQ(in_scope[0].rule, "T028");
    EXPECT_EQ(in_scope[0].column, 25U);
    EXPECT_EQ(in_scope[0].message, "the program's name holds " + std::string(name) + ", which is not seen");
  }
}

TEST(Checker, UnusualBlank_IsSaidAndTakenAwayFromTheEndsOfAName) {
  const std::pair<const char*, const char*> blanks[] = {
      {"\u00A0", "U+00A0"}, {"\u3000", "U+3000"}, {"\u2007", "U+2007"}, {"\u200B", "U+200B"}};
  for (const auto& [bytes, name] : blanks) {
    const std::string behind = "Speed" + std::string(bytes) + ",INT,,,,,,0,1,0,0,\n";
    const auto found = check(behind);
    ASSERT_EQ(found.size(), 1U) << name;
    EXPECT_STREQ(found[0].rule, "T021");
    EXPECT_EQ(found[0].message, "blanks around the name are part of it: " + std::string(name));
    EXPECT_EQ(fixed(behind), "Speed,INT,,,,,,0,1,0,0,\n");
    EXPECT_EQ(fixed(std::string(bytes) + "Speed,INT,,,,,,0,1,0,0,\n"), "Speed,INT,,,,,,0,1,0,0,\n");
  }
  const auto within = check("Motor\u00A0left,INT,,,,,,0,1,0,0,\n");
  ASSERT_EQ(within.size(), 1U);
  EXPECT_STREQ(within[0].rule, "T028");
  EXPECT_EQ(within[0].column, 6U);
  EXPECT_EQ(within[0].message, "the name holds U+00A0, which looks like a space");
}

std::string only_message(const std::string& text) {
  const auto found = check(text);
  return found.size() == 1 ? found[0].message : finding_places(text);
}

TEST(Checker, MisplacedColumns_AreToldWithTheirCause) {
  EXPECT_EQ(only_message("Grid,INT,[0..2,0..3],,,,,0,1,0,0,\n"),
            "the ranges '[0..2,0..3]' contain a comma: write [0..2_0..3]");
  EXPECT_EQ(only_message("Speed,INT,,,,,0,1,0,0,\nLamp,BOOL,,,,,1,1,0,0,\n"),
            "a column is missing before the id, which stands in column 7 (2 lines)");
  EXPECT_EQ(only_message("Speed,INT,,,,,,,0,1,0,0,\n"),
            "there is a column too many before the id, which stands in column 9");
}

TEST(Checker, IdTwice_IsToldWithTheOtherLine) {
  EXPECT_EQ(only_message("Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,0,1,0,0,\nStep,DINT,,,,,,2,0,0,1,MAIN\n"),
            "line 1 has the same id 0; the line is record 1");
}

TEST(Checker, FileNameInAnotherCase_IsToldWithTheNameThatTheDriverAsksFor) {
  const auto found = check_text("/tags/plc7f000001_0.CSV", "Speed,INT,,,,,,0,1,0,0,\n", {});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].message,
            "the driver does not find a file of the name 'plc7f000001_0.CSV': the case of letters counts, as in "
            "PLC7F000001_0.csv");
}

TEST(Checker, LettersOfAnyScript_AreSeen) {
  // Accented, Greek, Arabic, Thai with its signs, Japanese.
  for (const char* name : {"\xC3\xA9t\xC3\xA9", "\xCE\xB1", "\xD9\x85\xD8\xAD\xD8\xB1\xD9\x83",
                           "\xE0\xB8\x81\xE0\xB8\xB4", "\xE6\xB8\xA9\xE5\xBA\xA6\xE3\x82\xAB"}) {
    EXPECT_TRUE(check(std::string(name) + ",INT,,,,,,0,1,0,0,\n").empty()) << name;
  }
}

// It has a rule of its own, which corrects it.
TEST(Checker, ByteOrderMarkOfTheFile_IsSaidOnce) {
  const auto findings = check("\xEF\xBB\xBFSpeed,INT,,,,,,0,1,0,0,\n");
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_STREQ(findings[0].rule, "T004");
}

TEST(Checker, LineThatTheDriverDrops_IsCounted) {
  const auto findings = check(std::string(300, 'x') + ",INT,,,,,,0,1,0,0,\nSpeed,INT,,,,,,7,1,0,0,\n");
  EXPECT_EQ(findings.front().line, 1U);
  EXPECT_EQ(findings.back().line, 2U);
}

TEST(Fix, LastLine_GetsItsEnd) { EXPECT_EQ(fixed("Speed,INT,,,,,,0,1,0,0,"), "Speed,INT,,,,,,0,1,0,0,\n"); }

TEST(Fix, SeveralByteOrderMarks_AreRemovedAtOnce) {
  EXPECT_EQ(fixed("\xEF\xBB\xBF\xEF\xBB\xBF\xEF\xBB\xBFSpeed,INT,,,,,,0,1,0,0,\n"), "Speed,INT,,,,,,0,1,0,0,\n");
}

TEST(Fix, CorrectionsThatOverlap_AreMadeOneAfterTheOther) {
  // Both the indexed line's thirteenth column and the fourteenth, which is empty too, go.
  const std::string text = "V,INT,,,,,,262144,1,0,0,,,\n_end,INT,,,,,,262145,1,0,0,\n";
  EXPECT_EQ(finding_places(text), "T063 1:12, T066 1:27");
  EXPECT_EQ(fixed(text), "V,INT,,,,,,262144,1,0,0,\n_end,INT,,,,,,262145,1,0,0,\n");
}

TEST(Checker, RangesThatMultiplyBeyondAllNumbers_AreTooManyElements) {
  const std::string range = "-2147483648..2147483647";
  const auto findings = check("A,INT,[" + range + "_" + range + "_" + range + "],,,,,0,1,0,0,\n");
  EXPECT_TRUE(std::any_of(findings.begin(), findings.end(),
                          [](const Finding& finding) { return std::string(finding.rule) == "T092"; }));
}

TEST(Fix, ByteOrderMark_IsRemoved) {
  EXPECT_EQ(fixed("\xEF\xBB\xBFSpeed,INT,,,,,,0,1,0,0,\n"), "Speed,INT,,,,,,0,1,0,0,\n");
}

TEST(Fix, TypesAndNames_StandInUpperCaseAndWithoutBlanks) {
  EXPECT_EQ(fixed(" Speed, int ,,,,,,0,1,0,0,\n"), "Speed,INT,,,,,,0,1,0,0,\n");
}

TEST(Fix, EmptyColumnsAndCarriageReturn_AreFilledAndRemoved) {
  EXPECT_EQ(fixed("Step,INT,,,,,,0,,,,MAIN\r\n"), "Step,INT,,,,,,0,0,0,0,MAIN\n");
}

TEST(Fix, WhatHasNoSafeCorrection_IsLeftAlone) {
  const std::string text = "Speed,INTEGER,[9..0],,,,,5,1,0,0,\n";
  EXPECT_EQ(fixed(text), text);
}

TEST(Fix, FixedText_StaysAsItIs) {
  for (const Rule& rule : rule_list()) {
    const std::string once = fixed(rule.bad);
    EXPECT_EQ(fixed(once), once) << rule.code;
  }
}

TEST(Report, Text_HasPlaceSeverityMessageRuleAndSuggestion) {
  FileReport report = {"a.csv", {true, "", 1, 0, 0}, check("Lamp,BIT,,,,,,0,1,0,0,\n")};
  EXPECT_EQ(text_report(report),
            "a.csv:1:6: error: 'BIT' is not a type: the driver calls it BOOL [T041]\n    Use one of BOOL, SINT, INT, "
            "DINT, LINT, USINT, UINT, UDINT, ULINT, REAL, LREAL, STIME, DATE, "
            "STRING, BYTE, WORD, DWORD, LWORD, STRING2, TIME_OF_DAY and DATE_AND_TIME.\na.csv: the driver reads 1 "
            "plain record\n");
}

TEST(Report, Json_HasAnObjectALine) {
  FileReport report = {"a.csv", {true, "", 1, 0, 0}, check("Lamp,BIT,,,,,,0,1,0,0,\n")};
  const std::string text = json_report(report);
  const auto first = nlohmann::json::parse(text.substr(0, text.find('\n')));
  EXPECT_EQ(first["rule"], "T041");
  EXPECT_EQ(first["line"], 1);
  const auto second = nlohmann::json::parse(text.substr(text.find('\n') + 1));
  EXPECT_EQ(second["driver"]["plain_records"], 1);
}

// A file with this many lines whose type is unknown.
FileReport repeated_report(int lines) {
  std::string text;
  for (int line = 0; line < lines; ++line)
    text += "V" + std::to_string(line) + ",XY,,,,,," + std::to_string(line) + ",1,0,0,\n";
  return {"a.csv", {true, "", static_cast<uint32_t>(lines), 0, 0}, check(text)};
}

TEST(Report, RepeatedFinding_IsShownTenTimesWithTheCountOfTheOthers) {
  const std::string text = text_report(repeated_report(34464));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
  EXPECT_EQ(text.substr(text.find("a.csv:10:")),
            "a.csv:10:4: error: 'XY' is not a type [T041]\na.csv: error: and 34,454 more [T041]\n"
            "a.csv: the driver reads 34464 plain records\n");
  EXPECT_EQ(text_report(repeated_report(10)).find("more"), std::string::npos);
}

TEST(Report, RepeatedFinding_IsWholeInJson) {
  const std::string text = json_report(repeated_report(34464));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 34465);
}

TEST(Report, RepeatedFinding_HasItsCountInSarif) {
  const auto document = nlohmann::json::parse(sarif_report({repeated_report(34464)}));
  const auto& results = document["runs"][0]["results"];
  ASSERT_EQ(results.size(), 10U);
  EXPECT_EQ(results[9]["occurrenceCount"], 34455);
  EXPECT_EQ(results[9]["message"]["text"], "'XY' is not a type; and 34,454 more");
  EXPECT_FALSE(results[8].contains("occurrenceCount"));
}

TEST(Report, CauseOfSeveralLines_HasItsLastOne) {
  const FileReport report = {"a.csv", {}, check("Speed;INT;;;;;;0;1;0;0;\nLamp;BOOL;;;;;;1;1;0;0;\n")};
  const std::string text = json_report(report);
  const auto object = nlohmann::json::parse(text.substr(0, text.find('\n')));
  EXPECT_EQ(object["line"], 1);
  EXPECT_EQ(object["last_line"], 2);
  EXPECT_EQ(object["fixable"], true);
  const auto document = nlohmann::json::parse(sarif_report({report}));
  EXPECT_EQ(document["runs"][0]["results"][0]["locations"][0]["physicalLocation"]["region"]["endLine"], 2);
}

TEST(Checker, AnyFileName_IsOneWarning) {
  const CheckOptions options = {true, 0xC0A8000A};
  for (const char* name : {"machine.csv", "folder/list.txt", "PLC01_0.csv"}) {
    const auto findings = check_text(name, "Speed,INT,,,,,,0,1,0,0,\n", options);
    ASSERT_EQ(findings.size(), 1U) << name;
    EXPECT_STREQ(findings[0].rule, "T010");
    EXPECT_EQ(rule_of("T010").severity, Severity::kWarning);
    EXPECT_NE(findings[0].message.find("it asks for PLCC0A8000A_0.csv and the like"), std::string::npos);
  }
}

TEST(Checker, ForeignTypes_AreNamedWithTheDriversOnes) {
  const std::pair<const char*, const char*> types[] = {
      {"FLOAT", "'FLOAT' is not a type: REAL has 32 bits, LREAL 64"},
      {"INT32", "'INT32' is not a type: the driver calls it DINT"},
      {"double", "'double' is not a type: the driver calls it LREAL"},
      {"DITN", "'DITN' is not a type: did you mean DINT?"},
      {"Word", "'Word' is not a type: types are written WORD"},
      {"STRING(20)", "'STRING(20)' is not a type: the length of a STRING stands in column 4"},
      {"ARRAY[0..9] OF INT", "'ARRAY[0..9] OF INT' is not a type: ranges stand in column 3"},
      {"XY", "'XY' is not a type"}};
  for (const auto& [type, message] : types) {
    const auto findings = check("Speed," + std::string(type) + ",,,,,,0,1,0,0,\n");
    ASSERT_EQ(findings.size(), 1U) << type;
    EXPECT_EQ(findings[0].message, message);
  }
}

TEST(Fix, TypesWithOneMeaning_BecomeTheDriversOnes) {
  EXPECT_EQ(fixed("A,INT32,,,,,,0,1,0,0,\nB,Boolean,,,,,,1,1,0,0,\nC,FLOAT,,,,,,2,1,0,0,\nD,STRING[20],,,,,,3,1,0,0,\n"
                  "E,int[0..9],,,,,,4,1,0,0,\nF,DITN,,,,,,5,1,0,0,\n"),
            "A,DINT,,,,,,0,1,0,0,\nB,BOOL,,,,,,1,1,0,0,\nC,FLOAT,,,,,,2,1,0,0,\nD,STRING,,20,,,,3,1,0,0,\n"
            "E,INT,[0..9],,,,,4,1,0,0,\nF,DITN,,,,,,5,1,0,0,\n");
}

TEST(Report, TextOfFileAndName_IsShownInItsLine) {
  FileReport report = {"a\n\x1B.csv", {true, "", 1, 0, 0}, check("Lamp,\x1B]0;x\xC2\x9B,,,,,,0,1,0,0,\n")};
  EXPECT_EQ(text_report(report),
            "a\\n\\x1b.csv:1:6: error: '\\x1b]0;x\\u{9b}' is not a type [T041]\n    Use one of BOOL, SINT, INT, DINT, "
            "LINT, USINT, UINT, UDINT, ULINT, REAL, LREAL, STIME, DATE, "
            "STRING, BYTE, WORD, DWORD, LWORD, STRING2, TIME_OF_DAY and DATE_AND_TIME.\n"
            "a\\n\\x1b.csv: the driver reads 1 plain record\n");
}

TEST(Report, FileThatIsCalledLikeASpeaker_StandsInQuotes) {
  EXPECT_EQ(text_report({"plc-host: a.csv", {true, "", 1, 0, 0}, {}}),
            "\"plc-host: a.csv\": the driver reads 1 plain record\n");
}

nlohmann::json sarif_result_of(const std::string& file, const std::string& text) {
  return nlohmann::json::parse(sarif_report({{file, {}, check(text)}}))["runs"][0]["results"][0];
}

TEST(Report, SarifAddress_IsEncoded) {
  const std::pair<const char*, const char*> addresses[] = {{"folder/PLC7F000001_0.csv", "folder/PLC7F000001_0.csv"},
                                                           {"/tmp/a b#c?d%.csv", "/tmp/a%20b%23c%3Fd%25.csv"},
                                                           {"//evil.example/a.csv", "/evil.example/a.csv"},
                                                           {"javascript:alert(1)", "javascript%3Aalert%281%29"},
                                                           {"\xC3\xA9\x1B\xFF\n.csv", "%C3%A9%1B%FF%0A.csv"}};
  for (const auto& [file, address] : addresses) {
    const nlohmann::json result = sarif_result_of(file, "Lamp,BIT,,,,,,0,1,0,0,\n");
    EXPECT_EQ(result["locations"][0]["physicalLocation"]["artifactLocation"]["uri"], address);
  }
}

TEST(Report, SarifMessage_HasNoLinkAndNothingUnseen) {
  EXPECT_EQ(sarif_result_of("a.csv", "Lamp,[a](//b),,,,,,0,1,0,0,\n")["message"]["text"],
            "'\\[a\\](//b)' is not a type");
  EXPECT_EQ(sarif_result_of("a.csv", "Lamp,\xE2\x80\xAE\x1B,,,,,,0,1,0,0,\n")["message"]["text"],
            "'\\u{202e}\\x1b' is not a type");
  EXPECT_EQ(sarif_result_of("a.csv", "Lamp,[a],,,,,,0,1,0,0,\n")["message"]["text"], "'[a]' is not a type");
}

TEST(Report, Sarif_NamesEveryRule) {
  const auto document = nlohmann::json::parse(sarif_report({{"a.csv", {}, check("Lamp,BIT,,,,,,0,1,0,0,\n")}}));
  EXPECT_EQ(document["version"], "2.1.0");
  EXPECT_EQ(document["runs"][0]["tool"]["driver"]["rules"].size(), rule_list().size());
  EXPECT_EQ(document["runs"][0]["results"][0]["locations"][0]["physicalLocation"]["region"]["startColumn"], 6);
}

// A text of pieces that matter to the driver, in any order.
std::string random_text(std::mt19937* random) {
  static const char* const kPieces[] = {"V,INT,,,,,,0,1,0,0,\n",
                                        ",",
                                        "\n",
                                        "Grid[1,2],REAL,[0..3_1..4],,,,,",
                                        "262144,1,0,0,\n",
                                        "262145,1,0,0,\n",
                                        "X,DINT,,,,,,262146,1,0,0,\n",
                                        "[",
                                        "]",
                                        "STRING,,9",
                                        "\r\n",
                                        "W,INT,,,,,,270336,0,0,1,MAIN\n",
                                        "1,0,0,,DM\n",
                                        "\xC3",
                                        "_end,INT,,,,,,270337,1,0,0,\n"};
  std::string text;
  for (uint64_t pieces = (*random)() % 24; pieces > 0; --pieces) text += kPieces[(*random)() % std::size(kPieces)];
  return text;
}

// Byte for byte, but for the padding, which a copy of a record need not keep.
bool are_same_records(const TagEntry& left, const TagEntry& right) {
  constexpr size_t kParts[][2] = {{0, offsetof(TagEntry, bit_width) + 1},
                                  {offsetof(TagEntry, dim1_low), offsetof(TagEntry, aux_flag) + 1},
                                  {offsetof(TagEntry, tag_id), offsetof(TagEntry, device_kind) + 1}};
  const auto* left_bytes = reinterpret_cast<const uint8_t*>(&left);
  const auto* right_bytes = reinterpret_cast<const uint8_t*>(&right);
  return std::all_of(std::begin(kParts), std::end(kParts), [&](const size_t(&part)[2]) {
    return memcmp(left_bytes + part[0], right_bytes + part[0], part[1] - part[0]) == 0;
  });
}

// Over generated files: the records that the checker speaks of are the records that the loader makes.
TEST(Understanding, OfTenThousandFiles_EqualsWhatTheDriverLoads) {
  const plc_test::TempDir folder;
  const std::string path = folder.file(kName);
  std::mt19937 random(20260101);
  uint32_t loaded = 0;
  for (int file = 0; file < 10000; ++file) {
    const std::string text = random_text(&random);
    folder.write(kName, text);
    plc_test::CapturedOutput captured;
    TagEntry* entries = nullptr;
    IndexedTagEntry* groups = nullptr;
    static uint32_t group_ids[plc::kIdBlocks];
    const uint32_t* counts = build_tagtable(&entries, &groups, path.c_str(), group_ids);
    captured.take();
    if (counts == nullptr) continue;
    ++loaded;
    const SourceFile source = read_source(text);
    uint32_t plain = 0;
    uint32_t largest = 0;
    for (const SourceLine& line : source.lines) {
      if (line.indexed) {
        largest = std::max(largest, line.class_id);
        continue;
      }
      ASSERT_LT(plain, counts[0]) << text;
      ASSERT_TRUE(are_same_records(line.entry, entries[plain])) << text;
      ++plain;
    }
    ASSERT_EQ(plain, counts[0]) << text;
    ASSERT_EQ(largest, counts[1]) << text;
    plc::free_tag_arrays(entries, groups);
  }
  EXPECT_GT(loaded, 5000U);
}

// Lines of consecutive indexed ids.
std::string run_of(uint32_t first_id, uint32_t length) {
  std::string text;
  for (uint32_t id = first_id; id < first_id + length; ++id) text += "V,INT,,,,,," + std::to_string(id) + ",1,0,0,\n";
  return text;
}

// The text of the finding of this rule, nothing without one.
std::string finding_of(const std::string& rule, const std::string& text) {
  for (const Finding& finding : check(text)) {
    if (finding.rule == rule) return finding.message;
  }
  return "";
}

bool driver_loads(const std::string& text) {
  const plc_test::TempDir folder;
  folder.write(kName, text);
  plc_test::CapturedOutput captured;
  const bool loads = load_file(folder.file(kName)).loads;
  captured.take();
  return loads;
}

constexpr uint32_t kBlock0 = 262144;
constexpr uint32_t kBlock1 = kBlock0 + 8192;
constexpr uint32_t kBlock2 = kBlock1 + 8192;

TEST(RunLimits, FirstRun_HasAtMostAHundredIds) {
  EXPECT_EQ(finding_of("T104", run_of(kBlock0, 100)), "");
  EXPECT_TRUE(driver_loads(run_of(kBlock0, 100)));
  const std::string text = run_of(kBlock0, 101);
  EXPECT_EQ(finding_of("T104", text), "the file's first run has 101 ids and may have 100: the driver rejects the file");
  EXPECT_FALSE(driver_loads(text));
}

TEST(RunLimits, RunAcrossTheEndOfABlock_IsToldWithTheBlocksLastId) {
  EXPECT_EQ(finding_of("T101", run_of(kBlock1 - 2, 2)), "");
  EXPECT_EQ(finding_of("T101", run_of(kBlock1 - 2, 3)), "the run 270334 to 270336 crosses the end of a block, 270335");
}

TEST(RunLimits, LaterRun_HasAtMostAHundredAndOneIds) {
  const std::string first = run_of(kBlock0, 100);
  EXPECT_EQ(finding_of("T104", first + run_of(kBlock1, 101)), "");
  EXPECT_TRUE(driver_loads(first + run_of(kBlock1, 101)));
  const std::string text = first + run_of(kBlock1, 102);
  EXPECT_EQ(finding_of("T104", text), "a later run has 102 ids and may have 101: the driver rejects the file");
  EXPECT_FALSE(driver_loads(text));
}

TEST(RunLimits, OneId_IsEnoughForTheFirstAndTheLastRunAlone) {
  const std::string ends = run_of(kBlock0, 1) + run_of(kBlock1, 2) + run_of(kBlock2, 1);
  EXPECT_EQ(finding_of("T103", ends), "");
  EXPECT_TRUE(driver_loads(ends));
  const std::string middle = run_of(kBlock0, 2) + run_of(kBlock1, 1) + run_of(kBlock2, 2);
  EXPECT_EQ(finding_of("T103", middle),
            "a run of one id that is neither the file's first nor its last: the driver rejects the file");
  EXPECT_FALSE(driver_loads(middle));
}

// Whatever the lengths of three runs, the checker says that the driver rejects the file exactly when it does.
TEST(RunLimits, OfThreeRuns_AreTheDrivers) {
  for (const uint32_t first : {1U, 2U, 99U, 100U, 101U, 102U, 255U, 256U}) {
    for (const uint32_t middle : {1U, 2U, 100U, 101U, 102U, 255U, 256U}) {
      for (const uint32_t last : {1U, 2U, 100U, 101U, 102U, 255U, 256U}) {
        const std::string text = run_of(kBlock0, first) + run_of(kBlock1, middle) + run_of(kBlock2, last);
        const bool accepted = finding_of("T103", text).empty() && finding_of("T104", text).empty();
        EXPECT_EQ(accepted, driver_loads(text)) << first << " " << middle << " " << last;
      }
    }
  }
}

TEST(Understanding, OfAFile_SaysWhetherTheDriverLoadsIt) {
  const plc_test::TempDir folder;
  const std::string path = folder.file(kName);
  folder.write(kName, rule_of("T104").bad);
  plc_test::CapturedOutput captured;
  EXPECT_FALSE(load_file(path).loads);
  folder.write(kName, rule_of("T100").good);
  const Understanding understanding = load_file(path);
  captured.take();
  EXPECT_TRUE(understanding.loads);
  EXPECT_EQ(understanding.groups, 1U);
  EXPECT_EQ(understanding.max_indexed_id, 262146U);
}

}  // namespace
}  // namespace tag_check
