// The host of the endurance program: reads and writes by chance, and holds what comes of each call against the rules.
#pragma once

#include <array>

#include "tests/driver/endure/controller/endure_faults.h"
#include "tests/driver/endure/endure_library.h"

namespace plc_endure {

struct HostFigures {
  unsigned long transfers = 0;
  unsigned long results[4] = {};        // 0, 2, 3, others
  unsigned long values = 0;             // read with 0 and checked
  unsigned long written = 0;            // elements written with 0 and checked
  unsigned long changed_meanwhile = 0;  // reads during which the controller changed something
  unsigned long clean_calls = 0;        // without a fault
};

class Host {
 public:
  Host(const Library& library, const VariableBook& book, uint64_t seed, bool has_faults);

  void run_one();
  const HostFigures& figures() const { return figures_; }
  const Rules& rules() const { return rules_; }
  const Faults& faults() const { return faults_; }
  // What was seen between calls.
  void count_harm(const std::string& text) { rules_.count(Rule::kHarm, text); }

 private:
  static constexpr size_t kBufferBytes = 4352;  // more than a reply can hold
  using Buffer = std::array<uint8_t, kBufferBytes>;

  const Variable& any_variable();
  void choose_span(const Variable& variable, uint32_t most, uint32_t* first, uint32_t* count);
  uint32_t most_elements(const Variable& variable, bool is_write) const;
  void begin_call(std::shared_ptr<WriteCall> call, const std::string& what);
  void end_call(uint32_t result);
  void check_time();

  void read();
  void write();
  void batch();
  void check_read(const Variable& variable, uint32_t first, uint32_t count, uint32_t result);
  bool is_expected(const Variable& variable, uint32_t first, uint32_t count, uint32_t moment, size_t bytes) const;
  void expect(const Variable& variable, uint32_t first, uint32_t count, uint32_t moment, uint8_t* data) const;
  void fill_targets(const Variable& variable, uint32_t first, uint32_t count, const uint8_t* data, WriteCall* call);
  void fill_data(const Variable& variable, uint32_t count);
  uint32_t draw_batch(BatchReadRequest* elements);
  bool is_batch_value(const Variable& variable, const BatchReadRequest& element) const;
  void check_batch(const BatchReadRequest* before, const BatchReadRequest* elements, uint32_t count, uint32_t result);

  const Library& library_;
  const VariableBook& book_;
  Random random_;
  Memory memory_;
  Rules rules_;
  Controller controller_;
  Network& network_;
  Faults faults_;
  CommSettings settings_{};
  ConnContext conn_{-1, 0, 1, 0, 0};
  Buffer data_{};
  Buffer before_{};
  std::vector<const Variable*> batched_;
  uint64_t call_number_ = 0;
  unsigned long trouble_before_ = 0;
  bool was_clean_ = true;
  uint64_t exchanges_before_ = 0;
  int64_t began_us_ = 0;
  HostFigures figures_;
  unsigned long left_open_ = 0;
  unsigned long stuck_ = 0;
};

}  // namespace plc_endure
