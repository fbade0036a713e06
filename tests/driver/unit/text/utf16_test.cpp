// Tests of the UTF-8 and UTF-16 converters.
#include "plc_driver/text/utf16.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::operator+;

constexpr int32_t kCallersCapacity = 512;

struct Decoded {
  uint32_t length;
  uint32_t value;
  bool operator==(const Decoded& other) const { return length == other.length && value == other.value; }
};

std::ostream& operator<<(std::ostream& out, const Decoded& decoded) {
  return out << decoded.length << " bytes, value " << std::hex << decoded.value;
}

Decoded decode(const char* hex) {
  const Bytes bytes = from_hex(hex) + Bytes(6);
  Decoded decoded = {0, 0xEEEEEEEE};
  decoded.length = utf8ToUnicodeChar(bytes.data(), &decoded.value);
  return decoded;
}

// What utf8ToUnicode returned and the units of its output, all 0xEEEE before.
struct Converted {
  int32_t count;
  std::vector<uint16_t> units;
};

Converted convert(const Bytes& text, int32_t capacity, size_t shown_units) {
  const Bytes ended = text + Bytes(6);
  Converted converted = {0, std::vector<uint16_t>(kCallersCapacity, 0xEEEE)};
  converted.count = utf8ToUnicode(reinterpret_cast<const char*>(ended.data()), converted.units.data(), capacity);
  converted.units.resize(shown_units);
  return converted;
}

using Units = std::vector<uint16_t>;

// The text that unicodeToUtf8 makes of the bytes, terminator included, with room for exactly that.
Bytes encode(const Bytes& units, int32_t byte_count, size_t expected_bytes) {
  GuardedBuffer out(expected_bytes, 0xEE);
  unicodeToUtf8(units.data(), byte_count, out.data());
  EXPECT_TRUE(out.guards_intact());
  return out.bytes();
}

TEST(Utf8Sequence, LeadByte_DecidesLengthAndValueBits) {
  EXPECT_EQ(decode("00"), (Decoded{1, 0x00}));
  EXPECT_EQ(decode("41"), (Decoded{1, 0x41}));
  EXPECT_EQ(decode("7F"), (Decoded{1, 0x7F}));
  EXPECT_EQ(decode("C3 A9"), (Decoded{2, 0xE9}));
  EXPECT_EQ(decode("DF BF"), (Decoded{2, 0x7FF}));
  EXPECT_EQ(decode("E4 B8 AD"), (Decoded{3, 0x4E2D}));
  EXPECT_EQ(decode("EF BF BF"), (Decoded{3, 0xFFFF}));
  EXPECT_EQ(decode("F0 9F 98 80"), (Decoded{4, 0x1F600}));
  EXPECT_EQ(decode("F7 BF BF BF"), (Decoded{4, 0x1FFFFF}));
  EXPECT_EQ(decode("F8 88 80 80 81"), (Decoded{5, 0x200001}));
  EXPECT_EQ(decode("FB BF BF BF BF"), (Decoded{5, 0x3FFFFFF}));
  EXPECT_EQ(decode("FC 84 80 80 80 81"), (Decoded{6, 0x4000001}));
  EXPECT_EQ(decode("FD BF BF BF BF BF"), (Decoded{6, 0x7FFFFFFF}));
  EXPECT_EQ(decode("FF BF BF BF BF BF"), (Decoded{6, 0x7FFFFFFF}));
}

TEST(Utf8Sequence, StrayContinuationByte_StandsForItself_D1) {
  EXPECT_EQ(decode("80"), (Decoded{1, 0x80}));
  EXPECT_EQ(decode("BF"), (Decoded{1, 0xBF}));
  EXPECT_EQ(convert(from_hex("80"), kCallersCapacity, 2).units, (Units{0x0080, 0x0000}));
}

TEST(Utf8Sequence, ContinuationBytes_AreNotChecked_D1) {
  EXPECT_EQ(decode("C3 41"), (Decoded{2, 0xC1}));
  EXPECT_EQ(decode("E4 FF 00"), (Decoded{3, 0x4FC0}));
}

