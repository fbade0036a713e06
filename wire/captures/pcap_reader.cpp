// Finds in the connections of a capture requests and replies by turns.
#include "wire/captures/pcap_reader.h"

#include <optional>

#include "wire/big_endian.h"
#include "wire/captures/pcap_streams.h"

namespace plc_sim {
namespace {

bool looks_like_request(const Bytes& bytes) {
  const ByteView view(bytes);
  if (view.size() < wire::kHeadBytes || view.u32(4) != ~view.u32(0)) return false;
  return view.u8(wire::kClassAt) == wire::kClassNames || view.u8(wire::kClassAt) == wire::kClassValues;
}

// What one side sent before the other one spoke.
struct Turn {
  bool from_first;
  Bytes bytes;
};

std::vector<Turn> turns_of(const TcpStream& stream) {
  std::vector<Turn> turns;
  for (const TcpEvent& event : stream.events) {
    if (event.kind != TcpEvent::Kind::kBytes) continue;
    if (turns.empty() || turns.back().from_first != event.from_first) turns.push_back({event.from_first, {}});
    turns.back().bytes.insert(turns.back().bytes.end(), event.bytes.begin(), event.bytes.end());
  }
  return turns;
}

// Hosts speak first: whoever sends the first request is the host.
void append_exchanges(const TcpStream& stream, std::vector<Exchange>& exchanges) {
  std::optional<bool> host;
  bool is_answered = true;
  for (const Turn& turn : turns_of(stream)) {
    if (!host) {
      if (!looks_like_request(turn.bytes)) continue;
      host = turn.from_first;
    }
    if (turn.from_first == *host) {
      exchanges.push_back({turn.bytes, {}});
      is_answered = false;
    } else if (!is_answered) {
      exchanges.back().reply = turn.bytes;
      is_answered = true;
    }
  }
}

Capture exchanges_of(const TcpCapture& tcp) {
  Capture capture;
  Losses losses = tcp.losses;
  for (const TcpStream& stream : tcp.streams) {
    const size_t before = capture.exchanges.size();
    append_exchanges(stream, capture.exchanges);
    if (capture.exchanges.size() > before) losses += stream.losses;
  }
  const bool is_empty = capture.exchanges.empty() && tcp.problem.empty();
  capture.problem = with_losses(is_empty ? "no exchange with a controller in it" : tcp.problem, losses);
  return capture;
}

}  // namespace

Capture read_capture(std::string_view file) { return exchanges_of(read_tcp_streams(file)); }

Capture read_capture_file(const std::string& path) { return exchanges_of(read_tcp_stream_file(path)); }

}  // namespace plc_sim
