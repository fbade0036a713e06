// The controller: replies byte by byte, and values that stay where they were written.
#include "tools/plc_sim/controller/controller.h"

#include <gmock/gmock.h>

#include <random>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/sim_support.h"
#include "tools/plc_sim/variables/listing.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kResolveD;
using test::Bench;
using test::from_hex;
using test::to_hex;

TEST(Controller, Directory_ListsProgramsWithNumbers) {
  Bench bench("A,INT,,,a,b,c,0,0,0,7,AB,\nB,INT,,,a,b,c,0,0,0,9,C,\n");
  bench.session = Session{};
  EXPECT_EQ(to_hex(bench.ask(kDirectoryStart).reply), "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(to_hex(bench.ask(kDirectoryRead).reply),
            "00 00 00 17 FF FF FF E8 00 01 0C 25 00 00 02 "
            "00 00 06 00 07 00 41 00 42 00 "
            "00 01 04 00 09 00 43 00");
}

TEST(Controller, EmptyDirectory_HasACountOfZero) {
  Bench bench("A,INT,,,a,b,c,0,1\n");
  bench.session = Session{};
  bench.ask(kDirectoryStart);
  EXPECT_EQ(to_hex(bench.ask(kDirectoryRead).reply), "00 00 00 05 FF FF FF FA 00 01 0C 25 00 00 00");
}

TEST(Controller, ResolveReply_HasTheHandleTheBitAndTheDimensions) {
  Bench bench("D,INT,[1..3],,a,b,c,0,1,0,0,,DM1\n");
  EXPECT_EQ(
      to_hex(
          bench.ask("00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 44 00 5B 00 23 00 32 00 5D").reply),
      "00 00 00 23 FF FF FF DC 00 00 0C 28 00 00 01 00 01 "
      "00 10 00 00 06 01 02 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 01 00 03");
}

TEST(Controller, BitWithItsOwnAddress_ShowsANumberThatIsNotItsOwn) {
  Bench bench("B,BOOL,[0..9],,a,b,c,0,1,0,0,,MR1\na.b,BOOL,[0..9],,a,b,c,1,1,0,0,,DM1\n");
  const Bytes own =
      bench.ask("00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 42 00 5B 00 23 00 35 00 5D").reply;
  EXPECT_EQ(own[25], 0x05);
  EXPECT_EQ(own[30], 0x0A);
  const Bytes word = bench
                         .ask(
                             "00 00 00 18 FF FF FF E7 00 01 0C 28 00 01 00 00 00 01 00 07 00 61 00 2E 00 62 00 5B 00 23"
                             "00 35 00 5D")
                         .reply;
  EXPECT_EQ(word[24], 0x80);
  EXPECT_EQ(word[25], 0x00);
  EXPECT_EQ(word[30], 0x05);
}

