// The directory's bounds at their edges: the table's last record, the name's last byte, the reply's last byte.
#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/directory.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/driver_build.h"

namespace plc_test {
namespace {

class DirectoryGuard : public ProtocolTest {
 protected:
  uint32_t fetch(const Bytes& from_count_on) {
    peer_.answer(from_hex("01"));
    peer_.answer(reply_exactly(Bytes(14) + from_count_on));
    return KV8000_get_localMSG(&conn_);
  }
};

constexpr const char* kEmptyName = "00 00 02 00 09 00";

TEST_F(DirectoryGuard, FiftyOneRecords_LeaveTheTableAtFifty) {
  Bytes records = {51};
  for (int i = 0; i < 51; ++i) records = records + from_hex(kEmptyName);
  EXPECT_EQ(fetch(records), 0U);
  EXPECT_EQ(plc::localNum, by_build(50U, 51U));
  EXPECT_EQ(plc::LocalInfo[49].number, 9U);
}

TEST_F(DirectoryGuard, NameOf255BytesAndOneMore_KeepsItsTerminator) {
  Bytes record = from_hex("01 00 00 AE 00 07");
  for (int i = 0; i < 85; ++i) record = record + from_hex("65 E5");
  plc::LocalInfo[1].number = 0x5A5A5A5A;
  EXPECT_EQ(fetch(record + from_hex("00 41 00")), 0U);
  ASSERT_EQ(plc::localNum, 1U);
  EXPECT_EQ(strnlen(plc::LocalInfo[0].name, sizeof plc::LocalInfo[0].name), 255U);
  EXPECT_EQ(plc::LocalInfo[1].number, 0x5A5A5A5AU);
}

TEST_F(DirectoryGuard, NameThatEndsWithTheReply_IsTaken) {
  EXPECT_EQ(fetch(from_hex("01 00 00 04 00 07 00 41")), 0U);
  ASSERT_EQ(plc::localNum, 1U);
  EXPECT_EQ(plc::LocalInfo[0].number, 7U);
  EXPECT_STREQ(plc::LocalInfo[0].name, "A");
}

TEST_F(DirectoryGuard, NameThatEndsBehindTheReply_EndsTheDirectory) {
  EXPECT_EQ(fetch(from_hex("02 00 00 02 00 09 00 00 00 04 00 07 00")), 0U);
  EXPECT_EQ(plc::localNum, 1U);
}

TEST_F(DirectoryGuard, SizeBelowTwo_IsARecordWithoutAName) {
  EXPECT_EQ(fetch(from_hex("02 00 00 01 00 03 00 00 00 00 00 04 00")), 0U);
  ASSERT_EQ(plc::localNum, 2U);
  EXPECT_EQ(plc::LocalInfo[0].number, 3U);
  EXPECT_EQ(plc::LocalInfo[1].number, 4U);
  EXPECT_STREQ(plc::LocalInfo[1].name, "");
}

TEST_F(DirectoryGuard, ReplyWithoutACount_IsAnEmptyDirectory) {
  plc::localNum = 3;
  EXPECT_EQ(fetch({}), 0U);
  EXPECT_EQ(plc::localNum, 0U);
}

}  // namespace
}  // namespace plc_test
