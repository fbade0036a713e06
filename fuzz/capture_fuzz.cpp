// Captures: files of any bytes, and packets of every link in files that are well-formed, down to the bytes of the
// connections in them.
#include <string>

#include "base/text.h"
#include "fuzz_input.h"
#include "judge.h"
#include "traffic_words.h"
#include "wire/captures/capture.h"
#include "wire/captures/pcap_reader.h"
#include "wire/captures/pcap_streams.h"

namespace {

using fuzz::demand;
using fuzz::Frame;
using plc_sim::TcpEvent;

void put(std::string& file, uint32_t value, int bytes, bool little) {
  for (int i = 0; i < bytes; ++i) {
    const int shift = 8 * (little ? i : bytes - 1 - i);
    file += static_cast<char>(value >> shift);
  }
}

constexpr uint32_t kLinks[] = {1, 113, 276, 101, 0, 108, 228, 229, 147};

// One direction's next sequence number.
struct Side {
  uint32_t next = 0xFFFFFFF0;  // soon beyond the last one
};

struct Writer {
  fuzz::Input& input;
  uint32_t link;
  std::string file;
  size_t payload = 0;
  Side sides[2];

  // The head of TCP and its bytes.
  std::string tcp(uint8_t what, const Frame& data) {
    const bool from_host = (what & 1U) != 0;
    Side& side = sides[from_host ? 0 : 1];
    const uint8_t how = input.byte();
    uint32_t sequence = side.next;
    if (how % 4 == 1) sequence += how >> 2U;
    if (how % 4 == 2) sequence -= how >> 2U;
    side.next = sequence + static_cast<uint32_t>(data.size()) + ((what & 2U) != 0 ? 1 : 0);
    std::string head;
    put(head, from_host ? 40000 + (what >> 7U) : 8500, 2, false);
    put(head, from_host ? 8500 : 40000 + (what >> 7U), 2, false);
    put(head, sequence, 4, false);
    put(head, 0, 4, false);
    uint8_t flags = 0x10;
    if ((what & 2U) != 0) flags = from_host ? 0x02 : 0x12;
    if ((what & 4U) != 0) flags = (what & 8U) != 0 ? 0x14 : 0x11;
    head += static_cast<char>(how == 0xFF ? 0x10 : 0x50);
    head += static_cast<char>(flags);
    head.append(6, '\0');
    head.append(data.begin(), data.end());
    payload += data.size();
    return head;
  }

  std::string ip(uint8_t what, const std::string& content) {
    const uint8_t odd = (what & 0x40U) != 0 ? input.byte() : uint8_t{0};
    std::string head;
    if ((what & 0x10U) == 0) {
      const unsigned words = odd % 8 == 1 ? 6 : odd % 8 == 2 ? 4 : 5;
      put(head, 0x4000 | words << 8U, 2, false);
      put(head, odd % 8 == 3 ? 0 : static_cast<uint32_t>(4 * words + content.size()), 2, false);
      put(head, odd % 8 == 4 ? 0x2000 : 0, 4, false);
      put(head, odd % 8 == 5 ? 0x4011 : 0x4006, 2, false);
      put(head, 0, 2, false);
      put(head, 0x0A000001, 4, false);
      put(head, 0x0A000001, 4, false);
      if (words == 6) put(head, 0, 4, false);
      return head + content;
    }
    static constexpr char kExtensions[] = {0, 43, 44, 51, 60, static_cast<char>(135), 6, 17};
    const char first = odd == 0 ? '\x06' : kExtensions[odd % 8];
    const bool has_extension = first != 6 && first != 17;
    put(head, 0x60000000, 4, false);
    put(head, static_cast<uint32_t>(content.size() + (has_extension ? 8 : 0)), 2, false);
    head += first;
    head.append(33, '\x01');
    if (has_extension) head += std::string("\x06\x00\x00", 3) + static_cast<char>(odd >> 4U) + std::string(4, '\0');
    return head + content;
  }

  std::string linked(uint8_t what, const std::string& content) {
    const uint32_t type = (what & 0x10U) == 0 ? 0x0800 : 0x86DD;
    const bool has_tag = (what & 0x20U) != 0;
    std::string head;
    switch (link) {
      case 1:
      case 113:
        head.append(link == 1 ? 12 : 14, '\x02');
        if (has_tag) put(head, 0x81000001, 4, false);
        put(head, type, 2, false);
        break;
      case 276:
        put(head, has_tag ? 0x8100 : type, 2, false);
        head.append(18, '\0');
        if (has_tag) put(head, 0x00010000 | type, 4, false);
        break;
      case 0:
        put(head, type == 0x0800 ? 2 : 24, 4, !has_tag);
        break;
      case 108:
        put(head, type == 0x0800 ? 2 : 30, 4, false);
        break;
      default:
        break;
    }
    return head + content;
  }

