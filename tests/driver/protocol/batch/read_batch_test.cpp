// The frames of a batch read: shares, sub-blocks, names, and what keeps a frame from being sent.
#include <cerrno>
#include <cstring>

#include "plc_driver/driver_state.h"
#include "tests/driver/protocol/batch/batch_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

using Names = std::vector<std::string>;
using Numbers = std::vector<uint32_t>;

class ReadBatch : public BatchTest {
 protected:
  void expect_nothing_sent() {
    EXPECT_EQ(sent(), frames({}));
    EXPECT_EQ(plc::sid, 0);
    for (const uint32_t value : values()) EXPECT_EQ(value, kUntouched);
    EXPECT_TRUE(batch_.guards_intact());
  }
};

TagEntry hundred_words() { return with_ranges(make_tag("D", 16), {0, 99}); }

Bytes words(size_t count) {
  Bytes bytes;
  for (size_t i = 0; i < count; ++i) {
    bytes.push_back(0x11);
    bytes.push_back(static_cast<uint8_t>(i));
  }
  return bytes;
}

TEST_F(ReadBatch, RunOfFour_IsNamedInOneBlockAndLandsInFourElements) {
  use_tags({hundred_words()});
  answer_frame(4, "12 34 56 78 80 00 00 FF");
  EXPECT_EQ(read(consecutive(0, 2, 4)), 0U);
  EXPECT_EQ(sent(), frames({"00 00 00 38 FF FF FF C7 00 00 0C 28 00 01 00 00 00 04"
                            "00 05 00 44 00 5B 00 23 00 32 00 5D 00 05 00 44 00 5B 00 23 00 33 00 5D"
                            "00 05 00 44 00 5B 00 23 00 34 00 5D 00 05 00 44 00 5B 00 23 00 35 00 5D",
                            "00 00 00 28 FF FF FF D7 00 01 1E 09 00 00 04 00 00 00"
                            "00 80 00 01 00 00 D4 E0 00 81 00 01 00 01 D4 E0"
                            "00 82 00 01 00 02 D4 E0 00 83 00 01 00 03 D4 E0"}));
  EXPECT_EQ(values(), (Numbers{0x1234, 0x5678, 0x8000, 0x00FF}));
  EXPECT_EQ(plc::sid, 2);
}

TEST_F(ReadBatch, ThirtySixElements_TravelInTwoPairsOfEighteen) {
  use_tags({make_tag("X", 16)});
  answer_frame(18, words(18));
  answer_frame(18, words(18));
  EXPECT_EQ(read(repeated(0, 36)), 0U);
  ASSERT_EQ(peer_.requests().size(), 4U);
  EXPECT_EQ(names_of(0), Names(18, "X"));
  EXPECT_EQ(names_of(2), Names(18, "X"));
  for (uint32_t i = 0; i < 36; ++i) EXPECT_EQ(values()[i], 0x1100 + i % 18);
}

TEST_F(ReadBatch, ThirtyFourElements_TravelInOnePair) {
  use_tags({make_tag("X", 16)});
  answer_frame(34, words(34));
  EXPECT_EQ(read(repeated(0, 34)), 0U);
  EXPECT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(values().back(), 0x1121U);
}

TEST_F(ReadBatch, ShareThatDoesNotDivideTheElements_LeavesTheLastUnread) {
  use_tags({make_tag("X", 16)});
  answer_frame(17, words(17));
  answer_frame(17, words(17));
  EXPECT_EQ(read(repeated(0, 35)), 0U);
  EXPECT_EQ(peer_.requests().size(), 4U);
  EXPECT_EQ(values()[33], 0x1110U);
  EXPECT_EQ(values()[34], kUntouched);
}

TEST_F(ReadBatch, GlobalThenLocal_WritesTheCountWhereTheLocalOneWouldStand_D35) {
  use_tags({make_tag("D", 16), local(make_tag("M", 16))});
  answer_frame(2, "12 34 56 78");
  EXPECT_EQ(read({{0}, {1}}), 0U);
  EXPECT_EQ(sent()[0], frames({"00 00 00 1A FF FF FF E5 00 00 0C 28 00 02 00 00 00 01 00 01 00 44"
                               "00 02 00 07 00 00 00 00 00 01 00 01 00 4D"})[0]);
  EXPECT_EQ(values(), (Numbers{0x1234, 0x5678}));
}

