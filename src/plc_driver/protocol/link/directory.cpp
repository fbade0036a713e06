// The directory of the controller's programs.
#include "plc_driver/protocol/link/directory.h"

#include "plc_driver/build_kind.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/link/exchange.h"
#include "plc_driver/text/utf16.h"

namespace plc {

// Guarded, no program may be unknown: the exact name that a variable needs could be the last one.
constexpr uint32_t kDirectoryRecords = kGuarded ? 255 : 50;
LocalRecord LocalInfo[kDirectoryRecords];
const uint32_t directory_capacity = kDirectoryRecords;

namespace {

constexpr uint32_t kDirectoryRequestBytes = 16;

// Directory requests have fixed sequence numbers and leave sid alone.
bool exchange_directory(uint8_t sequence, uint8_t command, ReplyBuffer* reply, ConnContext* conn) {
  uint8_t request[kDirectoryRequestBytes] = {};
  store32(request + kLengthOffset, kDirectoryRequestBytes - kUncountedBytes);
  store32(request + kComplementOffset, ~(kDirectoryRequestBytes - kUncountedBytes));
  store16(request + kSequenceOffset, sequence);
  request[kClassOffset] = kClassName;
  request[kCommandOffset] = command;
  return exchange_bytes(request, kDirectoryRequestBytes, reply, conn) && reply->length >= kLeastReplyBytes;
}

// Stores a name of big-endian units, cut to the whole characters that fit.
void store_name(const ReplyBuffer& reply, uint32_t offset, uint32_t units, char* name) {
  uint32_t length = 0;
  for (uint32_t i = 0; i < units; ++i) {
    uint8_t encoded[3];
    const uint32_t count = encode_utf8_unit(reply.unit_at(offset + 2 * i), encoded);
    if (length + count > PLC_NAME_BYTES - 1) break;
    for (uint32_t k = 0; k < count; ++k) name[length++] = static_cast<char>(encoded[k]);
  }
  name[length] = '\0';
}

// Stores the records that were received whole, at most as many as the table holds.
void parse_directory(const ReplyBuffer& reply) {
  const uint32_t received = static_cast<uint32_t>(reply.length);
  const uint32_t announced = received > kDirectoryCountOffset ? reply.at(kDirectoryCountOffset) : 0;
  uint32_t position = kDirectoryRecordsOffset;
  localNum = 0;
  while (localNum < announced && localNum < kDirectoryRecords) {
    const uint32_t size = reply.at(position + kDirectorySizeOffset);
    const uint32_t name_bytes = size > kDirectorySizeExtra ? size - kDirectorySizeExtra : 0;
    if (position + kDirectoryNameOffset + name_bytes > received) return;
    LocalRecord& record = LocalInfo[localNum++];
    record.number = reply.at(position + kDirectoryNumberOffset);
    store_name(reply, position + kDirectoryNameOffset, name_bytes / 2, record.name);
    position += name_bytes > 0 ? size + kDirectoryStepBytes : kDirectoryEmptyStepBytes;
  }
}

}  // namespace
}  // namespace plc

using namespace plc;

extern "C" {

uint32_t KV8000_get_localMSG(ConnContext* conn) {
  ReplyBuffer reply;
  if (!exchange_directory(0, kCommandDirectoryOpen, &reply, conn)) return PLC_FAILED;
  if (!exchange_directory(1, kCommandDirectoryRead, &reply, conn)) return PLC_FAILED;
  parse_directory(reply);
  return PLC_OK;
}

int KV8000_init(ConnContext* conn) {
  const int connected = SetupTCPComm(conn, ip_addr, port);
  // A number that the driver did not store may be any descriptor of the host, its standard input in a zero-filled
  // record.
  if (connected < 0 && !holds_own_socket(*conn)) conn->socket_fd = -1;
  // Its result is ignored: a connection with an old directory is a connection (D18). Not so when guarded.
  [[maybe_unused]] const uint32_t fetched = KV8000_get_localMSG(conn);
  if constexpr (kGuarded) {
    if (connected == 0 && fetched != PLC_OK) {
      print_guard("no connection without the directory of programs");
      close_connection(conn);
      return -1;
    }
  }
  return connected;
}
}
