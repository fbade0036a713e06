// The entry of the writes: which record it takes, what it rewrites in the host's records, what it prints.
#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_lookup.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_dir.h"

namespace plc_test {
namespace {

class WriteDispatch : public ProtocolTest {
 protected:
  uint32_t write_word(uint32_t id, uint32_t index = 0) { return write(id, index, "34 12", 1); }

  // Writes one bit of the record as a bit inside a word, and returns the line that was printed.
  std::string write_em_bit(const TagEntry& tag, uint32_t index) {
    use_tags({tag});
    peer_.forget();
    peer_.answer(resolve_reply());
    peer_.answer(value_reply("00 00"));
    peer_.answer(acknowledgment());
    return capture_output([&] { EXPECT_EQ(write(0, index, "01", 1), 0U); });
  }

  std::vector<TagEntry> indexed_tags() {
    std::vector<TagEntry> group(3, make_tag("I", 16));
    for (uint32_t i = 0; i < 3; ++i) group[i].tag_id = 0x40000 + i;
    return group;
  }
};

TEST_F(WriteDispatch, RegisterTypeBelowFour_IsClearedAndCountsAsZero) {
  use_tags(std::vector<TagEntry>(6, make_tag("D", 16)));
  for (uint8_t type = 0; type < 4; ++type) {
    answer_writes();
    request_.reg_type = type;
    request_.address = 0x00050000;
    EXPECT_EQ(ev_plc_write(&request_, value("34 12", 1), &conn_), 0U);
    EXPECT_EQ(request_.reg_type, 0);
  }
}

TEST_F(WriteDispatch, IdEqualToTheTagCount_PrintsTheLimitAndSendsNothing) {
  use_tags({make_tag("D", 16), make_tag("E", 16)});
  const std::string printed = capture_output([this] { EXPECT_EQ(write_word(2), 3U); });
  EXPECT_EQ(printed, "tag id 2 is not exist in this tag list PLC7F000001_1.csv, id_max:2\n");
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, IndexedIdAtTheLimit_PrintsTheCountOfPlainRecords_D40) {
  use_tags({make_tag("D", 16)}, indexed_tags());
  const std::string printed = capture_output([this] { EXPECT_EQ(write_word(0x40002), 3U); });
  EXPECT_EQ(printed, "tag id 262146 is not exist in this tag list PLC7F000001_1.csv, id_max:1\n");
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, LastPlainId_PassesTheChecksAndHasNoRecord) {
  TagEntry record = make_tag("D", 16);
  TagTable table{};
  table.entries = &record;
  table.tag_count = 1;
  EXPECT_EQ(plc::check_id(table, 0x3FFFE), plc::IdRange::kPlainMissing);
  EXPECT_EQ(plc::check_id(table, 0x3FFFF), plc::IdRange::kInside);
  EXPECT_EQ(plc::find_entry(table, plc::groupID_table, 0x3FFFF), nullptr);
}

TEST_F(WriteDispatch, IndexOutsideItsGroup_FailsWithoutALine) {
  std::vector<TagEntry> group = indexed_tags();
  group.back().tag_id = 0x40010;  // the limit of the file, 3 records in the group
  use_tags({make_tag("D", 16)}, group);
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(write_word(0x40003), 3U); }), "");
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(write_word(0x4000F), 3U); }), "");
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, IndexedRecord_IsWritten) {
  std::vector<TagEntry> group = indexed_tags();
  strcpy(group[1].name, "J");
  use_tags({make_tag("D", 16)}, group);
  answer_writes();
  EXPECT_EQ(write_word(0x40001), 0U);
  EXPECT_EQ(sent_names(), (std::vector<std::string>{"J"}));
}

TEST_F(WriteDispatch, MissingTagFile_PrintsThatTheTableFailed) {
  const TempDir folder;
  const ScopedWorkingDirectory inside(folder.path());
  const std::string printed = capture_output([this] { EXPECT_EQ(write_word(0), 3U); });
  const std::string start =
      "build tag table for PLC7F000001_1.csv\r\n[PLC] open PLC7F000001_1.csv file failed, at line: ";
  const std::string end = "\r\nbuild tag table failed!\n";
  EXPECT_EQ(printed.substr(0, start.size()), start);
  EXPECT_EQ(printed.substr(printed.size() - end.size()), end);
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, EmptyTagFile_PrintsThatTheTableFailed) {
  const TempDir folder;
  folder.write("PLC7F000001_1.csv", "");
  const ScopedWorkingDirectory inside(folder.path());
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(write_word(0), 3U); }),
            "build tag table for PLC7F000001_1.csv\r\nbuild tag table failed!\n");
}

TEST_F(WriteDispatch, TagFile_IsLoadedOnceForAllWrites) {
  const TempDir folder;
  folder.write("PLC7F000001_1.csv", "D,INT,,,a,b,c,0,1,0,0,,DM\n");
  const ScopedWorkingDirectory inside(folder.path());
  answer_writes(2);
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(write_word(0), 0U); }), "build tag table for PLC7F000001_1.csv\r\n");
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(write_word(0), 0U); }), "");
}

