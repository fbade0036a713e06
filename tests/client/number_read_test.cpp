// Tests of what is said of offsets and counts that name something else than a record's elements.
#include "client/plan/number_read.h"

#include <gtest/gtest.h>

#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

std::string odd(const TagEntry& entry, uint32_t offset, uint32_t count) {
  return odd_numbers(make_list({entry}).tags.front(), offset, count);
}

TEST(OddNumbers, SingleVariable_HasNoElements) {
  const std::string text = "a single DINT has no elements: offset 3, count 1 name the variable itself";
  EXPECT_EQ(odd(make_entry("Speed", kDint), 3, 1), text);
  EXPECT_EQ(odd(make_entry("Speed", kDint), 0, 2),
            "a single DINT has no elements: offset 0, count 2 name the variable itself");
  EXPECT_EQ(odd(make_entry("Speed", kDint), 0, 1), "");
  EXPECT_EQ(odd(make_entry("Big", kLint), 0, 2), "");
  EXPECT_EQ(odd(make_entry("Big", kLint), 0, 3),
            "a single LINT has no elements: offset 0, count 3 name the variable itself");
}

TEST(OddNumbers, OffsetsOutsideAnArray_AreNamedWithItsOwn) {
  const TagEntry table = make_entry("Table", kInt, {{0, 9}});
  EXPECT_EQ(odd(table, 0, 10), "");
  EXPECT_EQ(odd(table, 10, 3), "offsets 10 to 12 are outside 0..9");
  EXPECT_EQ(odd(table, 8, 5), "offsets 10 to 12 are outside 0..9");
  EXPECT_EQ(odd(table, 9, 2), "offset 10 is outside 0..9");
  const TagEntry shifted = make_entry("Shifted", kInt, {{3, 5}});
  EXPECT_EQ(odd(shifted, 3, 3), "");
  EXPECT_EQ(odd(shifted, 0, 3), "offsets 0 to 2 are outside 3..5");
  EXPECT_EQ(odd(shifted, 2, 2), "offset 2 is outside 3..5");
  EXPECT_EQ(odd(shifted, 2, 5), "offsets 2 to 6 reach beyond 3..5");
}

TEST(OddNumbers, OffsetsOfWideAndOfManyDimensions_CountAsTheDriverDoes) {
  EXPECT_EQ(odd(make_entry("Longs", kLint, {{0, 4}}), 8, 2), "");
  EXPECT_EQ(odd(make_entry("Longs", kLint, {{0, 4}}), 10, 2), "offsets 10 to 11 are outside 0..9");
  EXPECT_EQ(odd(make_entry("Grid", kInt, {{0, 1}, {0, 2}}), 5, 1), "");
  EXPECT_EQ(odd(make_entry("Grid", kInt, {{0, 1}, {0, 2}}), 6, 1), "offset 6 is outside 0..5");
}

TEST(OddNumbers, MoreThanOneRequestCanName_IsToldWithWhatItCan) {
  EXPECT_EQ(too_many(make_list({make_entry("Motor.Speed", kInt)}).tags.front(), 169), "");
  EXPECT_EQ(too_many(make_list({make_entry("Motor.Speed", kInt)}).tags.front(), 170),
            "one request has no room for the names of 170 elements, 169 at most");
  EXPECT_EQ(too_many(make_list({make_entry("Big", kLint)}).tags.front(), 1016), "");
  EXPECT_EQ(too_many(make_list({make_entry("Bits", kBool, {{0, 99}})}).tags.front(), 65),
            "one read takes 64 BOOLs at most");
}

// The driver sends the lower 16 bits of such a character, and no second unit.
TEST(OddNumbers, CharacterBeyondUFFFF_IsOneUnitOfARequest) {
  const Tag tag = make_list({make_entry("Fan\U0001F600", kInt)}).tags.front();
  EXPECT_EQ(too_many(tag, 407), "");
  EXPECT_EQ(too_many(tag, 408), "one request has no room for the names of 408 elements, 407 at most");
}

TEST(OddNumbers, WhatHasOffsetsOfItsOwn_IsNotJudged) {
  EXPECT_EQ(odd(make_entry("Grid", kInt, {{1, 2}, {1, 3}}), 99, 1), "");
  EXPECT_EQ(odd(make_entry("Odd", kInt, {{-1, 3}}), 99, 1), "");
  EXPECT_EQ(odd(make_string("Text", 20), 3, 5), "");
  EXPECT_EQ(odd(make_entry("Day", kDate), 3, 5), "");
}

std::string told_request(const TagEntry& entry, uint32_t offset, uint32_t count) {
  const std::optional<OtherRequest> other = other_request(make_list({entry}).tags.front(), offset, count);
  return other ? (other->is_nothing ? "nothing: " : "") + other->what : "";
}

TEST(OtherRequests, CountOfAText_HasEightBits) {
  const TagEntry text = make_string("Text", 2000);
  const std::string low_bits = "the driver takes the low 8 bits of a text's count: ";
  EXPECT_EQ(told_request(text, 0, 255), "");
  EXPECT_EQ(told_request(text, 0, 256), "nothing: " + low_bits + "256 asked for 0 units");
  EXPECT_EQ(told_request(text, 0, 257), low_bits + "257 asked for 1 unit");
  EXPECT_EQ(told_request(text, 7, 300), low_bits + "300 asked for 44 units");
  EXPECT_EQ(told_request(text, 0, 4096), "nothing: " + low_bits + "4096 asked for 0 units");
}

TEST(OtherRequests, HalvesOfWideElements_AreToldWithTheElementsThatWereAskedFor) {
  const TagEntry longs = make_entry("Longs", kLint, {{0, 3}});
  const std::string halves = "the driver halves offset and count of 64-bit types: offset ";
  EXPECT_EQ(told_request(longs, 0, 8), "");
  EXPECT_EQ(told_request(longs, 0, 1), "nothing: " + halves + "0, count 1 asked for no element");
  EXPECT_EQ(told_request(longs, 1, 2), halves + "1, count 2 asked for Longs[0]");
  EXPECT_EQ(told_request(longs, 2, 3), halves + "2, count 3 asked for Longs[1]");
  EXPECT_EQ(told_request(longs, 3, 5), halves + "3, count 5 asked for Longs[1] to Longs[2]");
}

TEST(OtherRequests, SingleWideVariable_IsReadWholeOrNotAtAll) {
  const TagEntry big = make_entry("Big", kLint);
  EXPECT_EQ(told_request(big, 0, 1),
            "nothing: the driver halves offset and count of 64-bit types: offset 0, count 1 "
            "asked for no element");
  EXPECT_EQ(told_request(big, 0, 2), "");
  EXPECT_EQ(told_request(big, 1, 3), "");
  EXPECT_EQ(told_request(make_entry("Speed", kDint), 3, 5), "");
}

}  // namespace
}  // namespace plc_client::core
