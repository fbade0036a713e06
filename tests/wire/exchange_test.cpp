// Tests of how events become exchanges, and of what is read from replies.
#include "wire/exchange.h"

#include <gtest/gtest.h>

#include "tests/wire/trace_fixture.h"
#include "wire/reply_parts.h"

namespace {

using namespace trace_test;
using plc_sim::RequestKind;
using wire_trace::Ending;
using wire_trace::Exchange;
using wire_trace::find_exchanges;

TEST(Exchanges, WholeRoad_IsCutIntoItsRequests) {
  Traffic traffic;
  traffic.host(kDirectoryStart).controller(kStartReply).host(kDirectoryRead).controller(kDirectoryReply);
  traffic.host(kResolveD).controller(kResolveReply).host(kReadD).controller(kReadReply);
  const std::vector<Exchange> exchanges = find_exchanges(traffic.recording());
  ASSERT_EQ(exchanges.size(), 4U);
  EXPECT_EQ(exchanges[0].request.kind, RequestKind::kDirectoryStart);
  EXPECT_EQ(exchanges[1].request.kind, RequestKind::kDirectory);
  EXPECT_EQ(exchanges[2].request.kind, RequestKind::kResolve);
  EXPECT_EQ(exchanges[3].request.kind, RequestKind::kRead);
  EXPECT_EQ(exchanges[3].reply(), from_hex(kReadReply));
  EXPECT_EQ(exchanges[3].time_ns(), 1000000);
  EXPECT_TRUE(exchanges[3].oddities.empty());
}

TEST(ReplyHeads, LargestLength_IsTheSameOnA32BitPanel) {
  static_assert(sizeof(wire_trace::ReplyHead::announced) == sizeof(uint64_t));
  EXPECT_EQ(wire_trace::head_of(from_hex("FF FF FF FF 00 00 00 00 00 01 1E 09 00 00")).announced, 0x1'0000'0009U);
}

TEST(Exchanges, RequestInTwoSegments_IsOne) {
  Traffic traffic;
  traffic.host("00 00 00 0C FF FF FF F3 00").host("00 0C 28 00 01 00 00 00 01 00 01 00 44").controller(kResolveReply);
  const std::vector<Exchange> exchanges = find_exchanges(traffic.recording());
  ASSERT_EQ(exchanges.size(), 1U);
  EXPECT_EQ(exchanges[0].request_bytes, from_hex(kResolveD));
  EXPECT_EQ(exchanges[0].time_ns(), 2000000) << "counted from its first byte";
}

TEST(Exchanges, RequestsAndRepliesInOneSegment_FindEachOther) {
  Traffic traffic;
  traffic.host(std::string(kResolveD) + kReadD).controller(std::string(kResolveReply) + kReadReply);
  const std::vector<Exchange> exchanges = find_exchanges(traffic.recording());
  ASSERT_EQ(exchanges.size(), 2U);
  EXPECT_EQ(exchanges[0].reply(), from_hex(kResolveReply));
  EXPECT_EQ(exchanges[1].reply(), from_hex(kReadReply));
}

TEST(Exchanges, ReplyThatNamesOnlyTheLaterRequest_LeavesTheEarlierOneUnanswered) {
  Traffic traffic;
  traffic.host(kResolveD).host(kReadD).controller(kReadReply);
  const std::vector<Exchange> exchanges = find_exchanges(traffic.recording());
  ASSERT_EQ(exchanges.size(), 2U);
  EXPECT_FALSE(exchanges[0].is_answered());
  EXPECT_EQ(exchanges[1].reply(), from_hex(kReadReply));
}

TEST(Exchanges, OwnReply_IsTheFrameThatAnswersTheRequest) {
  const auto own_of = [](const std::vector<std::string>& replies) {
    Traffic traffic;
    traffic.host(kResolveD);
    for (const std::string& reply : replies) traffic.controller(reply);
    return find_exchanges(traffic.recording()).at(0).own_reply();
  };
  const std::string reply = kResolveReply;
  EXPECT_EQ(own_of({reply}), from_hex(reply));
  EXPECT_EQ(own_of({kReadReply, reply}), from_hex(reply)) << "behind the reply to another request";
  EXPECT_EQ(own_of({kReadReply + reply}), from_hex(reply)) << "that came with it";
  EXPECT_EQ(own_of({reply + " EE EE"}), from_hex(reply));
  EXPECT_EQ(own_of({reply.substr(0, 60), reply.substr(60)}), from_hex(reply));
  EXPECT_EQ(own_of({reply.substr(0, 60)}), std::nullopt);
  EXPECT_EQ(own_of({kReadReply}), std::nullopt);
  EXPECT_EQ(own_of({"EE EE EE", reply}), std::nullopt) << "nobody knows where frames begin";
  EXPECT_EQ(own_of({}), std::nullopt);
}

TEST(Exchanges, WholeDirectory_HasAllThatItAnnounces) {
  const plc_sim::Bytes reply = from_hex(kDirectoryReply);
  const auto programs = wire_trace::whole_directory(reply);
  ASSERT_TRUE(programs.has_value());
  EXPECT_EQ(programs->size(), wire_trace::programs_of(reply).size());
  EXPECT_FALSE(wire_trace::whole_directory(plc_sim::Bytes(reply.begin(), reply.end() - 2)).has_value());
  EXPECT_FALSE(wire_trace::whole_directory({}).has_value());
}

TEST(Exchanges, PiecesOfAReply_KeepTheirTimes) {
  Traffic traffic;
  traffic.host(kReadD).controller("00 00 00 06 FF FF FF F9").pass(50000000).controller("00 01 1E 09 00 00 12 34");
  const std::vector<Exchange> exchanges = find_exchanges(traffic.recording());
  ASSERT_EQ(exchanges.size(), 1U);
  ASSERT_EQ(exchanges[0].pieces.size(), 2U);
  EXPECT_EQ(exchanges[0].pieces[1].time_ns - exchanges[0].pieces[0].time_ns, 51000000);
}

TEST(Exchanges, EndsOfTheConnection_AreToldApart) {
  const auto ending_of = [](bool from_host, TrafficEvent::Kind kind) {
    Traffic traffic;
    traffic.host(kReadD).end(from_host, kind);
    return find_exchanges(traffic.recording()).at(0).ending;
  };
  EXPECT_EQ(ending_of(true, TrafficEvent::Kind::kFinished), Ending::kClosedByHost);
  EXPECT_EQ(ending_of(true, TrafficEvent::Kind::kReset), Ending::kClosedByHost);
  EXPECT_EQ(ending_of(false, TrafficEvent::Kind::kFinished), Ending::kClosedByController);
  EXPECT_EQ(ending_of(false, TrafficEvent::Kind::kReset), Ending::kReset);
}

TEST(Exchanges, InterleavedConnections_StandInTheOrderOfTheirRequests) {
  Traffic first;
  first.host(kResolveD).controller(kResolveReply).pass(10000000).host(kReadD).controller(kReadReply);
  Traffic second;
  second.pass(5000000).host(kDirectoryStart).controller(kStartReply);
  const std::vector<Exchange> exchanges = find_exchanges({{first.connection(), second.connection()}});
  ASSERT_EQ(exchanges.size(), 3U);
  EXPECT_EQ(exchanges[0].connection, 0U);
  EXPECT_EQ(exchanges[1].connection, 1U);
  EXPECT_EQ(exchanges[2].connection, 0U);
}

TEST(Exchanges, EveryCutOfARequest_IsOneRequestAtMost) {
  const Bytes whole = from_hex(kResolveD);
  for (size_t size = 1; size < whole.size(); ++size) {
    Connection connection;
    connection.events.push_back(
        {0, true, TrafficEvent::Kind::kBytes, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))});
    const std::vector<Exchange> exchanges = find_exchanges({{connection}});
    ASSERT_EQ(exchanges.size(), 1U) << size;
    EXPECT_EQ(exchanges[0].request_bytes.size(), size);
    EXPECT_FALSE(exchanges[0].oddities.empty()) << size;
  }
}

