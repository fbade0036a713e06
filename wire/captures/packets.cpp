// libpcap keeps the bounds of what it reads: no packet is longer than 256 KiB, no block of a pcapng file than 16 MiB.
#include "wire/captures/packets.h"

#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "base/files.h"

namespace plc_sim {
namespace {

// All connections of a capture are in memory at a time.
constexpr int64_t kMostFileBytes = int64_t{1} << 30U;

struct CloseCapture {
  void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using CaptureFile = std::unique_ptr<pcap_t, CloseCapture>;

std::optional<Link> link_of(int link_type) {
  switch (link_type) {
    case DLT_EN10MB:
      return Link::kEthernet;
    case DLT_LINUX_SLL:
      return Link::kLinuxCooked;
    case DLT_LINUX_SLL2:
      return Link::kLinuxCooked2;
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
      return Link::kRawIp;
    case DLT_NULL:
    case DLT_LOOP:
      return Link::kLoopback;
    default:
      return std::nullopt;
  }
}

std::string other_link(int link_type) {
  const char* name = pcap_datalink_val_to_name(link_type);
  return "its packets are of link type " + (name != nullptr ? std::string(name) : std::to_string(link_type)) +
         "; expected are Ethernet, Linux cooked, raw IP and loopback";
}

// The seconds of hostile files need not fit into the nanoseconds of a time.
int64_t time_of(const timeval& stamp) {
  constexpr int64_t kNsPerSecond = 1000000000;
  return static_cast<uint32_t>(stamp.tv_sec) * kNsPerSecond + static_cast<uint32_t>(stamp.tv_usec);
}

std::string read_all(pcap_t* capture, const TakePacket& take) {
  const auto link = link_of(pcap_datalink(capture));
  if (!link) return other_link(pcap_datalink(capture));
  for (size_t count = 0;; ++count) {
    pcap_pkthdr* head = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(capture, &head, &bytes);
    if (result == 1) {
      take({*link, time_of(head->ts), ByteView(bytes, head->caplen)});
      continue;
    }
    if (result == PCAP_ERROR_BREAK) return {};
    if (std::feof(pcap_file(capture)) != 0) {
      return count == 0 ? "the file breaks off before its first packet ends"
                        : "the file breaks off after packet " + std::to_string(count);
    }
    return "cannot be read" + (count == 0 ? std::string() : " beyond packet " + std::to_string(count)) + ": " +
           pcap_geterr(capture);
  }
}

// Closes the file.
std::string read_opened(std::FILE* file, const TakePacket& take) {
  if (file == nullptr) return std::string("cannot be read: ") + std::strerror(errno);
  char reason[PCAP_ERRBUF_SIZE] = "";
  const CaptureFile capture(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, reason));
  if (capture != nullptr) return read_all(capture.get(), take);
  const bool is_read = std::ferror(file) == 0;
  std::fclose(file);
  return (is_read ? "not a pcap or pcapng file, as tcpdump, tshark and Wireshark write them: " : "cannot be read: ") +
         std::string(reason);
}

}  // namespace

std::string read_packets(std::string_view file, const TakePacket& take) {
  // Opened for reading: the bytes stay as they are.
  return read_opened(fmemopen(const_cast<char*>(file.data()), file.size(), "rb"), take);
}

std::string read_packet_file(const std::string& path, const TakePacket& take) {
  const plc_base::OpenedFile opened = plc_base::open_regular_file(path);
  if (!opened.problem.empty()) return "cannot be read: " + opened.problem;
  struct stat status {};
  if (fstat(opened.descriptor, &status) == 0 && status.st_size > kMostFileBytes) {
    close(opened.descriptor);
    return "cannot be read: it has more than " + std::to_string(kMostFileBytes) + " bytes";
  }
  std::FILE* file = fdopen(opened.descriptor, "rb");
  if (file == nullptr) close(opened.descriptor);
  return read_opened(file, take);
}

}  // namespace plc_sim
