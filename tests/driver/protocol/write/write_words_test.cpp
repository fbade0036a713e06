// The 24 word, double-word and quad-word writes: the literal frames of each.
#include "plc_driver/protocol/writes/write_functions.h"
#include "tests/driver/protocol/protocol_fixture.h"

namespace plc_test {
namespace {

class WriteWords : public ProtocolTest {
 protected:
  WriteWords() { answer_writes(); }

  void expect_frames(int32_t result, std::string_view resolve_request, std::string_view write_request) {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(sent(), frames({resolve_request, write_request}));
  }
};

TEST_F(WriteWords, ScalarWords_SendTheNameAndTheValue) {
  TagEntry tag = make_tag("D", 16);
  expect_frames(ev_plc_write_words(element(0), value("34 12", 1), &conn_, &tag),
                "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 44",
                "00 00 00 0E FF FF FF F1 00 01 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 12 34");
}

TEST_F(WriteWords, ScalarWordsLocal_SendTheNameAndTheValue) {
  TagEntry tag = local(make_tag("D", 16));
  expect_frames(ev_plc_write_words_local(element(0), value("34 12", 1), &conn_, &tag, 1, kMainNumber),
                "00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 44",
                "00 00 00 0E FF FF FF F1 00 01 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 12 34");
}

TEST_F(WriteWords, ScalarDwords_SendTheNameAndTheValue) {
  TagEntry tag = make_tag("D", 32);
  expect_frames(ev_plc_write_dwords(element(0), value("44 33 22 11", 1), &conn_, &tag),
                "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 44",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 33 44 11 22");
}

TEST_F(WriteWords, ScalarDwordsLocal_SendTheNameAndTheValue) {
  TagEntry tag = local(make_tag("D", 32));
  expect_frames(ev_plc_write_dwords_local(element(0), value("44 33 22 11", 1), &conn_, &tag, 1, kMainNumber),
                "00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 44",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 33 44 11 22");
}

TEST_F(WriteWords, ScalarQuadWords_SendTheNameAndTheValue) {
  TagEntry tag = make_tag("D", 64);
  expect_frames(ev_plc_write_4words(element(0), value("88 77 66 55 44 33 22 11", 1), &conn_, &tag),
                "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 44",
                "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 77 88 55 66 33 44 11 22");
}

TEST_F(WriteWords, ScalarQuadWordsLocal_SendTheNameAndTheValue) {
  TagEntry tag = local(make_tag("D", 64));
  expect_frames(
      ev_plc_write_4words_local(element(0), value("88 77 66 55 44 33 22 11", 1), &conn_, &tag, 1, kMainNumber),
      "00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 44",
      "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 77 88 55 66 33 44 11 22");
}

TEST_F(WriteWords, ArrayWords_NameEachElement) {
  TagEntry tag = with_ranges(make_tag("D", 16), {0, 9});
  expect_frames(ev_plc_write_array_words(element(5), value("34 12 78 56", 2), &conn_, &tag),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 02 00 05 00 44 00 5B 00 23 00 35 00 5D 00 05 00 "
                "44 00 5B 00 23 00 36 00 5D",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 12 34 56 78");
}

TEST_F(WriteWords, ArrayWordsLocal_NameEachElement) {
  TagEntry tag = local(with_ranges(make_tag("D", 16), {0, 9}));
  expect_frames(ev_plc_write_array_words_local(element(5), value("34 12 78 56", 2), &conn_, &tag, 1, kMainNumber),
                "00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 02 00 05 00 44 00 5B 00 23 00 "
                "35 00 5D 00 05 00 44 00 5B 00 23 00 36 00 5D",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 12 34 56 78");
}

TEST_F(WriteWords, ArrayDwords_NameEachElement) {
  TagEntry tag = with_ranges(make_tag("D", 32), {0, 9});
  expect_frames(ev_plc_write_array_dwords(element(5), value("44 33 22 11 88 77 66 55", 2), &conn_, &tag),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 02 00 05 00 44 00 5B 00 23 00 35 00 5D 00 05 00 "
                "44 00 5B 00 23 00 36 00 5D",
                "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 33 44 11 22 77 88 55 66");
}

TEST_F(WriteWords, ArrayDwordsLocal_NameEachElement) {
  TagEntry tag = local(with_ranges(make_tag("D", 32), {0, 9}));
  expect_frames(
      ev_plc_write_array_dwords_local(element(5), value("44 33 22 11 88 77 66 55", 2), &conn_, &tag, 1, kMainNumber),
      "00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 02 00 05 00 44 00 5B 00 23 00 "
      "35 00 5D 00 05 00 44 00 5B 00 23 00 36 00 5D",
      "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 33 44 11 22 77 88 55 66");
}

TEST_F(WriteWords, ArrayQuadWords_NameEachElement) {
  TagEntry tag = with_ranges(make_tag("D", 64), {0, 9});
  expect_frames(
      ev_plc_write_array_4words(element(6), value("88 77 66 55 44 33 22 11 08 07 06 05 04 03 02 01", 4), &conn_, &tag),
      "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 02 00 05 00 44 00 5B 00 23 00 33 00 5D 00 05 00 "
      "44 00 5B 00 23 00 34 00 5D",
      "00 00 00 1C FF FF FF E3 00 01 1E 01 00 A1 00 00 00 08 B2 C3 D4 E5 77 88 55 66 33 44 11 22 07 08 05 "
      "06 03 04 01 02");
}

TEST_F(WriteWords, ArrayQuadWordsLocal_NameEachElement) {
  TagEntry tag = local(with_ranges(make_tag("D", 64), {0, 9}));
  expect_frames(ev_plc_write_array_4words_local(element(6), value("88 77 66 55 44 33 22 11 08 07 06 05 04 03 02 01", 4),
                                                &conn_, &tag, 1, kMainNumber),
                "00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 02 00 05 00 44 00 5B 00 23 00 "
                "33 00 5D 00 05 00 44 00 5B 00 23 00 34 00 5D",
                "00 00 00 1C FF FF FF E3 00 01 1E 01 00 A1 00 00 00 08 B2 C3 D4 E5 77 88 55 66 33 44 11 22 07 08 05 "
                "06 03 04 01 02");
}

TEST_F(WriteWords, TwoDimensionalWords_SendQuotientAndRemainderAsSubscripts) {
  TagEntry tag = with_ranges(make_tag("D", 16), {2, 8}, {3, 9});
  expect_frames(ev_plc_write_array2_words(element(23), value("34 12", 1), &conn_, 9, &tag),
                "00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 00 00 00 01 00 08 00 44 00 5B 00 23 00 32 00 2C 00 23 00 "
                "33 00 5D",
                "00 00 00 0E FF FF FF F1 00 01 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 12 34");
}

TEST_F(WriteWords, TwoDimensionalWordsLocal_SendQuotientAndRemainderAsSubscripts) {
  TagEntry tag = local(with_ranges(make_tag("D", 16), {2, 8}, {3, 9}));
  expect_frames(ev_plc_write_array2_words_local(element(23), value("34 12", 1), &conn_, 9, &tag, 1, kMainNumber),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 08 00 44 00 5B 00 23 00 "
                "32 00 2C 00 23 00 33 00 5D",
                "00 00 00 0E FF FF FF F1 00 01 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 12 34");
}

TEST_F(WriteWords, TwoDimensionalDwords_SendQuotientAndRemainderAsSubscripts) {
  TagEntry tag = with_ranges(make_tag("D", 32), {2, 8}, {3, 9});
  expect_frames(ev_plc_write_array2_dwords(element(23), value("44 33 22 11", 1), &conn_, 9, &tag),
                "00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 00 00 00 01 00 08 00 44 00 5B 00 23 00 32 00 2C 00 23 00 "
                "33 00 5D",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 33 44 11 22");
}

TEST_F(WriteWords, TwoDimensionalDwordsLocal_SendQuotientAndRemainderAsSubscripts) {
  TagEntry tag = local(with_ranges(make_tag("D", 32), {2, 8}, {3, 9}));
  expect_frames(ev_plc_write_array2_dwords_local(element(23), value("44 33 22 11", 1), &conn_, 9, &tag, 1, kMainNumber),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 08 00 44 00 5B 00 23 00 "
                "32 00 2C 00 23 00 33 00 5D",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 33 44 11 22");
}

TEST_F(WriteWords, TwoDimensionalQuadWords_SendQuotientAndRemainderAsSubscripts) {
  TagEntry tag = with_ranges(make_tag("D", 64), {2, 8}, {3, 9});
  expect_frames(ev_plc_write_array2_4words(element(46), value("88 77 66 55 44 33 22 11", 2), &conn_, 9, &tag),
                "00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 00 00 00 01 00 08 00 44 00 5B 00 23 00 32 00 2C 00 23 00 "
                "33 00 5D",
                "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 77 88 55 66 33 44 11 22");
}

TEST_F(WriteWords, TwoDimensionalQuadWordsLocal_SendQuotientAndRemainderAsSubscripts) {
  TagEntry tag = local(with_ranges(make_tag("D", 64), {2, 8}, {3, 9}));
  expect_frames(ev_plc_write_array2_4words_local(element(46), value("88 77 66 55 44 33 22 11", 2), &conn_, 9, &tag, 1,
                                                 kMainNumber),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 08 00 44 00 5B 00 23 00 "
                "32 00 2C 00 23 00 33 00 5D",
                "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 77 88 55 66 33 44 11 22");
}

TEST_F(WriteWords, ThreeDimensionalWords_SendThreeSubscripts) {
  TagEntry tag = with_ranges(make_tag("D", 16), {7, 8}, {1, 3}, {5, 8});
  expect_frames(ev_plc_write_array3_words(element(6), value("34 12", 1), &conn_, tag),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 01 00 0B 00 44 00 5B 00 23 00 35 00 2C 00 23 00 "
                "32 00 2C 00 23 00 39 00 5D",
                "00 00 00 0E FF FF FF F1 00 01 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 12 34");
}

TEST_F(WriteWords, ThreeDimensionalWordsLocal_SendThreeSubscripts) {
  TagEntry tag = local(with_ranges(make_tag("D", 16), {7, 8}, {1, 3}, {5, 8}));
  expect_frames(ev_plc_write_array3_words_local(element(6), value("34 12", 1), &conn_, tag),
                "00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 0B 00 44 00 5B 00 23 00 "
                "35 00 2C 00 23 00 32 00 2C 00 23 00 39 00 5D",
                "00 00 00 0E FF FF FF F1 00 01 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 12 34");
}

TEST_F(WriteWords, ThreeDimensionalDwords_SendThreeSubscripts) {
  TagEntry tag = with_ranges(make_tag("D", 32), {7, 8}, {1, 3}, {5, 8});
  expect_frames(ev_plc_write_array3_dwords(element(6), value("44 33 22 11", 1), &conn_, tag),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 01 00 0B 00 44 00 5B 00 23 00 35 00 2C 00 23 00 "
                "32 00 2C 00 23 00 39 00 5D",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 33 44 11 22");
}

TEST_F(WriteWords, ThreeDimensionalDwordsLocal_SendThreeSubscripts) {
  TagEntry tag = local(with_ranges(make_tag("D", 32), {7, 8}, {1, 3}, {5, 8}));
  expect_frames(ev_plc_write_array3_dwords_local(element(6), value("44 33 22 11", 1), &conn_, tag),
                "00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 0B 00 44 00 5B 00 23 00 "
                "35 00 2C 00 23 00 32 00 2C 00 23 00 39 00 5D",
                "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 33 44 11 22");
}

TEST_F(WriteWords, ThreeDimensionalQuadWords_SendThreeSubscripts) {
  TagEntry tag = with_ranges(make_tag("D", 64), {7, 8}, {1, 3}, {5, 8});
  expect_frames(ev_plc_write_array3_4words(element(12), value("88 77 66 55 44 33 22 11", 2), &conn_, tag),
                "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 01 00 0B 00 44 00 5B 00 23 00 35 00 2C 00 23 00 "
                "32 00 2C 00 23 00 39 00 5D",
                "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 77 88 55 66 33 44 11 22");
}

TEST_F(WriteWords, ThreeDimensionalQuadWordsLocal_SendThreeSubscripts) {
  TagEntry tag = local(with_ranges(make_tag("D", 64), {7, 8}, {1, 3}, {5, 8}));
  expect_frames(ev_plc_write_array3_4words_local(element(12), value("88 77 66 55 44 33 22 11", 2), &conn_, tag),
                "00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 0B 00 44 00 5B 00 23 00 "
                "35 00 2C 00 23 00 32 00 2C 00 23 00 39 00 5D",
                "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 04 B2 C3 D4 E5 77 88 55 66 33 44 11 22");
}

}  // namespace
}  // namespace plc_test