TEST_F(ReadBatch, LocalThenGlobal_WritesTheCountWhereTheGlobalOneWouldStand_D35) {
  use_tags({make_tag("D", 16), local(make_tag("M", 16))});
  answer_frame(2, "12 34 56 78");
  EXPECT_EQ(read({{1}, {0}}), 0U);
  EXPECT_EQ(sent()[0], frames({"00 00 00 1A FF FF FF E5 00 00 0C 28 00 02 01 01 00 02 00 00 00 00 00 01 00 01 00 4D"
                               "00 00 00 01 00 01 00 44"})[0]);
}

TEST_F(ReadBatch, ChangesOfScope_OpenABlockEach_D35) {
  use_tags({make_tag("D", 16), local(make_tag("M", 16))});
  answer_frame(4, words(4));
  EXPECT_EQ(read({{0}, {1}, {1}, {0}}), 0U);
  EXPECT_EQ(sent()[0], frames({"00 00 00 26 FF FF FF D9 00 00 0C 28 00 03 00 00 00 04 00 01 00 44"
                               "01 01 00 07 00 00 00 00 00 01 00 01 00 4D 00 01 00 4D 00 00 00 01 00 01 00 44"})[0]);
}

TEST_F(ReadBatch, ResolveReplyOf24Bytes_ReturnsTwoWithoutTheValueRequest) {
  use_tags({make_tag("X", 16)});
  for (size_t length = 0; length <= 25; ++length) {
    peer_.forget();
    peer_.answer(reply_exactly(prefix_of(resolve_many(1), length)));
    peer_.answer(value_reply("12 34"));
    EXPECT_EQ(read({{0}}), length < 25 ? 2U : 0U);
    EXPECT_EQ(peer_.requests().size(), length < 25 ? 1U : 2U);
    EXPECT_EQ(values()[0], length < 25 ? kUntouched : 0x1234U);
    EXPECT_EQ(plc::init, 1U);
  }
}

TEST_F(ReadBatch, RegisterTypesBelowFour_AreClearedInEveryElement) {
  use_tags({make_tag("X", 16)});
  answer_frame(2, words(2));
  BatchReadRequest elements[2] = {};
  elements[0].area = kArea;
  elements[0].reg_type = 3;
  elements[1].reg_type = 2;
  elements[0].count = elements[1].count = 1;
  EXPECT_EQ(ev_OMRON_plc_read(elements, 2, &conn_), 0U);
  EXPECT_EQ(elements[0].reg_type, 0);
  EXPECT_EQ(elements[1].reg_type, 0);
}

TEST_F(ReadBatch, IndexedRecords_AreReadLikePlainOnes) {
  std::vector<TagEntry> group(3, hundred_words());
  for (uint32_t i = 0; i < 3; ++i) group[i].tag_id = 0x40000 + i;
  strcpy(group[1].name, "I");
  use_tags({make_tag("X", 16)}, group);
  answer_frame(3, words(3));
  EXPECT_EQ(read({{0x40001, 5}, {0x40001, 6}, {0}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"I[#5]", "I[#6]", "X"}));
}

TEST_F(ReadBatch, TwoAndThreeDimensions_AreNamedAsTheSingleRead) {
  use_tags({with_ranges(make_tag("G", 16), {1, 5}, {2, 4}), with_ranges(make_tag("C", 16), {7, 8}, {1, 3}, {5, 8})});
  answer_frame(2, words(2));
  EXPECT_EQ(read({{0, 4}, {1, 6}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"G[#3,#2]", "C[#5,#2,#9]"}));
}

TEST_F(ReadBatch, Strings_AreNamedWithTheBareOffset_D33) {
  use_tags({make_string("S", 80)});
  answer_frame(2, "41 42 43 44");
  EXPECT_EQ(read({{0, 3}, {0, 4}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"S[#3]", "S[#4]"}));
}

TEST_F(ReadBatch, StringRun_TakesEachSubscriptFromItsOwnSlot) {
  use_tags({make_string("S", 80)});
  answer_frame(3, "41 42 43 44 45 46");
  EXPECT_EQ(read({{0, 3, 2}, {0, 4}, {0, 9}}), 0U);
  // The run holds two and the merged slot, and passes the third slot, whose own element is 9.
  EXPECT_EQ(names_of(0), (Names{"S[#3]", "S[#4]", "S[#9]"}));
}

TEST_F(ReadBatch, LocalNumber_StaysInTheTablesOwnRecord_D34) {
  use_tags({local(make_tag("M", 16))});
  use_directory({{3, "MAI"}, {9, "MAIN"}, {5, "MAIN"}});
  answer_frame(1, "12 34");
  EXPECT_EQ(read({{0}}), 0U);
  EXPECT_EQ(peer_.requests().at(0)[17], 9);  // the whole name, the first of two
  EXPECT_EQ(loaded_tag(0).local_index, 9);
  use_directory({});
  answer_frame(1, "12 34");
  EXPECT_EQ(read({{0}}), 0U);
  EXPECT_EQ(peer_.requests().at(2)[17], 9);
}

