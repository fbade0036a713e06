// Packets made up around the bytes of connections: Ethernet, IPv4 and TCP with right lengths, numbers and checksums.
#pragma once

#include <cstdint>
#include <functional>
#include <map>

#include "wire/wire.h"

namespace plc_sim {

class PacketMaker {
 public:
  // The two ends of every connection; addresses are those of IPv4.
  struct Ends {
    uint16_t server_port = 0;
    uint32_t host_address = 0x7F000001;
    uint32_t server_address = 0x7F000001;
  };
  using Take = std::function<void(const Bytes& packet)>;

  explicit PacketMaker(Take take) : take_(std::move(take)) {}

  void set_ends(const Ends& ends) { ends_ = ends; }

  // A host asks for a connection, and has it, is turned down or hears nothing.
  void opened(unsigned connection, uint16_t peer_port);
  void refused(unsigned connection, uint16_t peer_port);
  void unheard(unsigned connection, uint16_t peer_port);

  void data(unsigned connection, bool from_host, const Bytes& bytes);

  // One side sends nothing more, or ends the connection at once.
  void finished(unsigned connection, bool from_host);
  void reset(unsigned connection, bool from_host);
  void closed(unsigned connection);

 private:
  struct Stream {
    uint16_t peer_port = 0;
    uint32_t host_sequence = 0;    // of the next byte that the host sends
    uint32_t server_sequence = 0;  // of the next byte that the controller sends
  };

  void packet(Stream& stream, bool from_host, uint8_t flags, const uint8_t* bytes, size_t count);

  Take take_;
  Ends ends_;
  std::map<unsigned, Stream> streams_;
};

}  // namespace plc_sim
