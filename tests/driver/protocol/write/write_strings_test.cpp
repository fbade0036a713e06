// The two string writes, and the clipping that belongs to them.
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/writes/write_functions.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class WriteText : public ProtocolTest {
 protected:
  // Writes units of text through the named function; returns its result.
  int32_t write_units(uint32_t units) {
    TagEntry tag = make_string("S", 2000);
    return ev_plc_write_string(element(0), value(Bytes(2 * units, 'x'), units, 2 * units), &conn_, &tag);
  }
};

TEST_F(WriteText, GlobalString_IsNamedByCharacterAndSentAsItLies_D24) {
  answer_writes();
  TagEntry tag = make_string("S", 80);
  EXPECT_EQ(ev_plc_write_string(element(3), value("41 42 43 44", 2), &conn_, &tag), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 53 00 5B 00 23 00 36 00 5D",
                            "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 41 42 43 44"}));
  EXPECT_EQ(host_data(), "41 42 43 44");
}

TEST_F(WriteText, LocalString_IsNamedUnderItsProgram) {
  answer_writes();
  TagEntry tag = local(make_string("S", 80));
  EXPECT_EQ(ev_plc_write_string_local(element(3), value("41 42 43 44", 2), &conn_, &tag, 1, kMainNumber), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01"
                            "00 05 00 53 00 5B 00 23 00 36 00 5D",
                            "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 41 42 43 44"}));
}

TEST_F(WriteText, CountZero_SendsNoText) {
  answer_writes();
  EXPECT_EQ(write_units(0), 0);
  EXPECT_EQ(to_hex(peer_.requests().at(1)), "00 00 00 0C FF FF FF F3 00 01 1E 01 00 A1 00 00 00 00 B2 C3 D4 E5");
}

TEST_F(WriteText, LastIndex_IsDoubledBeyond16Bits) {
  answer_writes();
  TagEntry tag = make_string("S", 80);
  EXPECT_EQ(ev_plc_write_string(element(0xFFFF), value("41 42", 1), &conn_, &tag), 0);
  EXPECT_EQ(sent_names(), (std::vector<std::string>{"S[#131070]"}));
}

TEST_F(WriteText, UpTo121Units_LengthIsThatOfTheFrame) {
  answer_writes();
  EXPECT_EQ(write_units(121), 0);
  EXPECT_EQ(peer_.requests().at(1).size(), 264U);
  EXPECT_EQ(to_hex(prefix_of(peer_.requests().at(1), 22)),
            "00 00 00 FE FF FF FF 01 00 01 1E 01 00 A1 00 00 00 79 B2 C3 D4 E5");
}

TEST_F(WriteText, LengthIsOneByteAlsoAbove121Units_D25) {
  answer_writes(3);
  EXPECT_EQ(write_units(122), 0);
  EXPECT_EQ(peer_.requests().at(1).size(), 266U);
  EXPECT_EQ(to_hex(prefix_of(peer_.requests().at(1), 22)),
            "00 00 00 00 FF FF FF FF 00 01 1E 01 00 A1 00 00 00 7A B2 C3 D4 E5");
  EXPECT_EQ(write_units(200), 0);
  EXPECT_EQ(peer_.requests().at(3).size(), 422U);
  EXPECT_EQ(to_hex(prefix_of(peer_.requests().at(3), 22)),
            "00 00 00 9C FF FF FF 63 00 03 1E 01 00 A1 00 00 00 C8 B2 C3 D4 E5");
  EXPECT_EQ(write_units(300), 0);
  EXPECT_EQ(to_hex(prefix_of(peer_.requests().at(5), 22)),
            "00 00 00 64 FF FF FF 9B 00 05 1E 01 00 A1 00 00 00 2C B2 C3 D4 E5");
}

TEST_F(WriteText, LongestText_FillsTheBufferToItsLastByte) {
  answer_writes();
  EXPECT_EQ(write_units(501), 0);
  EXPECT_EQ(peer_.requests().at(1).size(), 1024U);
  EXPECT_EQ(peer_.requests().at(1)[1023], 'x');
}

