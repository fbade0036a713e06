// Tests of the parser of one tag line: columns 2 to 13, lines that end early, and the id that classifies a line.
#include "plc_driver/tags/tag_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::GuardedBuffer;

// The record that a line gives when every byte of it was 0 before.
TagEntry parse(const std::string& line) {
  TagEntry entry{};
  EXPECT_EQ(pase_str(line.c_str(), &entry), 0);
  return entry;
}

// The record that a line gives when every byte of it was 0x55 before: what the line does not set stays.
TagEntry parse_over(const std::string& line) {
  TagEntry entry;
  std::memset(&entry, 0x55, sizeof entry);
  EXPECT_EQ(pase_str(line.c_str(), &entry), 0);
  return entry;
}

constexpr int32_t kUnset = 0x55555555;
constexpr uint8_t kUnsetByte = 0x55;

TEST(TagLine, FullLine_FillsTheRecord) {
  const TagEntry entry = parse("Speed,DINT,,,a,b,c,5,1,0,0,,DM\n");
  EXPECT_STREQ(entry.name, "Speed");
  EXPECT_EQ(entry.name_kind, 1);
  EXPECT_EQ(entry.type_code, 0xC4);
  EXPECT_EQ(entry.bit_width, 32);
  EXPECT_EQ(entry.shape, 0U);
  EXPECT_EQ(entry.tag_id, 5U);
  EXPECT_EQ(entry.is_global, 1);
  EXPECT_EQ(entry.aux_flag, 0);
  EXPECT_EQ(entry.local_index, 0);
  EXPECT_STREQ(entry.scope_name, "");
  EXPECT_EQ(entry.device_kind, 6);
}

TEST(TagLine, StringWithoutTheLastColumns_GivesItsLengthAndNoDevice) {
  const TagEntry entry = parse("Buf,STRING,,20,a,b,c,7\n");
  EXPECT_EQ(entry.shape, 3U);
  EXPECT_EQ(entry.string_length, 20);
  EXPECT_EQ(entry.type_code, 0xD0);
  EXPECT_EQ(entry.bit_width, 0);
  EXPECT_EQ(entry.tag_id, 7U);
  EXPECT_EQ(entry.device_kind, 30);
}

TEST(TagLine, LineWithoutALineEnd_IsParsedTheSame) {
  EXPECT_EQ(parse("Buf,STRING,,20,a,b,c,7").tag_id, 7U);
  EXPECT_EQ(parse("Speed,DINT,,,a,b,c,5,1,0,0,,EMx").device_kind, 23);
}

TEST(TagLine, Ranges_FillTheDimensionsFromTheRight) {
  const TagEntry one = parse("Arr,INT,[2..9],,a,b,c,8\n");
  EXPECT_EQ(one.shape, 1U);
  EXPECT_EQ(one.dim1_low, 2);
  EXPECT_EQ(one.dim1_high, 9);

  const TagEntry two = parse("Arr,INT,[0..9_1..4],,a,b,c,8\n");
  EXPECT_EQ(two.shape, 4U);
  EXPECT_EQ(two.dim2_low, 0);
  EXPECT_EQ(two.dim2_high, 9);
  EXPECT_EQ(two.dim1_low, 1);
  EXPECT_EQ(two.dim1_high, 4);

  const TagEntry three = parse("Arr,INT,[-1..2_3..4_5..6],,a,b,c,8\n");
  EXPECT_EQ(three.shape, 5U);
  EXPECT_EQ(three.dim3_low, -1);
  EXPECT_EQ(three.dim3_high, 2);
  EXPECT_EQ(three.dim2_low, 3);
  EXPECT_EQ(three.dim2_high, 4);
  EXPECT_EQ(three.dim1_low, 5);
  EXPECT_EQ(three.dim1_high, 6);
}

TEST(TagLine, MoreThanTwoSeparators_GiveOneDimension) {
  const TagEntry entry = parse("Arr,INT,[1..2_3..4_5..6_7..8],,a,b,c,8\n");
  EXPECT_EQ(entry.shape, 1U);
  EXPECT_EQ(entry.dim1_low, 1);
  EXPECT_EQ(entry.dim1_high, 2);
  EXPECT_EQ(entry.dim2_low, 0);
}

