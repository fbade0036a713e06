// Tests of the payloads that are written: their bytes, field by field.
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/bytes.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway::payload_writer_test {
namespace {

using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::to_hex;

std::string text_of(std::string_view hex) {
  const Bytes bytes = from_hex(hex);
  return std::string(bytes.begin(), bytes.end());
}

std::string hex_of(const std::string& bytes) { return to_hex(Bytes(bytes.begin(), bytes.end())); }

Variable variable(const char* name, DataType type) {
  Variable made;
  made.name = name;
  made.type = type;
  return made;
}

Sample good(uint64_t bits, Ms time, std::string bytes = {}) {
  Sample sample;
  sample.good = true;
  sample.bits = bits;
  sample.time = time;
  sample.bytes = std::move(bytes);
  return sample;
}

Sample bad(Ms time) {
  Sample sample;
  sample.time = time;
  sample.reason = plc_client::Reason::kRefused;
  sample.error = "the controller refused the name";
  return sample;
}

TEST(PayloadWriter, Data_IsAliasTimeAndValueAlone) {
  PayloadWriter writer;
  writer.data(variable("Motor.Speed", DataType::kInt16), 1, good(0xFFFE, 300), false, false);
  EXPECT_EQ(writer.metrics(), 1U);
  EXPECT_EQ(hex_of(writer.finish(400, 5)),
            "08 90 03 "                                // payload time 400
            "12 0B 10 01 18 AC 02 50 FE FF FF FF 0F "  // alias 1, time 300, int_value -2
            "18 05");                                  // seq 5
}

TEST(PayloadWriter, WithoutMetricsAndSeq_HasItsTime) {
  PayloadWriter writer;
  EXPECT_EQ(hex_of(writer.finish(1700000000000, std::nullopt)), "08 80 D0 95 FF BC 31");
}

TEST(PayloadWriter, Seq0_IsWritten) { EXPECT_EQ(hex_of(PayloadWriter().finish(1, 0)), "08 01 18 00"); }

TEST(PayloadWriter, Finished_IsEmptyAgain) {
  PayloadWriter writer;
  writer.data(variable("A", DataType::kBoolean), 2, good(1, 1), false, false);
  EXPECT_GT(writer.bytes(), 0U);
  writer.finish(1, 1);
  EXPECT_EQ(writer.metrics(), 0U);
  EXPECT_EQ(writer.bytes(), 0U);
  EXPECT_EQ(hex_of(writer.finish(1, 2)), "08 01 18 02");
}

struct TypeCase {
  DataType type;
  uint64_t bits;
  const char* bytes;  // in hexadecimal
  const char* value;  // the value's field
};

TEST(PayloadWriter, EachType_TravelsInItsField) {
  constexpr TypeCase kCases[] = {
      {DataType::kInt8, 0x80, "", "50 80 FF FF FF 0F"},
      {DataType::kInt8, 0x7F, "", "50 7F"},
      {DataType::kInt16, 0x8000, "", "50 80 80 FE FF 0F"},
      {DataType::kInt32, 0xFFFFFFFF, "", "50 FF FF FF FF 0F"},
      {DataType::kInt32, 0x7FFFFFFF, "", "50 FF FF FF FF 07"},
      {DataType::kInt64, ~uint64_t{0}, "", "58 FF FF FF FF FF FF FF FF FF 01"},
      {DataType::kInt64, 5, "", "58 05"},
      {DataType::kUInt8, 0xFF, "", "50 FF 01"},
      {DataType::kUInt16, 0xFFFF, "", "50 FF FF 03"},
      {DataType::kUInt32, 0xFFFFFFFF, "", "50 FF FF FF FF 0F"},
      {DataType::kUInt64, ~uint64_t{0}, "", "58 FF FF FF FF FF FF FF FF FF 01"},
      {DataType::kFloat, 0x3FC00000, "", "65 00 00 C0 3F"},
      {DataType::kDouble, 0x3FF8000000000000, "", "69 00 00 00 00 00 00 F8 3F"},
      {DataType::kBoolean, 1, "", "70 01"},
      {DataType::kBoolean, 0, "", "70 00"},
      {DataType::kString, 0, "C3 96 6C", "7A 03 C3 96 6C"},
      {DataType::kString, 0, "", "7A 00"},
      {DataType::kBytes, 0, "01 00 02", "82 01 03 01 00 02"},
      {DataType::kInt16Array, 0, "D0 8A 30 75", "82 01 04 D0 8A 30 75"},
      {DataType::kBooleanArray, 0, "01 00 00 00 80", "82 01 05 01 00 00 00 80"},
      {DataType::kStringArray, 0, "41 00 42 00", "82 01 04 41 00 42 00"},
  };
  for (const TypeCase& one : kCases) {
    PayloadWriter writer;
    writer.data(variable("A", one.type), 3, good(one.bits, 2, text_of(one.bytes)), false, false);
    const std::string payload = writer.finish(1, 1);
    // 08 01, 12 and the length, 10 03 18 02, the value, 18 01.
    EXPECT_EQ(hex_of(payload.substr(8, payload.size() - 10)), one.value) << static_cast<int>(one.type);
    EXPECT_EQ(static_cast<size_t>(payload[3]), payload.size() - 6) << static_cast<int>(one.type);
  }
}

TEST(PayloadWriter, NotGoodData_IsNullWithQualityBad) {
  PayloadWriter writer;
  writer.data(variable("A", DataType::kInt16), 1, bad(2), false, false);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 17 10 01 18 02 38 01 "                             // alias, time, is_null
            "4A 0F 0A 07 51 75 61 6C 69 74 79 12 04 08 03 18 00 "  // Quality: Int32 0
            "18 01");
}

TEST(PayloadWriter, DataGoodAgain_TellsItsQuality) {
  PayloadWriter writer;
  writer.data(variable("A", DataType::kUInt8), 1, good(9, 2), false, true);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 18 10 01 18 02 "
            "4A 10 0A 07 51 75 61 6C 69 74 79 12 05 08 03 18 C0 01 "  // Quality: Int32 192
            "50 09 "
            "18 01");
}

