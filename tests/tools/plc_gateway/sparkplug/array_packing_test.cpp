// Tests of arrays as the standard packs them, its own examples among them.
#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway::array_packing_test {
namespace {

using plc_test::Bytes;
using plc_test::from_hex;
using Elements = std::vector<uint64_t>;

std::string bytes(std::string_view hex) {
  const Bytes all = from_hex(hex);
  return std::string(all.begin(), all.end());
}

struct PackingCase {
  DataType type;
  Elements elements;
  const char* packed;
};

TEST(ArrayPacking, EachType_BothWays) {
  const PackingCase kCases[] = {
      {DataType::kInt8Array, {0xE9, 0x7B}, "E9 7B"},
      {DataType::kInt16Array, {0x8AD0, 0x7530}, "D0 8A 30 75"},
      {DataType::kInt32Array, {0xFFFFFFFF, 0x12CBAFFA}, "FF FF FF FF FA AF CB 12"},
      {DataType::kInt64Array, {0xC4BA9C18AC7206CE}, "CE 06 72 AC 18 9C BA C4"},
      {DataType::kUInt8Array, {23, 250}, "17 FA"},
      {DataType::kUInt16Array, {30, 52360}, "1E 00 88 CC"},
      {DataType::kUInt32Array, {52, 3293969225}, "34 00 00 00 49 FB 55 C4"},
      {DataType::kUInt64Array, {52, 16444743074749521625U}, "34 00 00 00 00 00 00 00 D9 9E 02 D1 B2 76 37 E4"},
      {DataType::kFloatArray, {0x3F9D70A4, 0x42B2AE98}, "A4 70 9D 3F 98 AE B2 42"},
      {DataType::kDoubleArray, {0x4028B55B6805A2D7}, "D7 A2 05 68 5B B5 28 40"},
      {DataType::kBooleanArray, {0, 0, 1, 1, 0, 1, 0, 0, 1, 1, 0, 1}, "0C 00 00 00 34 D0"},
      {DataType::kBooleanArray, {1, 0, 0, 0, 0, 0, 0, 1}, "08 00 00 00 81"},
      {DataType::kBooleanArray, {}, "00 00 00 00"},
      {DataType::kInt16Array, {}, ""},
  };
  for (const PackingCase& one : kCases) {
    EXPECT_EQ(pack_array(one.type, one.elements), bytes(one.packed)) << static_cast<int>(one.type);
    EXPECT_EQ(unpack_array(one.type, bytes(one.packed)), one.elements) << static_cast<int>(one.type);
  }
}

TEST(ArrayPacking, BitsBehindTheLastBool_AreAnything) {
  EXPECT_EQ(unpack_array(DataType::kBooleanArray, bytes("03 00 00 00 BF")), (Elements{1, 0, 1}));
}

TEST(ArrayPacking, BytesThatAreNoWholeElements_AreNoArray) {
  EXPECT_EQ(unpack_array(DataType::kInt16Array, bytes("01 02 03")), std::nullopt);
  EXPECT_EQ(unpack_array(DataType::kDoubleArray, bytes("01 02 03 04 05 06 07")), std::nullopt);
}

TEST(ArrayPacking, CountOfBoolsThatTheBytesDoNotHave_IsNoArray) {
  for (const char* packed :
       {"", "01 00 00", "09 00 00 00 FF", "08 00 00 00 FF 00", "FF FF FF FF 00", "00 00 00 00 00"}) {
    EXPECT_EQ(unpack_array(DataType::kBooleanArray, bytes(packed)), std::nullopt) << packed;
  }
}

TEST(ArrayPacking, WhatIsNoArrayOfNumbers_IsNotUnpacked) {
  for (const DataType type : {DataType::kInt16, DataType::kBytes, DataType::kStringArray, static_cast<DataType>(200)}) {
    EXPECT_EQ(unpack_array(type, bytes("01 02")), std::nullopt) << static_cast<int>(type);
  }
}

}  // namespace
}  // namespace plc_gateway::array_packing_test