TEST(TagLine, MalformedRanges_SetTheShapeAndWhatMatched) {
  const TagEntry none = parse_over("Arr,INT,3..9,,a,b,c,8\n");
  EXPECT_EQ(none.shape, 1U);
  EXPECT_EQ(none.dim1_low, kUnset);
  EXPECT_EQ(none.dim1_high, kUnset);

  const TagEntry half = parse_over("Arr,INT,[3.9],,a,b,c,8\n");
  EXPECT_EQ(half.dim1_low, 3);
  EXPECT_EQ(half.dim1_high, kUnset);

  const TagEntry second = parse_over("Arr,INT,[1..2_x..4],,a,b,c,8\n");
  EXPECT_EQ(second.shape, 4U);
  EXPECT_EQ(second.dim2_low, 1);
  EXPECT_EQ(second.dim2_high, 2);
  EXPECT_EQ(second.dim1_low, kUnset);

  const TagEntry open = parse_over("Arr,INT,[3..9,,a,b,c,8\n");
  EXPECT_EQ(open.dim1_low, 3);
  EXPECT_EQ(open.dim1_high, 9);
  EXPECT_EQ(open.tag_id, 8U);
}

TEST(TagLine, RangeBounds_HaveTheRangeOf32BitsOnEveryBuild) {
  const TagEntry entry = parse("Arr,INT,[-4294967297..4294967297],,a,b,c,8\n");
  EXPECT_EQ(entry.dim1_low, INT32_MIN);
  EXPECT_EQ(entry.dim1_high, INT32_MAX);
}

TEST(TagLine, Ranges_AreReadUpTo99Characters) {
  const std::string zeros(94, '0');
  EXPECT_EQ(parse("Arr,INT,[0.." + zeros + "9],,a,b,c,8\n").dim1_high, 9);
  EXPECT_EQ(parse("Arr,INT,[0.." + zeros + "09],,a,b,c,8\n").dim1_high, 0);
  // A separator behind the 99th character does not count.
  EXPECT_EQ(parse("Arr,INT,[0.." + zeros + "0_1..2],,a,b,c,8\n").shape, 1U);
}

TEST(TagLine, EmptyRanges_LeaveTheShapeOfTheType) {
  EXPECT_EQ(parse_over("Arr,INT,,,a,b,c,8\n").shape, 0U);
  EXPECT_EQ(parse_over("Arr,INT,,,a,b,c,8\n").dim1_low, kUnset);
}

TEST(TagLine, UnknownType_SetsNothing) {
  for (const char* type : {"string", "int", "INT ", "STRING3", "", "XXXXXXXXXXXXXXXXXXXX"}) {
    const TagEntry entry = parse_over(std::string("A,") + type + ",,9,a,b,c,8\n");
    EXPECT_EQ(entry.type_code, 0x5555) << type;
    EXPECT_EQ(entry.bit_width, kUnsetByte) << type;
    EXPECT_EQ(entry.shape, 0x55555555U) << type;
    EXPECT_EQ(entry.string_length, kUnset) << type;
    EXPECT_EQ(entry.tag_id, 8U) << type;
  }
}

TEST(TagLine, VeryLongType_IsUnknown) {
  EXPECT_EQ(parse_over("A," + std::string(150, 'X') + ",,,a,b,c,8\n").type_code, 0x5555);
}

TEST(TagLine, String2_NeverSetsTheLength) {
  const TagEntry entry = parse_over("A,STRING2,,20,a,b,c,8\n");
  EXPECT_EQ(entry.type_code, 0xD5);
  EXPECT_EQ(entry.shape, 0U);
  EXPECT_EQ(entry.string_length, kUnset);
}

TEST(TagLine, LowerCaseString_IsAnUnknownType) {
  const TagEntry entry = parse_over("A,string,,20,a,b,c,8\n");
  EXPECT_EQ(entry.type_code, 0x5555);
  EXPECT_EQ(entry.string_length, kUnset);
}

TEST(TagLine, LengthOfOtherTypes_IsIgnored) { EXPECT_EQ(parse_over("A,INT,,20,a,b,c,8\n").string_length, kUnset); }

TEST(TagLine, StringLength_OverridesAnArrayShape) {
  const TagEntry entry = parse("A,STRING,[0..3],20,a,b,c,8\n");
  EXPECT_EQ(entry.shape, 3U);
  EXPECT_EQ(entry.dim1_high, 3);
  EXPECT_EQ(parse("A,STRING,[0..3],,a,b,c,8\n").shape, 1U);
  EXPECT_EQ(parse("A,STRING,,,a,b,c,8\n").shape, 0U);
}

TEST(TagLine, StringLength_IsReadUpToSevenCharacters) {
  EXPECT_EQ(parse("A,STRING,,1234567,a,b,c,8\n").string_length, 1234567);
  EXPECT_EQ(parse("A,STRING,,12345678,a,b,c,8\n").string_length, 1234567);
}