TEST_F(WriteText, LongerTexts_FailWithNothingSent) {
  EXPECT_EQ(write_units(502), 3);
  TagEntry tag = make_string("S", 80);
  for (const uint32_t units : {0x10000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(ev_plc_write_string(element(0), value("", units), &conn_, &tag), 3);
  }
  EXPECT_EQ(sent(), frames({}));
  EXPECT_EQ(plc::sid, 0);
  EXPECT_EQ(plc::init, 1U);
}

TEST_F(WriteText, CountAboveTheDeclaredLength_IsClippedToHalfOfIt_D32) {
  use_tags({make_string("S", 80)});
  answer_writes();
  EXPECT_EQ(ev_plc_write(element(0), value(Bytes(200, 'x'), 100, 200), &conn_), 0U);
  EXPECT_EQ(value_.count, 40U);
  EXPECT_EQ(peer_.requests().at(1).size(), 22U + 80U);
  EXPECT_EQ(peer_.requests().at(1)[17], 40);
}

TEST_F(WriteText, CountUpToTheDeclaredLength_IsNotClipped_D32) {
  use_tags({make_string("S", 80)});
  for (const uint32_t units : {60U, 41U, 80U}) {
    peer_.forget();
    answer_writes();
    EXPECT_EQ(ev_plc_write(element(0), value(Bytes(2 * units, 'x'), units, 2 * units), &conn_), 0U);
    EXPECT_EQ(value_.count, units);
    EXPECT_EQ(peer_.requests().at(1).size(), 22U + 2 * units);
  }
}

TEST_F(WriteText, OddDeclaredLength_IsHalvedDownwards) {
  use_tags({make_string("S", 7), local(make_string("T", 1))});
  answer_writes(2);
  EXPECT_EQ(ev_plc_write(element(0), value(Bytes(16, 'x'), 8, 16), &conn_), 0U);
  EXPECT_EQ(value_.count, 3U);
  EXPECT_EQ(ev_plc_write(element(0, 1), value("41 42 43 44", 2), &conn_), 0U);
  EXPECT_EQ(value_.count, 0U);
  EXPECT_EQ(peer_.requests().at(3).size(), 22U);
}

TEST_F(WriteText, HugeCount_IsClipped) {
  use_tags({make_string("S", 80)});
  answer_writes();
  EXPECT_EQ(ev_plc_write(element(0), value(Bytes(80, 'x'), 0xFFFFFFFF, 80), &conn_), 0U);
  EXPECT_EQ(value_.count, 40U);
}

TEST_F(WriteText, AcknowledgmentOfOneByte_IsEnough) {
  for (size_t length = 0; length < 3; ++length) {
    peer_.forget();
    peer_.answer(resolve_reply());
    peer_.answer(reply_exactly(prefix_of(acknowledgment(), length)));
    EXPECT_EQ(write_units(1), length < 1 ? 3 : 0);
    EXPECT_EQ(plc::init, 1U);
  }
}

TEST_F(WriteText, EmptyResolveReply_FailsWithNoTextSent) {
  peer_.answer(Bytes{});
  EXPECT_EQ(write_units(1), 3);
  EXPECT_EQ(peer_.requests().size(), 1U);
  EXPECT_EQ(plc::init, 1U);
}

TEST_F(WriteText, LostConnection_FailsAndClearsTheFlag) {
  for (const bool resolved : {false, true}) {
    peer_.forget();
    plc::init = 1;
    conn_.socket_fd = ScriptedSocket::kDescriptor;
    if (resolved) peer_.answer(resolve_reply());
    peer_.answer(say_nothing());
    capture_output([this] { EXPECT_EQ(write_units(1), 3); });
    EXPECT_EQ(plc::init, 0U);
  }
}

}  // namespace
}  // namespace plc_test
