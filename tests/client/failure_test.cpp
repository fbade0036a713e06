// Tests of what is said of a call that failed: each line of the driver, the state that it gives, what to try.
#include "client/driver/failure.h"

#include <gtest/gtest.h>

#include <set>

#include "client/driver/driver_lines.h"

namespace plc_client::core {
namespace {

const Target kTarget{0xC0A8000A, 8500, 0, 3, 0};

Failure explained(const std::vector<std::string>& lines, uint32_t code = 3, bool connection_lost = false) {
  CallResult call;
  call.code = code;
  call.connection_lost = connection_lost;
  call.lines = lines;
  return explain_failure(call, kTarget);
}

struct LineCase {
  const char* line;
  Quality quality;
  const char* reason;
};

const LineCase kLineCases[] = {
    {"[PLC] guard: connect refused", Quality::kNoConnection, "refused: nothing listens on 192.168.0.10:8500 (3)"},
    {"[PLC] guard: no route to the controller", Quality::kNoConnection, "there is no route to 192.168.0.10:8500 (3)"},
    {"[PLC] guard: connect failed, error 13", Quality::kNoConnection,
     "192.168.0.10:8500: the connection failed: Permission denied (3)"},
    {"select time out ", Quality::kNoConnection, "192.168.0.10:8500: nothing took the connection within 30 ms (3)"},
    {"[PLC] guard: no connection without the directory of programs", Quality::kNoConnection,
     "192.168.0.10:8500: the controller gave no directory of its programs, without which nothing is transferred (3)"},
    {"--timeout--", Quality::kNoAnswer, "192.168.0.10:8500: no answer within 3 s (3)"},
    {"[PLC] guard: reply cut off, 17 bytes in time", Quality::kNoAnswer,
     "192.168.0.10:8500: only 17 bytes of the answer came within 3 s (3)"},
    {"[PLC] guard: connection closed by the controller", Quality::kLost,
     "192.168.0.10:8500: the controller closed the connection (3)"},
    {"[PLC] guard: connection lost, error 104", Quality::kLost,
     "192.168.0.10:8500: the connection was lost: Connection reset by peer (3)"},
    {"send error", Quality::kLost,
     "192.168.0.10:8500: a request could not be sent: the connection is gone, or was refused in the first place (3)"},
    {"[PLC] guard: not a reply of this protocol", Quality::kForeign,
     "192.168.0.10:8500: what answers there does not speak this protocol (3)"},
    {"[PLC] guard: reply to another request", Quality::kForeign,
     "192.168.0.10:8500: the reply belongs to another request (3)"},
    {"[PLC] guard: bytes behind the reply", Quality::kForeign,
     "192.168.0.10:8500: bytes that belong to nothing came behind the reply (3)"},
    {"[PLC] guard: more than 65536 bytes waited before the request", Quality::kForeign,
     "192.168.0.10:8500: more than 64 KiB that nobody asked for came before the request (3)"},
    {"[PLC] guard: controller refused the directory, status 00FF", Quality::kRefused,
     "the controller refused its directory of programs, status 00FF (3)"},
    {"[PLC] guard: controller refused the names, status 0004", Quality::kRefused,
     "the controller refused the name, status 0004 (3)"},
    {"[PLC] guard: controller refused the read, status 0013", Quality::kRefused,
     "the controller refused the read, status 0013 (3)"},
    {"[PLC] guard: controller refused the write, status 0013", Quality::kRefused,
     "the controller refused the write, status 0013 (3)"},
    {"[PLC] guard: 50 of 52 names resolved", Quality::kIncomplete,
     "the reply holds 50 of 52 names that were asked for (3)"},
    {"[PLC] guard: 4 bytes of values, 8 were asked for", Quality::kIncomplete,
     "the reply holds 4 bytes of values, 8 were asked for (3)"},
    {"[PLC] guard: 1 of 2 programs in the directory", Quality::kIncomplete,
     "the directory of programs holds 1 of the 2 that it counts (3)"},
    {"read data err!", Quality::kIncomplete, "the reply to the value request has fewer than 14 bytes (3)"},
    {"[PLC] guard: program of the variable is ambiguous", Quality::kImpossible,
     "the names of two programs are the beginning of the variable's scope, and none is the scope (3)"},
    {"[PLC] guard: batch over several programs or scopes", Quality::kImpossible,
     "a batch takes variables of one scope only (3)"},
    {"[PLC] guard: batch with an 8-bit or 64-bit variable", Quality::kImpossible,
     "a batch takes 1, 16 and 32 bits only (3)"},
    {"[PLC] guard: batch with a BOOL array in EM memory", Quality::kImpossible,
     "a batch takes no BOOL array in EM memory (3)"},
    {"[PLC] guard: batch of several elements with a BOOL count above 1", Quality::kImpossible,
     "a batch of several elements takes single BOOLs only (3)"},
    {"[PLC] guard: write of several bits inside words or in EM memory", Quality::kImpossible,
     "such bits are written one by one only (3)"},
    {"[PLC] guard: write of more than 8 bits of an array", Quality::kImpossible,
     "eight bits of an array are the most in one write (3)"},
};

TEST(Failure, EachLineOfTheDriver_HasItsStateItsReasonAndItsAdvice) {
  for (const LineCase& line : kLineCases) {
    const Failure failure = explained({"server ip = 192.168.0.10", line.line});
    EXPECT_EQ(failure.quality, line.quality) << line.line;
    EXPECT_EQ(failure.reason, line.reason) << line.line;
    EXPECT_NE(failure.advice, "") << line.line;
  }
}

TEST(Failure, OnlyNameMissing_IsNotToBeReadInSmallerPieces) {
  const Failure one = explained({"[PLC] guard: 0 of 1 names resolved"});
  EXPECT_EQ(one.quality, Quality::kIncomplete);
  EXPECT_EQ(one.reason, "the reply does not hold the name that was asked for (3)");
  EXPECT_EQ(one.advice,
            "Compare offset, subscripts and declared length with the controller's declaration of the variable.");
  for (const char* line : {"[PLC] guard: 0 of 10 names resolved", "[PLC] guard: 0 of 2 names resolved"}) {
    EXPECT_EQ(explained({line}).advice, "Read fewer elements at once: one reply holds about 169 names.") << line;
  }
}

TEST(Failure, ShortReply_IsARefusalOrAPieceForAllThatIsKnown) {
  EXPECT_EQ(explained({"read data err!"}).advice,
            "plc-host why NAME shows what came: a refusal, as of a name that the controller does not have in this "
            "scope, or a piece of the reply.");
}

TEST(Failure, SeveralLines_TheOneNearestToTheCauseSpeaks) {
  EXPECT_EQ(explained({"[PLC] guard: connect refused", "[PLC] guard: connection closed by the controller",
                       "[PLC] guard: no connection without the directory of programs", "ev_plc_read init fail"},
                      2, true)
                .reason,
            "refused: nothing listens on 192.168.0.10:8500 (2)");
  EXPECT_EQ(explained({"[PLC] guard: 0 bytes of values, 2 were asked for", "read data err!"}).reason,
            "the reply holds 0 bytes of values, 2 were asked for (3)");
}

TEST(Failure, PortThatWasFoundRefused_SaysMoreThanTheLines) {
  CallResult call;
  call.code = PLC_FAILED;
  call.connection_lost = true;
  call.is_refused = true;
  call.lines = {"send error"};
  const Failure failure = explain_failure(call, kTarget);
  EXPECT_EQ(failure.reason, "refused: nothing listens on 192.168.0.10:8500 (3)");
  EXPECT_EQ(failure.quality, Quality::kNoConnection);
  EXPECT_TRUE(leaves_write_open(failure)) << "it was found out behind the call";
}

TEST(Failure, LateReplies_AreNamedWhereNoOtherCame) {
  const Failure failure = explained({"--timeout--", "[PLC] guard: 2 late replies dropped"});
  EXPECT_EQ(failure.reason, "192.168.0.10:8500: no answer within 3 s, only replies to other requests (3)");
  EXPECT_EQ(
      failure.advice,
      "Replies with other sequence numbers than the request's came. Either the controller does not repeat "
      "sequence numbers: then the guarded build reads nothing here, and plc-host survey tells whether the "
      "contract build does. Or they are late: raise the reply time-out (plc-host: --timeout; Python: reply_timeout; "
      "C++ and plc-gateway: reply_timeout_s).");
  EXPECT_FALSE(meaning_of_line("[PLC] guard: 2 late replies dropped")) << "the exchange itself may succeed";
}

TEST(Failure, NoLine_IsToldByTheCode) {
  EXPECT_EQ(explained({}).reason, "the transfer failed (3)");
  EXPECT_EQ(explained({}).quality, Quality::kFailed);
  EXPECT_EQ(explained({}, 2).quality, Quality::kIncomplete) << "a batch with a short reply";
  EXPECT_EQ(explained({}, 3, true).quality, Quality::kLost);
}

TEST(Failure, Silence_IsWhatWouldMakeTheNextOneWaitToo) {
  for (const char* line : {"--timeout--", "select time out ", "[PLC] guard: connect refused"}) {
    EXPECT_TRUE(explained({line}, 3, true).is_silence) << line;
  }
  for (const char* line : {"[PLC] guard: connection closed by the controller", "[PLC] guard: bytes behind the reply"}) {
    EXPECT_FALSE(explained({line}, 3, true).is_silence) << line;
  }
}

TEST(Failure, Qualities_HaveAWordEach) {
  std::set<std::string> words;
  for (int i = 0; i <= static_cast<int>(Quality::kNotWritten); ++i) words.insert(quality_word(static_cast<Quality>(i)));
  EXPECT_EQ(words,
            (std::set<std::string>{"good", "unguarded", "refused", "incomplete", "no-answer", "lost", "no-connection",
                                   "foreign", "impossible", "different", "failed", "not-read", "not-written"}));
}

TEST(Reading, WithoutAValue_HasNoneToShow) {
  EXPECT_EQ(Reading().value(), nullptr);
  EXPECT_EQ(Reading().quality(), Quality::kNotRead);
  EXPECT_FALSE(Reading().is_taken());
  const Reading failed(explained({"--timeout--"}), {});
  EXPECT_EQ(failed.value(), nullptr);
  EXPECT_EQ(failed.quality(), Quality::kNoAnswer);
  EXPECT_TRUE(failed.is_taken());
  const Reading good(TagValue{{7}, ""}, Quality::kGood, {});
  ASSERT_NE(good.value(), nullptr);
  EXPECT_EQ(good.value()->elements, std::vector<uint64_t>{7});
}

}  // namespace
}  // namespace plc_client::core
