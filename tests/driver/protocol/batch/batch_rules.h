// The rules of batch reads once more, written down plainly and apart from the driver: what a batch is classified into,
// which frames it sends for given replies, and what it stores.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/driver/protocol/batch/batch_fixture.h"

namespace plc_test {

class BatchRules {
 public:
  static constexpr uint32_t kFirstIndexed = 0x40000;

  // The plain records of a table, and one group of indexed ones with ids from kFirstIndexed on.
  BatchRules(std::vector<TagEntry> plain, std::vector<TagEntry> group, std::vector<Program> directory,
             std::vector<BatchElement> elements);

  // The reply to each request; what the rules need of the controller.
  using Controller = std::function<Bytes(const Bytes& request)>;

  // Works the whole call out. Leaves results in the members below.
  void run(const Controller& controller, uint32_t untouched);

  // Classification.
  std::vector<std::string> items;
  std::vector<uint32_t> runs;  // by slot
  uint32_t init_count = 0;
  uint32_t interact_count = 0;
  bool is_out_of_range = false;  // the line was printed

  // The call.
  uint32_t result = 0;
  std::vector<Bytes> requests;
  std::vector<uint32_t> values;  // by element; of strings their bytes stand in texts
  std::vector<std::string> texts;

 private:
  struct NamedSlot {
    TagEntry* entry;
    size_t slot;
    size_t names;
  };

  TagEntry* record(size_t slot);
  uint32_t run_of(size_t slot) const { return slot < runs.size() ? runs[slot] : 0; }
  bool has_run_of_zero();
  void classify();
  bool look_ahead();
  bool classify_slot(size_t* slot);
  bool name_bit_item(const TagEntry& entry, uint32_t element, std::string* name) const;
  bool run_frame(size_t* slot, size_t end, const Controller& controller);
  bool form_names(size_t slot, const TagEntry& entry, std::vector<std::string>* names);
  std::string element_name(const TagEntry& entry, uint32_t k, size_t slot) const;
  Bytes value_request(const std::vector<NamedSlot>& walked);
  bool store(const std::vector<NamedSlot>& walked);
  size_t store_slot(const NamedSlot& walked, size_t offset);
  void store_bits(const NamedSlot& walked, size_t offset);
  void put(size_t element, uint32_t value);
  Bytes head(size_t bytes_behind_ten);
  void receive(const Bytes& reply);
  uint32_t reply_at(size_t offset) const { return offset < reply_.size() ? reply_[offset] : 0; }
  uint32_t word_at(size_t offset) const { return reply_at(offset) * 256 + reply_at(offset + 1); }

  std::vector<TagEntry> plain_;
  std::vector<TagEntry> group_;
  std::vector<Program> directory_;
  std::vector<BatchElement> elements_;
  std::array<uint8_t, 4096> reply_{};
  size_t reply_length_ = 0;
  std::vector<std::vector<uint32_t>> bit_positions_;  // by slot, a name each
  uint32_t sequence_ = 0;
};

}  // namespace plc_test
