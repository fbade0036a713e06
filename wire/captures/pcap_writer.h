// Writes what goes over the connections as a capture file, with the packets' heads made up around it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "wire/captures/capture_writer.h"

struct pcap;
struct pcap_dumper;

namespace plc_sim {

class PcapWriter : public CaptureWriter {
 public:
  // Microseconds since 1970, so that tests can say what time it is.
  using Clock = std::function<uint64_t()>;

  PcapWriter();
  explicit PcapWriter(Clock clock)
      : CaptureWriter([this](const Bytes& packet) { write(packet); }), clock_(std::move(clock)) {}
  ~PcapWriter() override;

  // Empty when the file was begun, else what went wrong. Neither through a link nor over one of inputs, paths of what
  // is read.
  std::string open(const std::string& path, uint16_t server_port, const std::vector<std::string>& inputs = {});

  // The same with an empty file that is open already, and that the writer closes.
  std::string begin(int opened, uint16_t server_port);

  // Empty when the file holds everything, else what went wrong first: nothing was written from then on. The file ends
  // with a whole packet in every case.
  std::string close();

 private:
  void write(const Bytes& frame);
  void fail(int error);

  struct CloseFormat {
    void operator()(pcap* format) const;
  };
  struct CloseFile {
    void operator()(pcap_dumper* file) const;
  };

  Clock clock_;
  std::vector<char> buffer_;  // the file's; it goes after the file
  std::unique_ptr<pcap, CloseFormat> format_;
  std::unique_ptr<pcap_dumper, CloseFile> file_;
};

}  // namespace plc_sim
