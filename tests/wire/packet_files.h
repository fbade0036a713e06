// Capture files written byte by byte: TCP packets over IPv4 and IPv6, behind the heads of each link, in each format.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/bytes.h"

namespace trace_test {

// A packet without checksums, as a network card that computes them later leaves it.
struct TcpPacket {
  uint16_t from;
  uint16_t to;
  uint32_t sequence;
  std::string flags;  // two hexadecimal digits
  std::string bytes;  // hexadecimal
};

inline void append_number(std::string& file, uint64_t value, unsigned bytes) {
  for (unsigned shift = 8 * bytes; shift > 0; shift -= 8) file += static_cast<char>(value >> (shift - 8) & 0xFFU);
}

inline std::string bytes_of(const std::string& hex) {
  const plc_test::Bytes bytes = plc_test::from_hex(hex);
  return std::string(bytes.begin(), bytes.end());
}

inline std::string tcp_of(const TcpPacket& packet) {
  std::string tcp;
  append_number(tcp, packet.from, 2);
  append_number(tcp, packet.to, 2);
  append_number(tcp, packet.sequence, 4);
  append_number(tcp, 0, 4);
  tcp += '\x50';
  tcp += bytes_of(packet.flags);
  append_number(tcp, 0xFFFF, 2);
  append_number(tcp, 0, 4);
  return tcp + bytes_of(packet.bytes);
}

// The lower port is at 10.0.0.1.
inline std::string ipv4_of(const TcpPacket& packet, const std::string& fragment = "00 00") {
  const std::string tcp = tcp_of(packet);
  std::string ip = "\x45";
  append_number(ip, 0, 1);
  append_number(ip, 20 + tcp.size(), 2);
  append_number(ip, 0, 2);
  ip += bytes_of(fragment);
  append_number(ip, 0x4006, 2);
  append_number(ip, 0, 2);
  append_number(ip, packet.from < packet.to ? 0x0A000001 : 0x0A000002, 4);
  append_number(ip, packet.from < packet.to ? 0x0A000002 : 0x0A000001, 4);
  return ip + tcp;
}

// The lower port is at fd00::1. Extension heads, the first one of the kind next, come before TCP.
inline std::string ipv6_of(const TcpPacket& packet, const std::string& next = "06",
                           const std::string& extensions = "") {
  const std::string payload = bytes_of(extensions) + tcp_of(packet);
  std::string ip = bytes_of("60 00 00 00");
  append_number(ip, payload.size(), 2);
  ip += bytes_of(next) + "\x40";
  for (const bool is_source : {true, false}) {
    append_number(ip, 0xFD00000000000000, 8);
    append_number(ip, (packet.from < packet.to) == is_source ? 1 : 2, 8);
  }
  return ip + payload;
}

// One way to write a capture file.
struct FileFormat {
  const char* name;
  bool is_pcapng;
  bool is_big;
  bool has_nanoseconds;
};

inline void PrintTo(const FileFormat& format, std::ostream* out) { *out << format.name; }

constexpr FileFormat kFormats[] = {
    {"pcap_little_us", false, false, false},  {"pcap_little_ns", false, false, true},
    {"pcap_big_us", false, true, false},      {"pcap_big_ns", false, true, true},
    {"pcapng_little_us", true, false, false}, {"pcapng_little_ns", true, false, true},
    {"pcapng_big_us", true, true, false},     {"pcapng_big_ns", true, true, true},
};
constexpr FileFormat kClassic = kFormats[2];
constexpr FileFormat kPcapng = kFormats[5];

constexpr uint16_t kEthernet = 1;
constexpr uint16_t kRawIp = 101;

// Packet i has the time kFirstSecond s + i s + 123456789 ns, as far as the format can say it.
constexpr int64_t kFirstSecond = 1767225600;
constexpr int64_t kFraction = 123456789;

inline int64_t time_of(const FileFormat& format, size_t packet) {
  const int64_t seconds = (kFirstSecond + static_cast<int64_t>(packet)) * 1000000000;
  return seconds + (format.has_nanoseconds ? kFraction : kFraction / 1000 * 1000);
}

class FileWriter {
 public:
  FileWriter(const FileFormat& format, uint16_t link_type) : format_(format) {
    if (format.is_pcapng) {
      block(0x0A0D0D0A, number(0x1A2B3C4D, 4) + number(1, 2) + number(0, 2) + std::string(8, '\xFF'));
      interface(link_type);
      return;
    }
    file_ += number(format.has_nanoseconds ? 0xA1B23C4D : 0xA1B2C3D4, 4) + number(2, 2) + number(4, 2);
    file_ += number(0, 8) + number(65535, 4) + number(link_type, 4);
  }

  // Of pcapng alone.
  void interface(uint16_t link_type) {
    const std::string resolution = number(9, 2) + number(1, 2) + bytes_of("09 00 00 00") + number(0, 4);
    block(1, number(link_type, 2) + number(0, 2) + number(65535, 4) + (format_.has_nanoseconds ? resolution : ""));
  }

  // Any block of pcapng.
  void block(uint32_t type, std::string body) {
    body.resize((body.size() + 3) / 4 * 4);
    const std::string size = number(12 + body.size(), 4);
    file_ += number(type, 4) + size + body + size;
  }

  // A packet of which so many bytes more were sent than captured.
  void packet(const std::string& bytes, size_t missing = 0) {
    const uint64_t ns = static_cast<uint64_t>(time_of(format_, count_++));
    const std::string sizes = number(bytes.size(), 4) + number(bytes.size() + missing, 4);
    if (format_.is_pcapng) {
      const uint64_t time = format_.has_nanoseconds ? ns : ns / 1000;
      block(6, number(0, 4) + number(time >> 32U, 4) + number(time & 0xFFFFFFFF, 4) + sizes + bytes);
      return;
    }
    const uint64_t fraction = ns % 1000000000;
    file_ += number(ns / 1000000000, 4) + number(format_.has_nanoseconds ? fraction : fraction / 1000, 4) + sizes;
    file_ += bytes;
  }

  const std::string& file() const { return file_; }

 private:
  // In the byte order of the machine that writes.
  std::string number(uint64_t value, unsigned bytes) const {
    std::string text;
    append_number(text, value, bytes);
    return format_.is_big ? text : std::string(text.rbegin(), text.rend());
  }

  FileFormat format_;
  std::string file_;
  size_t count_ = 0;
};

inline std::string file_with(const FileFormat& format, uint16_t link_type, const std::vector<std::string>& packets) {
  FileWriter writer(format, link_type);
  for (const std::string& packet : packets) writer.packet(packet);
  return writer.file();
}

}  // namespace trace_test
