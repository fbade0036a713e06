// Tests of the single read against a scripted controller: ids, names, scopes and counts, and the bytes of both
// requests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_table.h"
#include "tests/support/driver_build.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::answer;
using plc_test::by_build;
using plc_test::Bytes;
using plc_test::directory_of;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::PeerStep;
using plc_test::resolve_reply;
using plc_test::ResolvedName;
using plc_test::to_hex;
using plc_test::value_reply;
using plc_test::operator+;
using testing::EndsWith;
using testing::HasSubstr;

constexpr ResolvedName kHandle = {0x40, {0x11, 0x22, 0x33, 0x44}};

// The replies of a read of this many names, whose values are all zero.
std::vector<PeerStep> replies_for(size_t names) {
  return {answer(resolve_reply(std::vector<ResolvedName>(names, kHandle))), answer(value_reply({}))};
}

class ReadSingle : public plc_test::DriverFixture {
 protected:
  // Both requests of a successful read, in hexadecimal.
  std::vector<std::string> requests_of(uint32_t id, uint16_t offset, uint32_t count, size_t names) {
    start_connected(replies_for(names));
    GuardedBuffer data(64);
    EXPECT_EQ(read_id(id, offset, count, data.data()), 0U);
    EXPECT_TRUE(data.guards_intact());
    std::vector<std::string> texts;
    for (const Bytes& request : finish()) texts.push_back(to_hex(request));
    texts.resize(2);
    return texts;
  }

  std::string resolve_request_of(uint32_t id, uint16_t offset, uint32_t count, size_t names) {
    return requests_of(id, offset, count, names)[0];
  }

  // Expects that a read gives 3 without a request, and leaves connection and sequence number as they are.
  void expect_nothing_sent(uint32_t id, uint16_t offset, uint32_t count) {
    GuardedBuffer data(4, 0xEE);
    start_connected({});
    plc::sid = 0x1234;
    EXPECT_EQ(read_id(id, offset, count, data.data()), 3U);
    EXPECT_TRUE(finish().empty());
    EXPECT_EQ(plc::sid, 0x1234);
    EXPECT_EQ(plc::init, 1U);
    EXPECT_TRUE(data.holds_only(0xEE));
  }

  uint8_t word_[4] = {};
};

TEST_F(ReadSingle, GlobalWord_SendsBothRequestsAndStoresTheValue) {
  write_tags(0, "A1,INT,,,a,b,c,0,1,0,0,,DM\n");
  start_connected({answer(resolve_reply({kHandle})), answer(value_reply({0x12, 0x34}))});
  GuardedBuffer data(4, 0xEE);
  EXPECT_EQ(read_id(0, 0, 1, data.data()), 0U);
  const std::vector<Bytes> requests = finish();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(to_hex(requests[0]), "00 00 00 0E FF FF FF F1 00 00 0C 28 00 01 00 00 00 01 00 02 00 41 00 31");
  EXPECT_EQ(to_hex(requests[1]), "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 40 00 01 11 22 33 44");
  EXPECT_EQ(to_hex(data.bytes()), "34 12 00 00");
  EXPECT_TRUE(data.guards_intact());
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\n");
}

TEST_F(ReadSingle, RegisterType2AndAddress50003_AreId5AndOffset3_D37) {
  write_tags(0,
             "A,INT,,,a,b,c,0,1\nB,INT,,,a,b,c,1,1\nC,INT,,,a,b,c,2,1\nD,INT,,,a,b,c,3,1\nE,INT,,,a,b,c,4,1\n"
             "F,INT,[0..9],,a,b,c,5,1\n");
  start_connected(replies_for(1));
  RegRequest request = {0, 0, 2, 0x00050003};
  RegValue value = {1, word_};
  EXPECT_EQ(read(&request, &value), 0U);
  EXPECT_EQ(request.reg_type, 0);
  EXPECT_EQ(request.address, 0x00050003U);
  EXPECT_EQ(to_hex(finish()[0]),
            "00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 46 00 5B 00 23 00 33 00 5D");
}

