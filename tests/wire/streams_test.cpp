// Tests of the bytes of a connection put in order, and of what is said of those that are missing or contradict.
#include <gtest/gtest.h>

#include "tests/wire/packet_files.h"
#include "wire/captures/pcap_streams.h"

namespace {

using namespace trace_test;
using plc_sim::Losses;
using plc_sim::TcpEvent;
using plc_sim::TcpStream;
using plc_sim::with_losses;

TcpPacket from_host(uint32_t sequence, const std::string& bytes) { return {9000, 8501, sequence, "18", bytes}; }
TcpPacket from_controller(uint32_t sequence, const std::string& bytes) { return {8501, 9000, sequence, "18", bytes}; }

std::vector<TcpStream> streams_in(const std::vector<TcpPacket>& packets) {
  FileWriter writer(kPcapng, kRawIp);
  for (const TcpPacket& packet : packets) writer.packet(ipv4_of(packet));
  return plc_sim::read_tcp_streams(writer.file()).streams;
}

// The events of the only stream: who, what, and in which packet it came.
std::string text_of(const std::vector<TcpPacket>& packets) {
  const std::vector<TcpStream> streams = streams_in(packets);
  EXPECT_EQ(streams.size(), 1U);
  std::string text;
  for (const TcpEvent& event : streams.at(0).events) {
    const int64_t packet = (event.time_ns - time_of(kPcapng, 0)) / 1000000000;
    text += (text.empty() ? "" : ", ") + std::string(event.from_first ? "host " : "controller ");
    text += event.kind == TcpEvent::Kind::kBytes      ? plc_test::to_hex(event.bytes)
            : event.kind == TcpEvent::Kind::kFinished ? "finished"
                                                      : "reset";
    text += " in " + std::to_string(packet);
  }
  return with_losses(text, streams.at(0).losses);
}

TEST(Streams, BytesInOrder_AreOneEventForEachPacket) {
  EXPECT_EQ(text_of({from_host(1, "01 02"), from_controller(1, "81"), from_host(3, "03"), {8501, 9000, 2, "11", "82"}}),
            "host 01 02 in 0, controller 81 in 1, host 03 in 2, controller 82 in 3, controller finished in 3");
}

TEST(Streams, PacketThatCameTooEarly_WaitsAndKeepsItsTime) {
  EXPECT_EQ(text_of({from_host(1, "01"), from_host(4, "04"), from_host(3, "03"), from_host(2, "02")}),
            "host 01 in 0, host 02 in 3, host 03 in 2, host 04 in 1");
}

TEST(Streams, BytesSentAgain_AreTakenOnce) {
  EXPECT_EQ(text_of({from_host(1, "01 02"), from_host(1, "01 02"), from_host(1, "01 02 03"), from_host(2, "02"),
                     from_host(3, "03 04")}),
            "host 01 02 in 0, host 03 in 2, host 04 in 4");
}

TEST(Streams, BytesSentAgainWithOtherValues_AreCounted) {
  EXPECT_EQ(text_of({from_host(1, "01 02"), from_host(1, "01 FF FE 03")}),
            "host 01 02 in 0, host FE 03 in 1; 1 byte was sent again with another value, the first one counts");
  EXPECT_EQ(text_of({from_host(1, "01 02"), from_host(3, "03 04"), from_host(2, "F2 F3 F4 05")}),
            "host 01 02 in 0, host 03 04 in 1, host 05 in 2; "
            "3 bytes were sent again with other values, the first ones count");
  EXPECT_EQ(text_of({from_host(1, "01 02"), from_host(2, "02 03 04"), from_host(3, "03 04"), from_host(3, "03 F4")}),
            "host 01 02 in 0, host 03 04 in 1; 1 byte was sent again with another value, the first one counts");
  EXPECT_EQ(text_of({from_host(1, "01"), from_host(3, "03 04"), from_host(2, "02 F3")}),
            "host 01 in 0, host 02 F3 in 2, host 04 in 1; "
            "1 byte was sent again with another value, the first one counts");
}

TEST(Streams, ByteThatKeepsTheConnectionAlive_IsNoOtherValue) {
  EXPECT_EQ(text_of({from_host(1, "01 02"), from_host(2, "00"), from_host(3, "03")}), "host 01 02 in 0, host 03 in 2");
}

TEST(Streams, MissingBytes_AreCountedWhenTheOtherSideAnswersThem) {
  EXPECT_EQ(text_of({from_host(1, "01"), from_host(12, "02"), from_controller(1, "81"), from_host(13, "03")}),
            "host 01 in 0, host 02 in 1, controller 81 in 2, host 03 in 3; 10 bytes are missing");
  EXPECT_EQ(text_of({from_host(1, "01"), from_host(3, "03")}), "host 01 in 0, host 03 in 1; 1 byte is missing");
  EXPECT_EQ(text_of({{9000, 8501, 0, "02", ""}, from_host(3, "03")}), "host 03 in 1; 2 bytes are missing");
}

TEST(Streams, SequenceNumbersThatWrap_GoOn) {
  EXPECT_EQ(
      text_of({from_host(0xFFFFFFFE, "01 02"), from_host(1, "04"), from_host(0, "03"), from_host(0xFFFFFFFF, "02 F3")}),
      "host 01 02 in 0, host 03 in 2, host 04 in 1; "
      "1 byte was sent again with another value, the first one counts");
}

TEST(Streams, PortsUsedAgain_AreAnotherConnection) {
  const std::vector<TcpStream> streams =
      streams_in({{9000, 8501, 0, "02", ""}, from_host(1, "01"), {9000, 8501, 70, "02", ""}, from_host(71, "02")});
  ASSERT_EQ(streams.size(), 2U);
  EXPECT_EQ(plc_test::to_hex(streams[1].events.at(0).bytes), "02");
  EXPECT_EQ(with_losses("", streams[1].losses), "");
}

TEST(Streams, Reset_OfAnOpeningIsARefusal) {
  const std::vector<TcpStream> refused = streams_in({{9000, 8501, 0, "02", ""}, {8501, 9000, 0, "14", ""}});
  EXPECT_TRUE(refused.at(0).is_refused);
  const std::vector<TcpStream> ended =
      streams_in({{9000, 8501, 0, "02", ""}, from_host(1, "01"), {8501, 9000, 1, "14", ""}});
  EXPECT_FALSE(ended.at(0).is_refused);
}

// More than may wait: what is missing is given up, and nothing else is.
TEST(Streams, TooManyEarlyPackets_AreTakenWithTheirHole) {
  std::vector<TcpPacket> packets = {from_host(1, "01")};
  for (uint32_t i = 0; i < 100; ++i) packets.push_back(from_host(3 + i, "02"));
  packets.push_back(from_host(2, "02"));  // too late
  const std::vector<TcpStream> streams = streams_in(packets);
  EXPECT_EQ(streams.at(0).events.size(), 101U);
  EXPECT_EQ(streams.at(0).losses.missing_bytes, 1U);
}

TEST(Streams, Losses_AreSaidInNumbers) {
  EXPECT_EQ(with_losses("", {}), "");
  EXPECT_EQ(
      with_losses("the file breaks off after packet 1", {0, 0, 1, 1}),
      "the file breaks off after packet 1; 1 packet was captured in part; 1 fragment of an IP packet is left out");
  EXPECT_EQ(with_losses("", {0, 0, 2, 2}), "2 packets were captured in part; 2 fragments of IP packets are left out");
  Losses sum{1, 2, 3, 4};
  sum += {10, 20, 30, 40};
  EXPECT_EQ(sum.missing_bytes, 11U);
  EXPECT_EQ(sum.changed_bytes, 22U);
  EXPECT_EQ(sum.cut_packets, 33U);
  EXPECT_EQ(sum.fragments, 44U);
}

// Each connection takes memory, whatever is in it.
TEST(Streams, ConnectionsBeyondTheRoomForThem_AreCounted) {
  FileWriter writer(kPcapng, kRawIp);
  for (unsigned i = 0; i < 65540; ++i) {
    writer.packet(ipv4_of({static_cast<uint16_t>(i), static_cast<uint16_t>(i < 65536 ? 8501 : 8502), 1, "18", "AA"}));
  }
  const plc_sim::TcpCapture capture = plc_sim::read_tcp_streams(writer.file());
  EXPECT_EQ(capture.streams.size(), 65536U);
  EXPECT_EQ(with_losses("", capture.losses), "4 packets of connections beyond the first 65536 are left out");
}

}  // namespace