TEST(Controller, ManyNames_GetAsManyRecordsAsFitOneReply) {
  Bench bench("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  Bytes frame = from_hex("00 00 03 28 FF FF FC D7 00 00 0C 28 00 01 00 00 00 C8");
  for (int i = 0; i < 200; ++i) {
    for (const uint8_t byte : from_hex("00 01 00 44")) frame.push_back(byte);
  }
  const Answer answer = bench.ask(frame);
  EXPECT_TRUE(answer.findings.violations.empty());
  EXPECT_EQ(answer.findings.refused.size(), 200U - 169U);
  EXPECT_EQ(answer.reply.size(), 17U + 169U * 24U);
}

TEST(Controller, Run_WritesItsElementsAndNothingElse) {
  Bench bench("X,DINT,,,a,b,c,0,1\nD,DINT,[0..4],,a,b,c,1,1\nY,DINT,,,a,b,c,2,1\n");
  const std::string before = list_memory(bench.store);
  bench.ask(
      "00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 02 00 05 00 44 00 5B 00 23 00 31 00 5D"
      "00 05 00 44 00 5B 00 23 00 32 00 5D");
  const Answer answer =
      bench.ask("00 00 00 14 FF FF FF EB 00 01 1E 01 00 1E 00 00 00 04 01 02 00 04 33 44 11 22 77 88 55 66");
  EXPECT_TRUE(answer.findings.violations.empty()) << answer.findings.violations[0];
  EXPECT_EQ(answer.reply.size(), 14U);
  EXPECT_EQ(bench.value("D[1]"), std::to_string(0x11223344));
  EXPECT_EQ(bench.value("D[2]"), std::to_string(0x55667788));
  EXPECT_EQ(before, "1e values 000000: 0000 0000 0000 0000 0000 0000 0000 0000 0000 0000 0000 0000 0000 0000\n");
  EXPECT_EQ(list_memory(bench.store),
            "1e values 000000: 0000 0000 0000 0000 3344 1122 7788 5566 0000 0000 0000 0000 0000 0000\n");
}

TEST(Controller, RefusedRequest_IsJudgedAndNotCarriedOut) {
  Bench bench("D,INT,,,a,b,c,0,1\n");
  bench.ask(kResolveD);
  bench.session.refusal = 0x0011;
  const Answer write = bench.ask("00 00 00 0E FF FF FF F1 00 01 1E 01 00 1E 00 00 00 01 01 02 00 00 12 34");
  EXPECT_EQ(to_hex(write.reply), "00 00 00 04 FF FF FF FB 00 01 1E 01 00 11");
  EXPECT_TRUE(write.findings.violations.empty());
  EXPECT_EQ(bench.value("D"), "0");
  const Answer late = bench.ask("00 00 00 0E FF FF FF F1 00 09 1E 01 00 1E 00 00 00 01 01 02 00 00 12 34");
  EXPECT_EQ(late.findings.violations.size(), 1U);
  bench.session.refusal.reset();
  bench.ask("00 00 00 0E FF FF FF F1 00 0A 1E 01 00 1E 00 00 00 01 01 02 00 00 12 34");
  EXPECT_EQ(bench.value("D"), "4660");
}

TEST(Controller, RefusedNames_AreNone) {
  Bench bench("D,INT,,,a,b,c,0,1\n");
  bench.ask(kResolveD);
  bench.session.refusal = 0x0004;
  EXPECT_EQ(to_hex(bench.ask("00 00 00 0C FF FF FF F3 00 01 0C 28 00 01 00 00 00 01 00 01 00 44").reply),
            "00 00 00 04 FF FF FF FB 00 01 0C 28 00 04");
  EXPECT_TRUE(bench.session.names.empty());
}

TEST(Controller, TextPositions_AreReadAndWrittenByCharacter) {
  Bench bench("S,STRING,,8,a,b,c,0,1\n");
  bench.ask("00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 53 00 5B 00 23 00 30 00 5D");
  bench.ask("00 00 00 12 FF FF FF ED 00 01 1E 01 00 1E 00 00 00 03 01 02 00 00 41 42 43 44 45 46");
  EXPECT_EQ(bench.value("S"), "\"ABCDEF\"");
  bench.ask("00 00 00 14 FF FF FF EB 00 02 0C 28 00 01 00 00 00 01 00 05 00 53 00 5B 00 23 00 33 00 5D");
  const Answer odd = bench.ask("00 00 00 10 FF FF FF EF 00 03 1E 09 00 00 01 00 00 00 00 1E 00 02 81 02 00 01");
  EXPECT_TRUE(odd.findings.violations.empty()) << odd.findings.violations[0];
  EXPECT_EQ(to_hex(Bytes(odd.reply.begin() + 14, odd.reply.end())), "44 45 46 00");
}

TEST(Controller, EightBitVariable_GivesNoValueForSizeEight) {
  Bench bench("S,SINT,,,a,b,c,0,1\n");
  bench.ask("00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 53");
  const Answer answer = bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 1E 00 08 00 00 00 00");
  EXPECT_TRUE(answer.findings.violations.empty());
  EXPECT_EQ(answer.reply.size(), 14U);
}

// Any bytes at all: an answer of bounded size, and nothing of the memory changed by what the judge did not accept.
TEST(Controller, ArbitraryRequests_AreAnsweredWithinBounds) {
  std::mt19937 random(20261121);
  const std::vector<Bytes> seeds{
      from_hex(kResolveD),
      from_hex(
          "00 00 00 22 FF FF FF DD 00 01 0C 28 00 03 00 00 00 03 00 01 00 44 01 01 00 05 00 00 00 00 00 01 00 01 00 4C"
          "00 00 00 01 00 01 00 44"),
      from_hex("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 00"),
      from_hex("00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 01 02 00 00 12 34"),
      from_hex("00 00 00 06 FF FF FF F9 00 01 32 00 01 11 00 00"),
      from_hex("00 00 00 0C FF FF FF F3 00 01 1E 03 00 01 06 00 00 80 00 01 00 01")};
  Bench bench("D,INT,,,a,b,c,0,1,0,0,,DM1\nB,BOOL,[0..9],,a,b,c,1,1\nS,STRING,,9,a,b,c,2,1\na.b,BOOL,,,a,b,c,3,1\n");
  for (int i = 0; i < 10000; ++i) {
    Bytes frame = seeds[random() % seeds.size()];
    for (unsigned change = random() % 4; change > 0 && !frame.empty(); --change) {
      frame[random() % frame.size()] = static_cast<uint8_t>(random());
    }
    frame.resize(random() % 8 == 0 ? random() % 64 : frame.size());
    const std::string before = list_memory(bench.store);
    const Answer answer = bench.ask(frame);
    ASSERT_GE(answer.reply.size(), 14U);
    ASSERT_LE(answer.reply.size(), 4096U);
    if (!answer.findings.violations.empty() && answer.kind != RequestKind::kResolve) {
      ASSERT_EQ(list_memory(bench.store), before) << to_hex(frame);
    }
  }
}

}  // namespace
}  // namespace plc_sim
