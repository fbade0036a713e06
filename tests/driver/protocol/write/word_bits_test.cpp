// The helpers of the bit writes: hexadecimal digits, masks, and bits of 16-bit words.
#include "plc_driver/protocol/writes/word_bits.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/guarded_buffer.h"

namespace plc_test {
namespace {

TEST(WordBits, MathN_DoublesItsBase) {
  EXPECT_EQ(mathN(1, 0), 1U);
  EXPECT_EQ(mathN(1, 15), 0x8000U);
  EXPECT_EQ(mathN(5, -2), 5U);
  EXPECT_EQ(mathN(3, 4), 48U);
  EXPECT_EQ(mathN(1, 31), 0x80000000U);
}

TEST(WordBits, MathNBeyondThirtyTwoBits_IsZero) {
  EXPECT_EQ(mathN(1, 32), 0U);
  EXPECT_EQ(mathN(3, 31), 0x80000000U);
  EXPECT_EQ(mathN(0xFFFFFFFF, 0x7FFFFFFF), 0U);
  EXPECT_EQ(mathN(7, INT32_MIN), 7U);
}

TEST(WordBits, HexToDec_ReadsDigitsOfBothCases) {
  EXPECT_EQ(hexToDec("00ff", 4), 255);
  EXPECT_EQ(hexToDec("1A2b", 4), 0x1A2B);
  EXPECT_EQ(hexToDec("1A2b", 2), 0x1A);
  EXPECT_EQ(hexToDec("7fffffff", 8), INT32_MAX);
}

TEST(WordBits, HexToDecOfNoDigits_IsZero) {
  EXPECT_EQ(hexToDec("ff", 0), 0);
  EXPECT_EQ(hexToDec("ff", -1), 0);
}

TEST(WordBits, HexToDecOfABadDigit_CountsItAsMinusOne) {
  EXPECT_EQ(hexToDec("g", 1), -1);
  EXPECT_EQ(hexToDec("1g", 2), 15);
  EXPECT_EQ(hexToDec("g1", 2), -15);
  EXPECT_EQ(hexToDec(" 0", 2), -16);
}

TEST(WordBits, GetIndexOfSigns_KnowsTheTwentyTwoDigitsAlone) {
  int known = 0;
  for (int32_t c = -300; c < 600; ++c) {
    const int32_t index = getIndexOfSigns(c);
    known += index >= 0;
    const int32_t decimal = c >= '0' && c <= '9' ? c - '0' : -1;
    const int32_t lower = c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    const int32_t upper = c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    EXPECT_EQ(index, std::max({decimal, lower, upper})) << c;
  }
  EXPECT_EQ(known, 22);
}

TEST(WordBits, BatchReadWord_CopiesOneBitAndLeavesTheOthers) {
  const uint16_t words[] = {0x0004};
  GuardedBuffer out(1, 0xF0);
  EXPECT_EQ(BatchReadWord(words, out.data(), 2, 1), out.data());
  EXPECT_EQ(out[0], 0xF1);
  out = GuardedBuffer(1, 0xFF);
  BatchReadWord(words, out.data(), 3, 1);
  EXPECT_EQ(out[0], 0xFE);
}

TEST(WordBits, BatchReadWordPastBit15_GoesOnInTheNextWord) {
  const uint16_t words[] = {0x8000, 0x0005};
  GuardedBuffer out(1);
  BatchReadWord(words, out.data(), 15, 4);  // bits 15, 0, 1, 2
  EXPECT_EQ(out[0], 0x0B);
}

TEST(WordBits, OfABatchRead_ArePackedIntoBytes) {
  const uint16_t words[] = {0x1234, 0xABCD};
  GuardedBuffer out(4);
  BatchReadWord(words, out.data(), 0, 32);
  EXPECT_EQ(out.bytes(), (std::vector<uint8_t>{0x34, 0x12, 0xCD, 0xAB}));
  EXPECT_TRUE(out.guards_intact());
}

// From bit mod 16 up to bit + count: for bit 18 and count 1 that is bits 2 to 18, seventeen of them.
TEST(WordBits, BatchReadWordFromBit16On_CopiesTheExtraBitsToo) {
  const uint16_t words[] = {0xFFFF, 0xFFFF};
  GuardedBuffer out(3);
  BatchReadWord(words, out.data(), 18, 1);
  EXPECT_EQ(out.bytes(), (std::vector<uint8_t>{0xFF, 0xFF, 0x01}));
  EXPECT_TRUE(out.guards_intact());
}

TEST(WordBits, BatchReadWordOfNoBits_ChangesNothing) {
  const uint16_t words[] = {0xFFFF};
  GuardedBuffer out(1);
  BatchReadWord(words, out.data(), 5, 0);
  EXPECT_EQ(out[0], 0);
}

TEST(WordBits, BatchReadWord2_TakesLaterBitsFromTheSecondArray) {
  const uint16_t first[] = {0x8000};
  const uint16_t later[] = {0x0002, 0x0001};
  GuardedBuffer out(3);
  EXPECT_EQ(BatchReadWord2(first, later, out.data(), 15, 18), out.data());
  EXPECT_EQ(out.bytes(), (std::vector<uint8_t>{0x05, 0x00, 0x02}));
}

}  // namespace
}  // namespace plc_test