constexpr const char* kIndexed =
    "A,INT,,,a,b,c,262144,1,0,0,\nB,INT,,,a,b,c,262145,1,0,0,\nC,INT,,,a,b,c,262146,1,0,0,\n";

TEST_F(ReadSingle, RegisterType4AndAddress10000_AreIndexedId40001) {
  write_tags(0, kIndexed);
  start_connected(replies_for(1));
  RegRequest request = {0, 0, 4, 0x00010000};
  RegValue value = {1, word_};
  EXPECT_EQ(read(&request, &value), 0U);
  EXPECT_EQ(request.reg_type, 4);
  EXPECT_EQ(to_hex(finish()[0]), "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 42");
}

TEST_F(ReadSingle, SecondGroup_IsReachedThroughItsBlock) {
  write_tags(0,
             "A,INT,,,a,b,c,262144,1,0,0,\nB,INT,,,a,b,c,262145,1,0,0,\n"
             "C,INT,,,a,b,c,270336,1,0,0,\nD,INT,,,a,b,c,270337,1,0,0,\nE,INT,,,a,b,c,270338,1,0,0,\n");
  EXPECT_THAT(resolve_request_of(0x42001, 0, 1, 1), EndsWith("00 01 00 44"));
  EXPECT_THAT(resolve_request_of(0x40001, 0, 1, 1), EndsWith("00 01 00 42"));
}

TEST_F(ReadSingle, PlainIdEqualToTheCount_PrintsTheCount) {
  write_tags(0, "A,INT,,,a,b,c,0,1\nB,INT,,,a,b,c,1,1\n");
  expect_nothing_sent(2, 0, 1);
  EXPECT_THAT(take_output(), testing::MatchesRegex(".*\\[PLC\\] tag id 2 is not exist in this tag list "
                                                   "PLC7F000001_0.csv, max:2, at line: [0-9]+\r\n"));
}

TEST_F(ReadSingle, HighestPlainId_IsThatOfRegisterTypeZero_D37) {
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  expect_nothing_sent(0x3FFFF, 0, 1);
  EXPECT_THAT(take_output(), HasSubstr("tag id 65535 is not exist in this tag list PLC7F000001_0.csv, max:1"));
}

TEST_F(ReadSingle, LargestIndexedId_PrintsItAsTheLimit_D10) {
  write_tags(0, kIndexed);
  expect_nothing_sent(0x40002, 0, 1);
  EXPECT_THAT(take_output(), testing::MatchesRegex(".*\\[PLC\\] tag id 262146 is not exist in this tag list "
                                                   "PLC7F000001_0.csv, max:262146, at line: [0-9]+\r\n"));
}

TEST_F(ReadSingle, IndexBeyondItsGroup_FailsWithoutALine) {
  write_tags(0,
             "A,INT,,,a,b,c,262144,1,0,0,\nB,INT,,,a,b,c,262145,1,0,0,\n"
             "C,INT,,,a,b,c,270336,1,0,0,\nD,INT,,,a,b,c,270337,1,0,0,\n");
  expect_nothing_sent(0x40002, 0, 1);
  EXPECT_THAT(take_output(), Not(HasSubstr("is not exist")));
}

TEST_F(ReadSingle, GroupNumberThatTheTableDoesNotHave_FailsWithoutALine) {
  write_tags(0, kIndexed);
  plc::groupID_table[0] = 7;
  expect_nothing_sent(0x40000, 0, 1);
  EXPECT_THAT(take_output(), Not(HasSubstr("is not exist")));
}

TEST_F(ReadSingle, LargestRegisterType_IsRefused) {
  write_tags(0, kIndexed);
  expect_nothing_sent(0xFFFFFF, 0xFFFF, 1);
  EXPECT_THAT(take_output(), HasSubstr("tag id 16777215 is not exist"));
}

TEST_F(ReadSingle, ElementsOfOneDimension_AreNamedOneByOne) {
  write_tags(0, "A,INT,[0..9],,a,b,c,0,1\n");
  const std::vector<std::string> requests = requests_of(0, 8, 2, 2);
  EXPECT_EQ(requests[0],
            "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 02 00 05 00 41 00 5B 00 23 00 38 00 5D "
            "00 05 00 41 00 5B 00 23 00 39 00 5D");
  EXPECT_EQ(requests[1],
            "00 00 00 18 FF FF FF E7 00 01 1E 09 00 00 02 00 00 00 00 40 00 01 11 22 33 44 00 40 00 01 11 22 33 44");
}

