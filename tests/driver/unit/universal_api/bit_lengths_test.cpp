// Tests of the bit lengths.
#include <gtest/gtest.h>

#include "universal_api.h"

namespace {

TEST(Bit2ByteLen, BitCounts_AreRoundedUpToBytes) {
  EXPECT_EQ(bit2byte_len(0), 0u);
  EXPECT_EQ(bit2byte_len(1), 1u);
  EXPECT_EQ(bit2byte_len(7), 1u);
  EXPECT_EQ(bit2byte_len(8), 1u);
  EXPECT_EQ(bit2byte_len(9), 2u);
}

TEST(Bit2ByteLen, LargestBitCount_DoesNotWrap) {
  EXPECT_EQ(bit2byte_len(0xFFFFFFF8u), 0x1FFFFFFFu);
  EXPECT_EQ(bit2byte_len(0xFFFFFFFFu), 0x20000000u);
}

TEST(Bit2WordLen, BitCounts_AreRoundedUpToWords) {
  EXPECT_EQ(bit2word_len(0), 0u);
  EXPECT_EQ(bit2word_len(1), 1u);
  EXPECT_EQ(bit2word_len(15), 1u);
  EXPECT_EQ(bit2word_len(16), 1u);
  EXPECT_EQ(bit2word_len(17), 2u);
}

TEST(Bit2WordLen, LargestBitCount_DoesNotWrap) {
  EXPECT_EQ(bit2word_len(0xFFFFFFF0u), 0x0FFFFFFFu);
  EXPECT_EQ(bit2word_len(0xFFFFFFFFu), 0x10000000u);
}

}  // namespace
