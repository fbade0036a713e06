// The bit writes that change a bit inside a word: read-modify-write, the masked write, and bit arrays of members.
#include <cerrno>
#include <random>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/writes/write_functions.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class WriteBitsInWords : public ProtocolTest {
 protected:
  void answer_word(uint16_t bit_number, std::string_view word) {
    peer_.answer(resolve_reply(bit_number));
    peer_.answer(value_reply(word));
    peer_.answer(acknowledgment());
  }

  // Writes a structure bit of the current word; returns the two bytes that went back as text.
  std::string rewrite(uint16_t bit_number, std::string_view word, std::string_view data, uint32_t count = 1) {
    peer_.forget();
    answer_word(bit_number, word);
    EXPECT_EQ(ev_plc_write_bits_struct(element(0), value(data, count), &conn_, "A.B", kEm), 0);
    return to_hex(Bytes(peer_.requests().at(2).begin() + 22, peer_.requests().at(2).end()));
  }
};

TEST_F(WriteBitsInWords, SetOnEm_ReadsTheWordAndWritesItWithTheBit) {
  answer_word(3, "00 01");
  EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", kEm), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 01 00 03 00 41 00 2E 00 42",
                            "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 A1 00 01 B2 C3 D4 E5",
                            "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 00 09"}));
}

TEST_F(WriteBitsInWords, ResetOfAClearBitOnEm_WritesTheWordUnchanged) {
  answer_word(3, "00 01");
  EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("00", 1), &conn_, "A.B", kEm), 0);
  EXPECT_EQ(to_hex(peer_.requests().at(2)), "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 00 01");
}

TEST_F(WriteBitsInWords, EveryBit_IsSetAndClearedAlone) {
  for (uint16_t bit = 0; bit < 16; ++bit) {
    const uint32_t mask = 1U << bit;
    const std::string set = to_hex({static_cast<uint8_t>(mask >> 8), static_cast<uint8_t>(mask)});
    const uint32_t others = 0xFFFFU - mask;
    const std::string cleared = to_hex({static_cast<uint8_t>(others >> 8), static_cast<uint8_t>(others)});
    EXPECT_EQ(rewrite(bit, "00 00", "01"), set);
    EXPECT_EQ(rewrite(bit, "FF FF", "01"), "FF FF");
    EXPECT_EQ(rewrite(bit, "FF FF", "00"), cleared);
    EXPECT_EQ(rewrite(bit, "00 00", "00"), "00 00");
  }
}

TEST_F(WriteBitsInWords, OtherDevices_AreReadModifiedAndWrittenToo) {
  for (const uint8_t device : {kDm, kEm, kNoDevice, uint8_t{8}, uint8_t{25}, uint8_t{7}, uint8_t{44}, uint8_t{0}}) {
    peer_.forget();
    answer_word(0, "00 00");
    EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", device), 0);
    EXPECT_EQ(peer_.requests().size(), 3U) << int{device};
  }
}

TEST_F(WriteBitsInWords, LocalStructureBitsOnMrAndLr_AreReadModifiedAndWritten_D30) {
  for (const uint8_t device : {kMr, kLr}) {
    TagEntry tag = local(make_bit("A.B", device));
    tag.name_kind = 2;
    use_tags({tag});
    peer_.forget();
    answer_word(1, "00 00");
    EXPECT_EQ(write(0, 0, "01", 1), 0U);
    ASSERT_EQ(peer_.requests().size(), 3U);
    EXPECT_EQ(peer_.requests()[2][23], 0x02);
  }
}

TEST_F(WriteBitsInWords, OtherValues_SendTheWriteWithoutItsWord_D27) {
  for (const std::string_view data : {"02", "FF"}) {
    peer_.forget();
    plc::sid = 0;
    answer_word(3, "00 01");
    EXPECT_EQ(ev_plc_write_bits_struct(element(0), value(data, 1), &conn_, "A.B", kEm), 0);
    EXPECT_EQ(to_hex(peer_.requests().at(2)), "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5");
  }
}