TEST(TagLine, StringLengthThatIsNoNumber_SetsTheShapeAlone) {
  const TagEntry entry = parse_over("A,STRING,,x,a,b,c,8\n");
  EXPECT_EQ(entry.shape, 3U);
  EXPECT_EQ(entry.string_length, kUnset);
}

TEST(TagLine, TagId_IsReadAsASigned32BitNumberAndStoredUnsigned) {
  EXPECT_EQ(parse("A,INT,,,a,b,c,262144,1\n").tag_id, 0x40000U);
  EXPECT_EQ(parse("A,INT,,,a,b,c,-1,1\n").tag_id, 0xFFFFFFFFU);
  EXPECT_EQ(parse("A,INT,,,a,b,c,4294967295,1\n").tag_id, 0x7FFFFFFFU);
  EXPECT_EQ(parse("A,INT,,,a,b,c,12x,1\n").tag_id, 12U);
  EXPECT_EQ(parse_over("A,INT,,,a,b,c,,1\n").tag_id, 0U);
}

TEST(TagLine, Flags_FollowTheFirstCharacterAndElseStay) {
  const TagEntry set = parse_over("A,INT,,,a,b,c,8,1,1\n");
  EXPECT_EQ(set.is_global, 1);
  EXPECT_EQ(set.aux_flag, 1);
  const TagEntry cleared = parse_over("A,INT,,,a,b,c,8,0x,0,\n");
  EXPECT_EQ(cleared.is_global, 0);
  EXPECT_EQ(cleared.aux_flag, 0);
  const TagEntry other = parse_over("A,INT,,,a,b,c,8,2,y,\n");
  EXPECT_EQ(other.is_global, kUnsetByte);
  EXPECT_EQ(other.aux_flag, kUnsetByte);
  const TagEntry empty = parse_over("A,INT,,,a,b,c,8,,,\n");
  EXPECT_EQ(empty.is_global, kUnsetByte);
  EXPECT_EQ(empty.aux_flag, kUnsetByte);
}

TEST(TagLine, LocalIndex_IsTheLowByteOfTheNumber) {
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,0,0,7,P\n").local_index, 7);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,0,0,258,P\n").local_index, 2);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,0,0,-1,P\n").local_index, 255);
  EXPECT_EQ(parse_over("A,INT,,,a,b,c,8,0,0,,P\n").local_index, kUnsetByte);
}

TEST(TagLine, ScopeName_EndsAtTheLineFeedAndKeepsACarriageReturn) {
  EXPECT_STREQ(parse("A,INT,,,a,b,c,8,0,0,7,MAIN\n").scope_name, "MAIN");
  EXPECT_STREQ(parse("A,INT,,,a,b,c,8,0,0,7,MAIN\r\n").scope_name, "MAIN\r");
  EXPECT_STREQ(parse("A,INT,,,a,b,c,8,0,0,7,MAIN,DM\n").scope_name, "MAIN");
  EXPECT_STREQ(parse_over("A,INT,,,a,b,c,8,0,0,7,\n").scope_name, "");
  EXPECT_EQ(parse_over("A,INT,,,a,b,c,8,0,0,7,,DM\n").scope_name[0], 0x55);
}

TEST(TagLine, ScopeNameOfTheLongestLength_StaysInItsField) {
  const TagEntry entry = parse("A,INT,,,a,b,c,8,0,0,7," + std::string(300, 's') + ",DM \n");
  EXPECT_EQ(std::string(entry.scope_name), std::string(255, 's'));
  EXPECT_EQ(entry.local_index, 7);
  EXPECT_EQ(entry.device_kind, 6);
}

TEST(TagLine, DeviceColumn_IsSearchedInTheOrderOfTheDevices) {
  const auto device_of = [](const std::string& column) {
    return parse("A,INT,,,a,b,c,8,1,0,0,," + column).device_kind;
  };
  EXPECT_EQ(device_of("EM\n"), 23);
  EXPECT_EQ(device_of("MR\n"), 17);
  EXPECT_EQ(device_of("LR\n"), 18);
  EXPECT_EQ(device_of("DM\n"), 6);
  EXPECT_EQ(device_of("TM\n"), 8);
  EXPECT_EQ(device_of("FM\n"), 25);
  EXPECT_EQ(device_of("CM\n"), 7);
  EXPECT_EQ(device_of("ZF\n"), 44);
  EXPECT_EQ(device_of("DM EM\n"), 23);
  EXPECT_EQ(device_of("ZFMR\n"), 17);
  EXPECT_EQ(device_of("xxDM100\n"), 6);
  EXPECT_EQ(device_of("dm\n"), 30);
  EXPECT_EQ(device_of("D M\n"), 30);
  EXPECT_EQ(device_of("\n"), 30);
}

