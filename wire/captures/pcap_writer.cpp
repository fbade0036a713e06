// Every packet that is made leaves with one write of libpcap's.
#include "wire/captures/pcap_writer.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "base/whole_file.h"

namespace plc_sim {
namespace {

constexpr int kSnapLength = 65535;
constexpr size_t kPacketHeadBytes = 16;  // in the file
constexpr size_t kFileHeadBytes = 24;
constexpr size_t kBufferBytes = 65536;  // holds any packet

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
  const plc_base::OpenedFile opened = plc_base::open_growing_file(path, inputs);
  return opened.problem.empty() ? begin(opened.descriptor, server_port) : opened.problem;
}

std::string PcapWriter::begin(int opened, uint16_t server_port) {
  std::FILE* file = fdopen(opened, "wb");
  // Of the file too, for what comes after its end.
  set_descriptor(fcntl(opened, F_DUPFD_CLOEXEC, 0));
  if (file == nullptr || descriptor() < 0) {
    const int error = errno;
    file != nullptr ? std::fclose(file) : ::close(opened);
    close_descriptor();
    return std::strerror(error);
  }
  // A packet that leaves with one call is there whole or not at all, whenever the process ends.
  buffer_.resize(kBufferBytes);
  std::setvbuf(file, buffer_.data(), _IOFBF, buffer_.size());
  maker().set_ends({server_port});
  format_.reset(pcap_open_dead(DLT_EN10MB, kSnapLength));
  file_.reset(pcap_dump_fopen(format_.get(), file));  // takes the file, and closes it when that fails
  if (file_ == nullptr || pcap_dump_flush(file_.get()) != 0) {
    const int error = errno;
    file_.reset();
    cut_to_whole_packets();
    return std::strerror(error);
  }
  add_whole_bytes(kFileHeadBytes);
  return {};
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
  return problem();
}

void PcapWriter::fail(int error) {
  file_.reset();
  end_after(error);
}

void PcapWriter::write(const Bytes& frame) {
  constexpr uint64_t kUsPerSecond = 1000000;
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
    add_whole_bytes(kPacketHeadBytes + frame.size());
  }
}

}  // namespace plc_sim