TEST_F(WriteBitsInWords, CurrentBits_AreLeftInTheHostsBuffer_D28) {
  rewrite(3, "00 08", "01");
  EXPECT_EQ(host_data(), "01");
  rewrite(3, "00 00", "01");
  EXPECT_EQ(host_data(), "00");
  rewrite(4, "5A 50", "F0 FF", 12);  // bits 4 to 15 of 5A50: 5A5
  EXPECT_EQ(host_data(), "A5 F5");
  rewrite(0, "12 34", "00 00 FF", 16);
  EXPECT_EQ(host_data(), "34 12 FF");
}

TEST_F(WriteBitsInWords, FurtherBitsOfTheFirstByte_MakeTheWordStayAsItIs_D28) {
  EXPECT_EQ(rewrite(3, "00 01", "01", 1), "00 09");
  // Two bits are shown: 0 and 1 make the byte 2, neither 0 nor 1.
  EXPECT_EQ(rewrite(3, "00 11", "01", 2), "00 11");
  EXPECT_EQ(rewrite(3, "00 18", "00", 2), "00 18");
  // Bits of the byte that are not shown stay and count too.
  EXPECT_EQ(rewrite(3, "00 00", "01", 0), "00 00");
  EXPECT_EQ(rewrite(3, "00 08", "00", 0), "00 08");
}

TEST_F(WriteBitsInWords, BitNumbersOf16AndMore_StayWithinCountAndWord) {
  for (uint16_t bit = 16; bit < 256; ++bit) {
    for (const uint32_t count : {0U, 1U, 2U, 15U, 16U, 17U, 255U, 0x10000U, 0xFFFFFFFFU}) {
      const uint32_t first = bit % 16U;
      const size_t shown = count < 16 - first ? count : 16 - first;  // bits that the host's buffer may receive
      const size_t size = shown > 8 ? 2 : 1;
      peer_.forget();
      answer_word(bit, "FF FF");
      RegValue* values = value(Bytes{0}, count, size);
      EXPECT_EQ(ev_plc_write_bits_struct(element(0), values, &conn_, "A.B", kEm), 0);
      EXPECT_TRUE(data_.guards_intact()) << bit << ' ' << count;
      const uint32_t bits = (1U << shown) - 1;
      EXPECT_EQ(data_[0], bits & 0xFF) << bit << ' ' << count;
      EXPECT_EQ(data_[size - 1], size == 2 ? bits >> 8 : bits) << bit << ' ' << count;
    }
  }
}

TEST_F(WriteBitsInWords, MaskOfABitNumberAbove15_LeavesTheWord) {
  EXPECT_EQ(rewrite(16, "00 00", "01"), "00 00");
  EXPECT_EQ(rewrite(31, "00 00", "01"), "00 00");
  EXPECT_EQ(rewrite(255, "00 00", "01"), "00 00");
  EXPECT_EQ(rewrite(17, "12 36", "00"), "12 36");  // bit 1 is shown, bit 17 is what would change
}

TEST_F(WriteBitsInWords, StructureBit_TakesItsNumberFromOneByte) { EXPECT_EQ(rewrite(0x0103, "00 00", "01"), "00 08"); }

TEST_F(WriteBitsInWords, MemberOfAStructureArray_TakesItsNumberFromTwoBytes) {
  TagEntry tag = make_bit("A[#1].B", kEm);
  answer_word(0x0003, "00 00");
  EXPECT_EQ(ev_plc_write_array_struct_bits(element(0), value("01", 1), &conn_, &tag, kEm), 0);
  EXPECT_EQ(to_hex(peer_.requests().at(2)), "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 00 08");
  peer_.forget();
  answer_word(0x0103, "00 00");  // 259: no bit of the word
  EXPECT_EQ(ev_plc_write_array_struct_bits(element(0), value("01", 1), &conn_, &tag, kEm), 0);
  EXPECT_EQ(peer_.requests().at(2)[23], 0);
}

