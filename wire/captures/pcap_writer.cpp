// Makes Ethernet, IPv4 and TCP around the bytes, with right lengths, sequence numbers and checksums; libpcap writes
// them.
#include "wire/captures/pcap_writer.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "base/whole_file.h"
#include "wire/big_endian.h"
#include "wire/captures/tcp_head.h"

namespace plc_sim {
namespace {

constexpr int kSnapLength = 65535;
constexpr uint32_t kLoopback = 0x7F000001;
constexpr size_t kEthernetBytes = 14;
constexpr size_t kIpBytes = 20;
constexpr size_t kMaxSegmentBytes = 32000;
constexpr size_t kPacketHeadBytes = 16;  // in the file
constexpr size_t kFileHeadBytes = 24;
constexpr size_t kBufferBytes = 65536;  // holds any packet
constexpr uint32_t kFirstSequence = 1000;

uint16_t checksum(const Bytes& bytes, size_t from, uint32_t sum) {
  for (size_t at = from; at < bytes.size(); at += 2) {
    const unsigned low = at + 1 < bytes.size() ? bytes[at + 1] : 0U;
    sum += (static_cast<unsigned>(bytes[at]) << 8U) | low;
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFFU) + (sum >> 16U);
  return static_cast<uint16_t>(~sum);
}

struct SegmentHead {
  uint16_t from_port;
  uint16_t to_port;
  uint32_t sequence;
  uint32_t acknowledged;
  uint8_t flags;
};

Bytes make_frame(const SegmentHead& segment, const uint8_t* bytes, size_t count) {
  constexpr uint8_t kIpVersionAndLength = 0x45;
  constexpr uint8_t kTimeToLive = 64;
  constexpr uint8_t kTcpLength = 0x50;
  Bytes frame(12, 0);
  append_u16(frame, 0x0800);
  frame.push_back(kIpVersionAndLength);
  frame.push_back(0);
  append_u16(frame, static_cast<uint16_t>(kIpBytes + tcp::kHeadBytes + count));
  append_u32(frame, 0x00004000);
  frame.push_back(kTimeToLive);
  frame.push_back(tcp::kProtocol);
  append_u16(frame, 0);
  append_u32(frame, kLoopback);
  append_u32(frame, kLoopback);
  const Bytes ip(frame.begin() + kEthernetBytes, frame.end());
  put_u16(frame, kEthernetBytes + 10, checksum(ip, 0, 0));
  append_u16(frame, segment.from_port);
  append_u16(frame, segment.to_port);
  append_u32(frame, segment.sequence);
  append_u32(frame, segment.acknowledged);
  frame.push_back(kTcpLength);
  frame.push_back(segment.flags);
  append_u16(frame, 0xFFFF);
  append_u32(frame, 0);
  frame.insert(frame.end(), bytes, bytes + count);
  const uint32_t pseudo_head = 2 * ((kLoopback >> 16U) + (kLoopback & 0xFFFFU)) + tcp::kProtocol +
                               static_cast<uint32_t>(tcp::kHeadBytes + count);
  put_u16(frame, kEthernetBytes + kIpBytes + 16, checksum(frame, kEthernetBytes + kIpBytes, pseudo_head));
  return frame;
}

uint64_t now_us() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since).count());
}

}  // namespace

PcapWriter::PcapWriter() : PcapWriter(now_us) {}

PcapWriter::~PcapWriter() { close(); }

void PcapWriter::CloseFormat::operator()(pcap* format) const { pcap_close(format); }

void PcapWriter::CloseFile::operator()(pcap_dumper* file) const { pcap_dump_close(file); }

std::string PcapWriter::open(const std::string& path, uint16_t server_port, const std::vector<std::string>& inputs) {
  plc_base::OpenedFile opened = plc_base::open_growing_file(path, inputs);
  if (!opened.problem.empty()) return opened.problem;
  std::FILE* file = fdopen(opened.descriptor, "wb");
  descriptor_ = fcntl(opened.descriptor, F_DUPFD_CLOEXEC, 0);
  if (file == nullptr || descriptor_ < 0) {
    const int error = errno;
    file != nullptr ? std::fclose(file) : ::close(opened.descriptor);
    close_descriptor();
    return std::strerror(error);
  }
  // A packet that leaves with one call is there whole or not at all, whenever the process ends.
  buffer_.resize(kBufferBytes);
  std::setvbuf(file, buffer_.data(), _IOFBF, buffer_.size());
  server_port_ = server_port;
  format_.reset(pcap_open_dead(DLT_EN10MB, kSnapLength));
  file_.reset(pcap_dump_fopen(format_.get(), file));  // takes the file, and closes it when that fails
  if (file_ == nullptr || pcap_dump_flush(file_.get()) != 0) {
    const int error = errno;
    file_.reset();
    cut_to_whole_packets();
    return std::strerror(error);
  }
  whole_bytes_ = kFileHeadBytes;
  return {};
}

