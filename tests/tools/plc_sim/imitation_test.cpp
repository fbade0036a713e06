// A controller as a profile has it: heads, statuses, refusals, limits and names byte by byte, and how replies leave.
#include "tools/plc_sim/controller/imitation.h"

#include <gmock/gmock.h>

#include "profile/profile_file.h"
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
using test::to_hex;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kTags = "D,INT,,,a,b,c,0,1,0,0,,DM1\nL,INT,,,a,b,c,1,0,0,5,MAIN_OF_PRESS,\n";
constexpr const char* kResolveX = "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 58";
// D, then X.
constexpr const char* kResolveBoth = "00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 02 00 01 00 44 00 01 00 58";
constexpr const char* kReadNull = "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 00 00 01 00 00 00 00";
constexpr const char* kWriteSeven = "00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 01 02 00 00 00 07";
constexpr const char* kWriteNull = "00 00 00 0E FF FF FF F1 00 01 1E 01 00 00 00 00 00 01 00 00 00 00 00 05";

struct Surveyed {
  explicit Surveyed(const std::string& toml) : result(plc_profile::parse_profile(toml, "p.toml")) {
    EXPECT_TRUE(result.ok()) << plc_profile::finding_line(result.findings.at(0));
  }
  Answer ask(const char* frame) { return imitation.handle(bench.session, from_hex(frame)); }
  std::string reply(const char* frame) { return to_hex(ask(frame).reply); }

  plc_profile::ProfileResult result;
  Bench bench{kTags};
  Imitation imitation{result.profile, bench.controller, bench.store};
};

TEST(Imitation, NoLine_ChangesNothing) {
  Surveyed surveyed("");
  Bench plain(kTags);
  for (const char* frame : {kResolveD, kReadD}) EXPECT_EQ(surveyed.reply(frame), to_hex(plain.ask(frame).reply));
  const Manner manner = surveyed.ask(kReadD).manner;
  EXPECT_EQ(manner.wait_ms, 0U);
  EXPECT_EQ(manner.piece_bytes, 0U);
  EXPECT_FALSE(manner.is_withheld);
}

TEST(Imitation, Heads_RepeatWhatTheProfileSays) {
  EXPECT_EQ(Surveyed("[replies]\nlength = \"zero\"\n").reply(kDirectoryStart),
            "00 00 00 00 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(Surveyed("[replies]\nlength = \"other\"\n").reply(kDirectoryStart),
            "00 00 00 10 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(Surveyed("[replies]\ncomplement = \"zero\"\n").reply(kDirectoryStart),
            "00 00 00 06 00 00 00 00 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(Surveyed("[replies]\ncomplement = \"other\"\n").reply(kDirectoryStart),
            "00 00 00 06 00 00 00 06 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(Surveyed("[replies]\nsequence = \"zero\"\n").reply(kDirectoryRead).substr(24, 11), "00 00 0C 25");
  EXPECT_EQ(Surveyed("[replies]\nclass = \"zero\"\ncommand = \"other\"\n").reply(kDirectoryStart),
            "00 00 00 06 FF FF FF F9 00 00 00 AC 00 00 00 00");
}

TEST(Imitation, OwnSequence_CountsTheRequestsOfTheConnection) {
  Surveyed surveyed("[replies]\nsequence = \"other\"\n");
  EXPECT_EQ(surveyed.reply(kResolveD).substr(24, 5), "40 03");
  EXPECT_EQ(surveyed.reply(kReadD).substr(24, 5), "40 04");
}

TEST(Imitation, Status_IsThatOfEveryAnswerButRefusals) {
  Surveyed surveyed("[replies]\nstatus = 0x8001\n[refusal]\nstatus = 0x0102\n");
  EXPECT_EQ(surveyed.reply(kResolveD).substr(36, 5), "80 01");
  EXPECT_EQ(surveyed.reply(kReadD), "00 00 00 06 FF FF FF F9 00 01 1E 09 80 01 00 00");
  EXPECT_EQ(surveyed.reply(kResolveX).substr(36, 5), "01 02");
}

TEST(Imitation, BytesBehindValues_AreCountedByTheLength) {
  Surveyed surveyed("[replies]\nbytes_behind_values = 3\n");
  surveyed.ask(kResolveD);
  EXPECT_EQ(surveyed.reply(kReadD), "00 00 00 09 FF FF FF F6 00 01 1E 09 00 00 00 00 EE EE EE");
}

TEST(Imitation, FullRefusal_HasZerosForTheNameItsReadAndItsWrite) {
  Surveyed surveyed("[refusal]\nshape = \"full\"\nstatus = 0\n");
  const std::string record = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
  EXPECT_EQ(surveyed.reply(kResolveX), "00 00 00 1F FF FF FF E0 00 00 0C 28 00 00 01 00 01" + record);
  EXPECT_EQ(surveyed.reply(kReadNull), "00 00 00 06 FF FF FF F9 00 01 1E 09 00 00 00 00");
  surveyed.ask(kResolveX);
  const Answer written = surveyed.ask(kWriteNull);
  EXPECT_EQ(to_hex(written.reply), "00 00 00 04 FF FF FF FB 00 01 1E 01 00 00");
  EXPECT_THAT(written.findings.violations, IsEmpty());
  EXPECT_EQ(surveyed.bench.value("D"), "0");
}