TEST_F(WriteBitsInWords, HostileBitNumbersOfTwoBytes_StayWithinTheHostsBuffer) {
  TagEntry tag = local(make_bit("A[#1].B", kEm));
  for (uint32_t bit = 0; bit < 0x10000; bit += 251) {
    peer_.forget();
    answer_word(static_cast<uint16_t>(bit), "FF FF");
    EXPECT_EQ(ev_plc_write_array_struct_bits_local(element(0), value("01", 1), &conn_, &tag, 7), 0);
    EXPECT_EQ(data_[0], 1);
    EXPECT_TRUE(data_.guards_intact());
  }
}

TEST_F(WriteBitsInWords, MemberOfAStructureArrayOnDm_IsSetByMask) {
  peer_.answer(resolve_reply(3));
  peer_.answer(acknowledgment());
  TagEntry tag = make_bit("A[#1].B", kDm);
  EXPECT_EQ(ev_plc_write_array_struct_bits(element(0), value("01", 1), &conn_, &tag, kDm), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 18 FF FF FF E7 00 00 0C 28 00 01 00 00 00 01"
                            "00 07 00 41 00 5B 00 23 00 31 00 5D 00 2E 00 42",
                            "00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 A1 B2 C3 D4 E5 01 00 08"}));
  EXPECT_EQ(host_data(), "01");
}

TEST_F(WriteBitsInWords, MemberOfAStructureArrayOnDm_IsClearedByMask) {
  TagEntry tag = make_bit("A[#1].B", kDm);
  const auto clear = [&](uint16_t bit) {
    peer_.forget();
    plc::sid = 0;
    peer_.answer(resolve_reply(bit));
    peer_.answer(acknowledgment());
    EXPECT_EQ(ev_plc_write_array_struct_bits(element(0), value("00", 1), &conn_, &tag, kDm), 0);
    return to_hex(peer_.requests().at(1));
  };
  EXPECT_EQ(clear(3), "00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 A1 B2 C3 D4 E5 00 FF F7");
  EXPECT_EQ(clear(15), "00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 A1 B2 C3 D4 E5 00 7F FF");
  EXPECT_EQ(clear(0x0100), "00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 A1 B2 C3 D4 E5 00 FF FE");
}

TEST_F(WriteBitsInWords, MaskedWriteOfAnotherValue_EndsBehindTheHandle_D27) {
  peer_.answer(resolve_reply(3));
  peer_.answer(acknowledgment());
  TagEntry tag = make_bit("A[#1].B", kDm);
  EXPECT_EQ(ev_plc_write_array_struct_bits(element(0), value("02", 1), &conn_, &tag, kDm), 0);
  EXPECT_EQ(to_hex(peer_.requests().at(1)), "00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 A1 B2 C3 D4 E5");
}

TEST_F(WriteBitsInWords, ArrayOfMembers_RewritesTheLastTwoBytesOfTheReply) {
  for (const uint8_t name_kind : {uint8_t{2}, uint8_t{3}}) {
    peer_.forget();
    plc::sid = 0;
    answer_word(0, by_build("FF FF 12 34", "12 34"));
    TagEntry tag = with_ranges(make_bit("B", kDm), {0, 15});
    EXPECT_EQ(ev_plc_write_array_bits(element(9), value("01", 1), &conn_, &tag, 0, name_kind), 0);
    EXPECT_EQ(sent(), frames({"00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01"
                              "00 05 00 42 00 5B 00 23 00 39 00 5D",
                              "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 A1 00 01 00 00 D4 E5",
                              "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 00 00 D4 E5 12 34"}));
    EXPECT_EQ(host_data(), "01");
  }
}

TEST_F(WriteBitsInWords, ArrayOfMembers_SetsAndClearsBitsOfBothBytes) {
  TagEntry tag = local(with_ranges(make_bit("B", kDm), {0, 99}));
  const auto rewrite_at = [&](uint32_t index, std::string_view word, std::string_view data) {
    peer_.forget();
    answer_word(0, word);
    EXPECT_EQ(ev_plc_write_array_bits_local(element(index), value(data, 1), &conn_, &tag, 2, 7), 0);
    return to_hex(Bytes(peer_.requests().at(2).begin() + 22, peer_.requests().at(2).end()));
  };
  EXPECT_EQ(rewrite_at(0, "00 00", "01"), "00 01");
  EXPECT_EQ(rewrite_at(7, "00 00", "01"), "00 80");
  EXPECT_EQ(rewrite_at(8, "00 00", "01"), "01 00");
  EXPECT_EQ(rewrite_at(15, "00 00", "01"), "80 00");
  EXPECT_EQ(rewrite_at(16, "00 00", "01"), "00 01");
  EXPECT_EQ(rewrite_at(20, "FF FF", "00"), "FF EF");
  EXPECT_EQ(rewrite_at(29, "FF FF", "00"), "DF FF");
}