TEST_F(WriteDispatch, ConnectThatFails_PrintsItsLineAndReturnsTwo) {
  use_tags({make_tag("D", 16)});
  plc::init = 0;
  peer_.hold_connects();
  const std::string printed = capture_output([this] { EXPECT_EQ(write_word(0), 2U); });
  const std::string end = "ev_plc_write init fail\r\n";
  ASSERT_GE(printed.size(), end.size());
  EXPECT_EQ(printed.substr(printed.size() - end.size()), end);
  EXPECT_EQ(plc::init, 0U);
}

TEST_F(WriteDispatch, FirstWrite_ConnectsAndFetchesTheDirectoryBeforeItsNames) {
  use_tags({make_tag("D", 16)});
  plc::init = 0;
  peer_.answer(Bytes(14));
  peer_.answer(Bytes(15));
  answer_writes();
  capture_output([this] { EXPECT_EQ(write_word(0), 0U); });
  EXPECT_EQ(plc::init, 1U);
  ASSERT_EQ(peer_.requests().size(), 4U);
  EXPECT_EQ(to_hex(peer_.requests()[0]), "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(to_hex(peer_.requests()[1]), "00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00");
  EXPECT_EQ(to_hex(peer_.requests()[2]), "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 44");
}

TEST_F(WriteDispatch, DelayOfThree_DoesNotPause) {
  use_tags({make_tag("D", 16)});
  for (const uint32_t delay : {0U, 3U}) {
    peer_.forget();
    answer_writes();
    conn_.delay_ms = delay;
    EXPECT_EQ(write_word(0), 0U);
    EXPECT_EQ(peer_.calls(), "select send select recv select send select recv");
  }
}

TEST_F(WriteDispatch, DelayOfFive_PausesBeforeTheTableIsLookedUp) {
  const TempDir folder;
  const ScopedWorkingDirectory inside(folder.path());
  conn_.delay_ms = 5;
  capture_output([this] { EXPECT_EQ(write_word(0), 3U); });  // there is no table
  EXPECT_EQ(peer_.calls(), "usleep(5000)");
}

TEST_F(WriteDispatch, TwoDimensionalBitOnEm_IsWrittenAsAStructureBitUnderItsFullName) {
  const TagEntry tag = with_ranges(make_bit("B", kEm), {0, 3}, {0, 3});
  EXPECT_EQ(write_em_bit(tag, 9), "tagName:B[#2,#1]\r\n");
  EXPECT_EQ(sent(), frames({"00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 00 00 00 01"
                            "00 08 00 42 00 5B 00 23 00 32 00 2C 00 23 00 31 00 5D",
                            "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 A1 00 01 B2 C3 D4 E5",
                            "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 00 01"}));
}

TEST_F(WriteDispatch, OtherShapesOfBitsOnEm_FormTheirNamesLikewise) {
  EXPECT_EQ(write_em_bit(with_ranges(make_bit("B", kEm), {2, 9}), 7), "tagName:B[#7]\r\n");
  EXPECT_EQ(write_em_bit(with_ranges(make_bit("B", kEm), {1, 5}, {2, 9}), 9), "tagName:B[#3,#2]\r\n");
  EXPECT_EQ(write_em_bit(with_ranges(make_bit("B", kEm), {7, 8}, {1, 3}, {5, 8}), 6), "tagName:B[#5,#2,#9]\r\n");
  EXPECT_EQ(write_em_bit(local(with_ranges(make_bit("B", kEm), {2, 9})), 7), "tagName:B[#7]\r\n");
  EXPECT_EQ(peer_.requests().at(0).at(14), 1);
}

TEST_F(WriteDispatch, ThreeDimensionalBitOnEm_DividesUnsigned) {
  // Extents of -3 and -2 are large unsigned numbers: the element index is the last subscript's offset.
  const TagEntry tag = with_ranges(make_bit("B", kEm), {10, 0}, {3, 0}, {4, 1});
  EXPECT_EQ(write_em_bit(tag, 7), "tagName:B[#4,#3,#17]\r\n");
}

TEST_F(WriteDispatch, BitOnEmOfAnotherShape_IsWrittenUnderAnEmptyName) {
  TagEntry tag = make_bit("B", kEm);
  tag.dim1_high = 1;
  for (const uint32_t shape : {0U, 2U, 3U, 6U}) {
    tag.shape = shape;
    EXPECT_EQ(write_em_bit(tag, 9), "tagName:\r\n");
    EXPECT_EQ(to_hex(peer_.requests().at(0)).substr(24), "00 00 0C 28 00 01 00 00 00 01 00 00");
    plc::sid = 0;
  }
}

// A name of 250 units with a subscript of 8: 258 units, 01 02.
TEST_F(WriteDispatch, UnitCountsOfLongNames_LoseTheirHighByteExceptInArrays_D19) {
  TagEntry bit = with_ranges(make_bit("", kEm), {0, 20000});
  memset(bit.name, 'n', 250);
  TagEntry text = make_string("", 80);
  memcpy(text.name, bit.name, sizeof text.name);
  TagEntry words = with_ranges(make_tag("", 16), {0, 20000});
  memcpy(words.name, bit.name, sizeof words.name);
  const auto unit_count = [this](uint32_t index) {
    const Bytes& request = peer_.requests().at(0);
    EXPECT_EQ(request.size(), 18U + 2U + 2U * 258U) << index;
    return to_hex({request[18], request[19]});
  };
  write_em_bit(bit, 12345);
  EXPECT_EQ(unit_count(12345), "00 02");
  use_tags({text, words});
  peer_.forget();
  answer_writes();
  EXPECT_EQ(write(0, 10000, "41 42", 1), 0U);
  EXPECT_EQ(unit_count(10000), "00 02");
  peer_.forget();
  answer_writes();
  EXPECT_EQ(write(1, 12345, "41 42", 1), 0U);
  EXPECT_EQ(unit_count(12345), "01 02");
}

TEST_F(WriteDispatch, BitOnEmWithAZeroExtent_FailsWithNothingSent) {
  use_tags({with_ranges(make_bit("B", kEm), {0, 3}, {5, 4})});
  EXPECT_EQ(capture_output([this] { EXPECT_EQ(write(0, 9, "01", 1), 3U); }), "");
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, EmIsOnlyTakenApart_ForBoolsWithAnUpperBound) {
  TagEntry byte = with_ranges(make_tag("B", 8), {0, 3});
  byte.device_kind = kEm;
  TagEntry single = with_ranges(make_bit("B", kEm), {0, 0});
  for (const TagEntry& tag : {byte, single}) {
    use_tags({tag});
    peer_.forget();
    answer_writes();
    EXPECT_EQ(capture_output([this] { EXPECT_EQ(write(0, 0, "01", 1), 0U); }), "");
    EXPECT_EQ(peer_.requests().at(1)[10], 0x32);
  }
}

TEST_F(WriteDispatch, WordOfShapeTwo_Fails) {
  TagEntry tag = make_tag("D", 16);
  tag.shape = 2;
  use_tags({tag});
  EXPECT_EQ(write_word(0), 3U);
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, BitWidthFour_HasNoWriter) {
  use_tags({make_tag("D", 4)});
  EXPECT_EQ(write_word(0), 0xFFFFFFFFU);
  EXPECT_EQ(peer_.calls(), "");
}

TEST_F(WriteDispatch, Scope_IsMatchedByPrefixFirstMatchWins) {
  TagEntry tag = local(make_tag("D", 16));
  strcpy(tag.scope_name, "MAIN2");
  use_tags({tag});
  const auto program_sent = [this] {
    peer_.forget();
    answer_writes();
    EXPECT_EQ(write_word(0), 0U);
    return int{peer_.requests().at(0)[17]};
  };
  use_directory({{3, "OTHER"}, {0x109, "MAIN"}, {5, "MAIN2"}});
  EXPECT_EQ(program_sent(), 9);  // the low byte of the first that is a beginning of the name
  use_directory({{3, "MAIN22"}, {5, "MAIN2"}});
  EXPECT_EQ(program_sent(), 5);
  use_directory({{4, ""}, {5, "MAIN2"}});
  EXPECT_EQ(program_sent(), 4);
  use_directory({{3, "OTHER"}});
  EXPECT_EQ(program_sent(), kMainNumber);  // the tag file's own
  use_directory({});
  EXPECT_EQ(program_sent(), kMainNumber);
  EXPECT_EQ(loaded_tag(0).local_index, kMainNumber);
}

TEST_F(WriteDispatch, IndexedRecords_AreMatchedByPrefixToo_D41) {
  std::vector<TagEntry> group = indexed_tags();
  group[0] = local(group[0]);
  strcpy(group[0].scope_name, "MAIN2");
  use_tags({make_tag("D", 16)}, group);
  use_directory({{9, "MAIN"}});
  answer_writes();
  EXPECT_EQ(write_word(0x40000), 0U);
  EXPECT_EQ(peer_.requests().at(0)[17], 9);
}

TEST_F(WriteDispatch, OnlyOne_IsGlobal) {
  TagEntry tag = local(make_tag("D", 16));
  for (const uint8_t is_global : {uint8_t{0}, uint8_t{1}, uint8_t{2}, uint8_t{255}}) {
    tag.is_global = is_global;
    use_tags({tag});
    peer_.forget();
    answer_writes();
    EXPECT_EQ(write_word(0), 0U);
    EXPECT_EQ(peer_.requests().at(0)[14], is_global == 1 ? 0 : 1) << int{is_global};
  }
}

TEST_F(WriteDispatch, LostConnection_MakesTheNextWriteConnectAgain) {
  use_tags({make_tag("D", 16)});
  peer_.answer(say_nothing());
  capture_output([this] { EXPECT_EQ(write_word(0), 3U); });
  EXPECT_EQ(conn_.socket_fd, -1);
  peer_.answer(Bytes(14));
  peer_.answer(Bytes(15));
  answer_writes();
  capture_output([this] { EXPECT_EQ(write_word(0), 0U); });
  EXPECT_EQ(peer_.requests().size(), 5U);
}

}  // namespace
}  // namespace plc_test
