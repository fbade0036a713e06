// Writes what goes over the connections as a pcapng file: nanoseconds, and packets with comments; the packets' heads
// are made up around the bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "wire/captures/made_packets.h"
#include "wire/captures/traffic_observer.h"

namespace plc_sim {

class PcapngWriter : public TrafficObserver {
 public:
  // Nanoseconds since 1970.
  using Clock = std::function<uint64_t()>;

  // What the beginning of the file says.
  struct Origin {
    PacketMaker::Ends ends;
    std::string program;  // "plc-host 1.1.0"
    std::string comment;  // on the whole file
  };

  PcapngWriter();
  explicit PcapngWriter(Clock clock) : clock_(std::move(clock)) {}
  ~PcapngWriter() override;

  // Empty when the file was begun, else what went wrong. Neither through a link nor over one of inputs, paths of what
  // is read.
  std::string open(const std::string& path, const Origin& origin, const std::vector<std::string>& inputs = {});

  // Empty when the file holds everything, else what went wrong first: nothing was written from then on. The file ends
  // with a whole packet in every case.
  std::string close();

  // Is called once, as soon as something cannot be written.
  void on_failure(std::function<void(const std::string&)> tell) { tell_ = std::move(tell); }

  void opened(unsigned connection, uint16_t peer_port) override;
  void received(unsigned connection, const Bytes& bytes) override;
  void sent(unsigned connection, const Bytes& bytes) override;
  void closed(unsigned connection) override;

  // A connection that was asked for and not granted.
  void refused(unsigned connection, uint16_t peer_port);
  void unheard(unsigned connection, uint16_t peer_port);

  // One side sends nothing more, or ends the connection at once.
  void finished(unsigned connection, bool from_host);
  void reset(unsigned connection, bool from_host);

  // On the last packet. Any bytes: they are one line of text in the file.
  void comment(const std::string& text);

  // How many packets there are, which is the number of the last one.
  size_t packets() const { return packets_; }

 private:
  void keep(const Bytes& frame);
  void write_last();
  void write_block(uint32_t type, const Bytes& body);
  void fail(int error);
  bool cut_to_whole_blocks();

  Clock clock_;
  std::function<void(const std::string&)> tell_;
  std::string problem_;
  int descriptor_ = -1;
  int64_t whole_bytes_ = 0;  // that end with a block
  size_t packets_ = 0;
  Bytes last_;          // the body of the last packet's block, which comments can still come to; empty: it is written
  Bytes last_options_;  // its comments
  PacketMaker maker_{[this](const Bytes& packet) { keep(packet); }};
};

}  // namespace plc_sim
