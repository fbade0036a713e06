// Tests of reads and writes by name: what reaches the driver and what comes of its answers.
#include "client/plan/tag_transfer.h"

#include <gtest/gtest.h>

#include <cstring>

#include "client/client_error.h"
#include "client/driver/driver_output.h"
#include "client/plan/batch_transfer.h"
#include "client/plan/read_plan.h"
#include "tests/client/fake_driver.h"
#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

std::vector<uint64_t> elements_of(const TagResult& result) {
  return result.ok() ? result.reading.value()->elements : std::vector<uint64_t>();
}

std::string reason_of(const TagResult& result) { return result.reading.failure().reason; }

class TagTransferTest : public testing::Test {
 protected:
  TagTransferTest()
      : session_(
            library_, [this] { return output_.take_lines(); }, {0x7F000001, 8500, 0, 2, 0}, [](const std::string&) {}) {
  }

  TagReference reference(const std::string& text) { return find_reference(list_, text); }
  TagResult read(const std::string& text) { return read_tag(session_, reference(text)); }
  TagResult write(const std::string& text, const std::string& value) {
    return write_tag(session_, prepare_write(reference(text), value));
  }
  std::vector<TagResult> named(const std::vector<std::string>& texts) {
    std::vector<TagResult> results;
    for (const std::string& text : texts) results.push_back(unread(reference(text)));
    return results;
  }
  static void number_elements(BatchReadRequest* elements, int32_t count) {
    for (int32_t i = 0; i < count; ++i) elements[i].value = static_cast<uint32_t>(i) + 1;
  }
  static bool never() { return false; }
  const FakeCall& call(size_t number) { return fake_driver().calls.at(number); }

  TagList list_ =
      make_list({make_entry("Word", kInt), make_entry("Bits", kBool, {{0, 9}}), make_entry("Long", kLint, {{0, 3}}),
                 make_string("Text", 300), make_entry("Grid", kInt, {{1, 2}, {1, 3}}), make_entry("Byte", kSint),
                 make_string("Tiny", 5), make_entry("Wide", kLint), make_entry("Table", kInt, {{0, 39}}),
                 make_entry("Flags", kBool, {{0, 39}})});
  DriverLibrary library_ = make_fake_library();
  DriverOutput output_;
  DriverSession session_;
};

// The driver adds bits to the bytes that it does not clear itself.
TEST_F(TagTransferTest, PlanOfBits_ReadTwice_HoldsNoneOfTheFirstTime) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) {
    value.data[4] = static_cast<uint8_t>(value.data[4] + 0x81);
  };
  ReadPlan plan;
  plan.variables.emplace_back();
  plan.variables.front().reference = reference("Flags");
  plan.variables.front().is_alone = true;
  plan_steps(plan);
  for (int time = 0; time < 2; ++time) {
    run_plan(session_, plan);
    const std::vector<uint64_t>& elements = plan.variables.front().value.elements;
    ASSERT_EQ(elements.size(), 40U) << time;
    EXPECT_EQ(std::vector<uint64_t>(elements.begin() + 32, elements.end()),
              (std::vector<uint64_t>{1, 0, 0, 0, 0, 0, 0, 1}))
        << time;
  }
}

// Bits are set one after the other: the name that is refused may be that of the last.
TEST_F(TagTransferTest, WriteOfBits_RefusedName_MayHaveBegun) {
  fake_driver().refused_ids = {*reference("Flags").tag->register_id};
  EXPECT_FALSE(write("Flags[3]", "1").reading.failure().has_begun);
  const TagResult several = write("Flags[3..4]", "[1,1]");
  EXPECT_TRUE(several.reading.failure().has_begun);
  EXPECT_NE(reason_of(several).find("; whether it was written is not known"), std::string::npos);
}

TEST_F(TagTransferTest, Read_AsksForNumberOffsetAndCount) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memcpy(value.data, "\x34\x12\x78\x56", 4); };
  const TagResult result = read("Grid[1,2..3]");
  EXPECT_TRUE(result.ok());
  EXPECT_EQ(elements_of(result), (std::vector<uint64_t>{0x1234, 0x5678}));
  EXPECT_EQ(call(0).address, 0x00040001U);
  EXPECT_EQ(call(0).count, 2U);
}

TEST_F(TagTransferTest, WideRead_CountsInHalves) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memset(value.data, 0x11, 16); };
  const TagResult result = read("Long[1..2]");
  EXPECT_EQ(call(0).address, 0x00020002U);
  EXPECT_EQ(call(0).count, 4U);
  EXPECT_EQ(elements_of(result), (std::vector<uint64_t>(2, 0x1111111111111111U)));
}

