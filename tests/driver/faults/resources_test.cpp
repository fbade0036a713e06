// What transfers need: no memory of the heap once a tag file is loaded, descriptors that select can take, a small
// stack.
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "plc_driver_hooks.h"
#include "tests/driver/faults/fault_fixture.h"
#include "tests/support/descriptors.h"

namespace plc_test {
namespace {

class Resources : public FaultFixture {};

TEST_F(Resources, TransfersAfterTheFirst_TakeNoMemory) {
  for (const Transfer transfer : kTransfers) EXPECT_EQ(run(transfer).result, uint32_t{PLC_OK});
  for (int round = 0; round < 50; ++round) {
    for (const Transfer transfer : kTransfers) {
      const Seen seen = run(transfer);
      EXPECT_EQ(seen.result, uint32_t{PLC_OK});
      for (const Call call : {Call::kMalloc, Call::kCalloc, Call::kRealloc, Call::kMmap, Call::kOpen, Call::kSocket}) {
        EXPECT_EQ(seen.calls.count(call), 0) << name_of(transfer) << ": " << name_of(call);
      }
      EXPECT_GE(seen.calls.count(Call::kSend), 2) << "the watch sees the transfer";
    }
  }
}

// A connect after a lost connection takes none either.
TEST_F(Resources, Reconnects_TakeNoMemory) {
  EXPECT_EQ(run(Transfer::kRead).result, uint32_t{PLC_OK});
  for (int round = 0; round < 20; ++round) {
    EXPECT_EQ(run(Transfer::kRead, Fault{Call::kSend, 0, false, fails_with(EPIPE)}).result, uint32_t{PLC_FAILED});
    const Seen seen = run(Transfer::kRead);
    EXPECT_EQ(seen.result, uint32_t{PLC_OK});
    EXPECT_EQ(seen.calls.count(Call::kSocket), 1);
    EXPECT_EQ(seen.calls.count(Call::kMalloc) + seen.calls.count(Call::kCalloc) + seen.calls.count(Call::kRealloc), 0);
  }
  EXPECT_EQ(stored_sockets(), 1);
}

// All that transfers of every kind and a file loaded by path have taken.
TEST_F(Resources, Release_GivesBackAllMemoryAndDescriptors) {
  for (int round = 0; round < 2; ++round) {
    start_over();
    CapturedOutput captured;
    WatchedCalls watched;
    EXPECT_EQ(plc_driver_load_tags(settings_.ip_address, 1, "PLC7F000001_0.csv"), uint32_t{PLC_OK});
    for (const Transfer transfer : kTransfers) EXPECT_EQ(run_plainly(transfer), uint32_t{PLC_OK});
    plc_driver_release(&conn_);
    const CallWatch seen = watched.end();
    captured.take();
    EXPECT_GE(seen.count(Call::kMalloc), 2) << "the watch sees both tables";
    EXPECT_EQ(seen.live_blocks, 0);
    EXPECT_EQ(seen.open_descriptors, 0);
    EXPECT_EQ(conn_.socket_fd, -1);
  }
}

TEST_F(Resources, DescriptorsBeyondFdSetSize_AreNotUsedNorLost) {
  for (const Transfer transfer : kTransfers) {
    start_over();
    Seen seen;
    {
      CapturedOutput captured;
      const TakenLowDescriptors taken;
      WatchedCalls watched;
      seen.result = run_plainly(transfer);
      seen.calls = watched.end();
      seen.lines = captured.take();
    }
    EXPECT_EQ(seen.result, uint32_t{PLC_NO_CONNECT}) << name_of(transfer);
    EXPECT_EQ(seen.calls.count(Call::kSocket), 1);
    EXPECT_EQ(seen.calls.count(Call::kSelectConnect), 0) << "select never sees such a number";
    EXPECT_EQ(seen.calls.open_descriptors, 0);
    EXPECT_EQ(conn_.socket_fd, -1);
    EXPECT_EQ(run(transfer).result, uint32_t{PLC_OK});
  }
}

// A number of the host's that no set can hold is not used as a bit number.
TEST_F(Resources, SocketNumbersOfTheHostThatSelectCannotTake_FailTheExchange) {
  for (const int32_t number :
       {-1, -1000, FD_SETSIZE, 1 << 20, std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min()}) {
    start_over();
    EXPECT_EQ(run(Transfer::kRead).result, uint32_t{PLC_OK});
    conn_.socket_fd = number;
    const Seen seen = run(Transfer::kRead);
    EXPECT_EQ(seen.result, uint32_t{PLC_FAILED});
    EXPECT_EQ(seen.lines, "send error\n");
    EXPECT_EQ(seen.calls.count(Call::kSelectDrain), 0);
    EXPECT_EQ(run(Transfer::kRead).result, uint32_t{PLC_OK});
  }
}

// A thread's stack of the test's own, filled beforehand, so that what was used of it shows.
class MeasuredStack {
 public:
  explicit MeasuredStack(size_t bytes) : bytes_(bytes) {
    memory_ = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory_ == MAP_FAILED) std::abort();
    std::memset(memory_, kFill, bytes);
  }
  MeasuredStack(const MeasuredStack&) = delete;
  MeasuredStack& operator=(const MeasuredStack&) = delete;
  ~MeasuredStack() { munmap(memory_, bytes_); }

  void run(void* (*work)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_t thread;
    ASSERT_EQ(pthread_attr_setstack(&attributes, memory_, bytes_), 0);
    ASSERT_EQ(pthread_create(&thread, &attributes, work, argument), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
  }

  size_t unused() const {
    const auto* first = static_cast<const uint8_t*>(memory_);
    return static_cast<size_t>(std::find_if(first, first + bytes_, [](uint8_t byte) { return byte != kFill; }) - first);
  }

 private:
  static constexpr uint8_t kFill = 0xA5;
  size_t bytes_;
  void* memory_;
};

// Sanitizers surround every array; some systems allow no stack this small.
size_t small_stack_bytes() {
#ifdef PLC_SANITIZED
  constexpr size_t kSmallStack = 256 * 1024;
#else
  constexpr size_t kSmallStack = 32 * 1024;
#endif
  return std::max(kSmallStack, static_cast<size_t>(PTHREAD_STACK_MIN));
}

TEST_F(Resources, AllTransfersOnAThreadWithASmallStack_Work) {
  struct Work {
    Resources* self;
    uint32_t results[4];
  };
  Work work = {this, {9, 9, 9, 9}};
  MeasuredStack stack(small_stack_bytes());
  CapturedOutput captured;
  stack.run(
      [](void* argument) -> void* {
        auto* const given = static_cast<Work*>(argument);
        for (int round = 0; round < 3; ++round) {
          for (size_t i = 0; i < 4; ++i) given->results[i] = given->self->run_plainly(kTransfers[i]);
        }
        return nullptr;
      },
      &work);
  captured.take();
  for (const uint32_t result : work.results) EXPECT_EQ(result, uint32_t{PLC_OK});
  std::fprintf(stderr, "%zu of %zu bytes of stack unused\n", stack.unused(), small_stack_bytes());
  EXPECT_GT(stack.unused(), 2048U);
}

}  // namespace
}  // namespace plc_test
