// Tests of what is said of an exchange, word by word.
#include "wire/judgement.h"

#include <gtest/gtest.h>

#include "tests/wire/trace_fixture.h"

namespace {

using namespace trace_test;
using wire_trace::Exchange;
using wire_trace::Reader;
using wire_trace::Remark;

// What is said of the last exchange: faults as they are, everything else behind "odd: ".
std::vector<std::string> said_of(const Traffic& traffic, const std::optional<Reader>& reader = std::nullopt) {
  const std::vector<Exchange> exchanges = wire_trace::find_exchanges(traffic.recording());
  std::vector<std::string> said;
  for (const Remark& remark : wire_trace::judge_exchange(exchanges, exchanges.size() - 1, exchanges.size(), reader)) {
    EXPECT_NE(remark.advice, "") << remark.what;
    said.push_back((remark.is_fault ? "" : "odd: ") + remark.what);
  }
  return said;
}

using Said = std::vector<std::string>;

Traffic resolved() {
  Traffic traffic;
  traffic.host(kResolveD).controller(kResolveReply);
  return traffic;
}

TEST(Judgement, GoodExchanges_SayNothing) {
  EXPECT_EQ(said_of(Traffic().host(kDirectoryStart).controller(kStartReply)), Said());
  EXPECT_EQ(said_of(Traffic().host(kDirectoryRead).controller(kDirectoryReply)), Said());
  EXPECT_EQ(said_of(resolved()), Said());
  EXPECT_EQ(said_of(resolved().host(kReadD).controller(kReadReply)), Said());
}

TEST(Judgement, Silence_IsToldByHowItEnded) {
  EXPECT_EQ(said_of(Traffic().host(kReadD)), Said{"exchange 1 (read): no reply"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).pass(999000000).end(true, TrafficEvent::Kind::kFinished)),
            Said{"exchange 1 (read): no reply within 1000.0 ms, then the host gave up and closed the connection"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).end(false, TrafficEvent::Kind::kFinished)),
            Said{"exchange 1 (read): the controller closed the connection instead of answering"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).end(false, TrafficEvent::Kind::kReset)),
            Said{"exchange 1 (read): the controller reset the connection instead of answering"});
}

TEST(Judgement, RefusedNames_AreNamedWithTheirScope) {
  EXPECT_EQ(said_of(Traffic().host(kResolveD).controller(kRefusedReply)),
            Said{"exchange 1 (resolve): the controller refused D (global): status 0004 in bytes 12 and 13"});
  EXPECT_EQ(said_of(Traffic().host(kResolveLocalD).controller(kRefusedReply)),
            Said{"exchange 1 (resolve): the controller refused D (scope 7): status 0004 in bytes 12 and 13"});
}

// A controller without programs may answer to the directory's requests with their own bytes.
TEST(Judgement, RequestThatCameBack_IsAnEchoExceptOfTheDirectory) {
  const std::string said = "the request came back as it was sent: what answers is an echo, not a controller";
  EXPECT_EQ(said_of(Traffic().host(kResolveD).controller(kResolveD)), Said{"exchange 1 (resolve): " + said});
  EXPECT_EQ(said_of(resolved().host(kReadD).controller(kReadD)), Said{"exchange 2 (read): " + said});
  EXPECT_EQ(said_of(Traffic().host(kDirectoryStart).controller(kDirectoryStart)), Said());
  EXPECT_EQ(said_of(Traffic().host(kDirectoryRead).controller(kDirectoryRead)), Said());
}

TEST(Judgement, RefusedValue_IsAFaultUnlessTheNameWas) {
  const char* refused = "00 00 00 06 FF FF FF F9 00 01 1E 09 00 13 00 00";
  EXPECT_EQ(said_of(resolved().host(kReadD).controller(refused)),
            Said{"exchange 2 (read): the controller refused the request: status 0013 in bytes 12 and 13"});
  const char* read_of_nothing = "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 00 00 01 00 00 00 00";
  EXPECT_EQ(said_of(Traffic().host(kResolveD).controller(kRefusedReply).host(read_of_nothing).controller(refused)),
            Said());
}