TEST(Utf8Sequence, OverlongForm_YieldsItsValue) {
  EXPECT_EQ(decode("C0 80"), (Decoded{2, 0}));
  EXPECT_EQ(decode("E0 81 81"), (Decoded{3, 0x41}));
}

TEST(Utf8Sequence, NullPointer_GivesZeroAndStoresNothing) {
  uint32_t value = 0xEEEEEEEE;
  EXPECT_EQ(utf8ToUnicodeChar(nullptr, &value), 0U);
  EXPECT_EQ(value, 0xEEEEEEEE);
  EXPECT_EQ(utf8ToUnicodeChar(reinterpret_cast<const uint8_t*>("A"), nullptr), 0U);
}

TEST(Utf8ToUnicode, EmptyText_GivesZeroAndWritesNothing) {
  const Converted converted = convert({}, kCallersCapacity, 2);
  EXPECT_EQ(converted.count, 0);
  EXPECT_EQ(converted.units, (Units{0xEEEE, 0xEEEE}));
}

TEST(Utf8ToUnicode, NullPointers_GiveZero) {
  uint16_t unit = 0xEEEE;
  EXPECT_EQ(utf8ToUnicode(nullptr, &unit, kCallersCapacity), 0);
  EXPECT_EQ(unit, 0xEEEE);
  EXPECT_EQ(utf8ToUnicode("A", nullptr, kCallersCapacity), 0);
}

TEST(Utf8ToUnicode, TwoLetters_GiveTwoUnitsAndAZero) {
  const Converted converted = convert(from_hex("41 42"), kCallersCapacity, 4);
  EXPECT_EQ(converted.count, 2);
  EXPECT_EQ(converted.units, (Units{0x0041, 0x0042, 0x0000, 0xEEEE}));
}

TEST(Utf8ToUnicode, ThreeByteSequence_GivesOneUnit) {
  const Converted converted = convert(from_hex("E4 B8 AD"), kCallersCapacity, 2);
  EXPECT_EQ(converted.count, 1);
  EXPECT_EQ(converted.units, (Units{0x4E2D, 0x0000}));
}

TEST(Utf8ToUnicode, CharacterAboveFfff_KeepsItsLow16BitsAsOneUnit) {
  const Converted converted = convert(from_hex("F0 9F 98 80 41"), kCallersCapacity, 3);
  EXPECT_EQ(converted.count, 2);
  EXPECT_EQ(converted.units, (Units{0xF600, 0x0041, 0x0000}));
}

TEST(Utf8ToUnicode, MoreCharactersThanRoom_ReturnOneMoreThanWasStored_D2) {
  const Converted four = convert(from_hex("41 42 43 44"), 3, 4);
  EXPECT_EQ(four.count, 3);
  EXPECT_EQ(four.units, (Units{0x0041, 0x0042, 0x0000, 0xEEEE}));
  const Converted three = convert(from_hex("41 42 43"), 3, 4);
  EXPECT_EQ(three.count, 3);
  EXPECT_EQ(three.units, (Units{0x0041, 0x0042, 0x0000, 0xEEEE}));
}

TEST(Utf8ToUnicode, OneCharacterLessThanRoom_IsStoredWhole) {
  const Converted converted = convert(from_hex("41 42"), 3, 4);
  EXPECT_EQ(converted.count, 2);
  EXPECT_EQ(converted.units, (Units{0x0041, 0x0042, 0x0000, 0xEEEE}));
}

TEST(Utf8ToUnicode, NoRoom_CountsOneAndStoresNothing) {
  for (const int32_t capacity : {1, 0, -5}) {
    const Converted converted = convert(from_hex("41 42"), capacity, 1);
    EXPECT_EQ(converted.count, 1) << capacity;
    EXPECT_EQ(converted.units, Units{0xEEEE}) << capacity;
  }
}

