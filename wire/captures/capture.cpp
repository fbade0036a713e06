// Tells in captured connections the host from the controller, and writes recordings as captures.
#include "wire/captures/capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>

#include "base/whole_file.h"
#include "wire/captures/pcap_streams.h"
#include "wire/captures/pcap_writer.h"
#include "wire/reply_parts.h"
#include "wire/request.h"

namespace wire_trace {
namespace {

using plc_sim::TcpEvent;
using plc_sim::TcpStream;

// A length with its complement, and a class and command of this protocol.
bool is_of_this_protocol(const Bytes& bytes) {
  return head_of(bytes).is_reply && plc_sim::kind_of(bytes) != plc_sim::RequestKind::kUnknown;
}

// Whether bytes are a request in every respect; a reply to a short one can be.
bool is_request(const Bytes& bytes) {
  plc_sim::Findings findings;
  plc_sim::parse_request(bytes, findings);
  return findings.violations.empty();
}

// How many pieces of each side are of this protocol, and how many of them are requests.
struct Spoken {
  size_t pieces = 0;
  size_t requests_of_first = 0;
  size_t requests_of_second = 0;
};

Spoken count_spoken(const TcpStream& stream) {
  Spoken spoken;
  for (const TcpEvent& event : stream.events) {
    if (event.kind != TcpEvent::Kind::kBytes || !is_of_this_protocol(event.bytes)) continue;
    ++spoken.pieces;
    if (is_request(event.bytes)) ++(event.from_first ? spoken.requests_of_first : spoken.requests_of_second);
  }
  return spoken;
}

// Whether the side that sent the first packet is the host; nothing when the stream is not the controller's.
std::optional<bool> is_first_the_host(const TcpStream& stream, uint16_t controller_port) {
  if (controller_port != 0) {
    const bool is_first = stream.first_port == controller_port;
    const bool is_second = stream.second_port == controller_port;
    return is_first || is_second ? std::optional<bool>(is_second) : std::nullopt;
  }
  const Spoken spoken = count_spoken(stream);
  if (spoken.pieces == 0) return std::nullopt;
  const bool is_opening_seen = stream.first_opened || stream.second_opened;
  return is_opening_seen ? stream.first_opened : spoken.requests_of_first >= spoken.requests_of_second;
}

TrafficEvent::Kind kind_of(TcpEvent::Kind kind) {
  switch (kind) {
    case TcpEvent::Kind::kFinished:
      return TrafficEvent::Kind::kFinished;
    case TcpEvent::Kind::kReset:
      return TrafficEvent::Kind::kReset;
    default:
      return TrafficEvent::Kind::kBytes;
  }
}

Connection connection_of(const TcpStream& stream, bool first_is_host) {
  Connection connection;
  connection.host_port = first_is_host ? stream.first_port : stream.second_port;
  connection.opened_ns = stream.start_ns;
  connection.is_whole = stream.first_opened || stream.second_opened;
  connection.is_refused = stream.is_refused;
  for (const TcpEvent& event : stream.events) {
    connection.events.push_back({event.time_ns, event.from_first == first_is_host, kind_of(event.kind), event.bytes});
  }
  return connection;
}

struct PlacedEvent {
  unsigned connection;
  const TrafficEvent* event;  // null: the connection is opened
  int64_t time_ns;
};

std::vector<PlacedEvent> in_time_order(const Recording& recording) {
  std::vector<PlacedEvent> placed;
  for (size_t i = 0; i < recording.connections.size(); ++i) {
    const Connection& connection = recording.connections[i];
    placed.push_back({static_cast<unsigned>(i), nullptr, connection.opened_ns});
    for (const TrafficEvent& event : connection.events) {
      placed.push_back({static_cast<unsigned>(i), &event, event.time_ns});
    }
  }
  std::stable_sort(placed.begin(), placed.end(),
                   [](const PlacedEvent& a, const PlacedEvent& b) { return a.time_ns < b.time_ns; });
  return placed;
}

CapturedRecording recording_of(const plc_sim::TcpCapture& tcp, uint16_t controller_port) {
  CapturedRecording captured;
  plc_sim::Losses losses = tcp.losses;
  for (const TcpStream& stream : tcp.streams) {
    if (const auto first_is_host = is_first_the_host(stream, controller_port)) {
      captured.recording.connections.push_back(connection_of(stream, *first_is_host));
      losses += stream.losses;
    }
  }
  const bool is_empty = captured.recording.connections.empty() && tcp.problem.empty();
  captured.problem = plc_sim::with_losses(is_empty ? "no connection with a controller in it" : tcp.problem, losses);
  return captured;
}

// Begin opens the writer's file, and returns why it did not.
std::string write_packets(const Recording& recording,
                          const std::function<std::string(plc_sim::PcapWriter& writer)>& begin) {
  constexpr int64_t kNsPerUs = 1000;
  int64_t now_ns = 0;
  plc_sim::PcapWriter writer([&now_ns] { return static_cast<uint64_t>(now_ns / kNsPerUs); });
  std::string problem = begin(writer);
  if (!problem.empty()) return problem;
  for (const PlacedEvent& placed : in_time_order(recording)) {
    now_ns = placed.time_ns;
    if (placed.event == nullptr) {
      writer.opened(placed.connection, recording.connections[placed.connection].host_port);
    } else if (placed.event->kind == TrafficEvent::Kind::kReset) {
      writer.reset(placed.connection, placed.event->from_host);
    } else if (placed.event->kind == TrafficEvent::Kind::kFinished) {
      writer.finished(placed.connection, placed.event->from_host);
    } else if (placed.event->from_host) {
      writer.received(placed.connection, placed.event->bytes);
    } else {
      writer.sent(placed.connection, placed.event->bytes);
    }
  }
  return writer.close();
}

// All that can be read from the descriptor of a file, from its beginning.
std::string read_back(int descriptor, std::string& bytes) {
  std::array<char, 65536> piece{};
  for (;;) {
    const ssize_t count = pread(descriptor, piece.data(), piece.size(), static_cast<off_t>(bytes.size()));
    if (count < 0) return std::strerror(errno);
    if (count == 0) return {};
    bytes.append(piece.data(), static_cast<size_t>(count));
  }
}

bool is_device_or_pipe(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

CapturedRecording read_recording(std::string_view file, uint16_t controller_port) {
  return recording_of(plc_sim::read_tcp_streams(file), controller_port);
}

CapturedRecording read_recording_file(const std::string& path, uint16_t controller_port) {
  return recording_of(plc_sim::read_tcp_stream_file(path), controller_port);
}

// A capture that is written at once is made in memory, so that the file has all of it or is what it was.
std::string write_recording(const Recording& recording, uint16_t controller_port, const std::string& path,
                            const std::vector<std::string>& inputs) {
  if (is_device_or_pipe(path)) {
    return write_packets(recording,
                         [&](plc_sim::PcapWriter& writer) { return writer.open(path, controller_port, inputs); });
  }
  const int memory = memfd_create("capture", MFD_CLOEXEC);
  if (memory < 0) return std::strerror(errno);
  std::string bytes;
  std::string problem = write_packets(recording, [&](plc_sim::PcapWriter& writer) {
    const int copy = fcntl(memory, F_DUPFD_CLOEXEC, 0);
    return copy < 0 ? std::string(std::strerror(errno)) : writer.begin(copy, controller_port);
  });
  if (problem.empty()) problem = read_back(memory, bytes);
  close(memory);
  return problem.empty() ? plc_base::write_whole_file(path, bytes, inputs) : problem;
}

}  // namespace wire_trace
