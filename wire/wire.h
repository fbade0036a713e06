// The numbers of the protocol: lengths, classes, commands and offsets of requests and replies. Constants only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plc_sim {

using Bytes = std::vector<uint8_t>;

namespace wire {

// Head of requests and replies: L (4), its complement (4), sequence number (2), class (1), command (1).
constexpr size_t kHeadBytes = 12;
constexpr size_t kLengthExcludes = 10;  // L counts the bytes behind this offset
constexpr size_t kSequenceAt = 8;
constexpr size_t kClassAt = 10;
constexpr size_t kCommandAt = 11;
constexpr size_t kMaxFrameBytes = 4096;

constexpr uint8_t kClassNames = 0x0C;
constexpr uint8_t kClassValues = 0x1E;
constexpr uint8_t kClassSet = 0x32;
constexpr uint8_t kClassReset = 0x33;
constexpr uint8_t kDirectoryStart = 0x2C;
constexpr uint8_t kDirectory = 0x25;
constexpr uint8_t kResolve = 0x28;
constexpr uint8_t kRead = 0x09;
constexpr uint8_t kWrite = 0x01;
constexpr uint8_t kMaskedWrite = 0x03;

// Fixed lengths of requests.
constexpr size_t kDirectoryRequestBytes = 16;
constexpr size_t kBitRequestBytes = 16;
constexpr size_t kBitNoCommandBytes = 15;        // the value was neither 0 nor 1: fields one place further down
constexpr size_t kBitNoCommandDeviceBytes = 14;  // the same for bits of structures
constexpr size_t kMaskedWriteBytes = 22;
constexpr size_t kMaskedNoMaskBytes = 19;
constexpr size_t kWriteHeadBytes = 22;  // values follow
constexpr size_t kReadHeadBytes = 18;   // references follow
constexpr size_t kReferenceBytes = 8;
constexpr size_t kBlocksAt = 14;
constexpr size_t kGlobalBlockBytes = 4;
constexpr size_t kLocalBlockBytes = 10;

// Replies. Status in bytes 12 and 13: 0 for done.
constexpr size_t kReplyHeadBytes = 14;
constexpr size_t kStatusAt = 12;
constexpr size_t kResolveHeadBytes = 17;    // a block count and the number of names behind the head
constexpr size_t kResolveRecordBytes = 24;  // and four more for each dimension
constexpr size_t kRecordHandleAt = 4;
constexpr size_t kRecordBitNumberAt = 12;
constexpr size_t kRecordDimensionsAt = 23;
constexpr size_t kMaxResolveRecords = (kMaxFrameBytes - kResolveHeadBytes) / kResolveRecordBytes;

constexpr uint16_t kStatusDone = 0;
constexpr uint16_t kStatusUnknownName = 0x0004;
constexpr uint16_t kStatusBadRequest = 0x0013;
constexpr uint16_t kStatusTooMuch = 0x0011;

}  // namespace wire
}  // namespace plc_sim
