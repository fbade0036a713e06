// Keeps what a run was like; when its time is longer than the slots reach, each slot takes in its neighbour.
#include "tools/plc_sim/controller/run_log.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace plc_sim {
namespace {

void add_to(TimeSlot& slot, const TimeSlot& other) {
  for (size_t i = 0; i < slot.by_kind.size(); ++i) slot.by_kind[i] += other.by_kind[i];
  slot.violations += other.violations;
  slot.faults += other.faults;
}

std::vector<TimeSlot> merged_by_two(const std::vector<TimeSlot>& slots) {
  std::vector<TimeSlot> merged((slots.size() + 1) / 2);
  for (size_t i = 0; i < slots.size(); ++i) add_to(merged[i / 2], slots[i]);
  return merged;
}

}  // namespace

uint64_t TimeSlot::requests() const { return std::accumulate(by_kind.begin(), by_kind.end(), uint64_t{0}); }

RunLog::RunLog(std::function<uint64_t()> now_ms, std::time_t began)
    : now_ms_(std::move(now_ms)), began_(began), first_ms_(now_ms_()) {}

TimeSlot& RunLog::slot_now() {
  const uint64_t elapsed = elapsed_ms();
  while (elapsed / slot_ms_ >= kMostSlots) {
    slots_ = merged_by_two(slots_);
    slot_ms_ *= 2;
  }
  const auto index = static_cast<size_t>(elapsed / slot_ms_);
  if (index >= slots_.size()) slots_.resize(index + 1);
  return slots_[index];
}

void RunLog::request(RequestKind kind) {
  ++by_kind_[static_cast<size_t>(kind)];
  ++slot_now().by_kind[static_cast<size_t>(kind)];
}

void RunLog::violation(const std::string& where, const std::string& text, const Bytes& frame) {
  ++all_violations_;
  ++slot_now().violations;
  if (violations_.size() >= kMostKept) return;
  const auto end = frame.begin() + static_cast<std::ptrdiff_t>(std::min(frame.size(), kMostFrameBytes));
  violations_.push_back({elapsed_ms(), where, text, Bytes(frame.begin(), end), frame.size()});
}

void RunLog::fault(const std::string& where, const std::string& text) {
  ++all_faults_;
  ++slot_now().faults;
  if (faults_.size() < kMostKept) faults_.push_back({elapsed_ms(), where, text, {}, 0});
}

}  // namespace plc_sim