TEST(Utf8ToUnicode, CutLastSequence_TakesInTheTerminator) {
  const Converted cut = convert(from_hex("41 C3"), kCallersCapacity, 3);
  EXPECT_EQ(cut.count, 2);
  EXPECT_EQ(cut.units, (Units{0x0041, 0x00C0, 0x0000}));
  // Behind the terminator the text goes on.
  const Converted beyond = convert(from_hex("C3 00 42"), kCallersCapacity, 3);
  EXPECT_EQ(beyond.count, 2);
  EXPECT_EQ(beyond.units, (Units{0x00C0, 0x0042, 0x0000}));
  // The longest lead byte takes six bytes in: the zeros that callers put behind a text are enough.
  const Converted longest = convert(from_hex("FC"), kCallersCapacity, 2);
  EXPECT_EQ(longest.count, 1);
  EXPECT_EQ(longest.units, (Units{0x0000, 0x0000}));
}

TEST(UnicodeToUtf8, UnitsOfOneAndThreeBytes_AreEncoded) {
  EXPECT_EQ(encode(from_hex("00 41 4E 2D"), 4, 5), from_hex("41 E4 B8 AD 00"));
}

TEST(UnicodeToUtf8, UnitOfTwoBytes_IsEncoded) { EXPECT_EQ(encode(from_hex("00 E9"), 2, 3), from_hex("C3 A9 00")); }

TEST(UnicodeToUtf8, BoundsOfEachLength_AreEncoded) {
  EXPECT_EQ(encode(from_hex("00 7F 00 80 07 FF 08 00 FF FF"), 10, 12), from_hex("7F C2 80 DF BF E0 A0 80 EF BF BF 00"));
}

TEST(UnicodeToUtf8, SurrogateUnits_AreEncodedOneByOne) {
  EXPECT_EQ(encode(from_hex("D8 3D DE 00"), 4, 7), from_hex("ED A0 BD ED B8 80 00"));
}

TEST(UnicodeToUtf8, LessThanOneUnit_GivesAnEmptyText) {
  EXPECT_EQ(encode(from_hex("00 41"), 0, 2), from_hex("00 EE"));
  EXPECT_EQ(encode(from_hex("00 41"), 1, 2), from_hex("00 EE"));
  EXPECT_EQ(encode(from_hex("00 41"), -1, 2), from_hex("00 EE"));
  EXPECT_EQ(encode(from_hex("00 41"), INT32_MIN, 2), from_hex("00 EE"));
}

TEST(UnicodeToUtf8, OddByteCount_LeavesTheLastByteOut) {
  EXPECT_EQ(encode(from_hex("00 41 00"), 3, 2), from_hex("41 00"));
}

TEST(UnicodeToUtf8, ZeroUnit_BecomesAZeroByteAndConversionGoesOn) {
  EXPECT_EQ(encode(from_hex("00 41 00 00 00 42"), 6, 4), from_hex("41 00 42 00"));
}

TEST(Utf8SequenceLength, EveryLeadByte_HasItsLength) {
  for (uint32_t lead = 0; lead <= 0xFF; ++lead) {
    const uint32_t expected = lead < 0xC0   ? 1
                              : lead < 0xE0 ? 2
                              : lead < 0xF0 ? 3
                              : lead < 0xF8 ? 4
                              : lead < 0xFC ? 5
                                            : 6;
    EXPECT_EQ(plc::utf8_sequence_length(static_cast<uint8_t>(lead)), expected) << lead;
  }
}

TEST(EncodeUtf8Unit, EachUnit_SaysHowManyBytesItTook) {
  uint8_t out[3] = {};
  EXPECT_EQ(plc::encode_utf8_unit(0x41, out), 1U);
  EXPECT_EQ(plc::encode_utf8_unit(0xE9, out), 2U);
  EXPECT_EQ(plc::encode_utf8_unit(0x4E2D, out), 3U);
}

}  // namespace
