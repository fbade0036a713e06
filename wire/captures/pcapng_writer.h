// Writes what goes over the connections as a pcapng file: nanoseconds, and packets with comments; the packets' heads
// are made up around the bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "wire/captures/capture_writer.h"

namespace plc_sim {

class PcapngWriter : public CaptureWriter {
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
  explicit PcapngWriter(Clock clock)
      : CaptureWriter([this](const Bytes& packet) { keep(packet); }), clock_(std::move(clock)) {}
  ~PcapngWriter() override;

  // Empty when the file was begun, else what went wrong. Neither through a link nor over one of inputs, paths of what
  // is read.
  std::string open(const std::string& path, const Origin& origin, const std::vector<std::string>& inputs = {});

  // Empty when the file holds everything, else what went wrong first: nothing was written from then on. The file ends
  // with a whole packet in every case.
  std::string close();

  // A connection that was asked for and not granted.
  void refused(unsigned connection, uint16_t peer_port);
  void unheard(unsigned connection, uint16_t peer_port);

  // On the last packet. Any bytes: they are one line of text in the file.
  void comment(const std::string& text);

  // How many packets there are, which is the number of the last one.
  size_t packets() const { return packets_; }

 private:
  void keep(const Bytes& frame);
  void write_last();
  void write_block(uint32_t type, const Bytes& body);

  Clock clock_;
  size_t packets_ = 0;
  Bytes last_;          // the body of the last packet's block, which comments can still come to; empty: it is written
  Bytes last_options_;  // its comments
};

}  // namespace plc_sim
