// Framing: where requests end, those with odd lengths included.
#include "wire/framing.h"

#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace plc_sim {
namespace {

using plc_test::from_hex;

TEST(Framing, PlainRequest_EndsWhereItsLengthSays) {
  const Bytes frame = from_hex("00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  for (size_t size = 0; size < frame.size(); ++size) {
    EXPECT_FALSE(
        find_frame_end(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)), false).is_complete);
  }
  EXPECT_TRUE(find_frame_end(frame, false).is_complete);
  EXPECT_EQ(find_frame_end(frame, false).bytes, 16U);
}

TEST(Framing, TwoRequestsAtOnce_AreToldApart) {
  EXPECT_EQ(find_frame_end(from_hex("00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00 00 00"), false).bytes, 16U);
}

TEST(Framing, QuietConnection_EndsWhateverIsThere) {
  const Bytes part = from_hex("00 00 00 06 FF");
  EXPECT_FALSE(find_frame_end(part, false).is_complete);
  EXPECT_TRUE(find_frame_end(part, true).is_complete);
  EXPECT_EQ(find_frame_end(part, true).bytes, 5U);
  EXPECT_FALSE(find_frame_end({}, true).is_complete);
}

TEST(Framing, BitRequestWithoutCommand_IsCompleteAtItsOwnSize) {
  EXPECT_TRUE(find_frame_end(from_hex("00 00 00 06 FF FF FF F9 00 01 00 01 11 00 00"), false).is_complete);
  EXPECT_TRUE(find_frame_end(from_hex("00 00 00 06 FF FF FF F9 00 01 01 11 00 01"), false).is_complete);
  EXPECT_FALSE(find_frame_end(from_hex("00 00 00 06 FF FF FF F9 00 01 32 00 01 11 00"), false).is_complete);
}

TEST(Framing, LongText_EndsByItsCountOfUnits) {
  for (const size_t count : {121U, 122U, 200U, 255U, 256U, 300U, 501U}) {
    Bytes frame = from_hex("00 00 00 00 FF FF FF FF 00 01 1E 01 00 06 00 00 00 00 01 02 00 00");
    frame[3] = static_cast<uint8_t>(12 + 2 * count);
    frame[17] = static_cast<uint8_t>(count);
    frame.resize(22 + 2 * count, 'x');
    const FrameEnd end = find_frame_end(frame, false);
    EXPECT_TRUE(end.is_complete) << count;
    EXPECT_EQ(end.bytes, frame.size()) << count;
  }
}

// The request behind it is as long as 256 units: together they could pass for one long text.
TEST(Framing, WriteWithARequestOf512BytesBehindIt_EndsWhereItsLengthSays) {
  const Bytes write = from_hex("00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 00 00 80 00 12 34");
  Bytes both = write;
  const Bytes next = from_hex("00 00 01 F6 FF FF FE 09 00 02 0C 28 00 01 00 00 00 01 00 F6");
  both.insert(both.end(), next.begin(), next.end());
  both.resize(write.size() + 512, 0x41);
  EXPECT_EQ(find_frame_end(both, false).bytes, write.size());
  both.insert(both.end(), next.begin(), next.end());
  EXPECT_EQ(find_frame_end(both, false).bytes, write.size());
}

TEST(Framing, ShortenedRequestWithTheNextBehindIt_EndsAtItsOwnSize) {
  const std::string next = " 00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00";
  EXPECT_EQ(find_frame_end(from_hex("00 00 00 06 FF FF FF F9 00 01 00 01 11 00 00" + next), false).bytes, 15U);
  EXPECT_EQ(find_frame_end(from_hex("00 00 00 06 FF FF FF F9 00 01 01 11 00 01" + next), false).bytes, 14U);
  EXPECT_EQ(find_frame_end(from_hex("00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 06 00 00 80 00" + next), false).bytes,
            19U);
  EXPECT_EQ(
      find_frame_end(from_hex("00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 00 00 80 00" + next), false).bytes,
      22U);
  EXPECT_EQ(
      find_frame_end(from_hex("00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 00 00 80 00 12 34" + next), false)
          .bytes,
      24U);
}

TEST(Framing, LengthBeyondAnyRequest_TakesWhatIsThere) {
  const FrameEnd end = find_frame_end(from_hex("7F FF FF FF 80 00 00 00 00 00 0C 28"), false);
  EXPECT_TRUE(end.is_complete);
  EXPECT_EQ(end.bytes, 12U);
}

}  // namespace
}  // namespace plc_sim