TEST(Judgement, ShortReply_SaysHowMuchIsMissing) {
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 06 FF FF FF F9 00 01 1E 09 00 00 12")),
            Said{"exchange 1 (read): a short reply: its head announces 16 bytes, 15 came"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 06 FF FF FF F9 00")),
            Said{"exchange 1 (read): the reply has 9 bytes, not even a head"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00").end(false, TrafficEvent::Kind::kReset)),
            Said{"exchange 1 (read): the reply has 1 byte, not even a head, then the controller reset the connection"});
}

TEST(Judgement, LengthThatASizeOf32BitsCannotHold_IsThatOfAShortReply) {
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("FF FF FF F6 00 00 00 09 00 01 1E 09 00 00 12 34")),
            Said{"exchange 1 (read): a short reply: its head announces 4294967296 bytes, 16 came"});
}

TEST(Judgement, ValueOfAnotherSize_IsShorterOrLonger) {
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 05 FF FF FF FA 00 01 1E 09 00 00 12")),
            Said{"exchange 1 (read): the reply holds 1 byte of values, the sizes asked for take 2"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 08 FF FF FF F7 00 01 1E 09 00 00 12 34 56 78")),
            Said{"odd: exchange 1 (read): the reply holds 4 bytes of values, the sizes asked for take 2"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 03 FF FF FF FC 00 01 1E 09 00")),
            Said{"exchange 1 (read): the reply has 13 bytes, a value starts behind byte 13"});
}

TEST(Judgement, ReplyInPieces_IsAFaultWhenTheyAreApart) {
  Traffic apart;
  apart.host(kReadD).controller("00 00 00 06 FF FF FF F9").pass(49000000).controller("00 01 1E 09 00 00 12 34");
  EXPECT_EQ(said_of(apart),
            Said{"exchange 1 (read): the reply came in 2 pieces, the last one 50.0 ms after the first"});
  Traffic together;
  together.host(kReadD).controller("00 00 00 06 FF FF FF F9").pass(-999000).controller("00 01 1E 09 00 00 12 34");
  EXPECT_EQ(said_of(together),
            Said{"odd: exchange 1 (read): the reply came in 2 pieces, the last one 0.0 ms after the first"});
}

TEST(Judgement, BytesBeforeTheReply_AreToldFromTheRestOfAnother) {
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller(std::string("EE EE") + kReadReply)),
            Said{"exchange 1 (read): 2 bytes that belong to nothing came before the reply, and the contract build "
                 "takes them for "
                 "it"});
  const std::string resolve_reply = kResolveReply;
  const std::string first = resolve_reply.substr(0, 90);
  const std::string rest = resolve_reply.substr(90);
  EXPECT_EQ(said_of(Traffic().host(kResolveD).controller(first).host(kReadD).controller(rest + kReadReply)),
            Said{"exchange 2 (read): the rest of the reply before it, 11 bytes, came first, and the contract build "
                 "takes it for "
                 "the reply"});
  EXPECT_EQ(
      said_of(Traffic().host(kReadD).controller("80 81 82 83 84 85 86 87 88 89 8A 8B 8C 8D 8E 8F")),
      Said{"exchange 1 (read): what came is not a reply: its first eight bytes are not a length and the complement of "
           "it"});
}

TEST(Judgement, BytesBehindTheReply_AreOdd) {
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller(std::string(kReadReply) + "DE AD")),
            Said{"odd: exchange 1 (read): 2 bytes more than the reply's head announces came behind it"});
}

TEST(Judgement, ReplyOfAnotherRequest_IsStaleOrForeign) {
  EXPECT_EQ(
      said_of(resolved().host(kReadD).controller(kResolveReply)),
      Said{"exchange 2 (read): a doubled reply: that to the resolve request before it came again (sequence number "
           "0000, class and command 0C28), which the contract build takes for the reply and the guarded build "
           "skips"});
  EXPECT_EQ(said_of(Traffic().host(kResolveD).host(kReadD).controller(kResolveReply)),
            Said{"exchange 2 (read): a stale reply: it belongs to an earlier request (sequence number 0000, class and "
                 "command 0C28), which the contract build takes for the reply and the guarded build skips"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 06 FF FF FF F9 00 77 1E 09 00 00 12 34")),
            Said{"exchange 1 (read): the reply carries the sequence number 0077, the request 0001"});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller("00 00 00 06 FF FF FF F9 00 01 1E 01 00 00 12 34")),
            Said{"exchange 1 (read): the reply is one to another request: class and command 1E01 instead of 1E09"});
}