TEST(ReplyParts, Directory_GivesNumbersAndNames) {
  const auto programs = wire_trace::programs_of(from_hex(kDirectoryReply));
  ASSERT_EQ(programs.size(), 1U);
  EXPECT_EQ(programs[0].number, 7);
  EXPECT_EQ(programs[0].name, "M1");
}

TEST(ReplyParts, DirectoryThatAnnouncesMoreThanItHolds_EndsWithIt) {
  Bytes reply = from_hex(kDirectoryReply);
  reply[14] = 0xFF;
  EXPECT_EQ(wire_trace::programs_of(reply).size(), 1U);
  reply[17] = 0xFF;
  EXPECT_TRUE(wire_trace::programs_of(reply).empty());
  for (size_t size = 0; size < reply.size(); ++size) {
    EXPECT_TRUE(
        wire_trace::programs_of(Bytes(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(size))).empty());
  }
}

TEST(ReplyParts, Records_AreWalkedOverTheirGroups) {
  Bytes reply = from_hex(kResolveReply);
  reply[40] = 1;
  const Bytes group_and_next = from_hex("00 00 00 09 00 10 00 00 0B 00 00 00 2A");
  reply.insert(reply.end(), group_and_next.begin(), group_and_next.end());
  const auto records = wire_trace::records_of(reply, 2);
  EXPECT_TRUE(records[0].is_received);
  EXPECT_EQ(wire_trace::handle_text(records[0].handle), "area 06, address 01020000");
  EXPECT_FALSE(records[1].is_received) << "it ends before its last byte";
  EXPECT_EQ(wire_trace::handle_text(records[1].handle), "area 0B, address 0000002A");
}

TEST(ReplyParts, Hex_EndsWhereItIsTold) {
  EXPECT_EQ(wire_trace::hex_text({}, 4), "");
  EXPECT_EQ(wire_trace::hex_text(from_hex("0A FF"), 2), "0A FF");
  EXPECT_EQ(wire_trace::hex_text(from_hex("0A FF 01"), 2), "0A FF and 1 more");
}

TEST(ReplyParts, HostOrder_SwapsTheBytesOfEachUnit) {
  EXPECT_EQ(wire_trace::in_host_order(from_hex("12 34 56 78 9A")), from_hex("34 12 78 56 9A"));
}

}  // namespace