TEST_F(TagTransferTest, BoolRead_TakesOneBitForEachElement) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memcpy(value.data, "\x05\x02", 2); };
  EXPECT_EQ(elements_of(read("Bits")), (std::vector<uint64_t>{1, 0, 1, 0, 0, 0, 0, 0, 0, 1}));
}

TEST_F(TagTransferTest, StringRead_EndsAtTheZeroByte) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { std::memcpy(value.data, "pump\0x", 6); };
  EXPECT_EQ(read("Text").reading.value()->text, "pump");
  EXPECT_EQ(call(0).count, 150U);
  EXPECT_EQ(fake_driver().calls.size(), 1U);
}

TEST_F(TagTransferTest, FailedRead_NamesTheCode) {
  fake_driver().codes = {3};
  const TagResult result = read("Word");
  EXPECT_EQ(result.reading.value(), nullptr);
  EXPECT_EQ(result.reading.quality(), Quality::kFailed);
  EXPECT_EQ(reason_of(result), "the transfer failed (3)");
  EXPECT_EQ(result.reading.failure().code, 3U);
  EXPECT_FALSE(result.reading.failure().connection_lost);
}

TEST_F(TagTransferTest, FailedReadWithClosedSocket_IsALostConnection) {
  fake_driver().codes = {3};
  fake_driver().lose_connection = true;
  EXPECT_TRUE(read("Word").reading.failure().connection_lost);
}

TEST_F(TagTransferTest, EightBitRead_SaysWhatTheDriverLacks) {
  fake_driver().codes = {3};
  const TagResult result = read("Byte");
  EXPECT_EQ(reason_of(result), "the transfer failed (3); the driver transfers no 8-bit values");
  EXPECT_EQ(result.reading.failure().advice, "Declare a 16-bit variable.");
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
  EXPECT_EQ(reason_of(write("Bits", "[1,0,1,0,0,0,0,0,1,1]")),
            "the transfer failed (3) after 8 of 10 elements; whether it was written is not known");
}

TEST_F(TagTransferTest, ValueOutOfRange_SendsNothing) {
  EXPECT_THROW(write("Word", "40000"), ValueError);
  EXPECT_TRUE(fake_driver().calls.empty());
}

TEST_F(TagTransferTest, DriverThatWritesPastTheBuffer_IsCaught) {
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { value.data[read_buffer_bytes(1)] = 0; };
  EXPECT_THROW(read("Word"), ClientError);
  fake_driver().on_read = [](const RegRequest&, RegValue& value) { *(value.data - 1) = 0; };
  EXPECT_THROW(read("Word"), ClientError);
}

TEST_F(TagTransferTest, Batch_PutsTheValuesTogetherAgain) {
  fake_driver().on_batch = number_elements;
  std::vector<TagResult> results = named({"Word", "Wide", "Table[3..4]", "Long"});
  const BatchFigures figures = read_tags_batched(session_, results, never);
  EXPECT_EQ(elements_of(results[0]), std::vector<uint64_t>{1});
  EXPECT_EQ(elements_of(results[1]), std::vector<uint64_t>{0x0000000300000002U});
  EXPECT_EQ(elements_of(results[2]), (std::vector<uint64_t>{4, 5}));
  EXPECT_EQ(figures.batches, 1U);
  EXPECT_EQ(figures.single_reads, 1U);
  EXPECT_EQ(call(1).kind, 'r');
}

TEST_F(TagTransferTest, BatchOfTheGuardedBuild_ReadsWideVariablesSingly) {
  DriverLibrary library = make_fake_library(true);
  DriverSession session(
      library, [this] { return output_.take_lines(); }, {0x7F000001, 8500, 0, 2, 0}, [](const std::string&) {});
  fake_driver().on_batch = number_elements;
  std::vector<TagResult> results = named({"Word", "Wide", "Table[3..4]"});
  const BatchFigures figures = read_tags_batched(session, results, never);
  EXPECT_EQ(figures.single_reads, 1U);
  EXPECT_EQ(elements_of(results[2]), (std::vector<uint64_t>{2, 3}));
  for (const TagResult& result : results) EXPECT_EQ(result.reading.quality(), Quality::kGood) << result.name;
}

