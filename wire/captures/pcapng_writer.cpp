// libpcap writes pcap files alone, which have neither comments nor a word on their origin: blocks are written here.
#include "wire/captures/pcapng_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>

#include "base/shown_text.h"
#include "base/utf8.h"
#include "base/whole_file.h"
#include "wire/big_endian.h"

namespace plc_sim {
namespace {

constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr uint16_t kEthernet = 1;
constexpr uint32_t kMostCaptured = 65535;  // bytes of a packet
constexpr size_t kBlockFrameBytes = 12;    // its type, and its length twice

constexpr uint16_t kEndOfOptions = 0;
constexpr uint16_t kComment = 1;
constexpr uint16_t kProgram = 4;         // of a section
constexpr uint16_t kTimeResolution = 9;  // of an interface
constexpr uint8_t kNanoseconds = 9;      // as a power of ten
constexpr size_t kMostTextBytes = 4000;

uint64_t now_ns() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(since).count());
}

void pad(Bytes& bytes) { bytes.resize((bytes.size() + 3) / 4 * 4, 0); }

void append_option(Bytes& options, uint16_t code, std::string_view value) {
  append_u16(options, code);
  append_u16(options, static_cast<uint16_t>(value.size()));
  options.insert(options.end(), value.begin(), value.end());
  pad(options);
}

// One line of UTF-8, whole characters of it.
void append_text(Bytes& options, uint16_t code, const std::string& text) {
  const std::string shown = plc_base::shown_line(text);
  std::string_view value = std::string_view(shown).substr(0, kMostTextBytes);
  while (!plc_base::is_utf8(value)) value.remove_suffix(1);
  if (!value.empty()) append_option(options, code, value);
}

void append_end(Bytes& options) {
  if (!options.empty()) append_option(options, kEndOfOptions, {});
}

}  // namespace

PcapngWriter::PcapngWriter() : PcapngWriter(now_ns) {}

PcapngWriter::~PcapngWriter() { close(); }

std::string PcapngWriter::open(const std::string& path, const Origin& origin, const std::vector<std::string>& inputs) {
  const plc_base::OpenedFile opened = plc_base::open_growing_file(path, inputs);
  if (!opened.problem.empty()) return opened.problem;
  set_descriptor(opened.descriptor);
  maker().set_ends(origin.ends);
  Bytes section;
  append_u32(section, kByteOrderMagic);
  append_u16(section, 1);  // the format's version
  append_u16(section, 0);
  append_u32(section, 0xFFFFFFFF);  // how long the section is: not known
  append_u32(section, 0xFFFFFFFF);
  Bytes options;
  append_text(options, kComment, origin.comment);
  append_text(options, kProgram, origin.program);
  append_end(options);
  section.insert(section.end(), options.begin(), options.end());
  write_block(kSectionHeader, section);
  Bytes interface;
  append_u16(interface, kEthernet);
  append_u16(interface, 0);
  append_u32(interface, kMostCaptured);
  append_option(interface, kTimeResolution, std::string_view(reinterpret_cast<const char*>(&kNanoseconds), 1));
  append_option(interface, kEndOfOptions, {});
  write_block(kInterface, interface);
  return problem();
}

// A file system may tell only when a descriptor is closed that the disk is full: a copy is closed before.
std::string PcapngWriter::close() {
  write_last();
  if (descriptor() >= 0) {
    const int copy = dup(descriptor());
    if (copy < 0 || ::close(copy) != 0) end_after(errno);
  }
  close_descriptor();
  return problem();
}

// A block that leaves with one call is there whole or not at all, whenever the process ends.
void PcapngWriter::write_block(uint32_t type, const Bytes& body) {
  if (descriptor() < 0) return;
  const uint32_t size = static_cast<uint32_t>(kBlockFrameBytes + body.size());
  Bytes block;
  append_u32(block, type);
  append_u32(block, size);
  block.insert(block.end(), body.begin(), body.end());
  append_u32(block, size);
  for (size_t at = 0; at < block.size();) {
    const ssize_t written = ::write(descriptor(), block.data() + at, block.size() - at);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return end_after(written == 0 ? EIO : errno);
    at += static_cast<size_t>(written);
  }
  add_whole_bytes(block.size());
}

void PcapngWriter::write_last() {
  if (last_.empty()) return;
  append_end(last_options_);
  last_.insert(last_.end(), last_options_.begin(), last_options_.end());
  write_block(kEnhancedPacket, last_);
  last_.clear();
  last_options_.clear();
}

void PcapngWriter::keep(const Bytes& frame) {
  write_last();
  ++packets_;
  const uint64_t now = clock_();
  append_u32(last_, 0);  // its interface
  append_u32(last_, static_cast<uint32_t>(now >> 32U));
  append_u32(last_, static_cast<uint32_t>(now));
  append_u32(last_, static_cast<uint32_t>(frame.size()));
  append_u32(last_, static_cast<uint32_t>(frame.size()));
  last_.insert(last_.end(), frame.begin(), frame.end());
  pad(last_);
}

void PcapngWriter::comment(const std::string& text) {
  if (!last_.empty()) append_text(last_options_, kComment, text);
}

void PcapngWriter::refused(unsigned connection, uint16_t peer_port) { maker().refused(connection, peer_port); }

void PcapngWriter::unheard(unsigned connection, uint16_t peer_port) { maker().unheard(connection, peer_port); }

}  // namespace plc_sim