TEST_F(ReadSingle, TwoDimensions_DivideByTheExtentOfTheRightmostRange_D12) {
  write_tags(0, "A,INT,[0..4_0..2],,a,b,c,0,1\nB,INT,[20..24_10..12],,a,b,c,1,1\n");
  // A[#1,#1], then B[#11,#21]: the lower bounds are paired crosswise.
  EXPECT_THAT(resolve_request_of(0, 4, 1, 1), EndsWith("00 08 00 41 00 5B 00 23 00 31 00 2C 00 23 00 31 00 5D"));
  EXPECT_THAT(resolve_request_of(1, 4, 1, 1),
              EndsWith("00 0A 00 42 00 5B 00 23 00 31 00 31 00 2C 00 23 00 32 00 31 00 5D"));
}

TEST_F(ReadSingle, ThreeDimensions_PairTheFirstSubscriptWithTheRightmostRange_D12) {
  write_tags(0, "A,INT,[5..9_3..5_1..2],,a,b,c,0,1\n");
  // A[#2,#5,#6] for element 11: 11 / 2 = 5, 5 / 3 = 1 and 5 % 3 = 2, 11 % 2 = 1.
  EXPECT_THAT(resolve_request_of(0, 11, 1, 1),
              EndsWith("00 0B 00 41 00 5B 00 23 00 32 00 2C 00 23 00 35 00 2C 00 23 00 36 00 5D"));
}

TEST_F(ReadSingle, OtherShapes_RepeatTheNameForEveryElement) {
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  EXPECT_THAT(resolve_request_of(0, 5, 3, 3), EndsWith("00 03 00 01 00 41 00 01 00 41 00 01 00 41"));
}

TEST_F(ReadSingle, ZeroExtent_FailsWithNothingSent) {
  write_tags(0, "A,INT,[0..4_1..0],,a,b,c,0,1\nB,INT,[0..4_1..0_0..2],,a,b,c,1,1\nC,INT,[0..4_0..2_1..0],,a,b,c,2,1\n");
  expect_nothing_sent(0, 3, 1);
  expect_nothing_sent(1, 3, 1);
  expect_nothing_sent(2, 3, 1);
}

TEST_F(ReadSingle, ZeroExtentAndCountZero_FormNoSubscript) {
  write_tags(0, "A,INT,[0..4_1..0],,a,b,c,0,1\n");
  EXPECT_EQ(resolve_request_of(0, 3, 0, 1), "00 00 00 08 FF FF FF F7 00 00 0C 28 00 01 00 00 00 00");
}

TEST_F(ReadSingle, CountZero_SendsBothRequestsAndClearsFourBytes) {
  write_tags(0, "A,INT,,,a,b,c,0,1\nB,BOOL,,,a,b,c,1,1\nC,DINT,,,a,b,c,2,1\nD,DATE,,,a,b,c,3,1\n");
  for (uint32_t id = 0; id < 4; ++id) {
    start_connected({answer(from_hex("01")), answer(value_reply({0x12, 0x34}))});
    GuardedBuffer data(8, 0xEE);
    EXPECT_EQ(read_id(id, 0, 0, data.data()), 0U);
    const std::vector<Bytes> requests = finish();
    EXPECT_EQ(to_hex(requests.at(0)), "00 00 00 08 FF FF FF F7 00 00 0C 28 00 01 00 00 00 00");
    EXPECT_EQ(to_hex(requests.at(1)), "00 00 00 08 FF FF FF F7 00 01 1E 09 00 00 00 00 00 00");
    EXPECT_EQ(to_hex(data.bytes()), "00 00 00 00 EE EE EE EE") << id;
    EXPECT_TRUE(data.guards_intact());
  }
}