TEST_F(WriteBitsInWords, ArrayOfMembers_TakesTheBitFromTheFirstIndexForEveryElement_D29) {
  answer_word(0, "00 00");
  answer_word(0, "00 00");
  answer_word(0, "FF FF");
  TagEntry tag = with_ranges(make_bit("B", kDm), {0, 15});
  EXPECT_EQ(ev_plc_write_array_bits(element(3), value("03", 3), &conn_, &tag, 0, 2), 0);
  EXPECT_EQ(sent_names(), (std::vector<std::string>{"B[#3]", "B[#4]", "B[#5]"}));
  ASSERT_EQ(peer_.requests().size(), 9U);
  EXPECT_EQ(peer_.requests()[2][23], 0x08);
  EXPECT_EQ(peer_.requests()[5][23], 0x08);
  EXPECT_EQ(peer_.requests()[8][23], 0xF7);
}

TEST_F(WriteBitsInWords, ArrayOfMembers_ClearsFromTheNinthElementOn) {
  for (int i = 0; i < 9; ++i) answer_word(0, "FF FF");
  TagEntry tag = with_ranges(make_bit("B", kDm), {0, 15});
  EXPECT_EQ(ev_plc_write_array_bits(element(0), value("FF FF", 9), &conn_, &tag, 0, 3), 0);
  EXPECT_EQ(peer_.requests().at(23)[23], 0xFF);
  EXPECT_EQ(peer_.requests().at(26)[23], 0xFE);
}

TEST_F(WriteBitsInWords, TwoDimensionsOfMembers_AreNamedAndRewrittenLikewise) {
  answer_word(0, "00 00");
  answer_word(0, "00 00");
  TagEntry tag = with_ranges(make_bit("B", kDm), {1, 5}, {2, 9});
  EXPECT_EQ(ev_plc_write_array2_bits(element(9), value("01", 1), &conn_, 9, &tag, 0, 2, 1), 0);
  tag = local(tag);
  EXPECT_EQ(ev_plc_write_array2_bits_local(element(9), value("01", 1), &conn_, 9, &tag, 3, 7), 0);
  EXPECT_EQ(sent_names(), (std::vector<std::string>{"B[#3,#2]", "B[#3,#2]"}));
  EXPECT_EQ(to_hex(Bytes(peer_.requests().at(2).begin() + 22, peer_.requests().at(2).end())), "02 00");
  EXPECT_EQ(to_hex(Bytes(peer_.requests().at(5).begin() + 22, peer_.requests().at(5).end())), "02 00");
}

TEST_F(WriteBitsInWords, ArrayOfMembers_WantsTwoBytesOfTheWord) {
  TagEntry tag = with_ranges(make_bit("B", kDm), {0, 15});
  for (size_t length = 0; length < 4; ++length) {
    peer_.forget();
    peer_.answer(resolve_reply());
    peer_.answer(reply_exactly(prefix_of(from_hex("12 34 56"), length)));
    peer_.answer(acknowledgment());
    EXPECT_EQ(ev_plc_write_array_bits(element(0), value("00", 1), &conn_, &tag, 0, 2), length < 2 ? 3 : 0);
    EXPECT_EQ(peer_.requests().size(), length < 2 ? 2U : 3U);
    EXPECT_EQ(plc::init, 1U);
    const std::string written = length < 2 ? "" : to_hex(peer_.requests().at(2)).substr(66);
    EXPECT_EQ(written, length < 2 ? "" : length == 2 ? "12 34" : "34 56");
  }
}