TEST_F(ReadBatch, EveryLocalSlot_IsSearchedForItsScope_D34) {
  TagEntry other = local(make_tag("N", 16));
  strcpy(other.scope_name, "OTHER");
  use_tags({local(make_tag("M", 16)), other});
  use_directory({{0x20B, "OTHER"}, {9, "MAIN"}});
  answer_frame(2, words(2));
  EXPECT_EQ(read({{0}, {1}}), 0U);
  EXPECT_EQ(peer_.requests().at(0)[13], 1);  // one block, under the first slot's number
  EXPECT_EQ(peer_.requests().at(0)[17], 9);
  EXPECT_EQ(loaded_tag(1).local_index, 0x0B);
}

TEST_F(ReadBatch, ScopeOfIndexedRecords_IsMatchedAsAWholeToo) {
  std::vector<TagEntry> group(2, local(make_tag("I", 16)));
  group[0].tag_id = 0x40000;
  group[1].tag_id = 0x40001;
  strcpy(group[0].scope_name, "MAIN2");
  use_tags({make_tag("X", 16)}, group);
  use_directory({{9, "MAIN"}, {4, ""}});
  answer_frame(1, "12 34");
  EXPECT_EQ(read({{0x40000}}), 0U);
  EXPECT_EQ(peer_.requests().at(0)[17], kMainNumber);
}

TEST_F(ReadBatch, NoElements_ReturnAtOnceBehindConnectionAndPause) {
  conn_.delay_ms = 5;
  for (const int32_t count : {0, -1, INT32_MIN}) {
    peer_.forget();
    BatchReadRequest element{};
    element.reg_type = 2;
    EXPECT_EQ(ev_OMRON_plc_read(&element, count, &conn_), 0U);
    EXPECT_EQ(element.reg_type, 2);
    EXPECT_EQ(peer_.calls(), "usleep(5000)");
  }
  plc::init = 0;
  peer_.forget();
  peer_.answer(Bytes(14));
  peer_.answer(Bytes(15));
  BatchReadRequest element{};
  capture_output([&] { EXPECT_EQ(ev_OMRON_plc_read(&element, 0, &conn_), 0U); });
  EXPECT_EQ(plc::init, 1U);
}

TEST_F(ReadBatch, MoreThanAHundredElements_FailAtTheSamePoint) {
  use_tags({make_tag("X", 16)});
  EXPECT_EQ(read(repeated(0, 101)), 3U);
  expect_nothing_sent();
  BatchReadRequest element{};
  element.reg_type = 2;
  EXPECT_EQ(ev_OMRON_plc_read(&element, INT32_MAX, &conn_), 3U);
  EXPECT_EQ(element.reg_type, 2);
}

TEST_F(ReadBatch, BitInABatchOfSeveral_IsNamedTwice) {
  use_tags({make_bit("B", kMr), with_ranges(make_bit("A", kMr), {0, 99})});
  answer_frame(4, "00 01 00 00 00 00 00 00");
  EXPECT_EQ(read({{0}, {1, 5, 4}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"B", "B", "A[#5]", "A[#8]"}));
}

TEST_F(ReadBatch, BitAlone_IsNamedAsOftenAsItsCount) {
  use_tags({with_ranges(make_bit("A", kMr), {0, 99})});
  answer_frame(3, "00 01 00 00 00 01");
  EXPECT_EQ(read({{0, 5, 3}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"A[#5]", "A[#6]", "A[#7]"}));
}

TEST_F(ReadBatch, RunPastTheShare_LeavesNoSlotForTheNextFrame) {
  use_tags({hundred_words()});
  answer_frame(36, words(36));
  EXPECT_EQ(read(consecutive(0, 0, 36)), 0U);
  EXPECT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(values()[35], 0x1123U);
}

TEST_F(ReadBatch, LaterFrames_EndTheirShareBehindTheirOwnStart) {
  use_tags({make_tag("X", 16), hundred_words()});
  // Shares of 18: X x 17, then a run of 10 that ends at slot 27, then the share of slots 27 to 45, of which 9 are
  // there.
  std::vector<BatchElement> elements = repeated(0, 17);
  for (const BatchElement& element : consecutive(1, 0, 10)) elements.push_back(element);
  for (const BatchElement& element : repeated(0, 9)) elements.push_back(element);
  answer_frame(27, words(27));
  answer_frame(9, words(9));
  EXPECT_EQ(read(elements), 0U);
  EXPECT_EQ(names_of(0).size(), 27U);
  EXPECT_EQ(names_of(2), Names(9, "X"));
  EXPECT_EQ(values()[35], 0x1108U);
}

