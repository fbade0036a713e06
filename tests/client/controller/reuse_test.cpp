// What is used again and again takes nothing: plans no memory, controllers no descriptor and no mapping.
#include <dirent.h>
#include <malloc.h>

#include <fstream>

#include "tests/client/controller/controller_fixture.h"
#include "tests/client/controller/counted_new.h"

namespace plc_client_test {
namespace {

size_t open_descriptors() {
  DIR* folder = opendir("/proc/self/fd");
  size_t count = 0;
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

// Mappings of copies of the driver.
size_t driver_mappings() {
  std::ifstream maps("/proc/self/maps");
  size_t count = 0;
  for (std::string line; std::getline(maps, line);) {
    if (line.find("memfd:") != std::string::npos) ++count;
  }
  return count;
}

class ReuseTest : public ControllerTest {
 protected:
  void SetUp() override {
    std::string tags;
    for (int i = 0; i < 100; ++i) tags += tag_line("W" + std::to_string(i), "INT");
    tags += tag_line("Text", "STRING", "", "20") + tag_line("Long", "STRING", "", "600") +
            tag_line("Table", "INT", "[0..49]") + tag_line("Grid", "REAL", "[0..9_0..19]") + tag_line("Wide", "LINT") +
            tag_line("Bit", "BOOL", "", "", "", "MR0") + tag_line("Bits", "BOOL", "[0..79]") + tag_line("Day", "DATE") +
            tag_line("Step", "UINT", "", "", "Main") + tag_line("Small", "SINT");
    start(tags);
  }
};

#ifndef PLC_SANITIZED
TEST_F(ReuseTest, ReusedPlan_TakesNoMemory) {
  for (const char* driver : {PLC_TEST_GUARDED, PLC_TEST_CONTRACT}) {
    Options chosen = options();
    chosen.driver = driver;
    Controller controller(chosen);
    std::vector<std::string> words;
    for (int i = 0; i < 100; ++i) words.push_back("W" + std::to_string(i));
    const std::vector<std::vector<std::string>> lists = {
        words, {"W1"}, {"Text", "W1", "W2"}, {"Long"}, {"Table", "Grid"}, {"Wide", "Bit", "Bits", "Main/Step"}};
    for (const std::vector<std::string>& names : lists) {
      Plan plan = controller.plan(names);
      controller.read(plan);
      const Value first = plan.readings().front().value;
      const size_t before = allocations_of_this_thread();
      for (int i = 0; i < 20; ++i) controller.read(plan);
      EXPECT_EQ(allocations_of_this_thread(), before) << names.front() << " " << driver;
      EXPECT_EQ(plan.readings().front().value, first);
      for (const Reading& reading : plan.readings()) EXPECT_TRUE(reading.ok()) << reading.error.text;
    }
  }
}

#endif

TEST_F(ReuseTest, ControllersThatCameAndWent_LeaveNothing) {
#ifdef PLC_SANITIZED
  constexpr int kControllers = 100;
#else
  constexpr int kControllers = 1000;
#endif
  const auto use = [this] {
    Controller controller(options());
    EXPECT_TRUE(controller.read("Text").ok());
    lines_->clear();
  };
  for (int i = 0; i < 10; ++i) use();
  const size_t descriptors = open_descriptors();
  EXPECT_EQ(driver_mappings(), 0U);
#ifndef PLC_SANITIZED
  const size_t memory = mallinfo2().uordblks;
#endif
  for (int i = 0; i < kControllers; ++i) use();
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(driver_mappings(), 0U);
#ifndef PLC_SANITIZED
  constexpr size_t kSlack = 4096;
  EXPECT_LE(mallinfo2().uordblks, memory + kSlack);
#endif
}

TEST_F(ReuseTest, ControllerThatCannotBeMade_LeavesNothing) {
  Options wrong = options();
  wrong.tags = {folder_.file("none.csv")};
  const auto fail = [&wrong] { return thrown<plc_client::Error>([&] { Controller made(wrong); }); };
  EXPECT_NE(fail(), "");
  const size_t descriptors = open_descriptors();
  for (int i = 0; i < 20; ++i) EXPECT_NE(fail(), "");
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(driver_mappings(), 0U);
}

}  // namespace
}  // namespace plc_client_test
