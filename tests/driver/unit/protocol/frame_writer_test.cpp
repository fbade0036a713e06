// Tests of the bounded writer of requests.
#include "plc_driver/protocol/frames/frame_writer.h"

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc::FrameWriter;
using plc_test::GuardedBuffer;
using plc_test::to_hex;

TEST(FrameWriter, Fields_FollowTheUnwrittenHead) {
  GuardedBuffer buffer(26, 0xEE);
  FrameWriter frame(buffer.data(), 26);
  frame.put_command(0x0C, 0x28);
  frame.put(0x01);
  frame.put16(0x1234);
  frame.put16(0xABCD0002);
  frame.put_zeros(3);
  const uint8_t bytes[] = {9, 8, 7};
  frame.put_bytes(bytes, 3);
  EXPECT_FALSE(frame.failed);
  EXPECT_EQ(frame.length, 23U);
  EXPECT_EQ(to_hex(buffer.bytes()), "EE EE EE EE EE EE EE EE EE EE 0C 28 01 12 34 00 02 00 00 00 09 08 07 EE EE EE");
}

TEST(FrameWriter, LengthField_CountsWhatFollowsByteNine) {
  GuardedBuffer buffer(26);
  FrameWriter frame(buffer.data(), 26);
  EXPECT_EQ(frame.counted_bytes(), 0U);
  frame.put_zeros(16);
  EXPECT_EQ(frame.length, 26U);
  EXPECT_EQ(frame.counted_bytes(), 16U);
}

TEST(FrameWriter, FullBuffer_IsNoFailure) {
  GuardedBuffer buffer(16);
  FrameWriter frame(buffer.data(), 16);
  frame.put_zeros(6);
  EXPECT_FALSE(frame.failed);
  EXPECT_EQ(frame.length, 16U);
  EXPECT_TRUE(buffer.guards_intact());
}

TEST(FrameWriter, FieldThatDoesNotFit_FailsForGoodAndWritesNothing) {
  const uint8_t bytes[3] = {1, 2, 3};
  const auto expect_failure = [&](auto&& put) {
    GuardedBuffer buffer(12, 0xEE);
    FrameWriter frame(buffer.data(), 12);
    frame.put(0x01);
    put(&frame);
    EXPECT_TRUE(frame.failed);
    frame.put(0x02);  // would have fitted
    EXPECT_TRUE(frame.failed);
    EXPECT_EQ(frame.length, 11U);
    EXPECT_EQ(buffer[10], 0x01);
    EXPECT_EQ(buffer[11], 0xEE);
    EXPECT_TRUE(buffer.guards_intact());
  };
  expect_failure([](FrameWriter* frame) { frame->put16(0x1234); });
  expect_failure([](FrameWriter* frame) { frame->put_zeros(2); });
  // A constant would be judged by the compiler, which does not see that the fill is never reached.
  const volatile uint32_t huge = UINT32_MAX;
  expect_failure([&](FrameWriter* frame) { frame->put_zeros(huge); });
  expect_failure([&](FrameWriter* frame) { frame->put_bytes(bytes, 3); });
  expect_failure([](FrameWriter* frame) { EXPECT_EQ(frame->reserve(2), nullptr); });
}

TEST(FrameWriter, ByteThatDoesNotFit_FailsToo) {
  GuardedBuffer buffer(11, 0xEE);
  FrameWriter frame(buffer.data(), 11);
  frame.put(1);
  EXPECT_FALSE(frame.failed);
  frame.put(2);
  EXPECT_TRUE(frame.failed);
  EXPECT_TRUE(buffer.guards_intact());
}

TEST(StoreNumbers, Bytes_AreBigEndian) {
  GuardedBuffer buffer(6);
  plc::store16(buffer.data(), 0x12345678);
  plc::store32(buffer.data() + 2, 0x9ABCDEF0);
  EXPECT_EQ(to_hex(buffer.bytes()), "56 78 9A BC DE F0");
  EXPECT_TRUE(buffer.guards_intact());
}

}  // namespace