void PcapWriter::close_descriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

// A file system may tell only when a descriptor is closed that the disk is full. libpcap does not ask, so that a copy
// of the descriptor is closed before.
std::string PcapWriter::close() {
  if (file_ != nullptr) {
    const int copy = dup(fileno(pcap_dump_file(file_.get())));
    if (copy < 0 || ::close(copy) != 0) fail(errno);
  }
  file_.reset();
  close_descriptor();
  return problem_;
}

// What was written of a packet that did not fit is taken away. Pipes and devices keep it.
bool PcapWriter::cut_to_whole_packets() {
  struct stat status {};
  const bool is_file = fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
  const bool is_whole = !is_file || ftruncate(descriptor_, static_cast<off_t>(whole_bytes_)) == 0;
  close_descriptor();
  return is_whole;
}

void PcapWriter::fail(int error) {
  problem_ = std::strerror(error);
  file_.reset();
  if (!cut_to_whole_packets()) problem_ += "; its last packet is cut off";
  if (tell_) tell_(problem_);
}

void PcapWriter::packet(Stream& stream, bool from_host, uint8_t flags, const uint8_t* bytes, size_t count) {
  constexpr uint64_t kUsPerSecond = 1000000;
  uint32_t& own = from_host ? stream.host_sequence : stream.server_sequence;
  const uint32_t other = from_host ? stream.server_sequence : stream.host_sequence;
  const SegmentHead segment{from_host ? stream.peer_port : server_port_, from_host ? server_port_ : stream.peer_port,
                            own, (flags & tcp::kAck) != 0 ? other : 0, flags};
  const Bytes frame = make_frame(segment, bytes, count);
  own += static_cast<uint32_t>(count) + ((flags & (tcp::kSyn | tcp::kFin)) != 0 ? 1 : 0);
  if (file_ == nullptr) return;
  const uint64_t now = clock_();
  pcap_pkthdr head{};
  head.ts.tv_sec = static_cast<time_t>(now / kUsPerSecond);
  head.ts.tv_usec = static_cast<suseconds_t>(now % kUsPerSecond);
  head.caplen = head.len = static_cast<uint32_t>(frame.size());
  pcap_dump(reinterpret_cast<u_char*>(file_.get()), &head, frame.data());
  // A packet that only its own write could not place is found by the file's error.
  if (pcap_dump_flush(file_.get()) != 0 || std::ferror(pcap_dump_file(file_.get())) != 0) {
    fail(errno);
  } else {
    whole_bytes_ += static_cast<int64_t>(kPacketHeadBytes + frame.size());
  }
}

void PcapWriter::opened(unsigned connection, uint16_t peer_port) {
  Stream& stream = streams_[connection];
  stream = {peer_port, kFirstSequence, kFirstSequence * 2};
  packet(stream, true, tcp::kSyn, nullptr, 0);
  packet(stream, false, tcp::kSyn | tcp::kAck, nullptr, 0);
  packet(stream, true, tcp::kAck, nullptr, 0);
}

void PcapWriter::data(unsigned connection, bool from_host, const Bytes& bytes) {
  Stream& stream = streams_[connection];
  for (size_t at = 0; at < bytes.size(); at += kMaxSegmentBytes) {
    packet(stream, from_host, tcp::kPush | tcp::kAck, bytes.data() + at, std::min(kMaxSegmentBytes, bytes.size() - at));
  }
}

void PcapWriter::received(unsigned connection, const Bytes& bytes) { data(connection, true, bytes); }

void PcapWriter::sent(unsigned connection, const Bytes& bytes) { data(connection, false, bytes); }

void PcapWriter::finished(unsigned connection, bool from_host) {
  packet(streams_[connection], from_host, tcp::kFin | tcp::kAck, nullptr, 0);
}

void PcapWriter::reset(unsigned connection, bool from_host) {
  packet(streams_[connection], from_host, tcp::kReset | tcp::kAck, nullptr, 0);
}

void PcapWriter::closed(unsigned connection) {
  const auto found = streams_.find(connection);
  if (found == streams_.end()) return;
  packet(found->second, true, tcp::kFin | tcp::kAck, nullptr, 0);
  packet(found->second, false, tcp::kFin | tcp::kAck, nullptr, 0);
  packet(found->second, true, tcp::kAck, nullptr, 0);
  streams_.erase(found);
}

}  // namespace plc_sim
