// What a transfer of the guarded build must come to, judged from the exchanges that the referee saw and from nothing
// that the driver keeps.
#pragma once

#include <cstddef>
#include <cstdint>

#include "plc_driver.h"
#include "scripted_controller.h"

namespace fuzz {

// The directory that the driver holds.
struct Directory {
  Program programs[kMostPrograms];
  size_t count = 0;

  void choose(uint8_t choice) { count = choose_programs(choice, programs); }
};

// The records of the loaded tag file; kept, for the table is the same in every run.
const TagEntry& tag_of(uint32_t id);
uint32_t known_tags();

// A transfer about to begin: notes whether it has to connect.
class TransferOracle {
 public:
  explicit TransferOracle(Directory* directory);

  // After a single read of so many elements into a buffer of so many bytes, all kFill before it.
  void judge_read(const TagEntry& tag, uint32_t count, uint32_t result, const uint8_t* buffer, size_t buffer_bytes);

  // After a write of these values, as they were before it.
  void judge_write(const TagEntry& tag, uint32_t count, uint32_t result, const uint8_t* values);

  // After a batch; the values were kUntouched before it.
  void judge_batch(const BatchReadRequest* elements, size_t count, uint32_t result);

  static constexpr uint8_t kFill = 0x77;
  static constexpr uint32_t kUntouched = 0x77777777;

 private:
  bool judge_connection(uint32_t result, uint32_t incomplete_result);
  size_t own_exchanges() const;
  void judge_requests(const TagEntry& tag) const;
  int program_of(const TagEntry& tag, bool by_beginning) const;
  void judge_program(const TagEntry& tag, int program) const;

  Directory* directory_;
  bool was_connected_;
};

}  // namespace fuzz