// One reply buffer per call: what the word's reply does not reach is still the resolve reply.
TEST_F(WriteBitsInWords, ShortWordReply_ShowsTheResolveReplyBehindIt) {
  Bytes resolved = resolve_reply(3);
  resolved[14] = 0x5A;
  resolved[15] = 0xA0;
  for (const size_t length : {1U, 14U, 15U}) {
    peer_.forget();
    peer_.answer(resolved);
    peer_.answer(reply_exactly(prefix_of(value_reply("12 34"), length)));
    peer_.answer(acknowledgment());
    EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", kEm), 0);
    EXPECT_EQ(to_hex(peer_.requests().at(2)).substr(66), length == 15 ? "12 A8" : "5A A8");
  }
}

TEST_F(WriteBitsInWords, ResolveReplyWithoutABitNumber_MeansBitZero) {
  peer_.answer(reply_exactly(prefix_of(resolve_reply(0x0505), 29)));
  peer_.answer(value_reply("00 00"));
  peer_.answer(acknowledgment());
  EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", kEm), 0);
  EXPECT_EQ(peer_.requests().at(2)[23], 1);
}

TEST_F(WriteBitsInWords, EmptyReplies_FailAtEachExchange) {
  for (int good = 0; good < 3; ++good) {
    peer_.forget();
    if (good > 0) peer_.answer(resolve_reply());
    if (good > 1) peer_.answer(value_reply("00 00"));
    peer_.answer(Bytes{});
    EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", kEm), 3);
    EXPECT_EQ(peer_.requests().size(), static_cast<size_t>(good) + 1);
    EXPECT_EQ(plc::init, 1U);
    EXPECT_EQ(host_data(), good == 2 ? "00" : "01");
  }
}

TEST_F(WriteBitsInWords, LostConnection_FailsAtEachExchange) {
  for (int good = 0; good < 3; ++good) {
    peer_.forget();
    plc::init = 1;
    conn_.socket_fd = ScriptedSocket::kDescriptor;
    if (good > 0) peer_.answer(resolve_reply());
    if (good > 1) peer_.answer(value_reply("00 00"));
    peer_.answer(fail_send(EPIPE));
    capture_output([&] { EXPECT_EQ(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", kEm), 3); });
    EXPECT_EQ(plc::init, 0U);
    EXPECT_EQ(peer_.requests().size(), static_cast<size_t>(good));
  }
}

TEST_F(WriteBitsInWords, RandomReplies_StayWithinTheHostsBuffer) {
  std::mt19937 random(20261121);
  peer_.answer_each([&random](const Bytes&) {
    Bytes reply(random() % 4 == 0 ? random() % 40 : random() % 4097);
    for (uint8_t& byte : reply) byte = static_cast<uint8_t>(random());
    return reply_raw(reply);
  });
  for (int round = 0; round < 800; ++round) {
    peer_.forget();
    TagEntry tag = with_ranges(make_bit("B", kDm), {0, 99});
    const auto count = static_cast<uint32_t>(random() % 20);
    RegValue* values = value(Bytes{static_cast<uint8_t>(random() % 3)}, count, count > 8 ? (count + 7) / 8 : 1);
    const uint8_t device = round % 2 == 0 ? kEm : kDm;
    const int32_t results[] = {
        ev_plc_write_bits_struct(element(0), values, &conn_, "A.B", kEm),
        ev_plc_write_bits_struct_local(element(0), values, &conn_, "A.B", 7),
        ev_plc_write_array_struct_bits(element(0), values, &conn_, &tag, device),
        ev_plc_write_array_struct_bits_local(element(0), values, &conn_, &tag, 7),
        ev_plc_write_array_bits(element(static_cast<uint32_t>(random() % 65536)), values, &conn_, &tag, 0, 2),
    };
    for (const int32_t result : results) ASSERT_TRUE(result == 0 || result == 3) << round;
    ASSERT_TRUE(data_.guards_intact()) << round;
    ASSERT_EQ(plc::init, 1U);
  }
}

TEST_F(WriteBitsInWords, ThreeExchanges_TakeTwelveSystemCalls) {
  rewrite(0, "00 00", "01");
  EXPECT_EQ(peer_.calls(), "select send select recv select send select recv select send select recv");
}

}  // namespace
}  // namespace plc_test
