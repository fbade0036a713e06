// Tests of captures: the samples, and files written by hand, hostile ones among them.
#include "wire/captures/capture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/support/temp_dir.h"
#include "tests/wire/file_limit.h"
#include "tests/wire/packet_files.h"
#include "tests/wire/trace_fixture.h"
#include "wire/captures/pcap_writer.h"
#include "wire/exchange.h"

namespace {

using namespace trace_test;
using wire_trace::CapturedRecording;
using wire_trace::Ending;
using wire_trace::Exchange;

constexpr uint16_t kControllerPort = 8501;

// Raw IPv4; the second of each packet is its place.
std::string file_of(const std::vector<TcpPacket>& packets) {
  FileWriter writer(kClassic, kRawIp);
  for (const TcpPacket& packet : packets) writer.packet(ipv4_of(packet));
  return writer.file();
}

TcpPacket host(uint32_t sequence, const std::string& bytes, uint16_t port = 9000) {
  return {port, kControllerPort, sequence, "18", bytes};
}
TcpPacket controller(uint32_t sequence, const std::string& bytes, uint16_t port = 9000) {
  return {kControllerPort, port, sequence, "18", bytes};
}

std::vector<Exchange> exchanges_in(const std::string& file, uint16_t port = 0) {
  return wire_trace::find_exchanges(wire_trace::read_recording(file, port).recording);
}

std::string sample(const std::string& name) {
  std::ifstream file(std::string(PLC_SAMPLES_DIR) + "/" + name + ".pcap", std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  EXPECT_GT(text.str().size(), 24U) << name;
  return text.str();
}

TEST(Capture, Samples_GiveTheirExchanges) {
  EXPECT_EQ(exchanges_in(sample("session")).size(), 8U);
  EXPECT_EQ(exchanges_in(sample("fault_merged")).size(), 2U);
  EXPECT_EQ(exchanges_in(sample("fault_split_request")).size(), 2U);
  EXPECT_EQ(exchanges_in(sample("fault_split_reply")).at(0).pieces.size(), 3U);
  EXPECT_EQ(exchanges_in(sample("fault_missing_reply")).at(0).ending, Ending::kClosedByHost);
  EXPECT_FALSE(exchanges_in(sample("fault_unanswered")).at(0).is_answered());
  EXPECT_TRUE(exchanges_in(sample("fault_unanswered")).at(1).is_answered());
}

TEST(Capture, SegmentsOutOfOrderAndTwice_AreTakenOnceInOrder) {
  const std::string request = kResolveD;
  const std::vector<Exchange> exchanges = exchanges_in(
      file_of({host(100, request.substr(0, 30)), host(114, request.substr(42)), host(110, request.substr(30, 12)),
               host(100, request.substr(0, 30)), host(110, request.substr(30)), controller(500, kResolveReply),
               controller(500, kResolveReply)}));
  ASSERT_EQ(exchanges.size(), 1U);
  EXPECT_EQ(exchanges[0].request_bytes, from_hex(kResolveD));
  EXPECT_EQ(exchanges[0].reply(), from_hex(kResolveReply));
}

TEST(Capture, SequenceNumbersThatWrap_GoOn) {
  const std::string request = kResolveD;
  const std::vector<Exchange> exchanges =
      exchanges_in(file_of({host(0xFFFFFFFA, request.substr(0, 30)), host(4, request.substr(30))}), kControllerPort);
  ASSERT_EQ(exchanges.size(), 1U);
  EXPECT_EQ(exchanges[0].request_bytes, from_hex(kResolveD));
}

TEST(Capture, HoleInTheCapture_DoesNotStopTheReading) {
  const std::vector<Exchange> exchanges =
      exchanges_in(file_of({host(100, kDirectoryStart), host(300, kResolveD), controller(500, kResolveReply),
                            host(322, kReadD), controller(541, kReadReply)}));
  ASSERT_EQ(exchanges.size(), 3U);
  EXPECT_EQ(exchanges[2].reply(), from_hex(kReadReply));
}

TEST(Capture, InterleavedConnections_AreKeptApart) {
  const std::vector<Exchange> exchanges =
      exchanges_in(file_of({host(1, kResolveD, 8001), host(1, kResolveLocalD, 8002), controller(1, kRefusedReply, 8002),
                            controller(1, kResolveReply, 8001)}));
  ASSERT_EQ(exchanges.size(), 2U);
  EXPECT_EQ(exchanges[0].reply(), from_hex(kResolveReply));
  EXPECT_EQ(exchanges[1].reply(), from_hex(kRefusedReply));
  EXPECT_EQ(exchanges[0].time_ns(), 3000000000);
}

TEST(Capture, ConnectionSeenFromItsMiddle_KnowsTheHost) {
  // The first packet is a reply.
  const std::vector<Exchange> exchanges =
      exchanges_in(file_of({controller(500, kResolveReply), host(100, kReadD), controller(541, kReadReply)}));
  ASSERT_EQ(exchanges.size(), 1U);
  EXPECT_EQ(exchanges[0].request_bytes, from_hex(kReadD));
}

TEST(Capture, PortOfTheController_DecidesWhenItIsGiven) {
  const std::string file = file_of({host(1, kResolveD), controller(1, kResolveReply)});
  EXPECT_EQ(exchanges_in(file, kControllerPort).size(), 1U);
  EXPECT_EQ(wire_trace::read_recording(file, 502).problem, "no connection with a controller in it");
  const std::string other = file_of({{9000, 502, 1, "18", "01 02 03"}});
  EXPECT_EQ(wire_trace::read_recording(other, 0).problem, "no connection with a controller in it");
  EXPECT_EQ(exchanges_in(other, 502).size(), 1U);
}

TEST(Capture, RefusedConnection_IsKnown) {
  const CapturedRecording captured = wire_trace::read_recording(
      file_of({{9000, kControllerPort, 1, "02", ""}, {kControllerPort, 9000, 0, "14", ""}}), kControllerPort);
  ASSERT_EQ(captured.recording.connections.size(), 1U);
  EXPECT_TRUE(captured.recording.connections[0].is_refused);
}

TEST(Capture, OtherFiles_AreRefusedWithTheirReason) {
  constexpr char kNotOne[] =
      "not a pcap or pcapng file, as tcpdump, tshark and Wireshark write them: unknown file format";
  EXPECT_EQ(wire_trace::read_recording("hello, world, this is text", 0).problem, kNotOne);
  EXPECT_EQ(wire_trace::read_recording_file("/nonexistent", 0).problem, "cannot be read: No such file or directory");
}

TEST(Capture, Losses_AreSaidOfTheControllersConnectionsAlone) {
  std::vector<TcpPacket> packets = {{9000, 502, 1, "18", "01"}, {9000, 502, 5, "18", "02"}};
  EXPECT_EQ(wire_trace::read_recording(file_of(packets), 0).problem, "no connection with a controller in it");
  EXPECT_EQ(wire_trace::read_recording(file_of(packets), 502).problem, "3 bytes are missing");
  packets.insert(packets.end(), {host(1, kResolveD), host(1, "11"), host(24, kReadD), controller(1, kResolveReply)});
  EXPECT_EQ(wire_trace::read_recording(file_of(packets), 0).problem,
            "1 byte is missing; 1 byte was sent again with another value, the first one counts");
}

TEST(Capture, EveryCutOfAFile_IsReadWithinIt) {
  const std::string file = sample("session");
  for (size_t size = 0; size < file.size(); size += 7) EXPECT_LE(exchanges_in(file.substr(0, size)).size(), 8U);
}

// Each byte of a good file changed: nothing may be read outside of it, whatever is found.
TEST(Capture, EveryByteChanged_IsSurvived) {
  const std::string good =
      file_of({host(1, kResolveD), controller(1, kResolveReply), host(23, kReadD), controller(42, kReadReply)});
  size_t found = 0;
  for (size_t at = 0; at < good.size(); ++at) {
    for (const char value : {'\x00', '\x7F', '\xFF'}) {
      std::string file = good;
      file[at] = value;
      const size_t exchanges = exchanges_in(file).size();
      EXPECT_LE(exchanges, 4U) << at;
      found += exchanges;
    }
  }
  EXPECT_GT(found, good.size());
}

TEST(Capture, WrittenRecording_IsReadBack) {
  Traffic traffic;
  traffic.host(kResolveD).controller(kResolveReply).host(kReadD).controller("00 00").controller("00 06");
  traffic.end(false, TrafficEvent::Kind::kReset);
  const plc_test::TempDir folder;
  const std::string path = folder.file("recording.pcap");
  EXPECT_EQ(wire_trace::write_recording(traffic.recording(), kControllerPort, path), "");
  const CapturedRecording captured = wire_trace::read_recording_file(path, 0);
  ASSERT_EQ(captured.recording.connections.size(), 1U);
  const std::vector<TrafficEvent>& events = captured.recording.connections[0].events;
  ASSERT_EQ(events.size(), 6U);
  for (size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(events[i].bytes, traffic.connection().events[i].bytes) << i;
    EXPECT_EQ(events[i].time_ns, traffic.connection().events[i].time_ns) << i;
  }
  EXPECT_EQ(wire_trace::find_exchanges(captured.recording).at(1).ending, Ending::kReset);
  EXPECT_NE(wire_trace::write_recording(traffic.recording(), kControllerPort, "/nonexistent/x"), "");
}

TEST(Capture, RecordingThatDoesNotFit_IsSaid) {
  const plc_test::TempDir folder;
  Traffic small;
  small.host(kResolveD);
  Traffic large;
  std::string bytes;
  for (int i = 0; i < 20000; ++i) bytes += "AA";
  large.host(bytes);
  for (const Traffic& traffic : {small, large}) {
    const std::string before = folder.read("x");
    for (const rlim_t limit : {10U, 100U, 250U}) {
      const FileLimit limited(limit);
      EXPECT_EQ(wire_trace::write_recording(traffic.recording(), kControllerPort, folder.file("x")), "File too large");
      EXPECT_EQ(folder.read("x"), before);
    }
    EXPECT_EQ(wire_trace::write_recording(traffic.recording(), kControllerPort, folder.file("x")), "");
  }
}

// A file that grows with each packet ends with a whole one: three empty ones of 70 bytes come first, behind a head
// of 24.
TEST(Capture, PacketsThatDoNotFit_AreLeftOutWhole) {
  const plc_test::TempDir folder;
  for (const auto& [limit, kept] : std::vector<std::pair<rlim_t, size_t>>{{10, 0}, {24, 24}, {100, 94}, {250, 234}}) {
    const FileLimit limited(limit);
    plc_sim::PcapWriter writer([] { return uint64_t{0}; });
    if (writer.open(folder.file("x"), kControllerPort).empty()) writer.opened(1, 50000);
    writer.received(1, plc_sim::Bytes(40000, 0x11));
    writer.close();
    EXPECT_EQ(folder.read("x").size(), kept);
  }
}

}  // namespace