TEST(TagLine, DeviceColumnOfTwoCharacters_IsTooShort) {
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,,DM\n").device_kind, 6);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,,DM\r\n").device_kind, 6);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,,DM,more\n").device_kind, 30);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,,DM\n,more\n").device_kind, 6);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,,DM").device_kind, 30);
}

TEST(TagLine, DeviceColumn_IsExaminedUpTo23Characters) {
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,," + std::string(21, 'x') + "DM\n").device_kind, 6);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,0,0,," + std::string(22, 'x') + "DM\n").device_kind, 30);
}

TEST(TagLine, DeviceNameInOtherColumns_DoesNotCount) {
  const TagEntry entry = parse("Mix.EM_DM,INT,,,EM,DM,ZF,8,1,0,0,MR\n");
  EXPECT_STREQ(entry.name, "Mix.EM_DM");
  EXPECT_EQ(entry.name_kind, 2);
  EXPECT_EQ(entry.device_kind, 30);
}

TEST(TagLine, ColumnsLeftOutFromTheRight_KeepTheirValues) {
  const TagEntry entry = parse_over("A,INT,,,a,b,c,8,1\n");
  EXPECT_EQ(entry.tag_id, 8U);
  EXPECT_EQ(entry.is_global, 1);
  EXPECT_EQ(entry.aux_flag, kUnsetByte);
  EXPECT_EQ(entry.local_index, kUnsetByte);
  EXPECT_EQ(entry.scope_name[0], 0x55);
  EXPECT_EQ(entry.device_kind, 30);
}

TEST(TagLine, Columns8To12AsTheLastField_AreUsedWithoutAComma) {
  EXPECT_EQ(parse("A,INT,,,a,b,c,8\n").tag_id, 8U);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1\n").is_global, 1);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,1\n").aux_flag, 1);
  EXPECT_EQ(parse("A,INT,,,a,b,c,8,1,1,9\n").local_index, 9);
  EXPECT_STREQ(parse("A,INT,,,a,b,c,8,1,1,9,P\n").scope_name, "P");
}

TEST(TagLine, Columns1To7WithoutTheirComma_AreNotUsed) {
  EXPECT_STREQ(parse_over("A").name, "");
  EXPECT_STREQ(parse_over("A\n").name, "");
  EXPECT_EQ(parse_over("A\n").name_kind, kUnsetByte);
  EXPECT_STREQ(parse_over("A,INT\n").name, "A");
  EXPECT_EQ(parse_over("A,INT\n").type_code, 0x5555);
  EXPECT_EQ(parse_over("A,INT").type_code, 0x5555);
  EXPECT_EQ(parse_over("A,INT,[1..2]\n").shape, 0U);
  EXPECT_EQ(parse_over("A,STRING,,20\n").string_length, kUnset);
  EXPECT_EQ(parse_over("A,STRING,,20,a\n").string_length, 20);
  EXPECT_EQ(parse_over("A,INT,,,a,b,8\n").tag_id, 0U);
}

TEST(TagLine, LineThatStopsBeforeColumn8_HasIdZeroAndNoDevice) {
  for (const char* line : {"", "\n", "A\n", "A,INT\n", "A,INT,,,a,b,c\n"}) {
    const TagEntry entry = parse_over(line);
    EXPECT_EQ(entry.tag_id, 0U) << line;
    EXPECT_EQ(entry.device_kind, 30) << line;
    EXPECT_EQ(entry.is_global, kUnsetByte) << line;
  }
}

TEST(TagLine, EmptyName_IsANameOfKindOne) {
  const TagEntry entry = parse_over(",INT,,,a,b,c,8\n");
  EXPECT_STREQ(entry.name, "");
  EXPECT_EQ(entry.name_kind, 1);
  EXPECT_EQ(entry.tag_id, 8U);
}

TEST(TagLine, PercentSigns_ArePlainText) {
  const TagEntry entry = parse("A%n%s%d,INT,,,%n,%s,%d,8,0,0,1,P%n%s\n");
  EXPECT_STREQ(entry.name, "A%n%s%d");
  EXPECT_STREQ(entry.scope_name, "P%n%s");
}

