// Lists of any names: each result is what a single read gives, in as few exchanges as there can be, and one refused
// variable costs no other its value.
#include <algorithm>
#include <map>
#include <random>

#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

#ifdef PLC_SANITIZED
constexpr size_t kRandomNames = 1000;
#else
constexpr size_t kRandomNames = 10000;
#endif

// A machine with all that batches treat in different ways.
std::string machine_tags() {
  std::string tags;
  const char* types[] = {"INT", "DINT", "LINT", "REAL", "LREAL", "BOOL", "WORD", "UINT", "UDINT", "BOOL"};
  for (size_t i = 0; i < 60; ++i) {
    const std::string number = std::to_string(i);
    const std::string program = i % 6 == 4 ? "Main" : i % 6 == 5 ? "Sub" : "";
    const char* devices[] = {"", "EM0", "MR0", "DM0"};
    tags += tag_line("V" + number, types[i % 10], "", "", program, devices[i % 4]);
    tags += tag_line("P.V" + number, types[i % 10], "", "", program, "");
    tags += tag_line("A" + number, types[(i + 3) % 10], i % 2 == 0 ? "[0..7]" : "[0..2_0..3]", "", program, "");
    tags += tag_line("T" + number, "STRING", "", std::to_string(1 + i % 23), program, "");
  }
  for (size_t i = 0; i < 12; ++i) {
    const std::string number = std::to_string(i);
    tags += tag_line(std::string(100 + 9 * i, 'n') + number, "INT", i % 3 == 0 ? "[0..7]" : "");
    tags += tag_line(std::string(190, 't') + number, "STRING", "", std::to_string(3 + 6 * i));
  }
  tags += tag_line("Small", "SINT") + tag_line("Day", "DATE") + tag_line("Long", "STRING", "", "700");
  return tags;
}

class ListsTest : public ControllerTest {
 protected:
  // Every variable, and elements and parts of every array.
  std::vector<std::string> all_names(const Controller& controller) {
    std::vector<std::string> names;
    for (const plc_client::Declaration& declaration : controller.tags()) {
      names.push_back(declaration.name);
      if (declaration.ranges.size() == 1) names.insert(names.end(), {names.back() + "[3]", names.back() + "[1..6]"});
      if (declaration.ranges.size() == 2)
        names.insert(names.end(), {names.back() + "[1,2]", names.back() + "[0..1,3]"});
    }
    return names;
  }

  // Exchanges that the simulator counts while the plan is read, of which the first connects.
  unsigned long exchanges_of(Controller& controller, Plan& plan) {
    const unsigned long before = requests();
    controller.read(plan);
    return requests() - before;
  }
};

TEST_F(ListsTest, RandomLists_GiveWhatSingleReadsGiveInAsManyExchangesAsPlanned) {
  start(machine_tags());
  for (const char* driver : {PLC_TEST_GUARDED, PLC_TEST_CONTRACT}) {
    Options chosen = options();
    chosen.driver = driver;
    Controller controller(chosen);
    controller.connect();
    const std::vector<std::string> names = all_names(controller);
    std::map<std::string, Reading> single;
    std::map<std::string, size_t> singly;
    for (const std::string& name : names) {
      Plan plan = controller.plan({name});
      singly[name] = plan.exchanges();
      EXPECT_EQ(exchanges_of(controller, plan), plan.exchanges()) << name;
      single.emplace(name, plan.readings().front());
    }
    const unsigned seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (size_t done = 0; done < kRandomNames / 2;) {
      const size_t sizes[] = {2, 5, 40, 150};
      const size_t size = 1 + random() % sizes[random() % 4];
      std::vector<std::string> list;
      size_t bound = 0;
      for (size_t i = 0; i < size; ++i) {
        list.push_back(names[random() % names.size()]);
        bound += singly[list.back()];
      }
      done += size;
      Plan plan = controller.plan(list);
      ASSERT_LE(plan.exchanges(), bound);
      ASSERT_EQ(exchanges_of(controller, plan), plan.exchanges());
      for (size_t i = 0; i < size; ++i) {
        const Reading& expected = single.at(list[i]);
        ASSERT_EQ(plan.readings()[i].name, list[i]);
        ASSERT_EQ(plan.readings()[i].value, expected.value) << list[i];
        ASSERT_EQ(plan.readings()[i].quality, expected.quality) << list[i];
        ASSERT_EQ(plan.readings()[i].error.text, expected.error.text);
      }
    }
  }
  expect_no_refusal_of_the_guard();
}

TEST_F(ListsTest, WordsOfOneScope_AreReadInFramesOf34) {
  std::string tags;
  std::vector<std::string> names;
  for (int i = 0; i < 100; ++i) {
    names.push_back("W" + std::to_string(i));
    tags += tag_line(names.back(), "INT");
  }
  start(tags);
  Controller controller(options());
  controller.connect();
  for (const auto& [count, exchanges] : std::map<size_t, size_t>{{1, 2}, {2, 2}, {34, 2}, {35, 4}, {68, 4}, {100, 6}}) {
    Plan plan = controller.plan({names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count)});
    EXPECT_EQ(plan.exchanges(), exchanges) << count;
    EXPECT_EQ(exchanges_of(controller, plan), exchanges) << count;
  }
}

