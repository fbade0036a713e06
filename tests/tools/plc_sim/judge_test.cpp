// The judge: frames as hosts send them pass, and a change of any byte is noticed.
#include <gmock/gmock.h>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kReadD;
using plc_test::kResolveD;
using test::Bench;
using test::from_hex;
using testing::HasSubstr;

constexpr const char* kJudgedTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nQ,LINT,[0..9],,a,b,c,1,1,0,0,,DM1\nB,BOOL,,,a,b,c,2,1,0,0,,MR1\n"
    "a.b,BOOL,,,a,b,c,3,1,0,0,,DM1\nL,DINT,,,a,b,c,4,0,0,5,MAIN,\nS,STRING,,200,a,b,c,5,1,0,0,,DM1\n"
    "a.m,BOOL,,,a,b,c,6,1,0,0,,MR1\n";

constexpr const char* kResolveL = "00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 05 00 00 00 00 00 01 00 01 00 4C";
constexpr const char* kResolveB = "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 42";
constexpr const char* kResolveAb = "00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 01 00 03 00 61 00 2E 00 62";
constexpr const char* kResolveAm = "00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 01 00 03 00 61 00 2E 00 6D";
constexpr const char* kResolveQ3 =
    "00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 51 00 5B 00 23 00 33 00 5D";
constexpr const char* kResolveS0 =
    "00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 53 00 5B 00 23 00 30 00 5D";

// D is the first word of values on DM, B the first bit on MR, a.b bit 0 of the first word of bits on DM.
constexpr const char* kWriteD = "00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 01 02 00 00 12 34";
constexpr const char* kSetB = "00 00 00 06 FF FF FF F9 00 01 32 00 01 11 00 00";
constexpr const char* kMaskAb = "00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 06 00 00 80 00 01 00 01";

struct Noticed {
  bool any;
  bool violation;
};

Noticed notice(const Findings& findings) {
  const bool violation = !findings.violations.empty();
  return {violation || !findings.refused.empty() || !findings.outside.empty(), violation};
}

// Asks the resolve request and then the frame with each byte changed in turn, on a fresh controller each time.
void expect_every_byte_matters(const char* resolve, const char* frame, size_t checked_bytes) {
  const Bytes whole = from_hex(frame);
  for (size_t at = 0; at < std::min(checked_bytes, whole.size()); ++at) {
    Bench bench(kJudgedTags);
    if (resolve != nullptr) bench.ask(resolve);
    Bytes changed = whole;
    changed[at] ^= 0x41;
    const Answer answer = bench.ask(changed);
    // The first request of a connection may carry any sequence number.
    const bool free_sequence = resolve == nullptr && (at == 8 || at == 9);
    EXPECT_EQ(notice(answer.findings).any, !free_sequence) << "byte " << at << " of " << frame;
  }
}

void expect_clean(const char* resolve, const char* frame) {
  Bench bench(kJudgedTags);
  if (resolve != nullptr) {
    EXPECT_FALSE(notice(bench.ask(resolve).findings).any) << resolve;
  }
  const Answer answer = bench.ask(frame);
  EXPECT_FALSE(notice(answer.findings).any)
      << frame << ": " << (answer.findings.violations.empty() ? "" : answer.findings.violations[0]);
}

TEST(Judge, FramesAsHostsSendThem_Pass) {
  expect_clean(nullptr, kResolveL);
  expect_clean(kResolveD, kReadD);
  expect_clean(kResolveD, kWriteD);
  expect_clean(kResolveB, kSetB);
  expect_clean(kResolveAb, kMaskAb);
}

TEST(Judge, AnyChangedByte_IsNoticed) {
  expect_every_byte_matters(nullptr, kResolveD, 100);
  expect_every_byte_matters(nullptr, kResolveL, 100);
  expect_every_byte_matters(kResolveD, kReadD, 100);
  expect_every_byte_matters(kResolveD, kWriteD, 22);
  expect_every_byte_matters(kResolveAb, kMaskAb, 100);
}

TEST(Judge, SetAndReset_DifferInOneByteAndAllOthersMatter) {
  expect_every_byte_matters(kResolveB, kSetB, 100);
  expect_clean(kResolveB, "00 00 00 06 FF FF FF F9 00 01 33 00 01 11 00 00");
}

