// Tests of the resolve request: heads for both scopes, element names as they travel.
#include "plc_driver/protocol/handles/resolve_request.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc::form_single_subscript;
using plc::FrameWriter;
using plc::NameEncoder;
using plc::Subscripts;
using plc::UnitCount;
using plc_test::Bytes;
using plc_test::GuardedBuffer;
using plc_test::to_hex;

constexpr uint32_t kCapacity = 2048;

// What action writes behind the unwritten head of ten bytes, in hexadecimal.
template <typename Action>
std::string written_by(Action&& action) {
  GuardedBuffer buffer(kCapacity, 0xEE);
  FrameWriter request(buffer.data(), kCapacity);
  action(&request);
  EXPECT_FALSE(request.failed);
  EXPECT_TRUE(buffer.guards_intact());
  return to_hex(Bytes(buffer.data() + 10, buffer.data() + request.length));
}

std::string encoded(const char* name, const Subscripts& subscripts = {}, UnitCount unit_count = UnitCount::kBothBytes) {
  const std::string by_parts =
      written_by([&](FrameWriter* request) { NameEncoder(name).append(subscripts, request, unit_count); });
  const std::string as_one_text =
      written_by([&](FrameWriter* request) { NameEncoder(name).append_plain(subscripts, request, unit_count); });
  EXPECT_EQ(by_parts, as_one_text);
  return by_parts;
}

TEST(ResolveHead, GlobalForm_HoldsTheCountOfNames) {
  EXPECT_EQ(written_by([](FrameWriter* request) {
              plc::begin_resolve(request, {true, 99}, 0x0102);
            }),
            "0C 28 00 01 00 00 01 02");
}

TEST(ResolveHead, LocalForm_HoldsTheProgramsNumberToo) {
  EXPECT_EQ(written_by([](FrameWriter* request) {
              plc::begin_resolve(request, {false, 0xC8}, 3);
            }),
            "0C 28 00 01 01 01 00 C8 00 00 00 00 00 03");
}

TEST(ResolveHead, CountOfNames_IsItsLow16Bits) {
  EXPECT_EQ(written_by([](FrameWriter* request) {
              plc::begin_resolve(request, {true, 0}, 0x10002);
            }),
            "0C 28 00 01 00 00 00 02");
}

TEST(ResolveHead, BatchForm_BeginsWithItsCountOfSubBlocksOpen) {
  EXPECT_EQ(written_by([](FrameWriter* request) {
              plc::begin_batch_resolve(request);
              plc::append_sub_block(request, {true, 0}, 2);
              plc::append_sub_block(request, {false, 7}, 1);
            }),
            "0C 28 00 00 00 00 00 02 01 01 00 07 00 00 00 00 00 01");
}

TEST(ElementName, PlainName_IsItsCountAndUnits) {
  EXPECT_EQ(encoded("AB"), "00 02 00 41 00 42");
  EXPECT_EQ(encoded("\xE4\xB8\xAD"
                    "x"),
            "00 02 4E 2D 00 78");
  EXPECT_EQ(encoded("\xF0\x9F\x98\x80"), "00 01 F6 00");
  EXPECT_EQ(encoded("\x80\xC3\xA9"), "00 02 00 80 00 E9");
}

TEST(ElementName, Subscripts_FollowTheName) {
  EXPECT_EQ(encoded("A", form_single_subscript(12)), "00 06 00 41 00 5B 00 23 00 31 00 32 00 5D");
  Subscripts two;
  two.count = 2;
  two.value[0] = 1;
  two.value[1] = -2;
  EXPECT_EQ(encoded("A", two), "00 09 00 41 00 5B 00 23 00 31 00 2C 00 23 00 2D 00 32 00 5D");
}

TEST(ElementName, EmptyName_IsTheCountAlone) { EXPECT_EQ(encoded(""), "00 00"); }

TEST(ElementName, EmptyNameWithSubscripts_IsTheSubscripts) {
  EXPECT_EQ(encoded("", form_single_subscript(3)), "00 04 00 5B 00 23 00 33 00 5D");
}

TEST(ElementName, CutLastSequence_TakesInWhatFollowsIt) {
  // 0xC3 wants one byte more: '[' without subscripts is not there, so it takes the terminator.
  EXPECT_EQ(encoded("A\xC3"), "00 02 00 41 00 C0");
  EXPECT_EQ(encoded("A\xC3", form_single_subscript(3)), "00 05 00 41 00 DB 00 23 00 33 00 5D");
  // 0xE4 takes two bytes of the subscript, 0xFC takes five and the name ends with it.
  EXPECT_EQ(encoded("\xE4", form_single_subscript(3)), "00 03 46 E3 00 33 00 5D");
  EXPECT_EQ(encoded("\xFC", form_single_subscript(3)), "00 01 37 40");
}

TEST(ElementName, LongestNameAndSubscripts_AreNotCut) {
  Subscripts three;
  three.count = 3;
  for (int32_t& value : three.value) value = INT32_MIN;
  const std::string text = encoded(std::string(255, 'n').c_str(), three);
  EXPECT_EQ(text.size(), 3 * (2 + 2 * (255 + 40)) - 1U);
  EXPECT_EQ(text.substr(0, 11), "01 27 00 6E");
  EXPECT_EQ(text.substr(text.size() - 11), "00 38 00 5D");
}

TEST(ElementName, LowByteOfTheUnitCount_StandsAloneWhereThatIsAsked_D19) {
  const std::string name(255, 'n');
  const std::string both = encoded(name.c_str(), form_single_subscript(7));
  const std::string low = encoded(name.c_str(), form_single_subscript(7), UnitCount::kLowByte);
  EXPECT_EQ(both.substr(0, 5), "01 03");
  EXPECT_EQ(low.substr(0, 5), "00 03");
  EXPECT_EQ(low.substr(5), both.substr(5)) << "all units are sent";
}

TEST(ElementName, NameThatDoesNotFit_FailsTheRequest) {
  GuardedBuffer buffer(20, 0xEE);
  FrameWriter exact(buffer.data(), 20);
  NameEncoder("ABCD").append({}, &exact);
  EXPECT_FALSE(exact.failed);
  for (const uint32_t capacity : {19U, 12U, 11U}) {
    FrameWriter request(buffer.data(), capacity);
    NameEncoder("ABCD").append({}, &request);
    EXPECT_TRUE(request.failed) << capacity;
    FrameWriter plain(buffer.data(), capacity);
    NameEncoder("ABCD").append_plain({}, &plain);
    EXPECT_TRUE(plain.failed) << capacity;
  }
  FrameWriter subscripted(buffer.data(), 20);
  NameEncoder("AB").append(form_single_subscript(1), &subscripted);
  EXPECT_TRUE(subscripted.failed);
  EXPECT_TRUE(buffer.guards_intact());
}

}  // namespace
