// Tests of the directory of the controller's programs: both requests, the records, replies that are cut or lie.
#include "plc_driver/protocol/link/directory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/connection.h"
#include "tests/support/driver_build.h"
#include "tests/support/driver_fixture.h"

namespace {

using plc_test::answer;
using plc_test::answer_exactly;
using plc_test::by_build;
using plc_test::Bytes;
using plc_test::directory_of;
using plc_test::from_hex;
using plc_test::PeerStep;
using plc_test::ScriptedPeer;
using plc_test::to_hex;
using plc_test::wait_for_input;
using plc_test::wrapped_calls;
using plc_test::operator+;

constexpr const char* kFirstRequest = "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00";
constexpr const char* kSecondRequest = "00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00";

// Two programs: number 7 named AB, number 9 without a name.
constexpr const char* kTwoRecords = "00 00 06 00 07 00 41 00 42 00 00 00 02 00 09 00";

class Directory : public plc_test::DriverFixture {
 protected:
  void connect_to(std::vector<PeerStep> script) {
    peer_ = std::make_unique<ScriptedPeer>(std::move(script));
    ASSERT_EQ(captured([&] { return SetupTCPComm(&conn_, plc_test::kLoopbackAddress, peer_->port()); }), 0);
    take_output();
    plc::init = 1;
  }

  uint32_t fetch() {
    return captured([&] { return KV8000_get_localMSG(&conn_); });
  }

  // Fetches a directory whose second reply is this one.
  uint32_t fetch_reply(const Bytes& second_reply) {
    connect_to({answer(from_hex("01")), answer_exactly(second_reply)});
    const uint32_t result = fetch();
    finish(0);
    captured([&] { return QuitSock(&conn_); });
    return result;
  }

  uint32_t fetch_records(uint8_t count, const Bytes& records) {
    return fetch_reply(Bytes(14) + Bytes{count} + records);
  }

  static void expect_record(uint32_t index, uint32_t number, const std::string& name) {
    EXPECT_EQ(plc::LocalInfo[index].number, number) << index;
    EXPECT_EQ(plc::LocalInfo[index].name, name) << index;
  }

