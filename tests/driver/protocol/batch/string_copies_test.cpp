// The references to strings that a batch read hands out.
#include "plc_driver/protocol/reads/string_copies.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>

#include "plc_driver_hooks.h"
#include "tests/driver/protocol/batch/batch_fixture.h"

namespace plc_test {
namespace {

class StringCopies : public BatchTest {
 protected:
  static const char* text_at(uint32_t reference) {
    return reinterpret_cast<const char*>(static_cast<uintptr_t>(reference));
  }

  static bool is_mapped(uint32_t reference) {
    std::ifstream maps("/proc/self/maps");
    EXPECT_TRUE(maps);
    for (std::string line; std::getline(maps, line);) {
      uint64_t start = 0;
      uint64_t end = 0;
      EXPECT_EQ(sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64, &start, &end), 2) << line;
      if (reference >= start && reference < end) return true;
    }
    return false;
  }
};

Bytes text_bytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

TEST_F(StringCopies, EachStringOfABatch_HasACopyThatEndsWithZero) {
  use_tags({make_string("S", 80), make_tag("X", 16)});
  answer_frame(4, text_bytes("ABCDEFGH") + Bytes{0x12, 0x34});
  EXPECT_EQ(read({{0, 0, 3}, {1}, {1}, {0, 9}}), 0U);
  EXPECT_STREQ(text_at(values()[0]), "ABCDEF");
  EXPECT_STREQ(text_at(values()[3]), "GH");
}

TEST_F(StringCopies, ElementsOfARun_ShareOneReference) {
  use_tags({make_string("S", 80), make_tag("X", 16)});
  answer_frame(4, text_bytes("ABCDEF") + Bytes{0x12, 0x34});
  EXPECT_EQ(read({{0, 0}, {0, 1}, {0, 2}, {1}}), 0U);
  EXPECT_NE(values()[0], 0U);
  EXPECT_EQ(values()[1], values()[0]);
  EXPECT_EQ(values()[2], values()[0]);
  EXPECT_EQ(values()[3], 0x1234U);
  EXPECT_STREQ(text_at(values()[0]), "ABCDEF");
}

TEST_F(StringCopies, References_StayValidAcrossTheFramesOfABatch) {
  use_tags({make_string("S", 80), make_string("T", 80)});
  std::vector<BatchElement> elements;
  for (uint32_t i = 0; i < 36; ++i) elements.push_back({i % 2});
  answer_frame(18, text_bytes("AaBbCcDdEeFfGgHhIiJjKkLlMmNnOoPpQqRr"));
  answer_frame(18, text_bytes("001122334455667788990011223344556677"));
  EXPECT_EQ(read(elements), 0U);
  EXPECT_STREQ(text_at(values()[0]), "Aa");
  EXPECT_STREQ(text_at(values()[17]), "Rr");
  EXPECT_STREQ(text_at(values()[18]), "00");
  EXPECT_STREQ(text_at(values()[35]), "77");
  const std::vector<uint32_t> all = values();
  EXPECT_EQ(std::set<uint32_t>(all.begin(), all.end()).size(), 36U);
}

TEST_F(StringCopies, References_OutliveOtherCallsUntilTheNextBatch) {
  use_tags({make_string("S", 80), make_tag("X", 16)});
  answer_frame(2, text_bytes("AB") + Bytes{0x12, 0x34});
  EXPECT_EQ(read({{0}, {1}}), 0U);
  const uint32_t reference = values()[0];
  peer_.answer(resolve_reply());
  peer_.answer(value_reply(text_bytes("xyz") + Bytes{0}));
  EXPECT_EQ(ev_plc_read(element(0), value("00 00 00 00", 2), &conn_), 0U);
  answer_writes();
  EXPECT_EQ(write(0, 0, "51 51 51 51", 2), 0U);
  EXPECT_EQ(read(repeated(1, 101)), 3U);
  EXPECT_EQ(read({{0, 0, 0}}), 3U);
  EXPECT_STREQ(text_at(reference), "AB");
}

TEST_F(StringCopies, BytesOfAString_AreCopiedAsTheyStandZerosToo) {
  use_tags({make_string("S", 80)});
  answer_frame(2, "41 00 FF 42");
  EXPECT_EQ(read({{0, 0}, {0, 1}}), 0U);
  const auto* copy = reinterpret_cast<const uint8_t*>(text_at(values()[0]));
  EXPECT_EQ(to_hex(Bytes(copy, copy + 5)), "41 00 FF 42 00");
}

// 8192 bytes: two copies of 4000 leave 190 with their zeros, for a text of 189 at most.
TEST_F(StringCopies, CopyThatLeavesNoRoomForItsZero_IsNotMade) {
  plc::ReplyBuffer reply;
  memset(reply.bytes, 'x', plc::kReplyBytes);
  reply.accept(plc::kReplyBytes);
  plc::begin_string_copies();
  EXPECT_NE(plc::copy_string(reply, 0, 4000), 0U);
  EXPECT_NE(plc::copy_string(reply, 0, 4000), 0U);
  EXPECT_EQ(plc::copy_string(reply, 0, 190), 0U);
  EXPECT_EQ(std::string(text_at(plc::copy_string(reply, 0, 189))), std::string(189, 'x'));
  EXPECT_EQ(plc::copy_string(reply, 0, 0), 0U);
}

TEST_F(StringCopies, LargestBatch_HasRoomForEveryString) {
  // 100 elements of which each frame covers one: the first asks for 3301 and each of the others for two.
  use_tags({make_string("S", 80)});
  peer_.answer_each([](const Bytes& request) {
    Bytes reply(asked_bytes(request, {}), 'x');
    std::fill_n(reply.begin(), request[10] == 0x0C ? reply.size() : kReplyHeadBytes, uint8_t{0});
    return reply_with(reply);
  });
  std::vector<BatchElement> elements;
  for (uint32_t i = 0; i < 100; ++i) elements.push_back({0, 7 * i, 34});
  EXPECT_EQ(read(elements), 0U);  // 3400 in 98 frames of one slot; a run of 34 takes the slots of 34
  EXPECT_NE(values()[0], 0U);
  EXPECT_EQ(std::string(text_at(values()[0])), std::string(68, 'x'));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(StringCopies, CopiesOfTheMostBytes_AllFit) {
  plc::ReplyBuffer reply;
  plc::begin_string_copies();
  for (uint32_t slot = 0; slot < 99; ++slot) EXPECT_NE(plc::copy_string(reply, 14, 2), 0U);
  EXPECT_NE(plc::copy_string(reply, 14, 2 * 3500), 0U);
}

TEST_F(StringCopies, CopyWithoutRoom_IsZero) {
  plc::ReplyBuffer reply;
  plc::begin_string_copies();
  EXPECT_EQ(plc::copy_string(reply, 14, 0x40000000), 0U);
  EXPECT_EQ(plc::copy_string(reply, 14, 0xFFFFFFFF), 0U);
  uint32_t copies = 0;
  while (copies < 1000 && plc::copy_string(reply, 14, 1000) != 0) ++copies;
  EXPECT_LT(copies, 1000U);
  EXPECT_GE(copies, 7U);
  plc::begin_string_copies();
  EXPECT_NE(plc::copy_string(reply, 14, 1000), 0U);
}

TEST_F(StringCopies, FreedCopies_AreUnmappedAndMadeAnew) {
  plc::ReplyBuffer reply;
  memset(reply.bytes, 'x', plc::kReplyBytes);
  reply.accept(plc::kReplyBytes);
  plc::free_string_copies();
  const uint32_t reference = plc::copy_string(reply, 14, 3000);
  ASSERT_NE(reference, 0U);
  EXPECT_TRUE(is_mapped(reference));
  plc::free_string_copies();
  EXPECT_FALSE(is_mapped(reference));
  plc::free_string_copies();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(std::string(text_at(plc::copy_string(reply, 14, 4000))), std::string(4000, 'x')) << "the whole room";
  }
}

TEST_F(StringCopies, ReleaseOfTheDriver_UnmapsThem) {
  plc::ReplyBuffer reply;
  plc::begin_string_copies();
  const uint32_t reference = plc::copy_string(reply, 14, 2);
  ASSERT_NE(reference, 0U);
  plc_driver_release(&conn_);
  EXPECT_FALSE(is_mapped(reference));
}

TEST_F(StringCopies, BytesBehindTheReplyBuffer_AreZero) {
  plc::ReplyBuffer reply;
  for (uint8_t& byte : reply.bytes) byte = 'r';
  reply.accept(4096);
  plc::begin_string_copies();
  const uint32_t reference = plc::copy_string(reply, 4094, 6);
  const auto* copy = reinterpret_cast<const uint8_t*>(text_at(reference));
  EXPECT_EQ(to_hex(Bytes(copy, copy + 7)), "72 72 00 00 00 00 00");
}

}  // namespace
}  // namespace plc_test