// 100 words, of which the controller refuses one.
class RefusedTest : public ListsTest {
 protected:
  static constexpr size_t kWords = 100;
  static constexpr size_t kRefused = 41;

  void SetUp() override {
    std::string known;
    for (size_t i = 0; i < kWords; ++i) {
      names_.push_back("W" + std::to_string(i));
      if (i != kRefused) known += tag_line(names_.back(), "INT");
    }
    start(known);
    std::string tags;
    for (const std::string& name : names_) tags += tag_line(name, "INT");
    declared_ = folder_.write("declared.csv", tags);
  }
  Options declared() const {
    Options all = options();
    all.tags = {declared_};
    return all;
  }
  void expect_all_but_the_refused(const std::vector<Reading>& readings) {
    const Memory held = memory();
    for (size_t i = 0; i < kWords; ++i) {
      if (i == kRefused) continue;
      EXPECT_TRUE(readings[i].ok()) << readings[i].error.text;
      EXPECT_EQ(bits_of(readings[i].value), held.bits(names_[i], 16)) << i;
    }
  }

  std::vector<std::string> names_;
  std::string declared_;
};

TEST_F(RefusedTest, RefusedVariable_CostsNoOtherItsValue) {
  Controller controller(declared());
  Plan plan = controller.plan(names_);
  EXPECT_EQ(plan.exchanges(), 6U);
  for (int run = 0; run < 3; ++run) {
    const std::vector<Reading>& readings = controller.read(plan);
    expect_all_but_the_refused(readings);
    EXPECT_EQ(readings[kRefused].quality, Quality::kBad);
    EXPECT_EQ(readings[kRefused].error.reason, Reason::kRefused);
    EXPECT_EQ(readings[kRefused].error.text, "the controller refused the name, status 0004 (3)");
    EXPECT_FALSE(readings[kRefused].value.has_value());
  }
}

TEST_F(RefusedTest, NextReadsOfThePlan_AskForTheRefusedOneByItself) {
  Controller controller(declared());
  Plan plan = controller.plan(names_);
  controller.read(plan);
  const unsigned long before = requests();
  controller.read(plan);
  // 99 words in three frames, and the name of the refused one, whose value is not asked for then.
  EXPECT_EQ(plan.exchanges(), 8U);
  EXPECT_EQ(requests() - before, 7U);
  expect_all_but_the_refused(plan.readings());
}

TEST_F(RefusedTest, BatchRefusedOnceWithoutACulprit_StaysABatch) {
  Controller controller(options());
  std::vector<std::string> known = names_;
  known.erase(known.begin() + kRefused);
  Plan plan = controller.plan(known);
  controller.connect();
  sim_->tell("fault refuse on=resolve");
  for (const Reading& reading : controller.read(plan)) EXPECT_TRUE(reading.ok()) << reading.error.text;
  EXPECT_EQ(plan.exchanges(), 6U);
  EXPECT_EQ(exchanges_of(controller, plan), 6U);
  for (const Reading& reading : plan.readings()) EXPECT_TRUE(reading.ok()) << reading.error.text;
}

TEST_F(RefusedTest, BatchRefusedAgainAndAgainWithoutACulprit_IsReadSingly) {
  Controller controller(options());
  std::vector<std::string> known(names_.begin(), names_.begin() + 30);
  Plan plan = controller.plan(known);
  controller.connect();
  EXPECT_EQ(plan.exchanges(), 2U);
  for (int run = 0; run < 2; ++run) {
    sim_->tell("fault refuse on=resolve");
    for (const Reading& reading : controller.read(plan)) EXPECT_TRUE(reading.ok()) << reading.error.text;
  }
  EXPECT_EQ(exchanges_of(controller, plan), 60U);
  EXPECT_EQ(plan.exchanges(), 60U);
}

TEST_F(RefusedTest, RefusedOneThatComesBack_IsGoodAgain) {
  Controller controller(options());
  std::vector<std::string> known = names_;
  known.erase(known.begin() + kRefused);
  Plan plan = controller.plan(known);
  controller.connect();
  // The first frame, which ends its call; behind the other call the first variable by itself.
  sim_->tell("fault refuse on=resolve");
  sim_->tell("fault refuse on=resolve after=1");
  controller.read(plan);
  EXPECT_EQ(plan.readings()[0].error.text, "the controller refused the name, status 0013 (3)");
  for (size_t i = 1; i < known.size(); ++i) EXPECT_TRUE(plan.readings()[i].ok()) << plan.readings()[i].error.text;
  controller.read(plan);
  EXPECT_TRUE(plan.readings()[0].ok());
  EXPECT_EQ(bits_of(plan.readings()[0].value), memory().bits("W0", 16));
  EXPECT_EQ(plan.readings()[0].error.text, "");
}

}  // namespace
}  // namespace plc_client_test