TEST(Judge, EveryPrefixOfARequest_IsAViolation) {
  for (const char* frame : {kResolveD, kReadD, kSetB}) {
    const Bytes whole = from_hex(frame);
    for (size_t size = 0; size < whole.size(); ++size) {
      Bench bench(kJudgedTags);
      if (frame != kResolveD) bench.ask(frame == kSetB ? kResolveB : kResolveD);
      const Answer answer = bench.ask(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
      EXPECT_TRUE(notice(answer.findings).violation) << size << " bytes of " << frame;
    }
  }
}

TEST(Judge, BytesBehindTheEnd_AreAViolation) {
  for (const char* frame : {kResolveD, kReadD, kSetB, kWriteD}) {
    Bench bench(kJudgedTags);
    if (frame != kResolveD) bench.ask(frame == kSetB ? kResolveB : kResolveD);
    EXPECT_TRUE(notice(bench.ask(std::string(frame) + " 00").findings).violation) << frame;
  }
}

TEST(Judge, SequenceThatSkips_IsAViolationAndWrappingIsNot) {
  Bench bench(kJudgedTags);
  bench.ask("00 00 00 0C FF FF FF F3 FF FF 0C 28 00 01 00 00 00 01 00 01 00 44");
  const Answer read = bench.ask("00 00 00 10 FF FF FF EF 00 00 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 00");
  EXPECT_TRUE(read.findings.violations.empty());
  EXPECT_THAT(bench.ask(kReadD).findings.violations, testing::IsEmpty());
  EXPECT_THAT(bench.ask(kReadD).findings.violations,
              testing::ElementsAre(HasSubstr("sequence number is 1, expected 2")));
}

TEST(Judge, TransferBeforeTheDirectory_IsAViolation) {
  Bench bench(kJudgedTags);
  bench.session = Session{};
  EXPECT_THAT(bench.ask(kResolveD).findings.violations, testing::ElementsAre(HasSubstr("before the directory")));
}

TEST(Judge, DirectoryOutOfOrder_IsAViolation) {
  Bench bench(kJudgedTags);
  EXPECT_FALSE(bench.ask(kDirectoryStart).findings.violations.empty());
  bench.session = Session{};
  EXPECT_FALSE(bench.ask(kDirectoryRead).findings.violations.empty());
}

TEST(Judge, HandleOfAnEarlierResolve_IsAViolation) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveD);
  bench.ask("00 00 00 0C FF FF FF F3 00 01 0C 28 00 01 00 00 00 01 00 01 00 42");
  const Answer answer = bench.ask("00 00 00 10 FF FF FF EF 00 02 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 00");
  EXPECT_THAT(answer.findings.violations, testing::ElementsAre(HasSubstr("B was given 11/00000000")));
}

TEST(Judge, BitOfItsOwnAddress_IsReadWithItsNumberCleared) {
  Bench bench("A,BOOL,[0..9],,a,b,c,0,1,0,0,,MR1\n");
  bench.ask("00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 41 00 5B 00 23 00 35 00 5D");
  const Bytes unmasked = from_hex("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 11 00 01 00 00 00 05");
  EXPECT_THAT(bench.ask(unmasked).findings.violations, testing::ElementsAre(HasSubstr("has the handle 11/00000005")));
  EXPECT_TRUE(bench.ask("00 00 00 10 FF FF FF EF 00 02 1E 09 00 00 01 00 00 00 00 11 00 01 00 00 00 00")
                  .findings.violations.empty());
}

TEST(Judge, SizeCodeOfAnotherType_IsAViolation) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveD);
  const Answer answer = bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 02 01 02 00 00");
  EXPECT_THAT(answer.findings.violations, testing::ElementsAre(HasSubstr("size code 2")));
}

TEST(Judge, OddCountOfHalves_MayExceedTheUnitsPresentByTwo) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveQ3);
  const char* odd = "00 00 00 14 FF FF FF EB 00 01 1E 01 00 06 00 00 00 06 01 02 00 0D 00 01 00 02 00 03 00 04";
  EXPECT_TRUE(bench.ask(odd).findings.violations.empty());
  EXPECT_EQ(bench.value("Q[3]"), "1125912791875585");
  const char* too_many = "00 00 00 14 FF FF FF EB 00 02 1E 01 00 06 00 00 00 07 01 02 00 0D 00 01 00 02 00 03 00 04";
  EXPECT_THAT(bench.ask(too_many).findings.violations, testing::ElementsAre(HasSubstr("byte 17 gives 7 units")));
}

TEST(Judge, LongText_HasOneByteOfLengthAndOthersHaveNot) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveS0);
  Bytes text = from_hex("00 00 00 00 FF FF FF FF 00 01 1E 01 00 06 00 00 00 7A 01 02 00 29");
  text.resize(22 + 244, 'x');
  const Answer answer = bench.ask(text);
  EXPECT_THAT(answer.findings.violations, testing::IsEmpty());
  EXPECT_EQ(bench.value("S").size(), 246U);
  Bytes two_bytes = text;
  two_bytes[2] = 0x01;
  two_bytes[6] = 0xFE;
  two_bytes[9] = 0x02;
  EXPECT_THAT(bench.ask(two_bytes).findings.violations, testing::ElementsAre(HasSubstr("one byte")));
}