constexpr char kForeignRead[] = "00 00 00 06 FF FF FF F9 00 00 1E 09 00 00 EE EE";
constexpr Reader kGuarded = {true, false};
constexpr Reader kContract = {false, false};

TEST(Judgement, ForeignReplyBeforeTheRightOne_IsToldWithWhatTheBuildDid) {
  const Traffic traffic = resolved().host(kReadD).controller(std::string(kForeignRead) + kReadReply);
  const std::string foreign =
      "exchange 2 (read): a foreign reply (sequence number 0000, class and command 1E09) came before the right one";
  EXPECT_EQ(said_of(traffic),
            Said{foreign + ", which the contract build takes for the reply and the guarded build skips"});
  EXPECT_EQ(said_of(traffic, kContract), Said{foreign + ", and the contract build took it for the reply"});
  EXPECT_EQ(said_of(traffic, kGuarded), Said{"odd: " + foreign + ", and the guarded build skipped it"});
}

TEST(Judgement, ForeignReplyWhoseRightOneCameBehindTheNextRequest_IsNoControllerWithoutNumbers) {
  const std::string foreign = "00 00 00 04 FF FF FF FB FF FF 0C 28 00 00";
  Traffic traffic;
  traffic.host(kResolveD).controller(foreign);
  EXPECT_EQ(said_of(traffic, kContract)[0],
            "exchange 1 (resolve): the reply carries the sequence number FFFF, the request 0000");
  traffic.host(kReadD).controller(std::string(kResolveReply) + kReadReply);
  const std::vector<Exchange> exchanges = wire_trace::find_exchanges(traffic.recording());
  EXPECT_EQ(
      wire_trace::judge_exchange(exchanges, 0, 1, kContract)[0].what,
      "exchange 1 (resolve): a foreign reply (sequence number FFFF, class and command 0C28) came before the right "
      "one, and the contract build took it for the reply");
  const Remark stale = wire_trace::judge_exchange(exchanges, 1, 2, kContract)[0];
  EXPECT_EQ(
      stale.what,
      "exchange 2 (read): a stale reply: it belongs to an earlier request (sequence number 0000, class and command "
      "0C28), and the contract build took it for the reply");
  EXPECT_EQ(
      stale.advice,
      "Look first at what came for that request. The contract build takes replies by their order: each one counts "
      "for the next from there on.");
}

TEST(Judgement, GuardedBuildThatSkippedAReply_IsJudgedByTheRightOne) {
  const Traffic refused =
      resolved().host(kReadD).controller(std::string(kForeignRead) + "00 00 00 04 FF FF FF FB 00 01 1E 09 00 13");
  const Said said = said_of(refused, kGuarded);
  ASSERT_EQ(said.size(), 2U);
  EXPECT_EQ(said[1], "exchange 2 (read): the controller refused the request: status 0013 in bytes 12 and 13");
  const Said alone = said_of(resolved().host(kReadD).controller(kResolveReply), kGuarded);
  ASSERT_EQ(alone.size(), 2U);
  EXPECT_EQ(
      alone[0],
      "odd: exchange 2 (read): a doubled reply: that to the resolve request before it came again (sequence number "
      "0000, class and command 0C28), and the guarded build skipped it");
  EXPECT_EQ(alone[1], "exchange 2 (read): no reply of its own came whole");
}

TEST(Judgement, ReplyToAnotherRequestOfTheSameNumber_IsRefusedByTheGuardedBuild) {
  const std::string directory_again = kDirectoryReply;
  const Traffic traffic =
      Traffic().host(kDirectoryRead).controller(directory_again).host(kReadD).controller(directory_again + kReadReply);
  EXPECT_EQ(said_of(traffic, kGuarded),
            Said{"exchange 2 (read): a doubled reply: that to the directory request before it came again (sequence "
                 "number 0001, class and command 0C25), and the guarded build refused it"});
}

TEST(Judgement, ReplyThatCameTwice_IsDoubledAndNoBytesOfNothing) {
  const std::string twice = std::string(kReadReply) + kReadReply;
  const std::string doubled = "exchange 1 (read): a doubled reply: the same 16 bytes came again behind it";
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller(twice)), Said{"odd: " + doubled});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller(twice), kGuarded), Said{"odd: " + doubled});
  EXPECT_EQ(said_of(Traffic().host(kReadD).controller(twice), Reader{true, true}),
            Said{doubled + ", and the guarded build refused both"});
  EXPECT_EQ(
      said_of(Traffic().host(kReadD).controller(twice + "DE AD")),
      (Said{"odd: " + doubled, "odd: exchange 1 (read): 2 bytes more than the reply's head announces came behind it"}));
}