TEST(PayloadWriter, UnguardedValue_SaysSoEachTime) {
  Sample sample = good(9, 2);
  sample.unguarded = true;
  PayloadWriter writer;
  writer.data(variable("A", DataType::kUInt8), 1, sample, false, false);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 19 10 01 18 02 "
            "4A 11 0A 09 55 6E 67 75 61 72 64 65 64 12 04 08 0B 38 01 "  // Unguarded: Boolean true
            "50 09 "
            "18 01");
  writer.birth(variable("A", DataType::kUInt8), 1, &sample, 9);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 2E 0A 01 41 10 01 18 02 20 05 "
            "4A 21 0A 07 51 75 61 6C 69 74 79 0A 09 55 6E 67 75 61 72 64 65 64 "  // Quality, Unguarded
            "12 05 08 03 18 C0 01 12 04 08 0B 38 01 "                             // Int32 192, Boolean true
            "50 09 "
            "18 01");
}

TEST(PayloadWriter, HistoricalData_IsMarked) {
  PayloadWriter writer;
  writer.data(variable("A", DataType::kBoolean), 1, good(1, 2), true, false);
  EXPECT_EQ(hex_of(writer.finish(1, 1)), "08 01 12 08 10 01 18 02 28 01 70 01 18 01");
}

TEST(PayloadWriter, Birth_HasNameAliasTypeQualityAndValue) {
  PayloadWriter writer;
  const Sample sample = good(0x3FC00000, 2);
  writer.birth(variable("Ab", DataType::kFloat), 300, &sample, 9);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 22 0A 02 41 62 10 AC 02 18 02 20 09 "                 // name, alias 300, time of the sample, Float
            "4A 10 0A 07 51 75 61 6C 69 74 79 12 05 08 03 18 C0 01 "  // Quality: Int32 192
            "65 00 00 C0 3F "
            "18 01");
}

TEST(PayloadWriter, BirthOfWhatWasNotRead_IsNullAndStale) {
  PayloadWriter writer;
  writer.birth(variable("A", DataType::kInt16), 1, nullptr, 9);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 1D 0A 01 41 10 01 18 09 20 02 38 01 "
            "4A 10 0A 07 51 75 61 6C 69 74 79 12 05 08 03 18 F4 03 "  // Quality: Int32 500
            "18 01");
}

