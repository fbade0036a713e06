// Offsets, classes, commands and limits of the protocol. All numbers on the wire are big-endian.
#pragma once

#include <cstdint>

namespace plc {

// Head of every request:
//
//    0        4            8     10     11       12
//   +--------+------------+-----+------+--------+------
//   | length | complement | sid | class| command| body
//   +--------+------------+-----+------+--------+------
//
// length counts the bytes behind byte 9; complement is its bitwise complement.
constexpr uint32_t kLengthOffset = 0;
constexpr uint32_t kComplementOffset = 4;
constexpr uint32_t kSequenceOffset = 8;
constexpr uint32_t kClassOffset = 10;
constexpr uint32_t kCommandOffset = 11;
constexpr uint32_t kBodyOffset = 12;
constexpr uint32_t kUncountedBytes = kClassOffset;

constexpr uint8_t kClassName = 0x0C;  // names and the directory
constexpr uint8_t kClassData = 0x1E;  // values

constexpr uint8_t kCommandDirectoryOpen = 0x2C;
constexpr uint8_t kCommandDirectoryRead = 0x25;
constexpr uint8_t kCommandResolve = 0x28;
constexpr uint8_t kCommandWrite = 0x01;
constexpr uint8_t kCommandMask = 0x03;
constexpr uint8_t kCommandRead = 0x09;

// Set and reset requests have no class: these stand in its place.
constexpr uint8_t kBitSet = 0x32;
constexpr uint8_t kBitReset = 0x33;

// Buffers. A reply is one receive of at most this many bytes.
constexpr uint32_t kReplyBytes = 4096;
constexpr uint32_t kReadRequestBytes = 4096;
constexpr uint32_t kWriteRequestBytes = 1024;

// Reply to a resolve request, per name, counted from the name's position P (0 for the first):
//
//   P+21   P+22 .. P+25     P+29 P+30      P+40
//   lead   reference        bit number     words to the next name: P += 24 + 4 * byte
//
// P+21 to P+25 are the name's handle; P+30 alone is the bit position of reads.
constexpr uint32_t kHandleOffset = 21;
constexpr uint32_t kBitNumberHighOffset = 29;
constexpr uint32_t kBitNumberOffset = 30;
constexpr uint32_t kNameStepOffset = 40;
constexpr uint32_t kNameStepBytes = 24;
constexpr uint32_t kNameStepWordBytes = 4;
constexpr uint32_t kNameRecordBytes = kNameStepOffset + 1;  // what is looked at, from P on

// Least lengths of replies. Nothing else of a reply's head is looked at.
constexpr int32_t kLeastReplyBytes = 1;
constexpr int32_t kLeastBatchResolveBytes = 25;
constexpr int32_t kLeastValueBytes = 14;
constexpr int32_t kLeastWordAckBytes = 13;  // scalar 16-bit writes only

constexpr uint32_t kStatusOffset = 12;  // two bytes; 0 is none
constexpr uint32_t kValueOffset = 14;   // first value of a value reply

// Directory reply: record count at 14, records from 15. A record, from its first byte r: r+2 size of the name plus 2,
// r+4 the program's number, r+5 the name in UTF-16.
constexpr uint32_t kDirectoryCountOffset = 14;
constexpr uint32_t kDirectoryRecordsOffset = 15;
constexpr uint32_t kDirectorySizeOffset = 2;
constexpr uint32_t kDirectoryNumberOffset = 4;
constexpr uint32_t kDirectoryNameOffset = 5;
constexpr uint32_t kDirectorySizeExtra = 2;
constexpr uint32_t kDirectoryStepBytes = 4;       // beyond the size byte's value, with a name
constexpr uint32_t kDirectoryEmptyStepBytes = 6;  // without one

// Value request: head, then one 8-byte reference per name:
//
//   12      13        15           18            +1    +2    +3         +4 .. +7
//  | 00 | count    | 00 00 00 | 00 | lead   | 00 | size code | reference  | ...
constexpr uint32_t kReferencesOffset = 18;
constexpr uint32_t kReferenceBytes = 8;
constexpr uint32_t kReferenceLimit = (kReadRequestBytes - kReferencesOffset) / kReferenceBytes;

// Write request: 13 lead, 17 number of 16-bit units, 18 to 21 reference, values from 22.
constexpr uint32_t kWriteValueOffset = 22;
constexpr uint32_t kWriteUnitsLimit = 255;  // the unit count is one byte

// A read of BOOLs, elements at most.
constexpr uint32_t kBitReadLimit = 64;

}  // namespace plc