TEST(Judgement, BytesThatTheGuardedBuildRefused_AreNotTakenForTheReply) {
  EXPECT_EQ(
      said_of(Traffic().host(kReadD).controller(std::string("EE EE") + kReadReply), kGuarded),
      Said{"exchange 1 (read): 2 bytes that belong to nothing came before the reply, and the guarded build refused "
           "them"});
}

TEST(Judgement, Refusal_IsTheOnlyCauseOfWhatItLacks) {
  EXPECT_EQ(said_of(resolved().host(kReadD).controller("00 00 00 04 FF FF FF FB 00 01 1E 09 00 13")),
            Said{"exchange 2 (read): the controller refused the request: status 0013 in bytes 12 and 13"});
  EXPECT_EQ(said_of(Traffic().host(kResolveD).controller("00 00 00 04 FF FF FF FB 00 00 0C 28 00 13")),
            Said{"exchange 1 (resolve): the controller refused D (global): status 0013 in bytes 12 and 13"});
}

TEST(Judgement, RefusedValue_FollowsFromHandlesOfAnotherReply) {
  const std::string foreign = "00 00 00 04 FF FF FF FB FF FF 0C 28 00 00";
  const Traffic traffic = Traffic()
                              .host(kResolveD)
                              .controller(foreign + kResolveReply)
                              .host(kReadD)
                              .controller("00 00 00 04 FF FF FF FB 00 01 1E 09 00 13");
  EXPECT_EQ(said_of(traffic, kContract), Said());
  EXPECT_EQ(said_of(traffic, kGuarded),
            Said{"exchange 2 (read): the controller refused the request: status 0013 in bytes 12 and 13"});
}

TEST(Judgement, RefusedDirectory_IsNoMatterOfAVariable) {
  const std::pair<const char*, const char*> refusals[] = {
      {kDirectoryStart, "00 00 00 04 FF FF FF FB 00 00 0C 2C 00 13"},
      {kDirectoryRead, "00 00 00 04 FF FF FF FB 00 01 0C 25 00 13"}};
  for (const auto& [request, reply] : refusals) {
    const auto exchanges = wire_trace::find_exchanges(Traffic().host(request).controller(reply).recording());
    EXPECT_EQ(
        wire_trace::judge_exchange(exchanges, 0, 1)[0].advice,
        "It was the controller's directory of programs that was asked for, not a variable. Check that this is the "
        "controller's host link port, and that no password or mode of it stands before it.");
  }
}

TEST(Judgement, HandleThatNobodyGave_IsFound) {
  const char* other = "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 EE";
  EXPECT_EQ(said_of(resolved().host(other).controller(kReadReply)),
            Said{"exchange 2 (read): value 1 is asked for at area 06, address 010200EE, its name was given area 06, "
                 "address 01020000"});
}

TEST(Judgement, ReplyWithoutHandlesForAllNames_CountsThem) {
  const char* two_names = "00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 02 00 01 00 44 00 01 00 45";
  EXPECT_EQ(said_of(Traffic().host(two_names).controller(kResolveReply)),
            Said{"exchange 1 (resolve): handles for 1 of 2 names in the reply"});
}

TEST(Judgement, NameThatWasRefused_StandsOnOneLineAndIsNoSpeaker) {
  // "x", a line feed, "!: "
  const char* forged = "00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 78 00 0A 00 21 00 3A 00 20";
  const char* refused = "00 00 00 04 FF FF FF FB 00 00 0C 28 00 04";
  const Said said = said_of(Traffic().host(forged).controller(refused));
  ASSERT_FALSE(said.empty());
  EXPECT_EQ(said[0],
            "exchange 1 (resolve): the controller refused x\\n!\\x3a  (global): status 0004 in bytes 12 and 13");
}

TEST(Judgement, RequestThatTheDriverNeverSends_IsNamed) {
  const char* wrong = "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 5A 00 00 06 00 01 01 02 00 00";
  EXPECT_EQ(said_of(Traffic().host(wrong).controller(kReadReply)),
            Said{"exchange 1 (read): the request is not one that the driver sends: byte 16 is 5A, expected 00"});
}

}  // namespace