TEST_F(ReadSingle, Lint_IsCountedInHalves_D21) {
  write_tags(0, "A,LINT,[0..9],,a,b,c,0,1\n");
  start_connected({answer(resolve_reply({kHandle, kHandle})),
                   answer(value_reply(from_hex("01 02 03 04 05 06 07 08 11 12 13 14 15 16 17 18")))});
  GuardedBuffer data(16, 0xEE);
  RegRequest request = plc_test::request_for(0, 6);
  RegValue value = {4, data.data()};
  EXPECT_EQ(read(&request, &value), 0U);
  EXPECT_EQ(value.count, 2U);
  const std::vector<Bytes> requests = finish();
  EXPECT_EQ(to_hex(requests[0]),
            "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 02 00 05 00 41 00 5B 00 23 00 33 00 5D "
            "00 05 00 41 00 5B 00 23 00 34 00 5D");
  EXPECT_EQ(to_hex(requests[1]),
            "00 00 00 18 FF FF FF E7 00 01 1E 09 00 00 02 00 00 00 00 40 00 04 11 22 33 44 00 40 00 04 11 22 33 44");
  EXPECT_EQ(to_hex(data.bytes()), "02 01 04 03 06 05 08 07 12 11 14 13 16 15 18 17");
  EXPECT_TRUE(data.guards_intact());
}

TEST_F(ReadSingle, LintOfAnOddCount_RoundsDownAlsoWhenTheReadFails_D21) {
  write_tags(0, "A,LINT,[0..4_1..0],,a,b,c,0,1\n");
  start_connected({});
  RegRequest request = plc_test::request_for(0);
  RegValue value = {5, word_};
  EXPECT_EQ(read(&request, &value), 3U);
  EXPECT_EQ(value.count, 2U);
}

TEST_F(ReadSingle, SizeCode_FollowsTheWidth) {
  write_tags(0, "A,INT,,,a,b,c,0,1\nB,DINT,,,a,b,c,1,1\nC,LREAL,,,a,b,c,2,1\nD,BOOL,,,a,b,c,3,1\nE,DATE,,,a,b,c,4,1\n");
  EXPECT_THAT(requests_of(0, 0, 1, 1)[1], EndsWith("00 40 00 01 11 22 33 44"));
  EXPECT_THAT(requests_of(1, 0, 1, 1)[1], EndsWith("00 40 00 02 11 22 33 44"));
  EXPECT_THAT(requests_of(2, 0, 2, 1)[1], EndsWith("00 40 00 04 11 22 33 44"));
  EXPECT_THAT(requests_of(3, 0, 1, 1)[1], EndsWith("00 40 00 01 11 22 33 40"));
  // A type without a width: the count stands for it.
  EXPECT_THAT(requests_of(4, 0, 3, 3)[1], EndsWith("00 40 00 03 11 22 33 44"));
}

TEST_F(ReadSingle, WidthOfEightBits_IsExchangedAndRefused) {
  write_tags(0, "A,SINT,,,a,b,c,0,1\n");
  start_connected({answer(resolve_reply({kHandle})), answer(value_reply({0x12, 0x34}))});
  GuardedBuffer data(8, 0xEE);
  EXPECT_EQ(read_id(0, 0, 1, data.data()), 3U);
  EXPECT_THAT(to_hex(finish()[1]), EndsWith("00 40 00 08 11 22 33 44"));
  EXPECT_EQ(to_hex(data.bytes()), by_build("00 00 00 00 EE EE EE EE", "EE EE EE EE EE EE EE EE"));
  EXPECT_EQ(plc::init, 1U);
}

TEST_F(ReadSingle, NameOfOtherCharacters_TravelsInUnits) {
  write_tags(0, "\xE4\xB8\xAD[3].\xC3\xA9,INT,,,a,b,c,0,1\n");
  EXPECT_THAT(resolve_request_of(0, 0, 1, 1), EndsWith("00 01 00 07 4E 2D 00 5B 00 23 00 33 00 5D 00 2E 00 E9"));
}

TEST_F(ReadSingle, EmptyName_TravelsAsItsCountAlone) {
  write_tags(0, ",INT,,,a,b,c,0,1\n");
  EXPECT_EQ(resolve_request_of(0, 0, 2, 2), "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 02 00 00 00 00");
}