TEST(PayloadWriter, BirthOfWhatIsNotGood_IsNullAndBad) {
  PayloadWriter writer;
  const Sample sample = bad(2);
  writer.birth(variable("A", DataType::kInt16), 1, &sample, 9);
  EXPECT_EQ(hex_of(writer.finish(1, 1)),
            "08 01 "
            "12 1C 0A 01 41 10 01 18 02 20 02 38 01 "
            "4A 0F 0A 07 51 75 61 6C 69 74 79 12 04 08 03 18 00 "
            "18 01");
}

TEST(PayloadWriter, NodeMetricWithoutAlias_IsNamedInBirthAndData) {
  NodeMetric sequence;
  sequence.name = "bdSeq";
  sequence.number = 200;
  sequence.time = 2;
  PayloadWriter writer;
  writer.birth(sequence);
  EXPECT_EQ(hex_of(writer.finish(1, 0)), "08 01 12 0E 0A 05 62 64 53 65 71 18 02 20 04 58 C8 01 18 00");
  writer.data(sequence);
  EXPECT_EQ(hex_of(writer.finish(1, std::nullopt)), "08 01 12 0C 0A 05 62 64 53 65 71 18 02 58 C8 01");
}

TEST(PayloadWriter, NodeMetricWithAlias_IsNamedInTheBirthAlone) {
  NodeMetric result;
  result.name = "R";
  result.alias = 4;
  result.type = DataType::kString;
  result.text = "done";
  result.time = 2;
  PayloadWriter writer;
  writer.birth(result);
  EXPECT_EQ(hex_of(writer.finish(1, 0)), "08 01 12 0F 0A 01 52 10 04 18 02 20 0C 7A 04 64 6F 6E 65 18 00");
  writer.data(result);
  EXPECT_EQ(hex_of(writer.finish(1, 1)), "08 01 12 0A 10 04 18 02 7A 04 64 6F 6E 65 18 01");
}

TEST(PayloadWriter, NodeMetricThatIsATime_TravelsAsALongNumber) {
  NodeMetric metric;
  metric.name = "T";
  metric.type = DataType::kDateTime;
  metric.number = 200;
  metric.time = 2;
  PayloadWriter writer;
  writer.birth(metric);
  EXPECT_EQ(hex_of(writer.finish(1, 0)), "08 01 12 0A 0A 01 54 18 02 20 0D 58 C8 01 18 00");
}

TEST(PayloadWriter, NodeMetricWithoutValue_IsNull) {
  NodeMetric metric;
  metric.name = "R";
  metric.has_value = false;
  PayloadWriter writer;
  writer.birth(metric);
  EXPECT_EQ(hex_of(writer.finish(1, 0)), "08 01 12 09 0A 01 52 18 00 20 04 38 01 18 00");
}

TEST(PayloadWriter, NodeMetricOfAnyBytes_IsOneLineOfUtf8) {
  NodeMetric metric;
  metric.alias = 1;
  metric.type = DataType::kString;
  metric.text = "a\xFF\n";
  PayloadWriter writer;
  writer.data(metric);
  EXPECT_EQ(hex_of(writer.finish(1, 1)), "08 01 12 0D 10 01 18 00 7A 07 61 5C 78 66 66 5C 6E 18 01");
}

TEST(PayloadWriter, TextLongerThanALengthOfOneByte_IsWhole) {
  PayloadWriter writer;
  const std::string text(200, 'x');
  writer.data(variable("A", DataType::kString), 1, good(0, 2, text), false, false);
  EXPECT_EQ(writer.finish(1, 1), text_of("08 01 12 CF 01 10 01 18 02 7A C8 01") + text + text_of("18 01"));
}

TEST(PayloadWriter, LargestNumbersOfAllFields_Fit) {
  constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
  PayloadWriter writer;
  const Sample sample = good(kMost, -1);
  writer.data(variable("A", DataType::kUInt64), kMost, sample, true, true);
  EXPECT_EQ(hex_of(writer.finish(-1, kMost)),
            "08 FF FF FF FF FF FF FF FF FF 01 "
            "12 35 10 FF FF FF FF FF FF FF FF FF 01 18 FF FF FF FF FF FF FF FF FF 01 28 01 "
            "4A 10 0A 07 51 75 61 6C 69 74 79 12 05 08 03 18 C0 01 "
            "58 FF FF FF FF FF FF FF FF FF 01 "
            "18 FF FF FF FF FF FF FF FF FF 01");
}

}  // namespace
}  // namespace plc_gateway::payload_writer_test
