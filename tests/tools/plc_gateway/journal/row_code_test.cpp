// Tests of rows as bytes: how few they are, and that any bytes are safe.
#include "tools/plc_gateway/journal/row_code.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/support/journal_rows.h"

namespace {

using plc_gateway::JournalRow;
using plc_gateway::pack_row;
using plc_gateway::PackedRow;
using plc_gateway::unpack_row;
using plc_test::bad;
using plc_test::number;
using plc_test::text;

constexpr plc_gateway::Ms kStart = 1790000000000;
constexpr size_t kFrame = 5;  // kind and sum

JournalRow unpacked(const PackedRow& row) {
  JournalRow out;
  EXPECT_TRUE(unpack_row(row.id, row.time, row.values, row.bytes, out));
  return out;
}

TEST(RowCode, Values_TakeAsFewBytesAsHoldThem) {
  const auto size = [](const plc_gateway::Sample& sample) {
    return pack_row(1, JournalRow::Kind::kData, kStart, {sample}, {1, 8, 400}).bytes.size() - kFrame;
  };
  EXPECT_EQ(size(number(0, 0, kStart)), 1U);
  EXPECT_EQ(size(number(0, 1, kStart)), 2U);
  EXPECT_EQ(size(number(0, 1234, kStart)), 3U);
  EXPECT_EQ(size(number(0, 0x42C80000, kStart)), 5U);
  EXPECT_EQ(size(number(0, UINT64_MAX, kStart)), 9U);
  EXPECT_EQ(size(number(0, 0, kStart - 1)), 2U);
  EXPECT_EQ(size(number(1, 0, kStart)), 2U);
  EXPECT_EQ(size(number(2, 0, kStart)), 3U);
  EXPECT_EQ(size(text(0, "abc", kStart)), 5U);
  EXPECT_EQ(size(bad(0, plc_client::Reason::kRefused, kStart)), 2U);
}

TEST(RowCode, UnguardedValues_StayUnguarded) {
  std::vector<plc_gateway::Sample> changes = {number(0, 5, kStart), bad(1, plc_client::Reason::kRefused, kStart)};
  const size_t bytes = pack_row(1, JournalRow::Kind::kData, kStart, changes, {}).bytes.size();
  changes[0].variable = 1;
  changes[1].variable = 2;
  changes[0].unguarded = true;
  const PackedRow row = pack_row(1, JournalRow::Kind::kData, kStart, changes, {});
  EXPECT_LE(row.bytes.size(), bytes);
  EXPECT_EQ(unpacked(row).kind, JournalRow::Kind::kData);
  EXPECT_EQ(unpacked(row).changes, changes);
}

TEST(RowCode, AliasesAndTimesInAnyOrder_AreReadBack) {
  const std::vector<plc_gateway::Sample> changes = {number(3, 1, kStart), number(1, 2, kStart - 100000),
                                                    number(1, 3, 0), text(2, std::string(300, '\0'), INT64_MAX),
                                                    bad(0, plc_client::Reason::kNotTried, INT64_MIN)};
  const std::vector<uint64_t> aliases = {1, 4000000000, 7, 8};
  JournalRow row = unpacked(pack_row(9, JournalRow::Kind::kLost, kStart, changes, aliases));
  EXPECT_EQ(row.kind, JournalRow::Kind::kLost);
  ASSERT_EQ(row.changes.size(), changes.size());
  for (size_t i = 0; i < changes.size(); ++i) {
    EXPECT_EQ(row.changes[i].variable, aliases[changes[i].variable]);
    row.changes[i].variable = changes[i].variable;
  }
  EXPECT_EQ(row.changes, changes);
}

TEST(RowCode, EachChangedByte_IsNoticed) {
  const PackedRow row =
      pack_row(5, JournalRow::Kind::kData, kStart, {number(0, 77, kStart), text(1, "text", kStart + 3)}, {1, 2});
  JournalRow out;
  for (size_t place = 0; place < row.bytes.size(); ++place) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string changed = row.bytes;
      changed[place] = static_cast<char>(static_cast<uint8_t>(changed[place]) ^ (1U << bit));
      EXPECT_FALSE(unpack_row(row.id, row.time, row.values, changed, out));
    }
    EXPECT_FALSE(unpack_row(row.id, row.time, row.values, row.bytes.substr(0, place), out));
  }
  EXPECT_FALSE(unpack_row(row.id + 1, row.time, row.values, row.bytes, out));
  EXPECT_FALSE(unpack_row(row.id, row.time + 1, row.values, row.bytes, out));
  EXPECT_FALSE(unpack_row(row.id, row.time, row.values + 1, row.bytes, out));
  EXPECT_TRUE(unpack_row(row.id, row.time, row.values, row.bytes, out));
}

// Bytes that were made as ours are, sum and all: only what they say is at random.
std::string with_sum(uint64_t id, plc_gateway::Ms time, uint64_t values, const std::string& body) {
  const auto moment = static_cast<uint64_t>(time);
  uint32_t sum = 2166136261U;
  for (const uint64_t part : {id, id >> 32U, moment, moment >> 32U, values, values >> 32U}) {
    sum = (sum ^ static_cast<uint32_t>(part)) * 16777619U;
  }
  for (const char byte : body) sum = (sum ^ static_cast<uint8_t>(byte)) * 16777619U;
  std::string all = body;
  for (unsigned i = 0; i < 4; ++i) all += static_cast<char>(sum >> (8 * i));
  return all;
}

TEST(RowCode, AnyBytes_AreSafe) {
  std::mt19937_64 random(20);
  size_t taken = 0;
  for (int i = 0; i < 200000; ++i) {
    std::string body(1 + random() % 12, '\0');
    for (char& byte : body) byte = static_cast<char>(random());
    body[0] = static_cast<char>(random() % 3);
    const uint64_t values = random() % 4;
    JournalRow out;
    const std::string bytes = with_sum(1, kStart, values, body);
    if (!unpack_row(1, kStart, values, bytes, out)) continue;
    ++taken;
    EXPECT_EQ(out.changes.size(), values);
    for (const plc_gateway::Sample& sample : out.changes) EXPECT_NE(sample.variable, 0U);
  }
  EXPECT_GT(taken, 1000U);
}

TEST(RowCode, LengthBehindTheEnd_IsRefused) {
  JournalRow out;
  EXPECT_FALSE(unpack_row(1, kStart, 1, with_sum(1, kStart, 1, std::string("\x00\x29\x05 ab", 6)), out));
  EXPECT_FALSE(unpack_row(1, kStart, 1, with_sum(1, kStart, 1, std::string("\x00\x28\x01", 3)), out));
  EXPECT_FALSE(unpack_row(1, kStart, 1, with_sum(1, kStart, 1, std::string("\x00\x2B", 2)), out)) << "no such form";
  EXPECT_FALSE(unpack_row(1, kStart, 1, with_sum(1, kStart, 1, std::string("\x00\x2A\x0B", 3)), out)) << "no reason";
  EXPECT_FALSE(unpack_row(1, kStart, 0, with_sum(1, kStart, 0, std::string("\x02", 1)), out)) << "no such kind";
}

}  // namespace