TEST_F(ReadSingle, SequenceNumber_AdvancesByOneARequestAndWraps) {
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  start_connected(replies_for(1) + replies_for(1));
  plc::sid = 0xFFFE;
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  plc::sid = 0xFFFF;
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(plc::sid, 1);
  const std::vector<Bytes> requests = finish();
  EXPECT_THAT(to_hex(requests[0]), HasSubstr(" FF FE 0C 28 "));
  EXPECT_THAT(to_hex(requests[1]), HasSubstr(" FF FF 1E 09 "));
  EXPECT_THAT(to_hex(requests[2]), HasSubstr(" FF FF 0C 28 "));
  EXPECT_THAT(to_hex(requests[3]), HasSubstr(" 00 00 1E 09 "));
}

// A plain and an indexed variable of program MAIN2, of number 9 by the tag file.
constexpr const char* kLocals =
    "A,INT,,,a,b,c,0,0,0,9,MAIN2\nB,INT,,,a,b,c,262144,0,0,9,MAIN2\nC,INT,,,a,b,c,262145,0,0,9,MAIN2\n";

TEST_F(ReadSingle, LocalVariable_TravelsWithItsProgramsNumber) {
  write_tags(0, kLocals);
  start(directory_of(1, from_hex("00 00 0C 00 07 00 4D 00 41 00 49 00 4E 00 32 00")) + replies_for(1));
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(to_hex(finish()[0]), "00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 41");
}

TEST_F(ReadSingle, PlainVariable_MatchesAProgramThatItsScopeBeginsWithButAnIndexedOneDoesNot_D39) {
  write_tags(0, kLocals);
  start(directory_of(1, from_hex("00 00 0A 00 07 00 4D 00 41 00 49 00 4E 00")) + replies_for(1) + replies_for(1));
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(read_id(0x40000, 0, 1, word_), 0U);
  const std::vector<Bytes> requests = finish();
  EXPECT_THAT(to_hex(requests[0]), HasSubstr("0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 41"));
  EXPECT_THAT(to_hex(requests[2]), HasSubstr("0C 28 00 01 01 01 00 09 00 00 00 00 00 01 00 01 00 42"));
}

TEST_F(ReadSingle, EmptyProgramName_MatchesEveryPlainVariable_D11) {
  write_tags(0, kLocals);
  start(directory_of(1, from_hex("00 00 02 00 05 00")) + replies_for(1) + replies_for(1));
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(read_id(0x40000, 0, 1, word_), 0U);
  const std::vector<Bytes> requests = finish();
  EXPECT_THAT(to_hex(requests[0]), HasSubstr(" 01 01 00 05 "));
  EXPECT_THAT(to_hex(requests[2]), HasSubstr(" 01 01 00 09 "));
}

TEST_F(ReadSingle, ProgramThatTheDirectoryDoesNotHave_TravelsAsTheTagFileSays) {
  write_tags(0, kLocals);
  EXPECT_THAT(resolve_request_of(0, 0, 1, 1), HasSubstr("0C 28 00 01 01 01 00 09 00 00 00 00 00 01"));
}

TEST_F(ReadSingle, FoundNumber_IsNotKeptInTheTable) {
  write_tags(0, kLocals);
  start(directory_of(1, from_hex("00 00 0A 00 07 00 4D 00 41 00 49 00 4E 00")) + replies_for(1) + replies_for(1));
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv")->entries[0].local_index, 9);
  plc::localNum = 0;
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_THAT(to_hex(finish()[2]), HasSubstr(" 01 01 00 09 "));
}

TEST_F(ReadSingle, NumberOfTheDirectory_TravelsAsItsLowByte) {
  write_tags(0, kLocals);
  start_connected(replies_for(1));
  peer_->extend(replies_for(1));
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  plc::localNum = 1;
  plc::LocalInfo[0] = {0x1FF07, "MAIN"};
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_THAT(to_hex(finish()[2]), HasSubstr(" 01 01 00 07 "));
}

}  // namespace