TEST_F(TagTransferTest, BatchWithoutConnection_GivesEveryVariableItsError) {
  fake_driver().codes = {2};
  fake_driver().lose_connection = true;
  fake_driver().lines = {"select time out "};
  std::vector<TagResult> results = named({"Word", "Table"});
  read_tags_batched(session_, results, never);
  for (const TagResult& result : results) {
    EXPECT_EQ(result.reading.quality(), Quality::kNoConnection) << result.name;
    EXPECT_EQ(result.reading.failure().code, 2U) << result.name;
  }
  EXPECT_EQ(fake_driver().calls.size(), 1U);
}

TEST_F(TagTransferTest, RefusedVariableOfABatch_CostsNoOtherItsValue) {
  fake_driver().on_batch = number_elements;
  fake_driver().refused_ids = {1};  // Bits
  for (const size_t place : {size_t{0}, size_t{2}, size_t{4}}) {
    std::vector<TagResult> results = named({"Word", "Table[0]", "Table[1]", "Table[5]"});
    results.insert(results.begin() + static_cast<std::ptrdiff_t>(place), unread(reference("Bits[0]")));
    read_tags_batched(session_, results, never);
    for (size_t i = 0; i < results.size(); ++i) {
      EXPECT_EQ(results[i].ok(), i != place) << results[i].name << " with the refused one at " << place;
    }
    EXPECT_EQ(results[place].reading.quality(), Quality::kRefused);
    EXPECT_EQ(reason_of(results[place]), "the controller refused the name, status 0004 (3)");
  }
}

TEST_F(TagTransferTest, BatchThatFailsOnItsOwn_GivesItsOnlyVariableTheReasonOfASingleRead) {
  fake_driver().codes = {2, 3};
  std::vector<TagResult> results = named({"Word"});
  EXPECT_EQ(read_tags_batched(session_, results, never).single_reads, 1U);
  EXPECT_EQ(call(1).kind, 'r');
  EXPECT_EQ(reason_of(results[0]), "the transfer failed (3)");
}

TEST_F(TagTransferTest, StoppedBatch_LeavesTheRestUnread) {
  std::vector<TagResult> results = named({"Word", "Long"});
  read_tags_batched(session_, results, [] { return true; });
  for (const TagResult& result : results) EXPECT_EQ(reason_of(result), "not read: interrupted") << result.name;
  EXPECT_TRUE(fake_driver().calls.empty());
}

TEST_F(TagTransferTest, CallThatAStopSignalEnded_IsNoLossOfTheConnection) {
  fake_driver().codes = {3, 3, 3, 2};
  fake_driver().lines = {"--err--", "--err--", "--err--", "--err--"};
  fake_driver().lose_connection = true;
  session_.set_stop([] { return true; });
  std::vector<TagResult> results = named({"Word", "Table"});
  read_tags(session_, results, never, [](const TagResult&) {});
  std::vector<TagResult> batched = named({"Word"});
  read_tags_batched(session_, batched, never);
  results.push_back(batched.front());
  results.push_back(read("Word"));
  for (const TagResult& result : results) {
    EXPECT_EQ(result.reading.quality(), Quality::kNotRead);
    EXPECT_EQ(reason_of(result), "not read: interrupted");
    EXPECT_TRUE(result.reading.failure().advice.empty());
  }
  EXPECT_EQ(session_.figures().calls, 0U);
  EXPECT_EQ(session_.figures().failures, 0U);
}

TEST_F(TagTransferTest, WriteThatAStopSignalEnded_IsLeftOpenUnlessNothingWasSent) {
  fake_driver().codes = {3, 2, 0, 2};
  fake_driver().lines = {"--err--", "--err--", "", "--err--"};
  fake_driver().lose_connection = true;
  session_.set_stop([] { return true; });
  const TagResult sent = write("Word", "1");
  EXPECT_EQ(sent.reading.quality(), Quality::kFailed);
  EXPECT_EQ(reason_of(sent), "interrupted; whether it was written is not known");
  EXPECT_EQ(sent.reading.failure().advice, "Read it to see what the controller has.");
  const TagResult unsent = write("Word", "1");
  EXPECT_EQ(unsent.reading.quality(), Quality::kNotWritten);
  EXPECT_EQ(reason_of(unsent), "not written: interrupted");
  const TagResult begun = write(
      "Flags", "[" + std::string("true") + [] {
        std::string more;
        for (int i = 0; i < 39; ++i) more += ", true";
        return more;
      }() + "]");
  EXPECT_EQ(begun.reading.quality(), Quality::kFailed);
  EXPECT_EQ(reason_of(begun).find("interrupted after "), 0U) << reason_of(begun);
  EXPECT_TRUE(begun.reading.failure().has_begun);
}