  void add(uint8_t what, bool little) {
    Frame data;
    if ((what & 6U) == 0) data = (what & 1U) != 0 ? fuzz::request_of(input) : fuzz::reply_of(input);
    if ((what & 14U) == 8) data = fuzz::damaged(input, data);
    const std::string packet = linked(what, ip(what, tcp(what, data)));
    const uint8_t cut = (what & 0x40U) != 0 ? input.byte() % 64 : uint8_t{0};
    const size_t kept = packet.size() - std::min<size_t>(cut, packet.size());
    put(file, 1000, 4, little);
    put(file, static_cast<uint32_t>(file.size()), 4, little);
    put(file, static_cast<uint32_t>(kept), 4, little);
    put(file, static_cast<uint32_t>(packet.size()), 4, little);
    file += packet.substr(0, kept);
  }
};

void judge_streams(const plc_sim::TcpCapture& capture, size_t payload) {
  size_t bytes = 0;
  for (const plc_sim::TcpStream& stream : capture.streams) {
    demand(!stream.is_refused || stream.first_opened, "a refused connection was asked for");
    for (const TcpEvent& event : stream.events) {
      demand(event.kind == TcpEvent::Kind::kBytes || event.bytes.empty(), "an end has no bytes");
      bytes += event.bytes.size();
    }
  }
  demand(bytes <= payload, "no byte comes twice");
  plc_sim::with_losses(capture.problem, capture.losses);
}

size_t bytes_of(const wire_trace::Recording& recording) {
  size_t bytes = 0;
  for (const wire_trace::Connection& connection : recording.connections) {
    for (const wire_trace::TrafficEvent& event : connection.events) bytes += event.bytes.size();
  }
  return bytes;
}

void judge_file(const std::string& file, size_t payload, uint8_t choice) {
  switch (choice % 3) {
    case 0:
      judge_streams(plc_sim::read_tcp_streams(file), payload);
      break;
    case 1: {
      const plc_sim::Capture capture = plc_sim::read_capture(file);
      size_t bytes = 0;
      for (const plc_sim::Exchange& exchange : capture.exchanges) {
        demand(!exchange.request.empty(), "an exchange has a request");
        bytes += exchange.request.size() + exchange.reply.size();
      }
      demand(bytes <= payload, "no byte comes twice");
      demand(!capture.exchanges.empty() || !capture.problem.empty(), "nothing found has a reason");
      break;
    }
    default: {
      const uint16_t port = choice % 2 == 0 ? 0 : 8500;
      const wire_trace::CapturedRecording captured = wire_trace::read_recording(file, port);
      demand(bytes_of(captured.recording) <= payload, "no byte comes twice");
      demand(!captured.recording.connections.empty() || !captured.problem.empty(), "nothing found has a reason");
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  constexpr uint8_t kAnyBytes = 0x80;
  constexpr size_t kMostPackets = 10;
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  if ((choice & kAnyBytes) != 0) {
    const std::string file = input.text();
    judge_file(file, file.size(), choice & 0x7FU);
    return 0;
  }
  const uint8_t format = input.byte();
  const bool little = (format & 0x10U) != 0;
  Writer writer{input, kLinks[format % (sizeof kLinks / sizeof kLinks[0])], {}, 0, {}};
  put(writer.file, (format & 0x20U) != 0 ? 0xA1B23C4D : 0xA1B2C3D4, 4, little);
  put(writer.file, 2, 2, little);
  put(writer.file, 4, 2, little);
  put(writer.file, 0, 4, little);
  put(writer.file, 0, 4, little);
  put(writer.file, 262144, 4, little);
  put(writer.file, writer.link, 4, little);
  for (size_t i = 0; i < kMostPackets && !input.empty(); ++i) writer.add(input.byte(), little);
  if ((format & 0x40U) != 0) writer.file.resize(writer.file.size() - std::min<size_t>(format % 16, 8));
  judge_file(writer.file, writer.payload + (format & 0x40U), choice);
  return 0;
}
