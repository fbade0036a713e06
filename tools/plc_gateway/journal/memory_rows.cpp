#include "tools/plc_gateway/journal/memory_rows.h"

#include <algorithm>
#include <utility>

namespace plc_gateway {
namespace {

constexpr uint64_t kMostBytes = 4ULL << 20;
// What a row takes beside its bytes.
constexpr uint64_t kRowBytes = sizeof(PackedRow) + 16;
constexpr size_t kSomeRows = 256;
constexpr uint64_t kSomeBytes = 256ULL << 10;

}  // namespace

void MemoryRows::append(PackedRow row) {
  bytes_ += row.bytes.size() + kRowBytes;
  values_ += row.values;
  rows_.push_back(std::move(row));
  while (bytes_ > kMostBytes && rows_.size() > 1) {
    dropped_ += rows_.front().values;
    forget(rows_.front());
    rows_.pop_front();
  }
}

void MemoryRows::remove(uint64_t first, uint64_t last) {
  const auto from = std::find_if(rows_.begin(), rows_.end(), [&](const PackedRow& row) { return row.id >= first; });
  const auto to = std::find_if(from, rows_.end(), [&](const PackedRow& row) { return row.id > last; });
  for (auto row = from; row != to; ++row) forget(*row);
  rows_.erase(from, to);
}

std::vector<PackedRow> MemoryRows::some() const {
  std::vector<PackedRow> some;
  uint64_t bytes = 0;
  for (const PackedRow& row : rows_) {
    bytes += row.bytes.size();
    if (!some.empty() && (bytes > kSomeBytes || some.size() == kSomeRows)) break;
    some.push_back(row);
  }
  return some;
}

void MemoryRows::stored(size_t rows) {
  for (size_t i = 0; i < rows; ++i) {
    forget(rows_.front());
    rows_.pop_front();
  }
}

void MemoryRows::forget(const PackedRow& row) {
  bytes_ -= row.bytes.size() + kRowBytes;
  values_ -= row.values;
}

}  // namespace plc_gateway
