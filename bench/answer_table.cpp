// The answer table of answer_table.h; the frames are those of docs/wire_protocol.md.
#include "bench/answer_table.h"

#include <algorithm>

namespace bench {
namespace {

constexpr size_t kHeadBytes = 14;
constexpr size_t kDirectoryBytes = 15;
constexpr size_t kHandleRecordBytes = 24;
constexpr size_t kFirstHandleBytes = 41;

unsigned unit_at(const uint8_t* bytes, size_t offset) {
  return static_cast<unsigned>(bytes[offset]) << 8 | bytes[offset + 1];
}

// Length, complement, and the request's own sequence number, class and command.
Answer with_head(std::vector<uint8_t>& frame, size_t length, const uint8_t* request) {
  const auto counted = static_cast<uint32_t>(length - 10);
  for (unsigned i = 0; i < 4; ++i) {
    frame[i] = static_cast<uint8_t>(counted >> (24 - 8 * i));
    frame[4 + i] = static_cast<uint8_t>(~frame[i]);
  }
  std::copy(request + 8, request + 12, frame.begin() + 8);
  return {frame.data(), length};
}

unsigned command_of(const uint8_t* request) { return unit_at(request, 10); }

}  // namespace

AnswerTable::AnswerTable() : directory_(kDirectoryBytes, 0), handles_(kFrameBytes, 0), values_(kFrameBytes, 0) {
  for (size_t record = 0; record + kFirstHandleBytes <= kFrameBytes; record += kHandleRecordBytes) {
    handles_[record + 21] = 0x06;
    handles_[record + 24] = 0x12;
    handles_[record + 25] = 0x34;
  }
  for (size_t value = kHeadBytes; value < kFrameBytes; ++value) values_[value] = static_cast<uint8_t>(value);
}

Answer AnswerTable::find(const uint8_t* request, size_t length) {
  constexpr size_t kLongestHead = 24;
  if (length < 16) return {nullptr, 0};
  switch (command_of(request)) {
    case 0x0C2C:  // directory start
    case 0x0C25:  // directory: no program has variables of its own
      return with_head(directory_, directory_.size(), request);
    case 0x0C28: {  // resolve, globals alone
      if (length < kLongestHead) return {nullptr, 0};
      const size_t names = unit_at(request, 16);
      const size_t bytes = kFirstHandleBytes + kHandleRecordBytes * (names > 0 ? names - 1 : 0);
      return with_head(handles_, std::min(bytes, kFrameBytes), request);
    }
    case 0x1E09: {  // values
      if (length < kLongestHead) return {nullptr, 0};
      const size_t units = size_t{unit_at(request, 13)} * request[21];
      return with_head(values_, std::min(kHeadBytes + 2 * units, kFrameBytes), request);
    }
    case 0x1E01:  // write
      return with_head(values_, kHeadBytes, request);
    default:
      return {nullptr, 0};
  }
}

}  // namespace bench