  // Marks every record and the count, to see which are written.
  static void mark_records() {
    plc::localNum = 33;
    for (uint32_t i = 0; i < plc::directory_capacity; ++i) {
      plc::LocalRecord& record = plc::LocalInfo[i];
      record.number = 999;
      std::fill(std::begin(record.name), std::end(record.name), 'm');
      record.name[1] = '\0';
    }
  }
};

TEST_F(Directory, Requests_AreTheirSixteenBytesWhateverTheSequenceNumber) {
  for (const uint16_t sequence : {uint16_t{0}, uint16_t{0x1234}, uint16_t{0xFFFF}}) {
    plc::sid = sequence;
    connect_to(plc_test::empty_directory());
    EXPECT_EQ(fetch(), 0U);
    const std::vector<Bytes> requests = finish(0);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(to_hex(requests[0]), kFirstRequest);
    EXPECT_EQ(to_hex(requests[1]), kSecondRequest);
    EXPECT_EQ(plc::sid, sequence);
  }
}

TEST_F(Directory, TwoRecords_AreStoredAndTheSecondBeginsTenBytesBehindTheFirst) {
  EXPECT_EQ(fetch_records(2, from_hex(kTwoRecords)), 0U);
  EXPECT_EQ(plc::localNum, 2U);
  expect_record(0, 7, "AB");
  expect_record(1, 9, "");
  EXPECT_EQ(take_output(), "");
}

TEST_F(Directory, CountOfZero_LeavesTheOldRecords) {
  mark_records();
  EXPECT_EQ(fetch_records(0, from_hex(kTwoRecords)), 0U);
  EXPECT_EQ(plc::localNum, 0U);
  expect_record(0, 999, "m");
  expect_record(49, 999, "m");
}

TEST_F(Directory, ShorterDirectory_LeavesTheRecordsBeyondIt) {
  mark_records();
  EXPECT_EQ(fetch_records(1, from_hex(kTwoRecords)), 0U);
  EXPECT_EQ(plc::localNum, 1U);
  expect_record(0, 7, "AB");
  expect_record(1, 999, "m");
}

TEST_F(Directory, SizeOfZeroOneOrTwo_IsARecordOfSixBytesWithoutAName) {
  EXPECT_EQ(fetch_records(4, from_hex("00 00 00 00 01 00"
                                      "00 00 01 00 02 00"
                                      "00 00 02 00 03 00"
                                      "00 00 04 00 FF 00 5A")),
            0U);
  EXPECT_EQ(plc::localNum, 4U);
  expect_record(0, 1, "");
  expect_record(1, 2, "");
  expect_record(2, 3, "");
  expect_record(3, 255, "Z");
}

TEST_F(Directory, OddSize_DropsTheLastByteOfTheName) {
  EXPECT_EQ(fetch_records(2, from_hex("00 00 05 00 01 00 41 00 00"
                                      "00 00 03 00 02 00 00")),
            0U);
  EXPECT_EQ(plc::localNum, 2U);
  expect_record(0, 1, "A");
  expect_record(1, 2, "");
}

TEST_F(Directory, BytesThatAreNotRead_MayHoldAnything) {
  const Bytes status(2, by_build<uint8_t>(0xFF, 0));
  EXPECT_EQ(
      fetch_reply(Bytes(12, 0xFF) + status + from_hex("02 FF FF 06 FF 07 00 41 00 42 FF FF FF 02 FF 09 FF FF FF")), 0U);
  EXPECT_EQ(plc::localNum, 2U);
  expect_record(0, 7, "AB");
  expect_record(1, 9, "");
}

TEST_F(Directory, NameUnits_BecomeUtf8) {
  EXPECT_EQ(fetch_records(1, from_hex("00 00 0A 00 05 4E 2D 00 E9 D8 3D DE 00")), 0U);
  expect_record(0, 5, "\xE4\xB8\xAD\xC3\xA9\xED\xA0\xBD\xED\xB8\x80");
}

TEST_F(Directory, ZeroUnit_EndsTheNameForItsReaders) {
  EXPECT_EQ(fetch_records(1, from_hex("00 00 08 00 05 00 41 00 00 00 42")), 0U);
  expect_record(0, 5, "A");
  EXPECT_EQ(plc::LocalInfo[0].name[2], 'B');
  EXPECT_EQ(plc::LocalInfo[0].name[3], '\0');
}

// A record with a name of this many units.
Bytes record_of(uint8_t number, size_t units, uint16_t unit) {
  Bytes record = {0, 0, static_cast<uint8_t>(2 * units + 2), 0, number};
  for (size_t i = 0; i < units; ++i) {
    record.push_back(static_cast<uint8_t>(unit >> 8));
    record.push_back(static_cast<uint8_t>(unit));
  }
  record.push_back(0);
  return record;
}

TEST_F(Directory, NameAbove255Bytes_IsCutToWholeCharacters) {
  EXPECT_EQ(fetch_records(3, record_of(1, 126, 0x4E2D) + record_of(2, 126, 0x00E9) + record_of(3, 126, 0x0041)), 0U);
  ASSERT_EQ(plc::localNum, 3U);
  std::string three_bytes_each;
  for (int i = 0; i < 85; ++i) three_bytes_each += "\xE4\xB8\xAD";
  expect_record(0, 1, three_bytes_each);
  std::string two_bytes_each;
  for (int i = 0; i < 126; ++i) two_bytes_each += "\xC3\xA9";
  expect_record(1, 2, two_bytes_each);
  expect_record(2, 3, std::string(126, 'A'));
}

TEST_F(Directory, CharacterThatDoesNotFitWhole_EndsTheName) {
  // 84 characters of three bytes, one of one, then one of three that would end at byte 256.
  Bytes record = record_of(1, 126, 0x4E2D);
  record[5 + 2 * 84] = 0x00;
  record[5 + 2 * 84 + 1] = 0x41;
  EXPECT_EQ(fetch_records(1, record), 0U);
  std::string name;
  for (int i = 0; i < 84; ++i) name += "\xE4\xB8\xAD";
  expect_record(0, 1, name + "A");
}

TEST_F(Directory, MoreThan50Records_AreCutTo50) {
  for (const uint8_t count : {uint8_t{50}, uint8_t{51}, uint8_t{255}}) {
    mark_records();
    Bytes records;
    for (uint32_t i = 0; i < count; ++i) {
      records = records + Bytes{0, 0, 4, 0, static_cast<uint8_t>(i), 0, static_cast<uint8_t>('A' + i % 26), 0};
    }
    EXPECT_EQ(fetch_records(count, records), 0U);
    EXPECT_EQ(plc::localNum, by_build(50U, uint32_t{count}));
    expect_record(0, 0, "A");
    expect_record(49, 49, "X");
  }
}

TEST_F(Directory, EveryPrefixOfTheReply_StoresTheRecordsThatCameWhole) {
  const Bytes whole = Bytes(14) + from_hex("03") + from_hex(kTwoRecords) + from_hex("00 00 04 00 0B 00 5A 00");
  ASSERT_EQ(whole.size(), 39U);
  for (size_t length = 1; length <= whole.size() && !HasFailure(); ++length) {
    mark_records();
    EXPECT_EQ(fetch_reply(plc_test::prefix_of(whole, length)), 0U) << length;
    // The first record's name ends at byte 23, the second's number at 29, the third's name at 37; each may end without
    // the byte behind it.
    const uint32_t stored = length < 24 ? 0 : length < 30 ? 1 : length < 38 ? 2 : 3;
    EXPECT_EQ(plc::localNum, stored) << length;
    EXPECT_EQ(plc::LocalInfo[0].number, stored > 0 ? 7U : 999U) << length;
    EXPECT_EQ(plc::LocalInfo[1].number, stored > 1 ? 9U : 999U) << length;
    EXPECT_EQ(plc::LocalInfo[2].number, stored > 2 ? 11U : 999U) << length;
    EXPECT_EQ(plc::LocalInfo[3].number, 999U) << length;
  }
}

TEST_F(Directory, CountThatWasNotReceived_IsZeroWhateverTheFirstReplyHeld) {
  connect_to({answer(Bytes(40, 0x02)), answer(Bytes(14))});
  mark_records();
  EXPECT_EQ(fetch(), 0U);
  EXPECT_EQ(plc::localNum, 0U);
  expect_record(0, 999, "m");
}

TEST_F(Directory, RecordsBehindTheReceivedLength_AreNotTakenFromTheFirstReply) {
  // The first reply holds two whole records where the second was cut.
  connect_to({answer(Bytes(14) + from_hex("02") + from_hex(kTwoRecords)), answer_exactly(Bytes(14) + from_hex("02"))});
  mark_records();
  EXPECT_EQ(fetch(), 0U);
  EXPECT_EQ(plc::localNum, 0U);
}

TEST_F(Directory, LongestReply_IsReadWithinItsBytes) {
  for (const uint8_t fill : {uint8_t{0x00}, uint8_t{0x01}, uint8_t{0x7F}, uint8_t{0xFF}}) {
    wrapped_calls().before_recv = [this] {
      // Each exchange's last call is its recv; the second's waits for all.
      if (wrapped_calls().exchange_calls.size() == 1 + 4 + 4) {
        EXPECT_TRUE(wait_for_input(conn_.socket_fd, 4096));
      }
    };
    wrapped_calls().exchange_calls.clear();
    EXPECT_EQ(fetch_reply(Bytes(4096, fill)), 0U);
    EXPECT_LE(plc::localNum, 50U);
    EXPECT_EQ(plc::localNum, fill == 0x00 ? 0U : fill == 0x01 ? 1U : fill == 0x7F ? 31U : 15U);
    wrapped_calls().reset();
  }
}

TEST_F(Directory, FirstReply_IsTestedForItsLengthAlone) {
  connect_to({answer(Bytes(30, 0xFF)), answer(Bytes(14) + from_hex("02") + from_hex(kTwoRecords))});
  EXPECT_EQ(fetch(), 0U);
  EXPECT_EQ(plc::localNum, 2U);
}

TEST_F(Directory, FailedFirstExchange_ClearsInitAndKeepsTheOldDirectory) {
  connect_to({plc_test::stay_silent()});
  conn_.recv_timeout_s = 0;
  mark_records();
  EXPECT_EQ(fetch(), 3U);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(plc::localNum, 33U);
  EXPECT_EQ(take_output(), "--timeout--\r\n");
}

TEST_F(Directory, FailedSecondExchange_ClearsInitAndKeepsTheOldDirectory) {
  connect_to({answer(from_hex("01")), plc_test::reset_connection()});
  mark_records();
  EXPECT_EQ(fetch(), 3U);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(plc::localNum, 33U);
  EXPECT_EQ(take_output(), by_build("", "[PLC] guard: connection lost, error 104\r\n"));
}

TEST_F(Directory, EmptyReplyToEitherRequest_FailsWithInitUnchanged) {
  connect_to({plc_test::close_orderly()});
  mark_records();
  EXPECT_EQ(fetch(), 3U);
  EXPECT_EQ(plc::init, by_build(1U, 0U));
  EXPECT_EQ(plc::localNum, 33U);
  EXPECT_EQ(take_output(), by_build("", "[PLC] guard: connection closed by the controller\r\n"));

  connect_to({answer(from_hex("01")), plc_test::close_orderly()});
  EXPECT_EQ(fetch(), 3U);
  EXPECT_EQ(plc::init, by_build(1U, 0U));
  EXPECT_EQ(plc::localNum, 33U);
  EXPECT_EQ(take_output(), by_build("", "[PLC] guard: connection closed by the controller\r\n"));
}

class Kv8000Init : public Directory {
 protected:
  // KV8000_init against this port of the loopback.
  int connect_port(uint16_t port) {
    plc::ip_addr = plc_test::kLoopbackAddress;
    plc::port = static_cast<int16_t>(port);
    return captured([&] { return KV8000_init(&conn_); });
  }
};

TEST_F(Kv8000Init, Connect_FetchesTheDirectory) {
  peer_ = std::make_unique<ScriptedPeer>(directory_of(2, from_hex(kTwoRecords)));
  EXPECT_EQ(connect_port(peer_->port()), 0);
  EXPECT_EQ(plc::localNum, 2U);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n");
}

TEST_F(Kv8000Init, FailedDirectory_IsIgnored_D18) {
  peer_ = std::make_unique<ScriptedPeer>(std::vector<PeerStep>{plc_test::reset_connection()});
  EXPECT_EQ(connect_port(peer_->port()), 0);
  EXPECT_EQ(plc::localNum, 0U);
}

TEST_F(Kv8000Init, FailedConnect_StillAsksForTheDirectoryOnTheOldSocket_D18) {
  connect_to(directory_of(2, from_hex(kTwoRecords)));
  const int old_socket = conn_.socket_fd;
  const plc_test::FullBacklog held_back;
  EXPECT_EQ(connect_port(held_back.port()), -1);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nselect time out \r\n");
  EXPECT_EQ(conn_.socket_fd, old_socket);
  EXPECT_EQ(plc::localNum, 2U);
  const std::vector<Bytes> requests = finish(0);
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(to_hex(requests[0]), kFirstRequest);
}

TEST_F(Kv8000Init, FailedConnect_TakesANumberThatTheDriverDidNotStoreOutOfTheRecord) {
  const plc_test::LoopbackSocket host_socket(SOCK_STREAM, 1);
  const plc_test::FullBacklog held_back;
  for (const int number : {0, host_socket.fd(), FD_SETSIZE, INT32_MAX, -2}) {
    conn_.socket_fd = number;
    wrapped_calls().reset();
    EXPECT_EQ(connect_port(held_back.port()), -1);
    EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nselect time out \r\nsend error\n") << number;
    EXPECT_EQ(conn_.socket_fd, -1) << number;
    EXPECT_EQ(wrapped_calls().selects, 1) << "the connect's own";
  }
  EXPECT_NE(fcntl(host_socket.fd(), F_GETFD), -1);
}

TEST_F(Kv8000Init, FailedConnect_TakesASocketThatTheDriverHasClosedOutOfTheRecord) {
  connect_to({plc_test::stay_silent()});
  const int closed = conn_.socket_fd;
  captured([&] { return QuitSock(&conn_); });
  peer_->finish();                                 // or the peer may be taking the number for its own socket
  ASSERT_EQ(dup2(STDERR_FILENO, closed), closed);  // now the host's
  conn_.socket_fd = closed;                        // a copy of the record that the host kept
  const plc_test::FullBacklog held_back;
  EXPECT_EQ(connect_port(held_back.port()), -1);
  EXPECT_EQ(conn_.socket_fd, -1);
  EXPECT_NE(fcntl(closed, F_GETFD), -1);
  close(closed);
}

}  // namespace
