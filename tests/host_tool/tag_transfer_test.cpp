// Tests of reads and writes by name: what reaches the driver and what comes of its answers.
#include "tag_transfer.h"

#include <gtest/gtest.h>

#include <cstring>

#include "batch_transfer.h"
#include "exit_codes.h"
#include "fake_driver.h"
#include "host_test_records.h"

namespace plc_host {
namespace {

using namespace plc_host_test;

class TagTransferTest : public testing::Test {
 protected:
  TagTransferTest() : session_(library_, output_, {0x7F000001, 8500, 0, 2, 0}, [](const std::string&) {}) {}

  TagReference reference(const std::string& text) { return find_reference(list_, text); }
  TagResult read(const std::string& text) { return read_tag(session_, reference(text)); }
  TagResult write(const std::string& text, const std::string& value) {
    return write_tag(session_, prepare_write(reference(text), value));
  }
  const FakeCall& call(size_t number) { return fake_driver().calls.at(number); }

  TagList list_ =
      make_list({make_entry("Word", kInt), make_entry("Bits", kBool, {{0, 9}}), make_entry("Long", kLint, {{0, 3}}),
                 make_string("Text", 300), make_entry("Grid", kInt, {{1, 2}, {1, 3}}), make_entry("Byte", kSint),
                 make_string("Tiny", 5), make_entry("Wide", kLint), make_entry("Table", kInt, {{0, 39}})});
  DriverLibrary library_ = make_fake_library();
  DriverOutput output_;
  DriverSession session_;
};

TEST_F(TagTransferTest, Read_AsksForNumberOffsetAndCount) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memcpy(value.data, "\x34\x12\x78\x56", 4); };
  const TagResult result = read("Grid[1,2..3]");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.value.elements, (std::vector<uint64_t>{0x1234, 0x5678}));
  EXPECT_EQ(call(0).address, 0x00040001U);
  EXPECT_EQ(call(0).count, 2U);
}

TEST_F(TagTransferTest, WideRead_CountsInHalves) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memset(value.data, 0x11, 16); };
  const TagResult result = read("Long[1..2]");
  EXPECT_EQ(call(0).address, 0x00020002U);
  EXPECT_EQ(call(0).count, 4U);
  EXPECT_EQ(result.value.elements, (std::vector<uint64_t>(2, 0x1111111111111111U)));
}

TEST_F(TagTransferTest, BoolRead_TakesOneBitForEachElement) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memcpy(value.data, "\x05\x02", 2); };
  EXPECT_EQ(read("Bits").value.elements, (std::vector<uint64_t>{1, 0, 1, 0, 0, 0, 0, 0, 0, 1}));
}

TEST_F(TagTransferTest, StringRead_EndsAtTheZeroByte) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memcpy(value.data, "pump\0x", 6); };
  EXPECT_EQ(read("Text").value.text, "pump");
  EXPECT_EQ(call(0).count, 150U);
  EXPECT_EQ(fake_driver().calls.size(), 1U);
}

TEST_F(TagTransferTest, FailedRead_NamesTheCode) {
  fake_driver().codes = {3};
  const TagResult result = read("Word");
  EXPECT_EQ(result.code, 3U);
  EXPECT_EQ(result.error, "the transfer failed (3)");
  EXPECT_FALSE(result.connection_lost);
}

TEST_F(TagTransferTest, FailedReadWithClosedSocket_IsALostConnection) {
  fake_driver().codes = {3};
  fake_driver().lose_connection = true;
  EXPECT_TRUE(read("Word").connection_lost);
}

TEST_F(TagTransferTest, EightBitRead_SaysWhatTheDriverLacks) {
  fake_driver().codes = {3};
  EXPECT_EQ(read("Byte").error, "the transfer failed (3); the driver transfers no 8-bit values");
}

TEST_F(TagTransferTest, WordWrite_CarriesLittleEndianBytes) {
  EXPECT_TRUE(write("Word", "0x1234").ok());
  EXPECT_EQ(call(0).kind, 'w');
  EXPECT_EQ(call(0).count, 1U);
  EXPECT_EQ(call(0).data.substr(0, 3), std::string("\x34\x12\0", 3));
}

TEST_F(TagTransferTest, BitWrite_PacksEightElementsPerCall) {
  EXPECT_TRUE(write("Bits", "[1,0,1,0,0,0,0,0,1,1]").ok());
  ASSERT_EQ(fake_driver().calls.size(), 2U);
  EXPECT_EQ(call(0).data[0], '\x05');
  EXPECT_EQ(call(1).address, 0x00010008U);
  EXPECT_EQ(call(1).data[0], '\x03');
  EXPECT_EQ(call(1).count, 2U);
}

