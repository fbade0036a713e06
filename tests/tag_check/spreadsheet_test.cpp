// What spreadsheets and editors do to tag files: one finding names the cause, and what has one safe correction is
// undone.
#include <gtest/gtest.h>

#include <string>

#include "checker.h"
#include "report.h"
#include "rule_list.h"

namespace tag_check {
namespace {

constexpr const char* kSheetName = "PLC7F000001_0.csv";

constexpr const char* kGood = "Speed,INT,,,,,,0,1,0,0,\nStep,DINT,,,,,,1,0,0,1,MAIN\nGrid[1,2],REAL,,,,,,2,1,0,0,\n";

struct Case {
  const char* name;  // of what was done to the file
  std::string text;
  const char* findings;   // "T008 1:6", with the last line where it has one: "T008 1:6-3"
  std::string corrected;  // empty: nothing of it has a safe correction
};

std::string with_separator(char separator) {
  std::string text = kGood;
  bool is_subscript = false;
  for (char& sign : text) {
    if (sign == '[') is_subscript = true;
    if (sign == ']') is_subscript = false;
    if (sign == ',' && !is_subscript) sign = separator;
  }
  return text;
}

std::string with_line_ends(const std::string& text, const char* line_end) {
  std::string changed;
  for (const char sign : text) changed += sign == '\n' ? std::string(line_end) : std::string(1, sign);
  return changed;
}

enum class Order { kLittle, kBig };

std::string utf16(const std::u16string& text, Order order) {
  std::string bytes;
  for (const char16_t unit : text) {
    const char low = static_cast<char>(unit & 0xFFU);
    const char high = static_cast<char>(unit >> 8U);
    bytes += order == Order::kLittle ? std::string{low, high} : std::string{high, low};
  }
  return bytes;
}

std::u16string wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

const Case kCases[] = {
    {"Semicolons", with_separator(';'), "T008 1:6-3", kGood},
    {"TextInSmallLettersKeepsItsLength", "Name,String,,20,,,,0,1,0,0,\n", "T042 1:6", "Name,STRING,,20,,,,0,1,0,0,\n"},
    {"Tabs", with_separator('\t'), "T008 1:6-3", kGood},
    {"VerticalBars", with_separator('|'), "T008 1:6-3", kGood},
    {"SemicolonsInOneLine", "Speed,INT,,,,,,0,1,0,0,\nLamp;BOOL;;;;;;1;1;0;0;\n", "T008 2:5",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n"},
    {"DecimalCommaBetweenSemicolons", "Lamp;BOOL;;;;;;0;1;0;0;\nSpeed;INT;;;;;;1,0;1;0;0;\n", "T008 1:5, T014 2:16",
     "Lamp,BOOL,,,,,,0,1,0,0,\nSpeed;INT;;;;;;1,0;1;0;0;\n"},
    {"Utf16LittleWithMark", utf16(u"\xFEFF" + wide(kGood), Order::kLittle), "T007 1:1-4", kGood},
    {"Utf16BigWithMark", utf16(u"\xFEFF" + wide(kGood), Order::kBig), "T007 1:1-4", kGood},
    {"Utf16LittleWithoutMark", utf16(wide(kGood), Order::kLittle), "T007 1:1-4", kGood},
    {"Utf16BigWithoutMark", utf16(wide(kGood), Order::kBig), "T007 1:1-4", kGood},
    {"Utf16WithSemicolonsAndReturns",
     utf16(u"\xFEFF" + wide(with_line_ends(with_separator(';'), "\r\n")), Order::kLittle),
     "T007 1:1-4, T008 1:6-3, T073 2:24", kGood},
    {"Utf16WithUmlautsAndAPair", utf16(u"\xFEFF\u00C4\u6E29\xD83D\xDE00,INT,,,,,,0,1,0,0,\n", Order::kBig),
     "T007 1:1-2, T024 1:6", "\xC3\x84\xE6\xB8\xA9\xF0\x9F\x98\x80,INT,,,,,,0,1,0,0,\n"},
    {"Utf16WithHalfAUnit", utf16(u"\xFEFF" + wide(kGood), Order::kLittle) + "\n", "T007 1:1-4", ""},
    {"Utf16WithHalfAPair", utf16(u"\xFEFF" + wide(kGood) + u"\xDC00", Order::kLittle), "T007 1:1-4", ""},
    {"MarkAndSemicolons", "\xEF\xBB\xBF" + with_separator(';'), "T004 1:1, T008 1:6-3", kGood},
    {"QuotedFields", "\"Speed\",\"INT\",\"\",\"\",\"\",\"\",\"\",\"0\",\"1\",\"0\",\"0\",\"\"\n", "T009 1:1",
     "Speed,INT,,,,,,0,1,0,0,\n"},
    {"QuotedNameWithSubscripts", "\"Grid[1,2]\",REAL,,,,,,0,1,0,0,\n", "T009 1:1", "Grid[1,2],REAL,,,,,,0,1,0,0,\n"},
    {"QuotedTypeBetweenSemicolons", "Lamp;\"BOOL\";;;;;;0;1;0;0;\n", "T008 1:5, T009 1:6", "Lamp,BOOL,,,,,,0,1,0,0,\n"},
    {"QuoteWithinQuotes", "\"Sp\"\"eed\",INT,,,,,,0,1,0,0,\n", "T009 1:1, T025 1:2", "Sp\"eed,INT,,,,,,0,1,0,0,\n"},
    {"LineEndWithinQuotes", "\"Mo\ntor\",INT,,,,,,0,1,0,0,\n", "T009 1:1, T025 2:1, T064 2:15", ""},
    {"CommaWithinQuotes", "\"Motor, left\",INT,,,,,,0,1,0,0,\n", "T014 1:2", ""},
    {"RangesWithAComma", "Table;INT;[0..9,0..4];;;;;0;1;0;0;\n", "T014 1:11", ""},
    {"SpreadsheetsOwnFile", std::string("PK\3\4\24\0x\n,", 9), "T016 1:1", ""},
    {"SpreadsheetsOwnFileOfTheOldKind", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1\n", "T016 1:1", ""},
    {"Heading", std::string("Name,Type,Ranges,Length,a,b,c,Id,Global,Flag,Number,Program\n") + kGood, "T043 1:1",
     kGood},
    {"HeadingAlone", "Name,Type,Ranges,Length,a,b,c,Id,Global,Flag,Number,Program\n", "T006 1:1, T043 1:1", ""},
    {"TitleOverAHeading",
     std::string("Tags of machine 7\nName,Type,Ranges,Length,a,b,c,Id,Global,Flag,Number,Program\n") + kGood,
     "T043 1:1-2", kGood},
    {"TitleOverVariables", std::string("Tags of machine 7\n\n") + kGood, "T043 1:1, T005 2:1", kGood},
    {"HeadingThatTheIdsCount", "Name,Type,Ranges,Length,a,b,c,Id,Global,Flag,Number,Program\nSpeed,INT,,,,,,1,1,0,0,\n",
     "T043 1:1", ""},
    {"HeadingOverEmptyIds", "Name,Type,Ranges,Length,a,b,c,Id,Global,Flag,Number,Program\nSpeed,INT,,,,,,,1,0,0,\n",
     "T043 1:1, T068 2:16", ""},
    {"TitleEmptyLineAndHeading",
     std::string(
         "Tags of machine 7,,,,,,,,,,,\n,,,,,,,,,,,\nName,Type,Ranges,Length,a,b,c,Id,Global,Flag,Number,Program\n") +
         kGood,
     "T043 1:1, T005 2:1, T043 3:1", kGood},
    {"SeparatorForASpreadsheet", "sep=;\n" + with_separator(';'), "T043 1:1, T008 1:5-4", kGood},
    {"EmptyLineThatTheIdsDoNotCount", "Speed,INT,,,,,,0,1,0,0,\n\nLamp,BOOL,,,,,,1,1,0,0,\n", "T005 2:1",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n"},
    {"EmptyLineThatTheIdsCount", "Speed,INT,,,,,,0,1,0,0,\n\nLamp,BOOL,,,,,,2,1,0,0,\n", "T005 2:1", ""},
    {"EmptyRowsAtTheEnd", std::string(kGood) + ",,,,,,,,,,,\n,,,,,,,,,,,\n\n", "T005 4:1-6", kGood},
    {"IdsFromOne", "Speed,INT,,,,,,1,1,0,0,\nStep,DINT,,,,,,2,0,0,1,MAIN\nLamp,BOOL,,,,,,3,1,0,0,\n", "T064 1:16-3",
     ""},
    {"IdTwice", "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,0,1,0,0,\nStep,DINT,,,,,,2,0,0,1,MAIN\n", "T109 2:16", ""},
    {"LineLost", "Speed,INT,,,,,,0,1,0,0,\nStep,DINT,,,,,,2,0,0,1,MAIN\nLamp,BOOL,,,,,,3,1,0,0,\n", "T064 2:16-3", ""},
    {"EmptyIds", "Speed,INT,,,,,,,1,0,0,\nLamp,BOOL,,,,,,,1,0,0,\n", "T068 1:16, T068 2:16",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n"},
    {"FormattedIds", "Speed,INT,,,,,,262.144,1,0,0,\nLamp,BOOL,,,,,,2.6E+05,1,0,0,\n", "T061 1:16, T061 2:16", ""},
    {"WordsForFlags", "Speed,INT,,,,,,0,TRUE,FALSE,0,\nStep,DINT,,,,,,1,false,0,1,MAIN\n", "T070 1:18, T070 2:18",
     "Speed,INT,,,,,,0,1,0,0,\nStep,DINT,,,,,,1,0,0,1,MAIN\n"},
    {"FormulaThatFailed", "#NAME?,INT,,,,,,0,1,0,0,\nErr:508,BOOL,,,,,,1,1,0,0,\n", "T029 1:1, T029 2:1", ""},
    {"GermanFormulaThatFailed",
     "#BEZUG!,INT,,,,,,0,1,0,0,\n#WERT!,INT,,,,,,1,1,0,0,\n#NV,INT,,,,,,2,1,0,0,\n#ZAHL!,INT,,,,,,3,1,0,0,\n",
     "T029 1:1, T029 2:1, T029 3:1, T029 4:1", ""},
    {"ColumnsOfTheLongestRow", "Speed,INT,,,,,,0,1,0,0,,,,\n", "T066 1:26", "Speed,INT,,,,,,0,1,0,0,,\n"},
    {"ColumnsOfTheLongestRowBehindIndexedLines", "V,INT,,,,,,262144,1,0,0,,\n_end,INT,,,,,,262145,1,0,0,\n",
     "T063 1:12", "V,INT,,,,,,262144,1,0,0,\n_end,INT,,,,,,262145,1,0,0,\n"},
    {"CarriageReturns", with_line_ends("Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n", "\r\n"), "T013 1:1-2",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n"},
    {"CarriageReturnsInProgramNames", with_line_ends(kGood, "\r\n"), "T073 2:24", kGood},
    {"LineEndsOfBothKinds", "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\r\n", "T013 2:1",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n"},
    {"CarriageReturnsTwice", with_line_ends("Speed,INT,,,,,,0,1,0,0,\n", "\r\r\n"), "T013 1:1",
     "Speed,INT,,,,,,0,1,0,0,\n"},
    {"CarriageReturnsAlone", with_line_ends(kGood, "\r"), "T012 1:24-3", kGood},
    {"CarriageReturnAloneInOneLine", "Speed,INT,,,,,,0,1,0,0,\rLamp,BOOL,,,,,,1,1,0,0,\n", "T012 1:24",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\n"},
    {"Blanks", "Speed, INT, , , , , , 0, 1, 0, 0, \nStep, DINT, , , , , , 1, 0, 0, 1, MAIN\n", "T015 1:7-2",
     "Speed,INT,,,,,,0,1,0,0,\nStep,DINT,,,,,,1,0,0,1,MAIN\n"},
    {"BlanksThatKeepWordsTogether", "Speed,INT\xC2\xA0,,,,,,0,1,0,0,\n", "T015 1:7", "Speed,INT,,,,,,0,1,0,0,\n"},
    {"WideBlanks", "Speed,\xE3\x80\x80INT,,,,,,0,1,0,0,\n", "T015 1:7", "Speed,INT,,,,,,0,1,0,0,\n"},
    {"BlankBeforeTheProgramBehindSubscripts", "Grid[1,2],INT,,,,,,0,0,0,1, MAIN\n", "T015 1:28",
     "Grid[1,2],INT,,,,,,0,0,0,1,MAIN\n"},
    {"BlankWithinSubscripts", "Grid[1, 2],REAL,,,,,,0,1,0,0,\n", "T021 1:1", "Grid[1,2],REAL,,,,,,0,1,0,0,\n"},
    {"BlanksAroundSubscripts", "Cell[ 1  ,2 ],INT,,,,,,0,1,0,0,\n", "T021 1:1", "Cell[1,2],INT,,,,,,0,1,0,0,\n"},
    {"BlankBeforeANameWithSubscripts", " Grid[1,2],REAL,,,,,,0,1,0,0,\n", "T021 1:1", "Grid[1,2],REAL,,,,,,0,1,0,0,\n"},
    {"BlanksBehindANameWithSubscripts", "Cube[1,2,3]  ,REAL,,,,,,0,1,0,0,\n", "T021 1:1",
     "Cube[1,2,3],REAL,,,,,,0,1,0,0,\n"},
    {"BlanksAroundANameAndWithinItsSubscripts", " Grid[1, 2] ,REAL,,,,,,0,1,0,0,\n", "T021 1:1, T021 1:1",
     "Grid[1,2],REAL,,,,,,0,1,0,0,\n"},
    {"SecondListOfSubscripts", "Line[1].Pos[2,3],REAL,,,,,,0,1,0,0,\n", "T077 1:1", ""},
    {"SecondListOfThreeSubscripts", "Line[1].Pos[2,3,4],REAL,,,,,,0,1,0,0,\n", "T077 1:1", ""},
    {"SecondListBehindTwoSubscripts", "Line[1,2].Pos[3,4],REAL,,,,,,0,1,0,0,\n", "T077 1:1", ""},
    {"SecondListWithoutAnId", "Line[1].Pos[2,3],REAL,,,,,,,1,0,0,\nA,INT,,,,,,0,1,0,0,\n", "T077 1:1, T064 2:12", ""},
    {"SecondListInQuotes", "\"Line[1].Pos[2,3]\",REAL,,,,,,0,1,0,0,\n", "T009 1:1, T077 1:2",
     "Line[1].Pos[2,3],REAL,,,,,,0,1,0,0,\n"},
    {"SecondListOfAnIndexedVariable", "Line[1].Pos[2,3],REAL,,,,,,262144,1,0,0,\n_end,INT,,,,,,262145,1,0,0,\n",
     "T077 1:1", ""},
    {"OneSubscriptBehindTwo", "Line[1,2].Pos[3],REAL,,,,,,0,1,0,0,\n", "", ""},
    {"BracketsInATitle", "Tags [machine 7]\nA,INT,,,,,,0,1,0,0,\n", "T060 1:1, T064 2:12", ""},
    {"BlankWithinAName", "Motor left[1],INT,,,,,,0,1,0,0,\n", "", ""},
    {"BlanksBehindTheProgram", "Step,INT,,,,,,0,0,0,1,MAIN  \n", "T015 1:23", "Step,INT,,,,,,0,0,0,1,MAIN\n"},
    {"BlanksThatTellProgramsApart", "Step,INT,,,,,,0,0,0,1,MAIN\nStep,INT,,,,,,1,0,0,2,MAIN \n",
     "T110 2:1, T111 2:23, T015 2:23", ""},
    {"BlanksThatTellProgramsApartBesideOthers",
     "Step,INT ,,,,,,0,0,0,1, MAIN\nStep,INT,,,,,,1,0,0,2,MAIN\nA,INT,,,,,,2,0,0,3,SUB \n",
     "T015 1:6-3, T015 1:24, T110 2:1",
     "Step,INT,,,,,,0,0,0,1, MAIN\nStep,INT,,,,,,1,0,0,2,MAIN\nA,INT,,,,,,2,0,0,3,SUB\n"},
    {"BlanksOfAGlobalVariablesProgram", "Step,INT,,,,,,0,0,0,1,MAIN \nLamp,INT,,,,,,1,1,0,2,MAIN\n",
     "T015 1:23, T072 2:23", "Step,INT,,,,,,0,0,0,1,MAIN\nLamp,INT,,,,,,1,1,0,2,MAIN\n"},
    {"BlanksThatTellNamesApart", "A ,INT,,,,,,0,1,0,0,\nA,INT,,,,,,1,1,0,0,\nA ,INT,,,,,,2,1,0,0,\n",
     "T021 1:1, T110 2:1, T021 3:1, T110 3:1", ""},
    {"BlanksThatTellSubscriptsApart", "A[1,2],INT,,,,,,0,1,0,0,\nA[1, 2],INT,,,,,,1,1,0,0,\n", "T021 2:1, T110 2:1",
     ""},
    {"BlanksThatTellReservedNamesApart", "_a,INT,,,,,,0,1,0,0,\n_a ,INT,,,,,,1,1,0,0,\n", "T021 2:1", ""},
    {"BlanksOfNamesInSeveralPrograms", "A ,INT,,,,,,0,0,0,1,MAIN\nA,INT,,,,,,1,0,0,2,SUB\n", "T021 1:1",
     "A,INT,,,,,,0,0,0,1,MAIN\nA,INT,,,,,,1,0,0,2,SUB\n"},
    {"BlankBehindTheProgramOfTheLastLine", "Speed,INT,,,,,,0,1,0,0,\nStep,INT,,,,,,1,0,0,1,MAIN ",
     "T001 2:1, T015 2:23", "Speed,INT,,,,,,0,1,0,0,\nStep,INT,,,,,,1,0,0,1,MAIN\n"},
    {"RangesThatACommaSplits", "Grid,INT,[0..2,0..3],,,,,0,1,0,0,\n", "T014 1:10",
     "Grid,INT,[0..2_0..3],,,,,0,1,0,0,\n"},
    {"ThreeRangesThatCommasSplit", "Cube,INT,[0..2, 0..3, 0..4],,,,,0,1,0,0,\n", "T014 1:10",
     "Cube,INT,[0..2_0..3_0..4],,,,,0,1,0,0,\n"},
    {"RangesThatAreNoneAndSplit", "Grid,INT,[0..2,x],,,,,0,1,0,0,\n", "T014 1:10", ""},
    {"ColumnLostInEveryLine",
     "Speed,INT,,,,,0,1,0,0,\nLamp,BOOL,,,,,1,1,0,0,\nStep,INT,,,,,2,0,0,1,MAIN\nTable,INT,[0..9],,,,3,1,0,0,\n",
     "T069 1:15-4",
     "Speed,INT,,,,,,0,1,0,0,\nLamp,BOOL,,,,,,1,1,0,0,\nStep,INT,,,,,,2,0,0,1,MAIN\nTable,INT,[0..9],,,,,3,1,0,0,\n"},
    {"ColumnLostBesideAMisplacedLength", "Name,STRING,20,,,,0,1,0,0,\n", "T069 1:19", ""},
    {"ColumnTooMany", "Speed,INT,,,,,,0,1,0,0,\nStep,INT,,,,,,,1,0,0,1,MAIN\n", "T069 2:16",
     "Speed,INT,,,,,,0,1,0,0,\nStep,INT,,,,,,1,0,0,1,MAIN\n"},
    {"NumbersInUnusedColumns", "Speed,INT,,,0,0,0,0,1,0,0,\nLamp,BOOL,,,,,1,1,1,0,0,\n", "", ""},
    {"OtherCharacterSet", "Gr\xF6\xDF\x65,INT,,,,,,0,1,0,0,\n", "T023 1:3", ""},
    {"RangesWithoutBrackets", "Table,INT,0..9,,,,,0,1,0,0,\n", "T030 1:11", "Table,INT,[0..9],,,,,0,1,0,0,\n"},
    {"LineTooLong", std::string(300, 'x') + ",REAL,,,,,,7\nSpeed,INT,,,,,,1,1,0,0,\n", "T002 1:1", ""},
};

class Spreadsheet : public testing::TestWithParam<Case> {};

TEST_P(Spreadsheet, WhatItDid_IsNamedOnceAndUndone) {
  const std::vector<Finding> findings = check_text(kSheetName, GetParam().text, {});
  std::string places;
  for (const Finding& finding : findings) {
    places += (places.empty() ? "" : ", ") + std::string(finding.rule) + " " + std::to_string(finding.line) + ":" +
              std::to_string(finding.column) +
              (finding.last_line > finding.line ? "-" + std::to_string(finding.last_line) : "");
  }
  EXPECT_EQ(places, GetParam().findings);
  size_t made = 0;
  const std::string corrected = corrected_text(kSheetName, GetParam().text, {}, &made);
  EXPECT_EQ(corrected, GetParam().corrected.empty() ? GetParam().text : GetParam().corrected);
  EXPECT_EQ(made > 0, !GetParam().corrected.empty());
}

// The program "MAIN " is not MAIN, and the variables are two until somebody removes the blank.
TEST(SpreadsheetBlanks, AroundAProgram_AreNamedWhereTheyTellVariablesApart) {
  const auto said = [](const std::string& first, const std::string& second) {
    const std::string text = "Step,INT,,,,,,0,0,0,1," + first + "\nStep,INT,,,,,,1,0,0,1," + second + "\n";
    std::string messages;
    for (const Finding& finding : check_text(kSheetName, text, {})) {
      if (std::string(finding.rule) == "T110") messages += finding.message + ";";
    }
    return messages;
  };
  EXPECT_EQ(said("MAIN", "MAIN"), "line 1 declares the same variable;");
  EXPECT_EQ(said("MAIN", "MAIN "), "line 1 declares the same variable once the blanks around its program are removed;");
  EXPECT_EQ(said(" MAIN", "MAIN"), "line 1 declares the same variable once the blanks around its program are removed;");
  EXPECT_EQ(said("MAIN", "MAIN2 "), "");
}

TEST(SpreadsheetBlanks, ThatTellProgramsOrNamesApart_AreLeftWithWhatToDo) {
  const auto messages_of = [](const char* rule, const std::string& text) {
    std::string messages;
    for (const Finding& finding : check_text(kSheetName, text, {})) {
      if (std::string(finding.rule) == rule) messages += finding.message + ";";
    }
    return messages;
  };
  EXPECT_EQ(messages_of("T015", "A,INT,,,,,,0,0,0,1,Main\nA,INT,,,,,,1,0,0,2,Main \nB,INT,,,,,,2,0,0,2,Main \n"),
            "only blanks tell the program 'Main ' from 'Main': remove them by hand if both are one program (2 lines);");
  const std::string names = "A,INT,,,,,,0,1,0,0,\nA ,INT,,,,,,1,1,0,0,\n";
  EXPECT_EQ(messages_of("T021", names),
            "blanks around the name are part of it; only they tell it from that of line 1: remove them by hand if both "
            "are one variable;");
  EXPECT_EQ(messages_of("T110", names),
            "line 1 declares the same variable once the blanks around its name are removed;");
  EXPECT_EQ(messages_of("T110", "A,INT,,,,,,0,0,0,1,Main\nA ,INT,,,,,,1,0,0,2,Main \n"),
            "line 1 declares the same variable once the blanks around its name and its program are removed;");
}

// A heading gives every variable the number of the one before.
TEST(SpreadsheetHeading, AboveVariables_IsAnError) { EXPECT_EQ(rule_of("T043").severity, Severity::kError); }

INSTANTIATE_TEST_SUITE_P(Cases, Spreadsheet, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
// The rule's own remedy would make one variable of two.
TEST(Report, RemedyOfAFinding_StandsWithoutThatOfItsRule) {
  FileReport report{"PLC1_0.csv", {}, {}};
  report.findings =
      check_text("PLC1_0.csv", "b,INT,,,,,,0,1,0,0,,DM\n b,INT,,,,,,1,1,0,0,,DM\nc ,INT,,,,,,2,1,0,0,,DM\n", {});
  EXPECT_EQ(
      text_report(report),
      "PLC1_0.csv:2:1: warning: blanks around the name are part of it; only they tell it from that of line 1: remove "
      "them by hand if both are one variable [T021]\n"
      "PLC1_0.csv:2:1: warning: line 1 declares the same variable once the blanks around its name are removed "
      "[T110]\n"
      "PLC1_0.csv:3:1: warning: blanks around the name are part of it [T021]\n"
      "    Remove the blanks.\n"
      "PLC1_0.csv: the driver does not load this file\n");
}

}  // namespace tag_check