TEST_F(ReadBatch, ShareOfNoSlot_FailsWithNothingSent) {
  use_tags({make_tag("X", 16)});
  EXPECT_EQ(read({{0, 0, 35}}), 3U);
  expect_nothing_sent();
  EXPECT_EQ(read({{0, 0, 65535}, {0, 0, 65535}}), 3U);
  expect_nothing_sent();
}

TEST_F(ReadBatch, CountOfZero_FailsWithNothingSent) {
  use_tags({make_tag("X", 16), make_bit("B", kMr), hundred_words(), make_string("S", 8)});
  for (uint32_t id = 0; id < 4; ++id) {
    EXPECT_EQ(read({{0}, {id, 0, 0}, {0}}), 3U);
    expect_nothing_sent();
  }
}

TEST_F(ReadBatch, CountOfZeroInALaterFrame_FailsBeforeTheFirstIsSent) {
  use_tags({make_tag("X", 16)});
  std::vector<BatchElement> elements = repeated(0, 40);
  elements[25].count = 0;
  EXPECT_EQ(read(elements), 3U);
  expect_nothing_sent();
}

TEST_F(ReadBatch, CountOfZeroThatNoWalkStandsAt_IsPassedOver) {
  use_tags({hundred_words()});
  answer_frame(3, words(3));
  EXPECT_EQ(read({{0, 0, 2}, {0, 5, 0}, {0, 7}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"D[#0]", "D[#1]", "D[#7]"}));
}

TEST_F(ReadBatch, BitOutOfItsBounds_IsReadAllTheSameBehindItsLine) {
  use_tags({make_tag("X", 16), with_ranges(make_bit("B", kMr), {0, 15})});
  answer_frame(4, "12 34 00 01 00 00 56 78");
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(read({{0}, {1, 16}, {0}}), 0U); }), "Index out of range!\r\n");
  EXPECT_EQ(names_of(0), (Names{"X", "B[#16]", "B[#16]", "X"}));
  EXPECT_EQ(values(), (Numbers{0x1234, 1, 0x5678}));
}

TEST_F(ReadBatch, SlotWithoutARecord_FailsWhenTheWalkReachesIt) {
  std::vector<TagEntry> group(2, make_tag("I", 16));
  group[0].tag_id = 0x40000;
  group[1].tag_id = 0x40010;
  use_tags({make_tag("X", 16)}, group);
  std::vector<BatchElement> elements = repeated(0, 36);
  elements[20].id = 0x40005;
  answer_frame(18, words(18));
  EXPECT_EQ(capture_output([&] { EXPECT_EQ(read(elements), 3U); }), "Index out of range!\r\n");
  EXPECT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(plc::sid, 2);
  EXPECT_EQ(values()[17], 0x1111U);
  EXPECT_EQ(values()[18], kUntouched);
}

