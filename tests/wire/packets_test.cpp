// Tests of what capture files hold, whoever wrote them: each format and each link, and files that are cut or hostile.
#include "wire/captures/packets.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "tests/support/temp_dir.h"
#include "tests/wire/packet_files.h"
#include "wire/captures/pcap_streams.h"

namespace {

using namespace trace_test;
using plc_sim::Link;
using plc_sim::Packet;
using plc_sim::read_packet_file;
using plc_sim::read_packets;
using plc_sim::read_tcp_streams;
using plc_sim::TcpCapture;
using plc_sim::TcpEvent;

constexpr char kNotOne[] = "not a pcap or pcapng file, as tcpdump, tshark and Wireshark write them: ";

struct Read {
  std::vector<Link> links;
  std::vector<int64_t> times;
  std::vector<std::string> packets;
  std::string problem;
};

Read read_of(const std::string& file) {
  Read read;
  read.problem = read_packets(file, [&read](const Packet& packet) {
    const plc_sim::Bytes bytes = packet.bytes.bytes();
    read.links.push_back(packet.link);
    read.times.push_back(packet.time_ns);
    read.packets.emplace_back(bytes.begin(), bytes.end());
  });
  return read;
}

std::vector<std::string> first_of(std::vector<std::string> packets, size_t count) {
  packets.resize(count);
  return packets;
}

class FormatTest : public testing::TestWithParam<FileFormat> {};

std::string name_of(const testing::TestParamInfo<FileFormat>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Formats, FormatTest, testing::ValuesIn(kFormats), name_of);

TEST_P(FormatTest, Packets_ComeWithTheirTimesAndBytes) {
  const Read read = read_of(file_with(GetParam(), kEthernet, {"first packet", "", "third"}));
  EXPECT_EQ(read.problem, "");
  EXPECT_EQ(read.packets, (std::vector<std::string>{"first packet", "", "third"}));
  EXPECT_EQ(read.links, std::vector<Link>(3, Link::kEthernet));
  EXPECT_EQ(read.times, (std::vector<int64_t>{time_of(GetParam(), 0), time_of(GetParam(), 1), time_of(GetParam(), 2)}));
}

// Where each packet ends, the file is whole; anywhere else it says so.
TEST_P(FormatTest, EveryCut_GivesTheWholePacketsAndSaysSo) {
  const std::vector<std::string> packets = {"first packet", "second", "the third one"};
  std::vector<size_t> ends;
  for (size_t count = 0; count <= packets.size(); ++count) {
    ends.push_back(file_with(GetParam(), kEthernet, first_of(packets, count)).size());
  }
  const std::string file = file_with(GetParam(), kEthernet, packets);
  for (size_t size = 0; size <= file.size(); ++size) {
    const Read read = read_of(file.substr(0, size));
    if (size < ends[0]) {
      EXPECT_EQ(read.problem.substr(0, sizeof kNotOne - 1), kNotOne) << size;
      EXPECT_TRUE(read.packets.empty()) << size;
      continue;
    }
    size_t whole = packets.size();
    while (size < ends[whole]) --whole;
    EXPECT_EQ(read.packets, first_of(packets, whole)) << size;
    const std::string after = whole == 0 ? "the file breaks off before its first packet ends"
                                         : "the file breaks off after packet " + std::to_string(whole);
    EXPECT_EQ(read.problem, size == ends[whole] ? "" : after) << size;
  }
}

// A link's number in files, and what stands before the IP packet.
struct LinkCase {
  const char* name;
  uint16_t number;
  Link link;
  const char* before_ipv4;  // nullptr: does not carry it
  const char* before_ipv6;
};

void PrintTo(const LinkCase& link, std::ostream* out) { *out << link.name; }

constexpr LinkCase kLinks[] = {
    {"Ethernet", 1, Link::kEthernet, "02 00 00 00 00 01 02 00 00 00 00 02 08 00",
     "02 00 00 00 00 01 02 00 00 00 00 02 86 DD"},
    {"EthernetTagged", 1, Link::kEthernet, "02 00 00 00 00 01 02 00 00 00 00 02 81 00 00 07 08 00",
     "02 00 00 00 00 01 02 00 00 00 00 02 81 00 00 07 86 DD"},
    {"EthernetTaggedTwice", 1, Link::kEthernet, "02 00 00 00 00 01 02 00 00 00 00 02 88 A8 00 05 81 00 00 07 08 00",
     "02 00 00 00 00 01 02 00 00 00 00 02 91 00 00 05 81 00 00 07 86 DD"},
    {"Cooked", 113, Link::kLinuxCooked, "00 00 00 01 00 06 02 00 00 00 00 01 00 00 08 00",
     "00 00 00 01 00 06 02 00 00 00 00 01 00 00 86 DD"},
    {"CookedTagged", 113, Link::kLinuxCooked, "00 00 00 01 00 06 02 00 00 00 00 01 00 00 81 00 00 07 08 00",
     "00 00 00 01 00 06 02 00 00 00 00 01 00 00 81 00 00 07 86 DD"},
    {"Cooked2", 276, Link::kLinuxCooked2, "08 00 00 00 00 00 00 02 00 01 00 06 02 00 00 00 00 01 00 00",
     "86 DD 00 00 00 00 00 02 00 01 00 06 02 00 00 00 00 01 00 00"},
    {"Cooked2Tagged", 276, Link::kLinuxCooked2,
     "81 00 00 00 00 00 00 02 00 01 00 06 02 00 00 00 00 01 00 00 00 07 08 00",
     "81 00 00 00 00 00 00 02 00 01 00 06 02 00 00 00 00 01 00 00 00 07 86 DD"},
    {"RawIp", 101, Link::kRawIp, "", ""},
    {"RawIpv4", 228, Link::kRawIp, "", nullptr},
    {"RawIpv6", 229, Link::kRawIp, nullptr, ""},
    {"NullLittle", 0, Link::kLoopback, "02 00 00 00", "1E 00 00 00"},
    {"NullBig", 0, Link::kLoopback, "00 00 00 02", "00 00 00 18"},
    {"NullLinux", 0, Link::kLoopback, "02 00 00 00", "0A 00 00 00"},
    {"Loop", 108, Link::kLoopback, "00 00 00 02", "00 00 00 1C"},
};

class LinkTest : public testing::TestWithParam<std::tuple<LinkCase, FileFormat>> {
 protected:
  const LinkCase& link() const { return std::get<0>(GetParam()); }
  const FileFormat& format() const { return std::get<1>(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Links, LinkTest, testing::Combine(testing::ValuesIn(kLinks), testing::ValuesIn(kFormats)),
                         [](const auto& instance) {
                           return std::string(std::get<0>(instance.param).name) + "_" +
                                  std::get<1>(instance.param).name;
                         });

// One connection: asked for, answered, ended; the last two bytes of the reply are the link's own.
TEST_P(LinkTest, Connection_IsReadAsItWent) {
  const std::vector<TcpPacket> packets = {{9000, 8501, 99, "02", ""},
                                          {8501, 9000, 499, "12", ""},
                                          {9000, 8501, 100, "18", "AA BB CC"},
                                          {8501, 9000, 500, "18", "DD EE"},
                                          {9000, 8501, 103, "11", ""}};
  for (const char* before : {link().before_ipv4, link().before_ipv6}) {
    if (before == nullptr) continue;
    std::vector<std::string> whole;
    for (const TcpPacket& packet : packets) {
      whole.push_back(bytes_of(before) + (before == link().before_ipv4 ? ipv4_of(packet) : ipv6_of(packet)));
    }
    whole[3] += bytes_of("55 55");
    const std::string file = file_with(format(), link().number, whole);
    EXPECT_EQ(read_of(file).links, std::vector<Link>(packets.size(), link().link));
    const TcpCapture capture = read_tcp_streams(file);
    EXPECT_EQ(plc_sim::with_losses(capture.problem, capture.losses), "");
    ASSERT_EQ(capture.streams.size(), 1U);
    const plc_sim::TcpStream& stream = capture.streams[0];
    EXPECT_EQ(plc_sim::with_losses("", stream.losses), "");
    EXPECT_EQ(stream.first_port, 9000);
    EXPECT_EQ(stream.second_port, 8501);
    EXPECT_TRUE(stream.first_opened);
    EXPECT_EQ(stream.start_ns, time_of(format(), 0));
    ASSERT_EQ(stream.events.size(), 3U);
    EXPECT_EQ(plc_test::to_hex(stream.events[0].bytes), "AA BB CC");
    EXPECT_TRUE(stream.events[0].from_first);
    EXPECT_EQ(stream.events[0].time_ns, time_of(format(), 2));
    EXPECT_EQ(plc_test::to_hex(stream.events[1].bytes), "DD EE");
    EXPECT_FALSE(stream.events[1].from_first);
    EXPECT_EQ(stream.events[1].time_ns, time_of(format(), 3));
    EXPECT_EQ(stream.events[2].kind, TcpEvent::Kind::kFinished);
    EXPECT_TRUE(stream.events[2].from_first);
  }
}

TEST(Packets, OtherContents_AreNoConnections) {
  const std::string ip = ipv4_of({9000, 8501, 1, "18", "AA"});
  std::string udp = ip;
  udp[9] = '\x11';
  std::string version_5 = ip;
  version_5[0] = '\x55';
  std::string short_ip_head = ip;
  short_ip_head[0] = '\x44';
  short_ip_head[28] = '\x50';  // what would be the length of a TCP head
  std::string short_tcp_head = ip;
  short_tcp_head[32] = '\x40';
  std::string udp_6 = ipv6_of({9000, 8501, 1, "18", "AA"}, "11");
  const TcpCapture raw =
      read_tcp_streams(file_with(kPcapng, kRawIp, {udp, version_5, short_ip_head, short_tcp_head, udp_6, "", "x"}));
  EXPECT_EQ(raw.problem, "");
  EXPECT_TRUE(raw.streams.empty());
  const std::string arp = bytes_of("FF FF FF FF FF FF 02 00 00 00 00 02 08 06") + ip;
  const std::string tags = bytes_of("FF FF FF FF FF FF 02 00 00 00 00 02 81 00 00 07 81 00 00 07 81 00");
  EXPECT_TRUE(read_tcp_streams(file_with(kClassic, kEthernet, {arp, tags})).streams.empty());
  EXPECT_TRUE(read_tcp_streams(file_with(kClassic, 0, {bytes_of("07 00 00 00") + ip})).streams.empty());
  EXPECT_TRUE(
      read_tcp_streams(file_with(kClassic, 276, {bytes_of("08 06") + std::string(18, '\0') + ip})).streams.empty());
}

// Hop-by-hop, destination, routing, mobility and authentication heads, and a fragment head of a whole packet.
TEST(Packets, ExtensionHeadsOfIpv6_AreSkipped) {
  const TcpPacket packet{9000, 8501, 1, "18", "AA BB"};
  const std::string chains[][2] = {
      {"00", "06 00 01 04 00 00 00 00"},
      {"00", "3C 00 01 04 00 00 00 00 06 01 01 0C 00 00 00 00 00 00 00 00 00 00 00 00"},
      {"2B", "06 00 00 00 00 00 00 00"},
      {"87", "06 00 00 00 00 00 00 00"},
      {"33", "06 01 00 00 00 00 00 01 00 00 00 02"},
      {"2C", "06 00 00 00 00 00 00 01"},
      {"2C", "06 00 00 06 00 00 00 01"},
  };
  for (const auto& [next, extensions] : chains) {
    const TcpCapture capture = read_tcp_streams(file_with(kPcapng, kRawIp, {ipv6_of(packet, next, extensions)}));
    ASSERT_EQ(capture.streams.size(), 1U) << next;
    EXPECT_EQ(plc_test::to_hex(capture.streams[0].events.at(0).bytes), "AA BB") << next;
    EXPECT_EQ(capture.streams[0].first_port, 9000) << next;
  }
}

TEST(Packets, Addresses_TellConnectionsWithTheSamePortsApart) {
  const TcpPacket packet{9000, 8501, 1, "18", "AA"};
  std::string elsewhere = ipv6_of(packet);
  elsewhere[8] = '\xFC';
  const std::string file = file_with(kPcapng, kRawIp, {ipv4_of(packet), ipv6_of(packet), elsewhere});
  EXPECT_EQ(read_tcp_streams(file).streams.size(), 3U);
}

TEST(Packets, Fragments_AreCountedAndLeftOut) {
  const TcpPacket packet{9000, 8501, 1, "18", "AA"};
  const std::string first = ipv4_of(packet, "20 00");
  const std::string last = ipv4_of(packet, "00 03");
  const std::string unfragmentable = ipv4_of(packet, "40 00");
  const TcpCapture four = read_tcp_streams(file_with(kClassic, kRawIp, {first, last, unfragmentable}));
  EXPECT_EQ(four.losses.fragments, 2U);
  ASSERT_EQ(four.streams.size(), 1U);
  EXPECT_EQ(four.streams[0].events.size(), 1U);
  const std::string first_6 = ipv6_of(packet, "2C", "06 00 00 01 00 00 00 01");
  const std::string last_6 = ipv6_of(packet, "2C", "06 00 00 10 00 00 00 01");
  const std::string first_with_options = ipv6_of(packet, "2C", "3C 00 00 01 00 00 00 01 06 00 01 04 00 00 00 00");
  const TcpCapture six = read_tcp_streams(file_with(kPcapng, kRawIp, {first_6, last_6, first_with_options}));
  EXPECT_EQ(six.losses.fragments, 3U);
  EXPECT_TRUE(six.streams.empty());
}

TEST(Packets, PacketsCapturedInPart_AreCounted) {
  const std::string ip = ipv4_of({9000, 8501, 1, "18", "AA BB CC"});
  FileWriter writer(kPcapng, kRawIp);
  writer.packet(ip.substr(0, ip.size() - 1), 1);
  writer.packet(ip.substr(0, 30), ip.size() - 30);
  const TcpCapture capture = read_tcp_streams(writer.file());
  EXPECT_EQ(capture.losses.cut_packets, 1U);  // no port is known of the second one
  ASSERT_EQ(capture.streams.size(), 1U);
  EXPECT_EQ(capture.streams[0].losses.cut_packets, 1U);
  EXPECT_EQ(plc_test::to_hex(capture.streams[0].events.at(0).bytes), "AA BB");
}

TEST(Packets, OtherFiles_AreRefusedWithWhatWasExpected) {
  EXPECT_EQ(read_of("").problem.substr(0, sizeof kNotOne - 1), kNotOne);
  EXPECT_EQ(read_of("hello, world, this is no capture").problem, kNotOne + std::string("unknown file format"));
  EXPECT_EQ(read_of(bytes_of("1F 8B 08 00 00 00 00 00 00 03 33 34")).problem,
            kNotOne + std::string("unknown file format"));
  EXPECT_EQ(read_of(bytes_of("0A 0D 0D 0A") + " and more of it").problem.substr(0, sizeof kNotOne - 1), kNotOne);
}

TEST(Packets, OtherLinks_AreRefusedWithWhatWasExpected) {
  constexpr char kExpected[] = "; expected are Ethernet, Linux cooked, raw IP and loopback";
  for (const FileFormat& format : kFormats) {
    const Read wireless = read_of(file_with(format, 105, {"packet"}));
    EXPECT_EQ(wireless.problem, std::string("its packets are of link type IEEE802_11") + kExpected);
    EXPECT_TRUE(wireless.packets.empty());
    EXPECT_EQ(read_of(file_with(format, 65000, {"packet"})).problem,
              std::string("its packets are of link type 65000") + kExpected);
  }
}

TEST(Packets, FilesThatCannotBeRead_SayWhy) {
  const plc_test::TempDir folder;
  const auto ignore = [](const Packet&) {};
  EXPECT_EQ(read_packet_file(folder.file("missing"), ignore), "cannot be read: No such file or directory");
  EXPECT_EQ(read_packet_file(folder.path(), ignore), "cannot be read: it is a folder");
  EXPECT_EQ(read_packet_file("/dev/zero", ignore), "cannot be read: it is not a regular file");
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(read_packet_file(pipe, ignore), "cannot be read: it is not a regular file");
  const std::string large = folder.write("large", "");
  ASSERT_EQ(truncate(large.c_str(), (int64_t{1} << 30U) + 1), 0);
  EXPECT_EQ(read_packet_file(large, ignore), "cannot be read: it has more than 1073741824 bytes");
}

TEST(Packets, BlocksThatHoldNoPackets_AreSkipped) {
  FileWriter writer(kPcapng, kEthernet);
  writer.packet("first");
  writer.block(4, std::string(8, '\0'));       // names
  writer.block(5, std::string(12, '\0'));      // statistics
  writer.block(0x80000001, "somebody's own");  // private
  writer.interface(kEthernet);
  writer.packet("second");
  const Read read = read_of(writer.file());
  EXPECT_EQ(read.problem, "");
  EXPECT_EQ(read.packets, (std::vector<std::string>{"first", "second"}));
}

TEST(Packets, InterfacesOfTwoKinds_EndTheReadingWithItsReason) {
  FileWriter writer(kPcapng, kRawIp);
  writer.packet("first");
  writer.interface(kEthernet);
  writer.packet("second");
  const Read read = read_of(writer.file());
  EXPECT_EQ(read.packets, std::vector<std::string>{"first"});
  EXPECT_EQ(read.problem,
            "cannot be read beyond packet 1: an interface has a type 1 different from the type of the first interface");
}

TEST(Packets, LengthsBeyondAllPackets_EndTheReading) {
  std::string classic = file_with(kClassic, kRawIp, {"first", "second"});
  classic[24 + 16 + 5 + 8] = '\x7F';
  const Read read = read_of(classic);
  EXPECT_EQ(read.packets, std::vector<std::string>{"first"});
  EXPECT_EQ(read.problem,
            "cannot be read beyond packet 1: invalid packet capture length 2130706438, bigger than snaplen of 65535");
  std::string first = file_with(kClassic, kRawIp, {"first"});
  first[24 + 8] = '\x7F';
  EXPECT_EQ(read_of(first).problem,
            "cannot be read: invalid packet capture length 2130706437, bigger than snaplen of 65535");
}

// Stamps beyond what a time holds wrap; nothing overflows.
TEST(Packets, TimesOfHostileFiles_StayTimes) {
  FileWriter writer({"", true, true, false}, kRawIp);
  const std::string ip = ipv4_of({9000, 8501, 1, "18", "AA"});
  std::string block(4, '\0');
  block.append(8, '\xFF');
  append_number(block, ip.size(), 4);
  append_number(block, ip.size(), 4);
  writer.block(6, block + ip);
  const Read read = read_of(writer.file());
  ASSERT_EQ(read.times.size(), 1U);
  EXPECT_GE(read.times[0], 0);
}

// What is not whole is never read outside of its bounds; what is found has its packets' bytes.
TEST(Packets, BytesAtRandom_AreSurvived) {
  std::mt19937 random(1);
  for (const FileFormat& format : kFormats) {
    const std::string head = file_with(format, kEthernet, {});
    for (int round = 0; round < 500; ++round) {
      std::string file = round % 2 == 0 ? head : "";
      for (size_t size = 1 + random() % 400; size > 0; --size) file += static_cast<char>(random());
      EXPECT_NE(read_tcp_streams(file).problem, "") << round;
    }
  }
}

TEST(Packets, BytesChangedAtRandom_AreSurvived) {
  std::mt19937 random(2);
  size_t found = 0;
  for (const FileFormat& format : kFormats) {
    const TcpPacket packet{9000, 8501, 1, "18", "AA BB CC"};
    const std::string good =
        file_with(format, kRawIp, {ipv4_of(packet), ipv6_of(packet, "00", "06 00 01 04 00 00 00 00")});
    for (int round = 0; round < 500; ++round) {
      std::string file = good;
      for (int changes = 0; changes < 4; ++changes) file[random() % file.size()] = static_cast<char>(random());
      for (const plc_sim::TcpStream& stream : read_tcp_streams(file).streams) {
        for (const TcpEvent& event : stream.events) EXPECT_LE(event.bytes.size(), file.size());
        ++found;
      }
    }
  }
  EXPECT_GT(found, 1000U);
}

}  // namespace