TEST(Judge, RequestsWithoutAValue_AreNotedAndChangeNothing) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveB);
  const Answer plain = bench.ask("00 00 00 06 FF FF FF F9 00 01 00 01 11 00 00");
  EXPECT_TRUE(plain.findings.violations.empty());
  EXPECT_EQ(plain.findings.notes.size(), 1U);
  EXPECT_EQ(bench.value("B"), "false");

  Bench member(kJudgedTags);
  member.ask(kResolveAm);
  const Answer structure = member.ask("00 00 00 06 FF FF FF F9 00 01 01 11 00 01");
  EXPECT_TRUE(structure.findings.violations.empty()) << structure.findings.violations[0];
  EXPECT_EQ(structure.findings.notes.size(), 1U);

  Bench masked(kJudgedTags);
  masked.ask(kResolveAb);
  const Answer no_mask = masked.ask("00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 06 00 00 80 00");
  EXPECT_TRUE(no_mask.findings.violations.empty());
  EXPECT_EQ(no_mask.findings.notes.size(), 1U);

  Bench given_back(kJudgedTags);
  given_back.ask(kResolveAb);
  const Answer no_word = given_back.ask("00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 00 00 80 00");
  EXPECT_TRUE(no_word.findings.violations.empty());
  EXPECT_EQ(no_word.findings.notes.size(), 1U);
}

TEST(Judge, WordGivenBack_MayDifferInOneBitOnly) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveAb);
  bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 00 00 80 00");
  const Answer two = bench.ask("00 00 00 0E FF FF FF F1 00 02 1E 01 00 06 00 00 00 01 00 00 80 00 00 03");
  EXPECT_THAT(two.findings.violations, testing::ElementsAre(HasSubstr("more than one bit")));
  const Answer one = bench.ask("00 00 00 0E FF FF FF F1 00 03 1E 01 00 06 00 00 00 01 00 00 80 00 00 01");
  EXPECT_TRUE(one.findings.violations.empty());
  EXPECT_EQ(bench.value("a.b"), "true");
}

TEST(Judge, AnnouncedNameThatIsMissing_IsNotedAndReadAsNothing) {
  Bench bench(kJudgedTags);
  EXPECT_TRUE(bench.ask("00 00 00 08 FF FF FF F7 00 00 0C 28 00 01 00 00 00 01").findings.violations.empty());
  const Answer read = bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 00 00 0A 00 00 00 00");
  EXPECT_TRUE(read.findings.violations.empty());
  EXPECT_EQ(read.reply.size(), 14U + 20U);
}

TEST(Judge, SeveralBlocks_CarryTheirTotalWhereTheLastScopeHasIt) {
  Bench bench(kJudgedTags);
  // D, then L of program 5, then D again: the total of 3 stands in the first block's count.
  const Answer good = bench.ask(
      "00 00 00 1E FF FF FF E1 00 00 0C 28 00 03 00 00 00 03 00 01 00 44 01 01 00 05 00 00 00 00 00 01 00 01 00 4C"
      "00 00 00 01 00 01 00 44");
  EXPECT_THAT(good.findings.violations, testing::ElementsAre(HasSubstr("bytes 0-3")));
  const Answer right_length = bench.ask(
      "00 00 00 22 FF FF FF DD 00 01 0C 28 00 03 00 00 00 03 00 01 00 44 01 01 00 05 00 00 00 00 00 01 00 01 00 4C"
      "00 00 00 01 00 01 00 44");
  EXPECT_THAT(right_length.findings.violations, testing::IsEmpty());
  EXPECT_THAT(right_length.findings.refused, testing::IsEmpty());
  EXPECT_EQ(right_length.reply.size(), 17U + 3 * 24U);
  const Answer wrong_total = bench.ask(
      "00 00 00 22 FF FF FF DD 00 02 0C 28 00 03 00 00 00 02 00 01 00 44 01 01 00 05 00 00 00 00 00 01 00 01 00 4C"
      "00 00 00 01 00 01 00 44");
  EXPECT_THAT(wrong_total.findings.violations, testing::ElementsAre(HasSubstr("give 2 names")));
}

TEST(Judge, AfterASpoiltReply_WrongHandlesAreExcused) {
  Bench bench(kJudgedTags);
  bench.ask(kResolveD);
  bench.session.damage = ReplyDamage::kThisReply;
  const Answer read = bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 EE 00 01 EE EE EE EE");
  EXPECT_TRUE(read.findings.violations.empty());
  EXPECT_EQ(read.findings.excused.size(), 1U);
  bench.ask("00 00 00 0C FF FF FF F3 00 02 0C 28 00 01 00 00 00 01 00 01 00 44");
  const Answer again = bench.ask("00 00 00 10 FF FF FF EF 00 03 1E 09 00 00 01 00 00 00 00 EE 00 01 EE EE EE EE");
  EXPECT_EQ(again.findings.violations.size(), 1U);
}

TEST(Judge, RefusedName_GivesAnEmptyHandleAndIsNoViolation) {
  Bench bench(kJudgedTags);
  const Answer resolve = bench.ask("00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 5A");
  EXPECT_TRUE(resolve.findings.violations.empty());
  EXPECT_EQ(resolve.findings.refused.size(), 1U);
  EXPECT_EQ(resolve.reply[13], 4);
  const Answer read = bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 00 00 01 00 00 00 00");
  EXPECT_TRUE(read.findings.violations.empty());
  EXPECT_EQ(read.findings.refused.size(), 1U);
  const Answer write = bench.ask("00 00 00 0E FF FF FF F1 00 02 1E 01 00 00 00 00 00 01 00 00 00 00 12 34");
  EXPECT_TRUE(write.findings.violations.empty());
}

}  // namespace
}  // namespace plc_sim
