// One connection to a controller on which requests are sent and the pieces of their replies received, with times. It
// knows no more of the protocol than where a reply says that it ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "wire/captures/pcapng_writer.h"
#include "wire/relay.h"
#include "wire/wire.h"

namespace plc_host::survey {

inline constexpr int kQuietMs = 50;  // waited behind bytes that do not say their end

struct ReplyPiece {
  double at_ms = 0;  // since the request was sent
  size_t bytes = 0;
};

struct ProbeReply {
  // kQuiet: its head does not say how long it is, and no more came.
  enum class End { kWhole, kQuiet, kSilent, kClosed, kReset };
  End end = End::kSilent;
  plc_sim::Bytes bytes;
  std::vector<ReplyPiece> pieces;
  plc_sim::Bytes before = {};                // that came before it since the last one, and are no frame
  std::vector<plc_sim::Bytes> foreign = {};  // whole frames with another sequence number, or behind the reply
  bool has_come() const { return !bytes.empty(); }
  bool is_lost() const { return end == End::kClosed || end == End::kReset; }
  // To the last byte.
  double took_ms() const { return pieces.empty() ? 0 : pieces.back().at_ms; }
};

// How long a reply is waited for, and behind a whole frame with another sequence number one that has the request's: 0
// takes any frame for the reply.
struct ReplyWait {
  int timeout_ms = 0;
  int own_ms = 0;
};

// Takes the whole frames off the beginning of the bytes.
std::vector<plc_sim::Bytes> take_whole_frames(plc_sim::Bytes& bytes);

class Probe {
 public:
  // number: of the connection in the capture, which sees every byte.
  Probe(plc_sim::PcapngWriter& capture, unsigned number) : capture_(capture), number_(number) {}
  ~Probe() { close(); }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

  wire_trace::Reach connect(uint32_t address, uint16_t port, int patience_ms);
  bool is_open() const { return descriptor_ >= 0; }

  // Sends the request and waits for its reply. Signals do not end the wait. With finishes_sending the controller hears
  // behind the request that no other will come.
  ProbeReply exchange(const plc_sim::Bytes& request, ReplyWait wait, bool finishes_sending = false);

  // Bytes that came unasked since the last reply; the end of the connection closes it.
  plc_sim::Bytes drain();

  // What the connection says of its segments.
  std::optional<int> segment_bytes() const;

  void close();

 private:
  bool send_all(const plc_sim::Bytes& request);
  static bool put_stray_aside(const plc_sim::Bytes& request, ProbeReply& reply);
  void receive_reply(const plc_sim::Bytes& request, ReplyWait wait, int64_t start_ns, ProbeReply& reply);
  void finish_frames(ProbeReply& reply, int64_t start_ns);
  void receive_frame(ProbeReply& reply, int64_t start_ns, int64_t end_ns);
  bool receive_piece(ProbeReply& reply, int64_t start_ns);

  plc_sim::PcapngWriter& capture_;
  unsigned number_;
  int descriptor_ = -1;
};

}  // namespace plc_host::survey
