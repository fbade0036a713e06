// Every packet that is made leaves with one write of libpcap's.
#include "wire/captures/pcap_writer.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
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
  maker_.set_ends({server_port});
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
    whole_bytes_ += static_cast<int64_t>(kPacketHeadBytes + frame.size());
  }
}

void PcapWriter::opened(unsigned connection, uint16_t peer_port) { maker_.opened(connection, peer_port); }

void PcapWriter::received(unsigned connection, const Bytes& bytes) { maker_.data(connection, true, bytes); }

void PcapWriter::sent(unsigned connection, const Bytes& bytes) { maker_.data(connection, false, bytes); }

void PcapWriter::finished(unsigned connection, bool from_host) { maker_.finished(connection, from_host); }

void PcapWriter::reset(unsigned connection, bool from_host) { maker_.reset(connection, from_host); }

void PcapWriter::closed(unsigned connection) { maker_.closed(connection); }

}  // namespace plc_sim
