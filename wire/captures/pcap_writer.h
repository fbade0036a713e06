// Writes what goes over the connections as a capture file, with the packets' heads made up around it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "wire/captures/made_packets.h"
#include "wire/captures/traffic_observer.h"

struct pcap;
struct pcap_dumper;

namespace plc_sim {

class PcapWriter : public TrafficObserver {
 public:
  // Microseconds since 1970, so that tests can say what time it is.
  using Clock = std::function<uint64_t()>;

  PcapWriter();
  explicit PcapWriter(Clock clock) : clock_(std::move(clock)) {}
  ~PcapWriter() override;

  // Empty when the file was begun, else what went wrong. Neither through a link nor over one of inputs, paths of what
  // is read.
  std::string open(const std::string& path, uint16_t server_port, const std::vector<std::string>& inputs = {});

  // Empty when the file holds everything, else what went wrong first: nothing was written from then on. The file ends
  // with a whole packet in every case.
  std::string close();

  // Is called once, as soon as something cannot be written.
  void on_failure(std::function<void(const std::string&)> tell) { tell_ = std::move(tell); }

  void opened(unsigned connection, uint16_t peer_port) override;
  void received(unsigned connection, const Bytes& bytes) override;
  void sent(unsigned connection, const Bytes& bytes) override;
  void closed(unsigned connection) override;

  // One side sends nothing more, or ends the connection at once.
  void finished(unsigned connection, bool from_host);
  void reset(unsigned connection, bool from_host);

 private:
  void write(const Bytes& frame);
  void fail(int error);
  void close_descriptor();
  bool cut_to_whole_packets();

  struct CloseFormat {
    void operator()(pcap* format) const;
  };
  struct CloseFile {
    void operator()(pcap_dumper* file) const;
  };

  Clock clock_;
  std::function<void(const std::string&)> tell_;
  std::string problem_;
  std::vector<char> buffer_;  // the file's; it goes after the file
  int descriptor_ = -1;       // of the file too, for what comes after its end
  int64_t whole_bytes_ = 0;   // that end with a packet
  std::unique_ptr<pcap, CloseFormat> format_;
  std::unique_ptr<pcap_dumper, CloseFile> file_;
  PacketMaker maker_{[this](const Bytes& packet) { write(packet); }};
};

}  // namespace plc_sim
