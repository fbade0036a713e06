// Controllers in several threads: each its own, or all the same one.
#include <thread>

#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

constexpr size_t kThreads = 8;

class ThreadsTest : public ControllerTest {
 protected:
  void SetUp() override {
    std::string tags;
    for (int i = 0; i < 64; ++i)
      tags += tag_line("W" + std::to_string(i), "DINT") + tag_line("F" + std::to_string(i), "INT");
    tags += tag_line("Text", "STRING", "", "30") + tag_line("Small", "SINT");
    start(tags);
  }
  // Without a log: the threads would share it.
  Options quiet() const {
    Options quiet = options();
    quiet.log = nullptr;
    return quiet;
  }
  static void in_threads(const std::function<void(size_t thread)>& work) {
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
  }
};

TEST_F(ThreadsTest, SixtyFourControllersInEightThreads_EachHaveTheirOwnValues) {
  constexpr size_t kEach = 8;
  const Memory held = memory();
  in_threads([&](size_t thread) {
    std::vector<std::unique_ptr<Controller>> own;
    for (size_t i = 0; i < kEach; ++i) own.push_back(std::make_unique<Controller>(quiet()));
    for (int round = 0; round < 5; ++round) {
      for (size_t i = 0; i < kEach; ++i) {
        const std::string number = std::to_string(kEach * thread + i);
        const std::string word = "W" + number;
        const std::string fixed = "F" + number;
        const int value = static_cast<int>(1000 * thread + 10 * i) + round;
        EXPECT_TRUE(own[i]->write(word, value, Verify::kReadBack).verified);
        const std::vector<Reading> readings = own[i]->read({word, fixed, "Text"});
        EXPECT_EQ(readings[0].value.as<int>(), value);
        EXPECT_EQ(bits_of(readings[1].value), held.bits(fixed, 16));
        EXPECT_EQ(readings[2].value.as<std::string>(), held.text("Text", 30));
        EXPECT_EQ(own[i]->tag(word).line, 2 * (kEach * thread + i) + 1);
        EXPECT_THROW(own[i]->read("Nobody"), plc_client::UnknownVariable);
      }
    }
  });
  EXPECT_EQ(sim_->count("connections"), kThreads * kEach);
}

TEST_F(ThreadsTest, OneControllerInEightThreads_ServesOneAfterTheOther) {
  Controller controller(quiet());
  const Memory held = memory();
  in_threads([&](size_t thread) {
    const std::string word = "W" + std::to_string(thread);
    const std::string fixed = "F" + std::to_string(thread);
    Plan plan = controller.plan({word, fixed, "Small"});
    for (int round = 0; round < 20; ++round) {
      const int value = static_cast<int>(100 * thread) + round;
      EXPECT_TRUE(controller.write(word, value).ok());
      const std::vector<Reading>& readings = controller.read(plan);
      EXPECT_EQ(readings[0].value.as<int>(), value);
      EXPECT_EQ(bits_of(readings[1].value), held.bits(fixed, 16));
      EXPECT_EQ(readings[2].error.reason, Reason::kImpossible);
      EXPECT_EQ(controller.match(fixed), std::vector<std::string>{fixed});
      EXPECT_TRUE(controller.state().connected);
    }
  });
  EXPECT_EQ(sim_->count("connections"), 1U);
}

}  // namespace
}  // namespace plc_client_test
