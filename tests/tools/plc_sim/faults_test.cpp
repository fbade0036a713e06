// Faults: their text form, their schedule, and what each sends.
#include "tools/plc_sim/controller/faults.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim {
namespace {

using test::from_hex;
using test::to_hex;

constexpr const char* kReply = "00 00 00 04 FF FF FF FB 00 FF 1E 01 00 00";

std::vector<std::string> sent_by(const char* fault) {
  std::vector<std::string> pieces;
  for (const Delivery::Piece& piece : deliver_with(parse_fault(fault), from_hex(kReply)).pieces) {
    pieces.push_back((piece.wait_ms == 0 ? "" : std::to_string(piece.wait_ms) + " ms: ") + to_hex(piece.bytes));
  }
  return pieces;
}

TEST(Faults, EachFault_SendsWhatItsNameSays) {
  using testing::ElementsAre;
  EXPECT_THAT(sent_by("delay 40"), ElementsAre(std::string("40 ms: ") + kReply));
  EXPECT_THAT(sent_by("no-reply"), ElementsAre());
  EXPECT_THAT(sent_by("cut 3"), ElementsAre("00 00 00"));
  EXPECT_THAT(sent_by("split 2 9"), ElementsAre("00 00", "9 ms: 00 04 FF FF FF FB 00 FF 1E 01 00 00"));
  EXPECT_THAT(sent_by("stale 2"), ElementsAre("EE EE", kReply));
  EXPECT_THAT(sent_by("trailing 1"), ElementsAre(kReply, "EE"));
  EXPECT_THAT(sent_by("duplicate"), ElementsAre(kReply, kReply));
  EXPECT_THAT(sent_by("oversize 16"), ElementsAre(std::string(kReply) + " EE EE"));
  EXPECT_THAT(sent_by("wrong-sequence"), ElementsAre("00 00 00 04 FF FF FF FB 01 00 1E 01 00 00"));
  EXPECT_THAT(sent_by("refuse"), ElementsAre("00 00 00 04 FF FF FF FB 00 FF 1E 01 00 13"));
  EXPECT_THAT(sent_by("refuse 4"), ElementsAre("00 00 00 04 FF FF FF FB 00 FF 1E 01 00 04"));
  EXPECT_THAT(sent_by("status 65535"), ElementsAre("00 00 00 04 FF FF FF FB 00 FF 1E 01 FF FF"));
  EXPECT_EQ(sent_by("drip 5").size(), 14U);
  EXPECT_EQ(deliver_with(parse_fault("garbage 7"), from_hex(kReply)).pieces[0].bytes.size(), 7U);
  EXPECT_NE(sent_by("garbage")[0], kReply);
}

std::vector<std::string> value_sent_by(const char* fault) {
  std::vector<std::string> pieces;
  const Bytes reply = from_hex("00 00 00 06 FF FF FF F9 01 00 1E 09 00 00 12 34");
  for (const Delivery::Piece& piece : deliver_with(parse_fault(fault), reply).pieces) {
    pieces.push_back(to_hex(piece.bytes));
  }
  return pieces;
}

TEST(Faults, FramesOfAReplyWithValues_AreWholeByTheirLength) {
  using testing::ElementsAre;
  const char* reply = "00 00 00 06 FF FF FF F9 01 00 1E 09 00 00 12 34";
  EXPECT_THAT(value_sent_by("foreign"), ElementsAre("00 00 00 06 FF FF FF F9 00 FF 1E 09 00 00 EE EE", reply));
  EXPECT_THAT(value_sent_by("foreign 257"), ElementsAre("00 00 00 06 FF FF FF F9 FF FF 1E 09 00 00 EE EE", reply));
  EXPECT_THAT(value_sent_by("short 1"), ElementsAre("00 00 00 05 FF FF FF FA 01 00 1E 09 00 00 12"));
  EXPECT_THAT(value_sent_by("short 2"), ElementsAre("00 00 00 04 FF FF FF FB 01 00 1E 09 00 00"));
  EXPECT_THAT(value_sent_by("short 99"), ElementsAre("00 00 00 04 FF FF FF FB 01 00 1E 09 00 00"));
  EXPECT_THAT(value_sent_by("refuse"), ElementsAre("00 00 00 04 FF FF FF FB 01 00 1E 09 00 13"));
  EXPECT_THAT(value_sent_by("status 19"), ElementsAre("00 00 00 06 FF FF FF F9 01 00 1E 09 00 13 12 34"));
}

TEST(Faults, Damage_OfFramesAndRefusals) {
  const auto damage_of = [](const char* fault) { return deliver_with(parse_fault(fault), from_hex(kReply)).damage; };
  EXPECT_EQ(damage_of("foreign"), ReplyDamage::kTheStream);
  EXPECT_EQ(damage_of("refuse"), ReplyDamage::kThisReply);
  EXPECT_EQ(damage_of("status 1"), ReplyDamage::kNone);
  EXPECT_EQ(damage_of("short 1"), ReplyDamage::kThisReply);
}

TEST(Faults, StatusThatIsNone_IsAnError) {
  EXPECT_THROW(parse_fault("status 0"), std::invalid_argument);
  EXPECT_THROW(parse_fault("status 65536"), std::invalid_argument);
  EXPECT_THROW(parse_fault("refuse 0"), std::invalid_argument);
  EXPECT_THROW(parse_fault("status"), std::invalid_argument);
  EXPECT_THROW(parse_fault("short"), std::invalid_argument);
}

TEST(Faults, EndingFaults_SayWhatBecomesOfTheConnection) {
  EXPECT_EQ(deliver_with(parse_fault("close"), from_hex(kReply)).then, AfterDelivery::kClose);
  EXPECT_EQ(deliver_with(parse_fault("reset"), from_hex(kReply)).then, AfterDelivery::kReset);
  const Delivery close_after = deliver_with(parse_fault("close-after 2"), from_hex(kReply));
  EXPECT_EQ(close_after.then, AfterDelivery::kClose);
  EXPECT_EQ(to_hex(close_after.pieces[0].bytes), "00 00");
  EXPECT_EQ(deliver_with(parse_fault("reset-after 0"), from_hex(kReply)).pieces.size(), 0U);
}

TEST(Faults, BadText_IsRefusedWithItsReason) {
  for (const char* text : {"", "dealy 5", "delay", "delay x", "delay 5 6", "no-reply 1", "delay 5 time=3",
                           "delay 5 on=nothing", "delay 5 times=", "split 5", "delay 600001"}) {
    EXPECT_THROW(parse_fault(text), std::invalid_argument) << text;
  }
}

TEST(Faults, EveryKnownFault_ParsesUnderItsName) {
  for (const FaultInfo& info : known_faults()) {
    std::string text = info.name;
    for (size_t i = 0; i < info.min_arguments; ++i) text += " 5";
    EXPECT_EQ(parse_fault(text).kind, info.kind) << text;
  }
}

TEST(FaultBook, Schedule_FollowsAfterEveryTimesAndKind) {
  FaultBook book;
  book.arm(parse_fault("cut 1 times=2 after=1 every=2 on=read"));
  std::string happened;
  for (int i = 0; i < 8; ++i) {
    happened += book.take(RequestKind::kResolve) ? "r" : ".";
    happened += book.take(RequestKind::kRead) ? "R" : ".";
  }
  EXPECT_EQ(happened, "...R...R........");
  EXPECT_EQ(book.count_of(FaultKind::kCut), 2U);
  EXPECT_EQ(book.count_of(FaultKind::kDelay), 0U);
}

TEST(FaultBook, AlwaysAndClear_EndOnlyWhenCleared) {
  FaultBook book;
  book.arm(parse_fault("no-reply times=always"));
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(book.take(RequestKind::kWrite).has_value());
  book.clear();
  EXPECT_FALSE(book.take(RequestKind::kWrite).has_value());
}

}  // namespace
}  // namespace plc_sim
