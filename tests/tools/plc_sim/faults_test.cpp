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

// What a capture holds for a reply may be of any length.
TEST(Faults, ReplyOfAnyLength_IsSentWithoutAByteThatIsNotItsOwn) {
  using testing::ElementsAre;
  const auto sent_for = [](const char* fault, const char* reply) {
    std::vector<std::string> pieces;
    for (const Delivery::Piece& piece : deliver_with(parse_fault(fault), from_hex(reply)).pieces) {
      pieces.push_back(to_hex(piece.bytes));
    }
    return pieces;
  };
  EXPECT_THAT(sent_for("wrong-sequence", ""), ElementsAre(""));
  EXPECT_THAT(sent_for("wrong-sequence", "55"), ElementsAre("55"));
  EXPECT_THAT(sent_for("wrong-sequence", "00 00 00 04 FF FF FF FB 00"), ElementsAre("00 00 00 04 FF FF FF FB 00"));
  EXPECT_THAT(sent_for("wrong-sequence", "00 00 00 04 FF FF FF FB 00 07"),
              ElementsAre("00 00 00 04 FF FF FF FB 00 08"));
  EXPECT_THAT(sent_for("foreign", "55"), ElementsAre("55", "55"));
  EXPECT_THAT(sent_for("status 19", "55"), ElementsAre("55"));
  EXPECT_THAT(sent_for("status 19", "00 00 00 03 FF FF FF FC 00 07 1E 09 00"),
              ElementsAre("00 00 00 03 FF FF FF FC 00 07 1E 09 00"));
  EXPECT_THAT(sent_for("short 1", "55"), ElementsAre("55"));
  EXPECT_THAT(sent_for("refuse", "55"), ElementsAre("00 00 00 04 FF FF FF FB 00 00 00 00 00 13"));
}

TEST(Faults, EveryFaultOnRepliesOfEveryLength_StaysWithinThem) {
  for (const FaultInfo& info : known_faults()) {
    for (const char* argument : {"", " 0", " 1", " 13", " 14", " 19", " 600000"}) {
      std::string text = info.name;
      for (size_t i = 0; i < info.max_arguments; ++i) text += argument;
      Fault fault;
      try {
        fault = parse_fault(text);
      } catch (const std::invalid_argument&) {
        continue;
      }
      for (size_t bytes = 0; bytes <= 20; ++bytes) {
        size_t sent = 0;
        for (const Delivery::Piece& piece : deliver_with(fault, Bytes(bytes, 0x55)).pieces) sent += piece.bytes.size();
        EXPECT_LE(sent, 600000U + 2 * bytes) << text << " on " << bytes;
      }
    }
  }
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
