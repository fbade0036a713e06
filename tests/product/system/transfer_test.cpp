// Reads, writes and batches of every kind of variable, compared with what the simulated controller holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/product/system/panel.h"
#include "tests/product/system/simulator.h"
#include "tests/support/driver_build.h"

namespace plc_test {
namespace {

using Memory = std::map<std::string, SimElement>;

class Transfers : public testing::Test {
 protected:
  Transfers() : variables_(all_variables()), panel_(tag_lines(variables_)), simulator_(panel_.tag_file()) {
    panel_.use_port(simulator_.port());
  }

  // The judge saw nothing wrong in anything that was sent.
  void TearDown() override {
    EXPECT_EQ(simulator_.count("violations"), 0U);
    EXPECT_EQ(simulator_.finish(), 0);
  }

  std::vector<Variable> variables_;
  Panel panel_;
  Simulator simulator_;
};

// The host's bytes of an element: units in their order, each low byte first.
std::vector<uint8_t> host_bytes(const SimElement& element) {
  std::vector<uint8_t> bytes;
  for (const uint16_t word : element.words) {
    bytes.push_back(static_cast<uint8_t>(word));
    bytes.push_back(static_cast<uint8_t>(word >> 8));
  }
  return bytes;
}

const SimElement& element_of(const Memory& memory, const Variable& variable, uint32_t element) {
  const auto found = memory.find(variable.element_name(element));
  if (found == memory.end()) {
    ADD_FAILURE() << variable.element_name(element) << " is not in the simulated memory";
    std::abort();
  }
  return found->second;
}

bool bit_of(const std::vector<uint8_t>& data, uint32_t i) { return (data[i / 8] >> i % 8 & 1) != 0; }

void expect_values(const Memory& memory, const Variable& variable, uint32_t first, uint32_t count,
                   const std::vector<uint8_t>& data) {
  for (uint32_t i = 0; i < count; ++i) {
    const SimElement& element = element_of(memory, variable, first + i);
    if (variable.is_bool()) {
      ASSERT_EQ(bit_of(data, i), element.words.at(0) != 0) << element.name;
      continue;
    }
    const std::vector<uint8_t> expected = host_bytes(element);
    const auto at = data.begin() + static_cast<ptrdiff_t>(i * expected.size());
    ASSERT_EQ(std::vector<uint8_t>(at, at + static_cast<ptrdiff_t>(expected.size())), expected) << element.name;
  }
}

// The first element in which two memories differ, and what it holds in each; empty when there is none.
std::string first_difference(const Memory& held, const Memory& expected) {
  for (const auto& [name, element] : expected) {
    const auto found = held.find(name);
    if (found == held.end()) return name + " is not held";
    if (found->second.words != element.words) {
      return name + " holds " + testing::PrintToString(found->second.words) + ", expected " +
             testing::PrintToString(element.words);
    }
  }
  return held.size() == expected.size() ? "" : std::to_string(held.size() - expected.size()) + " elements too many";
}

// A string's bytes as the controller holds them: one character after the other.
std::string text_of(const SimElement& element) {
  std::string text;
  for (const uint16_t word : element.words) {
    text += static_cast<char>(word >> 8);
    text += static_cast<char>(word);
  }
  return text;
}

uint32_t driver_units(const Variable& variable) { return variable.bits == 64 ? 2 : 1; }

TEST_F(Transfers, ReadOfEveryVariable_GivesWhatTheControllerHolds) {
  const Memory memory = simulator_.memory();
  std::vector<uint8_t> data;
  for (const Variable& variable : variables_) {
    SCOPED_TRACE(variable.element_name(0) + " " + variable.type + " " + variable.device);
    const uint32_t units = driver_units(variable);
    if (variable.bits == 0) {
      ASSERT_EQ(panel_.read(variable.record, 0, variable.string_length / 2, &data), 0U);
      const std::string text = text_of(element_of(memory, variable, 0)).substr(0, variable.string_length);
      ASSERT_EQ(std::string(data.begin(), data.begin() + static_cast<ptrdiff_t>(text.size())), text);
      continue;
    }
    ASSERT_EQ(panel_.read(variable.record, 0, variable.elements() * units, &data), 0U);
    expect_values(memory, variable, 0, variable.elements(), data);
    if (variable.elements() < 4) continue;
    ASSERT_EQ(panel_.read(variable.record, 3 * units, 2 * units, &data), 0U);
    expect_values(memory, variable, 3, 2, data);
  }
}

// Writes count elements of random values and notes them in the memory that is expected.
void write_values(Panel* panel, const Variable& variable, uint32_t first, uint32_t count, std::mt19937* random,
                  Memory* expected) {
  std::vector<uint8_t> data;
  for (uint32_t i = 0; i < count; ++i) {
    SimElement& element = expected->at(variable.element_name(first + i));
    for (uint16_t& word : element.words) word = static_cast<uint16_t>((*random)());
    const std::vector<uint8_t> bytes = host_bytes(element);
    data.insert(data.end(), bytes.begin(), bytes.end());
  }
  const uint32_t units = driver_units(variable);
  ASSERT_EQ(panel->write(variable.record, first * units, count * units, data), 0U);
}

void write_bit(Panel* panel, const Variable& variable, uint32_t element, bool value, Memory* expected) {
  expected->at(variable.element_name(element)).words.at(0) = value ? 1 : 0;
  ASSERT_EQ(panel->write(variable.record, element, 1, {static_cast<uint8_t>(value ? 1 : 0)}), 0U);
}

void write_text(Panel* panel, const Variable& variable, std::mt19937* random, Memory* expected) {
  std::vector<uint8_t> data;
  SimElement& element = expected->at(variable.element_name(0));
  for (uint32_t i = 0; i < variable.string_length; ++i) data.push_back(static_cast<uint8_t>('A' + (*random)() % 26));
  for (uint32_t i = 0; i + 1 < data.size(); i += 2) {
    element.words.at(i / 2) = static_cast<uint16_t>(data[i] << 8 | data[i + 1]);
  }
  ASSERT_EQ(panel->write(variable.record, 0, variable.string_length / 2, data), 0U);
}

TEST_F(Transfers, WriteOfEveryVariable_IsReadBackAndLeavesTheOthersAlone) {
  Memory expected = simulator_.memory();
  std::mt19937 random(20261121);
  std::vector<uint8_t> data;
  const size_t records_between_looks = variables_.size() / 4;  // at the whole memory, each of which takes a second
  for (const Variable& variable : variables_) {
    SCOPED_TRACE(variable.element_name(0) + " " + variable.type + " " + variable.device);
    const uint32_t elements = variable.elements();
    if (variable.bits == 0) {
      write_text(&panel_, variable, &random, &expected);
    } else if (variable.is_bool()) {
      for (uint32_t i = 0; i < elements; i += 3) write_bit(&panel_, variable, i, (random() & 1) != 0, &expected);
    } else {
      constexpr uint32_t kNamesInARequest = 12;
      for (uint32_t i = 0; i < elements; i += kNamesInARequest) {
        write_values(&panel_, variable, i, std::min(kNamesInARequest, elements - i), &random, &expected);
      }
      if (elements > 4) write_values(&panel_, variable, 3, 2, &random, &expected);
    }
    if (variable.bits != 0) {
      ASSERT_EQ(panel_.read(variable.record, 0, elements * driver_units(variable), &data), 0U);
      expect_values(expected, variable, 0, elements, data);
    }
    if (variable.record % records_between_looks != 0) continue;
    ASSERT_EQ(first_difference(simulator_.memory(), expected), "");
  }
  EXPECT_EQ(first_difference(simulator_.memory(), expected), "");
}

TEST_F(Transfers, WriteOfTenBits_SetsEightAndResetsTheRest) {
  Memory expected = simulator_.memory();
  const auto plain_array = std::find_if(variables_.begin(), variables_.end(), [](const Variable& variable) {
    return variable.is_bool() && variable.sizes.size() == 1 && variable.name.find('.') == std::string::npos &&
           variable.device == "MR";
  });
  ASSERT_NE(plain_array, variables_.end());
  ASSERT_EQ(panel_.write(plain_array->record, 0, 10, {0xFF, 0xFF}), 0U);
  for (uint32_t i = 0; i < 10; ++i) expected.at(plain_array->element_name(i)).words.at(0) = i < 8 ? 1 : 0;
  EXPECT_EQ(first_difference(simulator_.memory(), expected), "");
}

// A marker that no value of the simulator has.
constexpr uint32_t kUnread = 0xDEADBEEF;

// Reads these variables' elements in one batch, and each that was read once more singly. Returns how many were read.
uint32_t compare_batch(Panel* panel, const std::vector<std::pair<const Variable*, uint32_t>>& wanted) {
  std::vector<BatchReadRequest> elements(wanted.size());
  for (size_t i = 0; i < wanted.size(); ++i) {
    elements[i] = {0, 0, 0, wanted[i].first->record << 16 | wanted[i].second, 1, {}, kUnread};
  }
  EXPECT_EQ(panel->batch(&elements), 0U);
  uint32_t read = 0;
  for (size_t i = 0; i < wanted.size(); ++i) {
    if (elements[i].value == kUnread) continue;
    ++read;
    uint32_t value = 0;
    EXPECT_EQ(panel->read_value(*wanted[i].first, wanted[i].second, &value), 0U);
    EXPECT_EQ(elements[i].value, value) << wanted[i].first->element_name(wanted[i].second) << " is element " << i;
  }
  return read;
}

// Elements that a batch of this size reads when none of them merge; guarded, also those that equal shares leave over.
uint32_t covered(uint32_t size) {
  const uint32_t frames = size / 35 + 1;
  return by_build(size / frames * frames, size);
}

// The guarded build refuses BOOL arrays of EM memory in a batch.
bool can_be_in_a_batch(const Variable& variable) {
  if (variable.bits == 0 || variable.bits == 64) return false;
  return by_build(true, !variable.is_bool() || variable.sizes.empty() || variable.device != "EM");
}

TEST_F(Transfers, BatchOfEverySize_ReadsWhatSingleReadsGive) {
  std::vector<const Variable*> scalars;
  for (const Variable& variable : variables_) {
    if (variable.sizes.empty() && variable.bits != 0 && variable.bits != 64 && variable.program.empty()) {
      scalars.push_back(&variable);
    }
  }
  for (uint32_t size = 1; size <= 100 && !HasFailure(); ++size) {
    std::vector<std::pair<const Variable*, uint32_t>> wanted;
    for (uint32_t i = 0; i < size; ++i) wanted.emplace_back(scalars[(i * 7 + size) % scalars.size()], 0);
    EXPECT_EQ(compare_batch(&panel_, wanted), covered(size)) << size << " elements";
  }
}

TEST_F(Transfers, BatchOfAMixWithinOneScope_ReadsWhatSingleReadsGive) {
  std::mt19937 random(7);
  for (const char* program : {"", "MAIN", "MAIN2"}) {
    std::vector<const Variable*> pool;
    for (const Variable& variable : variables_) {
      if (variable.program == program && can_be_in_a_batch(variable)) pool.push_back(&variable);
    }
    for (int round = 0; round < 25 && !HasFailure(); ++round) {
      std::vector<std::pair<const Variable*, uint32_t>> wanted;
      const auto size = static_cast<uint32_t>(1 + random() % 34);
      while (wanted.size() < size) {
        const Variable* variable = pool[random() % pool.size()];
        wanted.emplace_back(variable, static_cast<uint32_t>(random() % variable->elements()));
      }
      EXPECT_EQ(compare_batch(&panel_, wanted), size);
    }
  }
}

TEST_F(Transfers, BatchOfConsecutiveElements_ReadsEveryOne) {
  for (const Variable& variable : variables_) {
    if (variable.sizes.empty() || variable.bits == 64 || variable.is_bool() || variable.device != "DM") continue;
    std::vector<std::pair<const Variable*, uint32_t>> wanted;
    for (uint32_t i = 0; i < variable.elements(); ++i) wanted.emplace_back(&variable, i);
    EXPECT_EQ(compare_batch(&panel_, wanted), variable.elements()) << variable.name;
  }
}

TEST_F(Transfers, LongValueOfABatch_FillsItsElementAndTheNext) {
  const Memory memory = simulator_.memory();
  for (const Variable& variable : variables_) {
    if (variable.bits != 64 || !variable.sizes.empty()) continue;
    std::vector<BatchReadRequest> elements(2);
    elements[0] = {0, 0, 0, variable.record << 16, 1, {}, kUnread};
    elements[1] = {0, 0, 0, variable.record << 16, 1, {}, kUnread};
    ASSERT_EQ(panel_.batch(&elements), 0U);
    const std::vector<uint16_t>& words = element_of(memory, variable, 0).words;
    EXPECT_EQ(elements[0].value, static_cast<uint32_t>(words[1]) << 16 | words[0]);
    EXPECT_EQ(elements[1].value, static_cast<uint32_t>(words[1]) << 16 | words[0]) << "the second element's own value";
  }
}

TEST_F(Transfers, StringOfABatch_IsATextThatTheHostCanReach) {
  const Memory memory = simulator_.memory();
  for (const Variable& variable : variables_) {
    if (variable.bits != 0) continue;
    std::vector<BatchReadRequest> elements(1);
    elements[0] = {0, 0, 0, variable.record << 16, 1, {}, 0};
    ASSERT_EQ(panel_.batch(&elements), 0U);
    ASSERT_NE(elements[0].value, 0U);
    const auto* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(elements[0].value));
    EXPECT_EQ(std::string(text), text_of(element_of(memory, variable, 0)).substr(0, 2));
  }
}

}  // namespace
}  // namespace plc_test