TEST_F(TagTransferTest, RefusalWhileAStopSignalCame_StaysOne) {
  fake_driver().codes = {3};
  fake_driver().lines = {"[PLC] guard: controller refused the names, status 0013"};
  session_.set_stop([] { return true; });
  EXPECT_EQ(read("Word").reading.quality(), Quality::kRefused);
}

TEST_F(TagTransferTest, SilentController_IsAskedOnce) {
  fake_driver().codes = {0, 3};
  fake_driver().lines = {"", "--timeout--"};
  fake_driver().on_read = [](const RegRequest&, RegValue&) { fake_driver().lose_connection = true; };
  std::vector<TagResult> results = named({"Word", "Table", "Text", "Wide"});
  std::vector<std::string> shown;
  read_tags(session_, results, never, [&shown](const TagResult& result) { shown.push_back(result.name); });
  EXPECT_EQ(fake_driver().calls.size(), 2U);
  EXPECT_EQ(results[0].reading.quality(), Quality::kUnguarded);
  EXPECT_EQ(results[1].reading.quality(), Quality::kNoAnswer);
  EXPECT_EQ(reason_of(results[1]), "127.0.0.1:8500: no answer within 2 s (3)");
  for (const size_t i : {size_t{2}, size_t{3}}) {
    EXPECT_EQ(results[i].reading.quality(), Quality::kNotRead) << i;
    EXPECT_EQ(reason_of(results[i]), "not read: 127.0.0.1:8500 does not answer") << i;
  }
  EXPECT_EQ(shown, (std::vector<std::string>{"Word", "Table", "Text", "Wide"}));
}

TEST_F(TagTransferTest, LostConnection_IsTriedOnceMore) {
  fake_driver().codes = {3, 3};
  fake_driver().lines = {"[PLC] guard: connection closed by the controller", "[PLC] guard: connection lost, error 104"};
  fake_driver().lose_connection = true;
  std::vector<TagResult> results = named({"Word", "Table", "Text"});
  read_tags(session_, results, never, [](const TagResult&) {});
  EXPECT_EQ(fake_driver().calls.size(), 2U);
  EXPECT_EQ(reason_of(results[0]), "127.0.0.1:8500: the controller closed the connection (3)");
  EXPECT_EQ(reason_of(results[1]), "127.0.0.1:8500: the connection was lost: Connection reset by peer (3)");
  EXPECT_EQ(results[2].reading.quality(), Quality::kNotRead);
}

TEST_F(TagTransferTest, WriteWhoseReplyDidNotCome_LeavesItOpenWhetherItWasWritten) {
  fake_driver().codes = {3, 3};
  fake_driver().lines = {"--timeout--", "[PLC] guard: controller refused the write, status 0013"};
  fake_driver().lose_connection = true;
  EXPECT_EQ(reason_of(write("Word", "1")),
            "127.0.0.1:8500: no answer within 2 s (3); whether it was written is not known");
  EXPECT_EQ(reason_of(write("Word", "1")),
            "the controller refused the write, status 0013 (3); whether it was written is not known");
}

TEST_F(TagTransferTest, WriteThatWasNotSent_IsNotLeftOpen) {
  fake_driver().codes = {2, 3};
  fake_driver().lines = {"--timeout--", "[PLC] guard: controller refused the names, status 0013"};
  EXPECT_EQ(reason_of(write("Word", "1")), "127.0.0.1:8500: no answer within 2 s (2)");
  EXPECT_EQ(reason_of(write("Word", "1")), "the controller refused the name, status 0013 (3)");
}

TEST_F(TagTransferTest, ValueOfEitherBuild_SaysWhichReadIt) {
  EXPECT_EQ(read("Word").reading.quality(), Quality::kUnguarded);
  EXPECT_EQ(write("Word", "1").reading.quality(), Quality::kUnguarded);
  DriverLibrary library = make_fake_library(true);
  DriverSession session(
      library, [this] { return output_.take_lines(); }, {0x7F000001, 8500, 0, 2, 0}, [](const std::string&) {});
  EXPECT_EQ(read_tag(session, reference("Word")).reading.quality(), Quality::kGood);
  EXPECT_EQ(write_tag(session, prepare_write(reference("Word"), "1")).reading.quality(), Quality::kGood);
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
}  // namespace plc_client::core
