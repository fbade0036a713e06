// Random batches against the rules written down a second time: items, runs, frames and values, for orderly and for
// random replies.
#include <cstring>
#include <random>

#include "plc_driver/driver_state.h"
#include "tests/driver/protocol/batch/batch_rules.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

constexpr uint32_t kLimitId = BatchRules::kFirstIndexed + 6;  // the largest id of the file; the group holds five

std::vector<TagEntry> plain_tags() {
  TagEntry member = make_bit("M.B", kDm);
  member.name_kind = 2;
  TagEntry odd_bit = make_bit("Q", kMr);
  odd_bit.dim1_high = 3;  // an upper bound without an array's shape
  return {make_tag("W", 16),
          make_tag("D", 32),
          make_tag("L", 64),
          make_tag("Y", 8),
          make_bit("B", kMr),
          member,
          odd_bit,
          with_ranges(make_tag("WA", 16), {0, 199}),
          with_ranges(make_tag("DA", 32), {2, 60}),
          with_ranges(make_tag("LA", 64), {0, 60}),
          with_ranges(make_tag("W2", 16), {3, 9}, {1, 8}),
          with_ranges(make_tag("D3", 32), {-2, 1}, {1, 3}, {5, 8}),
          with_ranges(make_bit("BA", kEm), {0, 40}),
          with_ranges(make_bit("B2", kMr), {0, 3}, {0, 7}),
          with_ranges(make_bit("B3", kLr), {1, 3}, {0, 2}, {2, 4}),
          make_string("S", 80),
          local(make_tag("VW", 16)),
          local(with_ranges(make_tag("VA", 16), {0, 60})),
          local(make_bit("VB", kMr))};
}

std::vector<TagEntry> group_tags() {
  std::vector<TagEntry> group = {make_tag("IW", 16), with_ranges(make_tag("IA", 16), {0, 60}),
                                 local(with_ranges(make_tag("IL", 32), {0, 60})), make_bit("IB", kMr),
                                 make_string("IS", 12)};
  for (uint32_t i = 0; i < group.size(); ++i) group[i].tag_id = BatchRules::kFirstIndexed + i;
  return group;
}

class BatchProperty : public BatchTest {
 protected:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }

  BatchElement random_element() {
    BatchElement element = {below(19), below(30)};
    if (below(4) == 0) element.id = BatchRules::kFirstIndexed + below(below(40) == 0 ? 6 : 5);
    if (below(12) == 0) element.count = static_cast<uint16_t>(below(6));
    if (below(60) == 0) element.count = static_cast<uint16_t>(below(60));
    return element;
  }

  std::vector<BatchElement> random_batch() {
    std::vector<BatchElement> elements = {random_element()};
    const size_t size = 1 + below(100);
    const uint32_t runs = 1 + below(8);  // how much the batch consists of runs
    while (elements.size() < size) {
      BatchElement next = elements.back();
      ++next.element;
      next.count = 1;
      elements.push_back(below(8) < runs ? next : random_element());
    }
    return elements;
  }

  Bytes random_reply(size_t length) {
    Bytes reply(length);
    for (uint8_t& byte : reply) byte = static_cast<uint8_t>(random_());
    return reply;
  }

  // Replies as a controller gives them, in handles and values random.
  Bytes orderly_reply(const Bytes& request) {
    if (request[10] == 0x1E) return random_reply(14 + 8 * (static_cast<size_t>(request[13]) << 8 | request[14]));
    Bytes reply = random_reply(4096);
    for (size_t at = 40; at < reply.size(); at += 24) reply[at] = 0;
    return reply;
  }

  Bytes hostile_reply() {
    static constexpr size_t kLengths[] = {0, 1, 13, 14, 24, 25, 26, 41, 100, 300, 1000, 2000, 4095, 4096};
    return random_reply(below(3) == 0 ? kLengths[below(14)] : 25 + below(4072));
  }

  // Runs one batch by the rules, then by the driver with the same replies, and compares all that can be seen.
  void compare(const std::vector<BatchElement>& elements, const BatchRules::Controller& controller) {
    std::vector<Bytes> replies;
    BatchRules rules(plain_tags(), group_tags(), {{7, "MAI"}, {0x21, "MAIN"}, {3, "MAIN"}}, elements);
    rules.run(
        [&](const Bytes& request) {
          replies.push_back(controller(request));
          return replies.back();
        },
        kUntouched);
    use_tags(plain_tags(), group_tags());
    loaded_table().max_indexed_id = kLimitId;
    use_directory({{7, "MAI"}, {0x21, "MAIN"}, {3, "MAIN"}});
    peer_.forget();
    plc::sid = 0;
    for (const Bytes& reply : replies) peer_.answer(reply_raw(reply));
    uint32_t result = 0;
    const std::string printed = capture_output([&] { result = read(elements); });
    EXPECT_EQ(printed, rules.is_out_of_range ? "Index out of range!\r\n" : "");
    EXPECT_EQ(result, rules.result);
    EXPECT_EQ(peer_.requests(), rules.requests);
    EXPECT_EQ(plc::sid, rules.requests.size());
    EXPECT_EQ(plc::init, 1U);
    expect_classified(rules, elements.size());
    expect_values(rules);
    EXPECT_TRUE(batch_.guards_intact());
  }

 private:
  static void expect_classified(const BatchRules& rules, size_t slots) {
    EXPECT_EQ(plc::reg_init_num, rules.init_count);
    EXPECT_EQ(plc::reg_interact_num, rules.interact_count);
    std::vector<uint32_t> runs;
    for (size_t i = 0; i < slots; ++i) runs.push_back(plc::OMRON_TEMP[i].run);
    EXPECT_EQ(runs, rules.runs);
    std::vector<std::string> items;
    for (const plc::ReadItem& item : plc::INIT_TAG) {
      if (item.name[0] != '\0') items.push_back(item.name);
    }
    EXPECT_EQ(items, rules.items);
  }

  void expect_values(const BatchRules& rules) {
    for (size_t i = 0; i < count_; ++i) {
      if (rules.texts[i].empty()) {
        EXPECT_EQ(values()[i], rules.values[i]) << i;
        continue;
      }
      ASSERT_NE(values()[i], kUntouched) << i;
      const auto* copy = reinterpret_cast<const char*>(static_cast<uintptr_t>(values()[i]));
      EXPECT_EQ(std::string(copy, rules.texts[i].size() + 1), rules.texts[i] + '\0') << i;
    }
  }

 protected:
  std::mt19937 random_{20261121};
};

TEST_F(BatchProperty, OrderlyReplies_GiveItemsRunsFramesAndValuesOfTheRules) {
  for (int round = 0; round < 1500 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    compare(random_batch(), [this](const Bytes& request) { return orderly_reply(request); });
  }
}

TEST_F(BatchProperty, HostileReplies_GiveFramesCodesAndValuesOfTheRules) {
  for (int round = 0; round < 3000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    compare(random_batch(), [this](const Bytes&) { return hostile_reply(); });
  }
}

TEST_F(BatchProperty, EverySize_FollowsTheRules) {
  for (uint32_t id = 0; id < 19 && !HasFailure(); ++id) {
    for (uint32_t size = 1; size <= 100; ++size) {
      SCOPED_TRACE(std::to_string(id) + " x " + std::to_string(size));
      compare(consecutive(id, 0, size), [this](const Bytes& request) { return orderly_reply(request); });
    }
  }
}

}  // namespace
}  // namespace plc_test
