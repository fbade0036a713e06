// Rows that the disk refused: kept in memory, as many as there is room for, until it takes them.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "tools/plc_gateway/journal/row_code.h"

namespace plc_gateway {

class MemoryRows {
 public:
  // The oldest go when there is no room.
  void append(PackedRow row);
  void remove(uint64_t first, uint64_t last);

  // The first ones, not more than go to the disk at once.
  std::vector<PackedRow> some() const;
  // So many of the first ones are on the disk.
  void stored(size_t rows);

  const std::deque<PackedRow>& rows() const { return rows_; }
  uint64_t values() const { return values_; }
  // Values of rows that went, until they are counted elsewhere.
  uint64_t dropped() const { return dropped_; }
  void dropped_are_counted() { dropped_ = 0; }

 private:
  void forget(const PackedRow& row);

  std::deque<PackedRow> rows_;
  uint64_t bytes_ = 0;
  uint64_t values_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace plc_gateway
