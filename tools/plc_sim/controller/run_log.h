// Keeps what a run was like: requests by kind and by time, violations with their bytes, faults. Takes the same room
// however long the run is.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "wire/request.h"
#include "wire/wire.h"

namespace plc_sim {

constexpr std::array<RequestKind, 8> kAllRequestKinds{
    RequestKind::kDirectoryStart, RequestKind::kDirectory,   RequestKind::kResolve, RequestKind::kRead,
    RequestKind::kWrite,          RequestKind::kMaskedWrite, RequestKind::kBit,     RequestKind::kUnknown};

struct Happening {
  uint64_t at_ms = 0;  // since the beginning
  std::string where;   // "connection 1, request 2 (read)"
  std::string text;
  Bytes frame;             // the first bytes of the request
  size_t frame_bytes = 0;  // all of them
};

// What happened within one part of the run's time; by_kind as RequestKind counts.
struct TimeSlot {
  std::array<uint64_t, kAllRequestKinds.size()> by_kind{};
  uint64_t violations = 0;
  uint64_t faults = 0;

  uint64_t requests() const;
};

class RunLog {
 public:
  static constexpr size_t kMostSlots = 120;
  static constexpr size_t kMostKept = 200;  // violations, and faults
  static constexpr size_t kMostFrameBytes = 96;

  // `now_ms` counts milliseconds from any start on; the run began with the first look at it.
  explicit RunLog(std::function<uint64_t()> now_ms, std::time_t began = std::time(nullptr));

  void request(RequestKind kind);
  void violation(const std::string& where, const std::string& text, const Bytes& frame);
  void fault(const std::string& where, const std::string& text);

  std::time_t began() const { return began_; }
  uint64_t elapsed_ms() const { return now_ms_() - first_ms_; }
  uint64_t requests(RequestKind kind) const { return by_kind_[static_cast<size_t>(kind)]; }
  // The first ones, and how many there were in all.
  const std::vector<Happening>& violations() const { return violations_; }
  const std::vector<Happening>& faults() const { return faults_; }
  uint64_t all_violations() const { return all_violations_; }
  uint64_t all_faults() const { return all_faults_; }
  // From the beginning to now, each as long as slot_ms says then.
  const std::vector<TimeSlot>& slots() const { return slots_; }
  uint64_t slot_ms() const { return slot_ms_; }
  // Lets the slots reach to now; whatever happens does it too.
  TimeSlot& slot_now();

 private:
  std::function<uint64_t()> now_ms_;
  std::time_t began_;
  uint64_t first_ms_;
  uint64_t slot_ms_ = 100;
  std::vector<TimeSlot> slots_;
  std::array<uint64_t, kAllRequestKinds.size()> by_kind_{};
  std::vector<Happening> violations_;
  std::vector<Happening> faults_;
  uint64_t all_violations_ = 0;
  uint64_t all_faults_ = 0;
};

}  // namespace plc_sim