TEST_F(ReadBatch, RunPastTheLastSlot_TakesTheFirstPlainRecordForTheMissingOnes) {
  use_tags({make_tag("X", 16), hundred_words()});
  answer_frame(3, words(3));
  EXPECT_EQ(read({{1, 5, 3}}), 0U);
  EXPECT_EQ(names_of(0), (Names{"D[#5]", "X", "X"}));
  EXPECT_EQ(values(), (Numbers{0x1100}));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(ReadBatch, TableWithoutPlainRecords_IsRead) {
  std::vector<TagEntry> group(3, make_tag("I", 16));
  for (uint32_t i = 0; i < 3; ++i) group[i].tag_id = 0x40000 + i;
  use_tags({}, group);
  answer_frame(2, "11 00 22 00");
  EXPECT_EQ(read({{0x40000}, {0x40001}}), 0U);
  EXPECT_EQ(values(), (Numbers{0x1100, 0x2200}));
}

TEST_F(ReadBatch, RunPastTheLastSlotWithoutAPlainRecord_Fails) {
  std::vector<TagEntry> group(2, hundred_words());
  group[0].tag_id = 0x40000;
  group[1].tag_id = 0x40001;
  use_tags({}, group);
  EXPECT_EQ(read({{0x40000, 5, 3}}), 3U);
  expect_nothing_sent();
}

TEST_F(ReadBatch, FrameThatDoesNotFit_IsNotSent) {
  TagEntry long_name = make_tag("", 16);
  memset(long_name.name, 'n', 255);
  use_tags({make_tag("X", 16), long_name});
  EXPECT_EQ(read(repeated(1, 8)), 3U);  // 8 names of 512 bytes
  expect_nothing_sent();
  std::vector<BatchElement> elements = repeated(0, 36);
  for (size_t i = 18; i < 36; ++i) elements[i].id = 1;
  answer_frame(18, words(18));
  EXPECT_EQ(read(elements), 3U);
  EXPECT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(plc::sid, 2);
  EXPECT_EQ(plc::init, 1U);
}

// Names of one character: 1019 of them fit a resolve request, 509 references a value request.
TEST_F(ReadBatch, FrameOfMostReferences_IsSent) {
  use_tags({make_tag("X", 16)});
  std::vector<BatchElement> elements = repeated(0, 100);
  elements[0].count = 509;  // the walk passes all other slots
  answer_frame(169, Bytes(2 * 509));
  EXPECT_EQ(read(elements), 0U);
  ASSERT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(names_of(0).size(), 509U);
  EXPECT_EQ(peer_.requests()[1].size(), 18U + 8U * 509U);
}

TEST_F(ReadBatch, FrameWhoseValueRequestDoesNotFit_IsNotBegun) {
  use_tags({make_tag("X", 16)});
  std::vector<BatchElement> elements = repeated(0, 100);
  elements[0].count = 510;
  EXPECT_EQ(read(elements), 3U);
  expect_nothing_sent();
}

TEST_F(ReadBatch, LargestFrame_FillsTheBufferToItsLastByte) {
  TagEntry long_name = make_tag("", 16);
  memset(long_name.name, 'n', 253);  // 508 bytes each
  TagEntry short_name = make_tag("", 16);
  memset(short_name.name, 'm', 6);  // 14 bytes
  use_tags({long_name, short_name});
  std::vector<BatchElement> elements = repeated(0, 8);  // 18 + 8 x 508 = 4082
  elements.push_back({1});
  answer_frame(9, words(9));
  EXPECT_EQ(read(elements), 0U);
  EXPECT_EQ(peer_.requests().at(0).size(), 4096U);
  EXPECT_EQ(to_hex(prefix_of(peer_.requests().at(0), 8)), "00 00 0F F6 FF FF F0 09");
}

TEST_F(ReadBatch, MissingPlainId_PrintsItsLimit) {
  use_tags({make_tag("X", 16)});
  const std::string printed = capture_output([this] { EXPECT_EQ(read({{0}, {7}, {8}}), 3U); });
  const std::string start = "[PLC] tag id 7 is not exist in this tag list PLC7F000001_1.csv, max:1, at line: ";
  EXPECT_EQ(printed.substr(0, start.size()), start);
  EXPECT_EQ(printed.find("tag id 8"), std::string::npos);
  expect_nothing_sent();
}

TEST_F(ReadBatch, MissingIndexedId_PrintsTheIndexedLimit) {
  std::vector<TagEntry> group(2, make_tag("I", 16));
  group[0].tag_id = 0x40000;
  group[1].tag_id = 0x40001;
  use_tags({make_tag("X", 16)}, group);
  const std::string printed = capture_output([this] { EXPECT_EQ(read({{0}, {0x40001}}), 3U); });
  const std::string start =
      "[PLC] tag id 262145 is not exist in this tag list PLC7F000001_1.csv, max:262145, at line: ";
  EXPECT_EQ(printed.substr(0, start.size()), start);
  expect_nothing_sent();
}

TEST_F(ReadBatch, ConnectThatFails_PrintsTheSingleReadsLine_D42) {
  plc::init = 0;
  peer_.hold_connects();
  const std::string printed = capture_output([this] { EXPECT_EQ(read({{0}}), 2U); });
  const std::string end = "ev_plc_read init fail\r\n";
  EXPECT_EQ(printed.substr(printed.size() - end.size()), end);
}

TEST_F(ReadBatch, LostConnection_FailsAtEachExchange) {
  use_tags({make_tag("X", 16)});
  for (const SocketAnswer& failure : {say_nothing(), fail_receive(ECONNRESET), fail_send(EPIPE)}) {
    for (int good = 0; good < 4; ++good) {
      peer_.forget();
      plc::init = 1;
      conn_.socket_fd = ScriptedSocket::kDescriptor;
      for (int i = 0; i < good; ++i) peer_.answer(i % 2 == 0 ? resolve_many(18) : value_reply(words(18)));
      peer_.answer(failure);
      capture_output([this] { EXPECT_EQ(read(repeated(0, 36)), 3U); });
      EXPECT_EQ(plc::init, 0U);
      EXPECT_EQ(values()[0], good < 2 ? kUntouched : 0x1100U);
      EXPECT_EQ(values()[18], kUntouched);
    }
  }
}

}  // namespace
}  // namespace plc_test