TEST(Imitation, ShortRefusal_IsAHeadAloneForAllNames) {
  Surveyed surveyed("[refusal]\nshape = \"short\"\n");
  EXPECT_EQ(surveyed.reply(kResolveX), "00 00 00 04 FF FF FF FB 00 00 0C 28 00 04");
  const Answer both = surveyed.ask(kResolveBoth);
  EXPECT_EQ(to_hex(both.reply), "00 00 00 04 FF FF FF FB 00 00 0C 28 00 04");
  EXPECT_EQ(both.manner.damage, ReplyDamage::kThisReply);
  EXPECT_EQ(surveyed.ask(kResolveX).manner.damage, ReplyDamage::kNone);
}

TEST(Imitation, RefusedVariables_AreThereForNobody) {
  Surveyed surveyed(
      "[[refused]]\nname = \"D\"\n[[refused]]\nname = \"E\"\n[[refused]]\nname = \"L\"\nprogram = \"X\"\n");
  EXPECT_THAT(surveyed.ask(kResolveD).findings.refused, ElementsAre("no variable D"));
  EXPECT_THAT(surveyed.imitation.problems(), ElementsAre("the profile refuses E, which no tag file declares",
                                                         "the profile refuses X/L, which no tag file declares"));
}

TEST(Imitation, RefusedValue_HasANameAndItsOwnRefusal) {
  Surveyed surveyed(
      "[refusal]\nshape = \"full\"\nstatus = 4\n"
      "[[refused]]\nname = \"D\"\nwhat = \"value\"\nshape = \"short\"\nstatus = 0x0019\n");
  EXPECT_THAT(surveyed.ask(kResolveD).findings.refused, IsEmpty());
  const Answer read = surveyed.ask(kReadD);
  EXPECT_EQ(to_hex(read.reply), "00 00 00 04 FF FF FF FB 00 01 1E 09 00 19");
  EXPECT_THAT(read.findings.refused, ElementsAre("read of D, whose value is refused"));
  EXPECT_THAT(read.findings.violations, IsEmpty());
  EXPECT_EQ(surveyed.reply(kResolveX).substr(36, 5), "00 04");
  EXPECT_THAT(surveyed.imitation.problems(), IsEmpty());
}

TEST(Imitation, RefusedValueWithZeros_HasTheStatusOfRefusedNames) {
  Surveyed surveyed(
      "[refusal]\nshape = \"short\"\nstatus = 0x21\n[[refused]]\nname = \"D\"\nwhat = \"value\"\nshape = \"full\"\n");
  surveyed.ask(kResolveD);
  surveyed.ask(kWriteSeven);
  EXPECT_EQ(surveyed.bench.value("D"), "7");
  surveyed.ask(kResolveD);
  EXPECT_EQ(surveyed.reply(kReadD), "00 00 00 06 FF FF FF F9 00 01 1E 09 00 21 00 00");
}

TEST(Imitation, Limits_RefuseCloseOrKeepSilent) {
  Surveyed refusing("[limits]\nnames = 1\nstatus = 0x21\n");
  EXPECT_NE(refusing.reply(kResolveD).size(), 41U);
  const Answer refused = refusing.ask(kResolveBoth);
  EXPECT_EQ(to_hex(refused.reply), "00 00 00 04 FF FF FF FB 00 00 0C 28 00 21");
  EXPECT_FALSE(refused.manner.is_withheld);
  EXPECT_EQ(refused.manner.damage, ReplyDamage::kThisReply);
  EXPECT_THAT(refused.findings.notes, ElementsAre("2 names in a request are beyond the profile's limit"));

  const Answer closed = Surveyed("[limits]\nnames = 1\nbeyond = \"closed\"\n").ask(kResolveBoth);
  EXPECT_TRUE(closed.manner.is_withheld);
  EXPECT_EQ(closed.manner.then, AfterDelivery::kClose);

  const Answer silent = Surveyed("[limits]\nnames = 1\nbeyond = \"silent\"\n").ask(kResolveBoth);
  EXPECT_TRUE(silent.manner.is_withheld);
  EXPECT_EQ(silent.manner.then, AfterDelivery::kKeepOpen);
}

TEST(Imitation, LimitOfValues_IsThatOfValueRequests) {
  Surveyed surveyed("[limits]\nvalues = 1\n");
  const char* const two_names = "00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 02 00 01 00 44 00 01 00 44";
  EXPECT_EQ(surveyed.ask(two_names).reply.size(), 65U);
  const Answer answer = surveyed.ask(
      "00 00 00 18 FF FF FF E7 00 01 1E 09 00 00 02 00 00 00 00 06 00 01 01 02 00 00 00 06 00 01 01 02 00 00");
  EXPECT_EQ(to_hex(answer.reply), "00 00 00 04 FF FF FF FB 00 01 1E 09 00 11");
}

