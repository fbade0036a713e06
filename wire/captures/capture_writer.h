// What the writers of capture files share: packets made around what goes over the connections, and a file that ends
// with a whole packet in every case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "wire/captures/made_packets.h"
#include "wire/captures/traffic_observer.h"

namespace plc_sim {

class CaptureWriter : public TrafficObserver {
 public:
  // Is called once, as soon as something cannot be written.
  void on_failure(std::function<void(const std::string&)> tell) { tell_ = std::move(tell); }

  void opened(unsigned connection, uint16_t peer_port) override { maker_.opened(connection, peer_port); }
  void received(unsigned connection, const Bytes& bytes) override { maker_.data(connection, true, bytes); }
  void sent(unsigned connection, const Bytes& bytes) override { maker_.data(connection, false, bytes); }
  void closed(unsigned connection) override { maker_.closed(connection); }

  // One side sends nothing more, or ends the connection at once.
  void finished(unsigned connection, bool from_host) { maker_.finished(connection, from_host); }
  void reset(unsigned connection, bool from_host) { maker_.reset(connection, from_host); }

 protected:
  explicit CaptureWriter(PacketMaker::Take take) : maker_(std::move(take)) {}
  ~CaptureWriter() override { close_descriptor(); }

  PacketMaker& maker() { return maker_; }
  int descriptor() const { return descriptor_; }
  void set_descriptor(int descriptor) { descriptor_ = descriptor; }
  void close_descriptor();
  void add_whole_bytes(size_t bytes) { whole_bytes_ += static_cast<int64_t>(bytes); }
  // What was written of a packet that did not fit is taken away. Pipes and devices keep it.
  bool cut_to_whole_packets();
  // Ends the file, and tells why.
  void end_after(int error);
  // Empty when nothing went wrong so far, else what did first.
  const std::string& problem() const { return problem_; }

 private:
  std::function<void(const std::string&)> tell_;
  std::string problem_;
  int descriptor_ = -1;
  int64_t whole_bytes_ = 0;  // that end with a packet
  PacketMaker maker_;
};

}  // namespace plc_sim