TEST_F(TagTransferTest, StringWrite_EndsWithAZeroByteUnlessFull) {
  EXPECT_TRUE(write("Tiny", "ab").ok());
  EXPECT_EQ(call(0).count, 2U);
  EXPECT_TRUE(write("Tiny", "abcde").ok());
  EXPECT_EQ(call(1).count, 3U);
  EXPECT_EQ(call(1).data.substr(0, 6), std::string("abcde\0", 6));
  EXPECT_TRUE(write("Tiny", "").ok());
  EXPECT_EQ(call(2).count, 1U);
}

TEST_F(TagTransferTest, LongStringWrite_GoesOnWhereThePieceEnded) {
  EXPECT_TRUE(write("Text", std::string(240, 'a') + "bc").ok());
  ASSERT_EQ(fake_driver().calls.size(), 2U);
  EXPECT_EQ(call(1).address, 0x00030078U);
  EXPECT_EQ(call(1).data.substr(0, 3), std::string("bc\0", 3));
  EXPECT_EQ(call(1).count, 2U);
}

TEST_F(TagTransferTest, WriteThatFailsHalfWay_SaysHowFarItCame) {
  fake_driver().codes = {0, 3};
  EXPECT_EQ(write("Bits", "[1,0,1,0,0,0,0,0,1,1]").error, "the transfer failed (3) after 8 of 10 elements");
}

TEST_F(TagTransferTest, ValueOutOfRange_SendsNothing) {
  EXPECT_THROW(write("Word", "40000"), ValueError);
  EXPECT_TRUE(fake_driver().calls.empty());
}

TEST_F(TagTransferTest, DriverThatWritesPastTheBuffer_IsCaught) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { value.data[read_buffer_bytes(1)] = 0; };
  EXPECT_THROW(read("Word"), HostError);
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { *(value.data - 1) = 0; };
  EXPECT_THROW(read("Word"), HostError);
}

TEST_F(TagTransferTest, Batch_PutsTheValuesTogetherAgain) {
  fake_driver().on_batch = [](BatchReadRequest* elements, int32_t count) {
    for (int32_t i = 0; i < count; ++i) elements[i].value = static_cast<uint32_t>(i) + 1;
  };
  BatchFigures figures;
  const std::vector<TagResult> results = read_tags_batched(
      session_, {reference("Word"), reference("Wide"), reference("Table[3..4]"), reference("Long")},
      [] { return false; }, figures);
  EXPECT_EQ(results[0].value.elements, std::vector<uint64_t>{1});
  EXPECT_EQ(results[1].value.elements, std::vector<uint64_t>{0x0000000300000002U});
  EXPECT_EQ(results[2].value.elements, (std::vector<uint64_t>{4, 5}));
  EXPECT_EQ(figures.batches, 1U);
  EXPECT_EQ(figures.single_reads, 1U);
  EXPECT_EQ(call(1).kind, 'r');
}

TEST_F(TagTransferTest, FailedBatch_GivesEveryVariableItsError) {
  fake_driver().codes = {2};
  BatchFigures figures;
  const std::vector<TagResult> results = read_tags_batched(
      session_, {reference("Word"), reference("Table")}, [] { return false; }, figures);
  for (const TagResult& result : results) EXPECT_EQ(result.code, 2U) << result.name;
}

TEST_F(TagTransferTest, StoppedBatch_LeavesTheRestUnread) {
  BatchFigures figures;
  const std::vector<TagResult> results = read_tags_batched(
      session_, {reference("Word"), reference("Long")}, [] { return true; }, figures);
  EXPECT_EQ(results[0].error, "not read");
  EXPECT_EQ(results[1].error, "not read");
  EXPECT_TRUE(fake_driver().calls.empty());
}

TEST_F(TagTransferTest, Figures_CountCallsAndFailures) {
  fake_driver().codes = {0, 3, 0};
  for (int i = 0; i < 3; ++i) read("Word");
  EXPECT_EQ(session_.figures().calls, 3U);
  EXPECT_EQ(session_.figures().failures, 1U);
  EXPECT_LE(session_.figures().shortest, session_.figures().longest);
}

TEST(DriverSession, TagFileName_IsThatOfTheDriver) {
  EXPECT_EQ(tag_file_name({0xC0A8000A, 8500, 3, 2, 0}), "PLCC0A8000A_3.csv");
  EXPECT_EQ(tag_file_name({0x0A000001, 8500, 12, 2, 0}), "PLCA000001_12.csv");
  EXPECT_EQ(target_text({0xC0A8000A, 8500, 3, 2, 0}), "192.168.0.10:8500");
}

}  // namespace
}  // namespace plc_host