TEST(TagLine, MoreCommasThanAFileLineCanHold_AreHarmless) {
  const TagEntry entry = parse("A,INT,,,a,b,c,8,1,0,7,P,DM " + std::string(1000, ',') + "\n");
  EXPECT_EQ(entry.tag_id, 8U);
  EXPECT_STREQ(entry.scope_name, "P");
  EXPECT_EQ(entry.device_kind, 6);
}

TEST(VarParse, PointAndBracket_DecideTheKind) {
  EXPECT_EQ(varParse("a.b"), 2);
  EXPECT_EQ(varParse("a[#1].b"), 3);
  EXPECT_EQ(varParse("a[#1]"), 1);
  EXPECT_EQ(varParse("a"), 1);
  EXPECT_EQ(varParse(""), 1);
  EXPECT_EQ(varParse("a.b[#1]"), 3);
}

TEST(Insert, Character_MovesTheRestWithItsTerminator) {
  GuardedBuffer text(6, 0xEE);
  std::memcpy(text.data(), "a[1]", 5);
  insert(text.text(), "#x", 2);
  EXPECT_STREQ(text.text(), "a[#1]");
  EXPECT_TRUE(text.guards_intact());
}

TEST(Insert, BothEnds_AreTaken) {
  char text[5] = "bc";
  insert(text, "a", 0);
  EXPECT_STREQ(text, "abc");
  insert(text, "d", 3);
  EXPECT_STREQ(text, "abcd");
}

// The id that a line is classified by, or -1 for a line that has none.
int64_t classify(std::string_view text) {
  plc::TagLine line{text.data(), static_cast<uint32_t>(text.size()), 0, {}};
  for (uint32_t i = 0; i < line.length; ++i) {
    if (text[i] == ',') line.commas[line.comma_count++] = i;
  }
  uint32_t id = 0xEEEEEEEE;
  return plc::classify_tag_line(line, &id) ? int64_t{id} : -1;
}

TEST(TagClass, TwelveColumns_AreClassifiedByColumn8) {
  EXPECT_EQ(classify("A,INT,,,a,b,c,262144,1,0,0,\n"), 262144);
  EXPECT_EQ(classify("A,INT,,,a,b,c,262144,1,0,12,MAIN\n"), 262144);
  EXPECT_EQ(classify("A[1,2],INT,,,a,b,c,262144,1,0,0,\n"), 262144);
}

TEST(TagClass, ThirteenColumns_AreClassifiedByColumn9_D5) {
  EXPECT_EQ(classify("A,INT,,,a,b,c,262144,1,0,0,,DM\n"), 1);
  EXPECT_EQ(classify("A,INT,,,a,b,c,5,262144,0,0,,DM\n"), 262144);
}

TEST(TagClass, EmptyColumns9To11_LoseTheIdsLastDigit_D5) {
  EXPECT_EQ(classify("A,INT,,,a,b,c,2621440,,,,P\n"), 262144);
  EXPECT_EQ(classify("A,INT,,,a,b,c,2621440,,,0,P\n"), 2621440);
  EXPECT_EQ(classify("A,INT,,,a,b,c,2621440,1,,,P\n"), 2621440);
  EXPECT_EQ(classify("A,INT,,,a,b,c,2621440,,0,,P\n"), 2621440);
  EXPECT_EQ(classify("A,INT,,,a,b,c,,,,,P\n"), 0);
}

TEST(TagClass, FewerColumns_AreClassifiedByTheFifthFieldFromTheEnd) {
  EXPECT_EQ(classify("Buf,STRING,,20,a,b,c,7\n"), 20);
  EXPECT_EQ(classify("a,5,b,c,d,\n"), 5);
  EXPECT_EQ(classify(",5,b,c,d,e"), 5);
}

TEST(TagClass, FewerThanFiveCommas_GiveNoId) {
  EXPECT_EQ(classify(""), -1);
  EXPECT_EQ(classify("\n"), -1);
  EXPECT_EQ(classify("1,2,3,4,5\n"), -1);
  EXPECT_EQ(classify(",,,,\n"), -1);
}

TEST(TagClass, IdThatIsNoNumber_IsZero) {
  EXPECT_EQ(classify("A,INT,,,a,b,c,x,1,0,0,\n"), 0);
  EXPECT_EQ(classify(",,,,,\n"), 0);
}

TEST(TagClass, Id_HasTheRangeOfASigned32BitNumber) {
  EXPECT_EQ(classify("A,INT,,,a,b,c,99999999999,1,0,0,\n"), 2147483647);
  EXPECT_EQ(classify("A,INT,,,a,b,c,-1,1,0,0,\n"), 4294967295);
}

}  // namespace
