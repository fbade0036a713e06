#include "tools/plc_gateway/journal/log_look.h"

#include <array>
#include <cstddef>
#include <fstream>
#include <string_view>

namespace plc_gateway {
namespace {

// The log as SQLite describes it: a header, and frames with a header and a page each. Numbers have the highest byte
// first. Frames of the same use of the file have the header's salts; older ones stand behind them.
constexpr size_t kHeadBytes = 32;
constexpr size_t kHeadSummed = 24;
constexpr size_t kHeadSalts = 16;
constexpr size_t kFrameHeadBytes = 24;
constexpr size_t kFrameSummed = 8;
constexpr size_t kFrameSalts = 8;
constexpr size_t kFrameSum = 16;
constexpr size_t kFrameEnd = 4;  // not 0: the change ends with this frame
constexpr size_t kSaltsBytes = 8;
constexpr size_t kLogPageBytes = 4096;
// Far above the length of a log of ours: nobody makes the start wait with a longer one.
constexpr size_t kMostFramesRead = 16384;

uint32_t number_at(std::string_view bytes, size_t place, bool is_highest_first = true) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) {
    const size_t shift = 8 * (is_highest_first ? 3 - i : i);
    number |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[place + i])) << shift;
  }
  return number;
}

// Of the header and all frames so far.
class LogSum {
 public:
  explicit LogSum(bool is_highest_first) : is_highest_first_(is_highest_first) {}

  void add(std::string_view bytes) {
    for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
      first_ += number_at(bytes, i, is_highest_first_) + second_;
      second_ += number_at(bytes, i + 4, is_highest_first_) + first_;
    }
  }
  bool stands_at(std::string_view bytes, size_t place) const {
    return number_at(bytes, place) == first_ && number_at(bytes, place + 4) == second_;
  }

 private:
  bool is_highest_first_;
  uint32_t first_ = 0;
  uint32_t second_ = 0;
};

}  // namespace

uint64_t unreadable_changes(const std::string& log) {
  std::ifstream in(log, std::ios::binary);
  std::array<char, kHeadBytes> head_bytes{};
  std::array<char, kFrameHeadBytes + kLogPageBytes> frame_bytes{};
  if (!in.read(head_bytes.data(), head_bytes.size())) return 0;
  const std::string_view head(head_bytes.data(), head_bytes.size());
  const std::string_view frame(frame_bytes.data(), frame_bytes.size());
  LogSum sum((number_at(head, 0) & 1U) != 0);  // of the mark, which has a bit for the order of the sums' bytes
  sum.add(head.substr(0, kHeadSummed));
  bool is_readable = sum.stands_at(head, kHeadSummed);
  std::string salts(head.substr(kHeadSalts, kSaltsBytes));
  uint64_t changes = 0;
  for (size_t i = 0; i < kMostFramesRead && in.read(frame_bytes.data(), frame_bytes.size()); ++i) {
    if (i == 0 && !is_readable) salts = frame.substr(kFrameSalts, kSaltsBytes);
    const bool is_of_this_use = frame.substr(kFrameSalts, kSaltsBytes) == salts;
    if (!is_readable && is_of_this_use && number_at(frame, kFrameEnd) != 0) ++changes;
    if (!is_readable) continue;
    sum.add(frame.substr(0, kFrameSummed));
    sum.add(frame.substr(kFrameHeadBytes));
    is_readable = is_of_this_use && sum.stands_at(frame, kFrameSum);
  }
  return changes;
}

}  // namespace plc_gateway
