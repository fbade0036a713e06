// Controllers in several threads: each its own, or all the same one.
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
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

TEST_F(ThreadsTest, LogOrOnStateThatUsesItsController_IsRefused) {
  Controller* own = nullptr;
  std::vector<std::string> told;
  const auto use = [&] {
    if (own == nullptr) return;
    told.push_back(thrown<plc_client::Error>([&] { own->state(); }));
    told.push_back(thrown<plc_client::Error>([&] { own->read("W0"); }));
    told.push_back(thrown<plc_client::Error>([&] { own->close(); }));
  };
  size_t changes = 0;
  Options chosen = options();
  chosen.log = [&](const std::string&) { use(); };
  chosen.on_state = [&](const plc_client::State&) {
    ++changes;
    use();
  };
  Controller controller(chosen);
  own = &controller;
  EXPECT_TRUE(controller.read("W1").ok());
  EXPECT_EQ(changes, 1U);
  EXPECT_GT(told.size(), 3U) << "three of each line, and of the change";
  EXPECT_THAT(told, testing::Each(std::string(
                        "a function that a controller calls, log or on_state, may not use this controller, which waits "
                        "for it: note what there is to do, and do it after the call")));
  EXPECT_TRUE(controller.state().connected);
  own = nullptr;
}

TEST_F(ThreadsTest, ForkedProcess_CannotUseTheControllerAndDoesItNoHarm) {
  auto controller = std::make_unique<Controller>(quiet());
  Plan plan = controller->plan({"W0"});
  const std::vector<uint64_t> held = memory().bits("W0", 32);
  EXPECT_EQ(bits_of(controller->read(plan).front().value), held);
  const unsigned long before = requests();
  const std::string words = "the controller belongs to process " + std::to_string(getpid()) +
                            ", from which this one was forked, and shares its connection: make a Controller of its own "
                            "in the child";
  const pid_t child = fork();
  if (child == 0) {
    bool is_refused = true;
    const auto refuses = [&](const std::function<void()>& use) {
      is_refused = is_refused && thrown<plc_client::Error>(use) == words;
    };
    refuses([&] { controller->read(plan); });
    refuses([&] { controller->write("W0", 1); });
    refuses([&] { controller->connect(); });
    refuses([&] { controller->state(); });
    refuses([&] { controller->tags(); });
    controller->close();
    controller.reset();
    Controller own(quiet());
    is_refused = is_refused && bits_of(own.read("W0").value) == held;
    own.close();
    _exit(is_refused ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_GT(requests(), before) << "of the child's own controller";
  EXPECT_EQ(bits_of(controller->read(plan).front().value), held);
  EXPECT_EQ(controller->state().connects, 1U);
  EXPECT_EQ(sim_->count("connections"), 2U);
}

}  // namespace
}  // namespace plc_client_test