TEST(Imitation, FaultThatRefuses_KeepsItsStatus) {
  Surveyed surveyed("[replies]\nstatus = 0x8001\n[limits]\nnames = 1\n");
  surveyed.bench.session.refusal = 0x19;
  EXPECT_EQ(surveyed.reply(kResolveBoth), "00 00 00 04 FF FF FF FB 00 00 0C 28 00 19");
}

TEST(Imitation, ProgramNames_AreCutInTheDirectoryAlone) {
  for (const char* profile : {"[directory]\nname_units = 2\n", "[directory]\nlongest_units = 2\n",
                              "[directory]\nname_units = 2\nlongest_units = 9\n"}) {
    Surveyed surveyed(profile);
    EXPECT_EQ(surveyed.reply(kDirectoryRead),
              "00 00 00 0F FF FF FF F0 00 01 0C 25 00 00 01 00 00 06 00 05 00 4D 00 41 00")
        << profile;
    EXPECT_EQ(surveyed.bench.value("MAIN_OF_PRESS/L"), "0") << profile;
  }
}

TEST(Imitation, Times_GrowWithNamesAndAreWholeMilliseconds) {
  Surveyed surveyed(
      "[times]\ndirectory_start_ms = 7\ndirectory_ms = 300\nresolve_ms = 40.9\nresolve_each_ms = 2.5\n"
      "read_ms = 3\nwrite_ms = 11\n");
  EXPECT_EQ(surveyed.ask(kDirectoryStart).manner.wait_ms, 7U);
  EXPECT_EQ(surveyed.ask(kDirectoryRead).manner.wait_ms, 300U);
  EXPECT_EQ(surveyed.ask(kResolveBoth).manner.wait_ms, 43U);
  EXPECT_EQ(surveyed.ask(kResolveD).manner.wait_ms, 40U);
  EXPECT_EQ(surveyed.ask(kReadD).manner.wait_ms, 3U);
  EXPECT_EQ(surveyed.ask("00 00 00 0E FF FF FF F1 00 02 1E 01 00 06 00 00 00 01 01 02 00 00 00 05").manner.wait_ms,
            11U);
}

std::vector<std::string> sent(const Manner& manner, const Delivery& delivery) {
  std::vector<std::string> pieces;
  for (const Delivery::Piece& piece : in_manner(manner, delivery).pieces) {
    pieces.push_back(std::to_string(piece.wait_ms) + " ms: " + to_hex(piece.bytes));
  }
  return pieces;
}

Manner in_pieces_of(size_t bytes) {
  Manner manner;
  manner.wait_ms = 40;
  manner.piece_bytes = bytes;
  manner.gap_ms = 3;
  return manner;
}

TEST(Manner, Pieces_ComeWithTheirGapsBehindTheWait) {
  const Delivery whole = deliver_whole(from_hex("01 02 03 04 05"));
  EXPECT_THAT(sent(in_pieces_of(2), whole), ElementsAre("40 ms: 01 02", "3 ms: 03 04", "3 ms: 05"));
  EXPECT_EQ(in_manner(in_pieces_of(2), whole).damage, ReplyDamage::kTheStream);
  EXPECT_THAT(sent(in_pieces_of(5), whole), ElementsAre("40 ms: 01 02 03 04 05"));
  EXPECT_EQ(in_manner(in_pieces_of(5), whole).damage, ReplyDamage::kNone);
  EXPECT_THAT(sent(in_pieces_of(0), whole), ElementsAre("40 ms: 01 02 03 04 05"));
}

TEST(Manner, Faults_WorkOnTopOfIt) {
  const Bytes reply = from_hex("01 02 03 04 05");
  EXPECT_THAT(sent(in_pieces_of(3), deliver_with(parse_fault("split 4 100"), reply)),
              ElementsAre("40 ms: 01 02 03", "3 ms: 04", "100 ms: 05"));
  EXPECT_THAT(sent(in_pieces_of(3), deliver_with(parse_fault("no-reply"), reply)), IsEmpty());
  const Delivery closed = in_manner(in_pieces_of(3), deliver_with(parse_fault("close"), reply));
  EXPECT_EQ(closed.then, AfterDelivery::kClose);
  EXPECT_EQ(closed.damage, ReplyDamage::kTheStream);
}

TEST(Manner, Withheld_SendsNothing) {
  Manner manner;
  manner.is_withheld = true;
  manner.then = AfterDelivery::kClose;
  manner.damage = ReplyDamage::kTheStream;
  const Delivery delivery = in_manner(manner, deliver_whole(from_hex("01")));
  EXPECT_THAT(delivery.pieces, IsEmpty());
  EXPECT_EQ(delivery.then, AfterDelivery::kClose);
}

}  // namespace
}  // namespace plc_sim
