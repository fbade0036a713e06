// Every call of an entry point by a test runs on a stack of 32 KiB, filled beforehand so that its depth shows. The
// program's report says how deep the deepest call went.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "plc_driver.h"

namespace plc_test {
namespace {

constexpr size_t kStackBytes = 32 * 1024;  // what a thread of a panel's runtime may have
constexpr size_t kLimitBytes = 24 * 1024;  // what an entry point may take of it
constexpr uint8_t kFill = 0xA5;

// A mapping with a page below that nothing may touch.
uint8_t* map_stack() {
  const auto guard = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* memory = mmap(nullptr, guard + kStackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED || mprotect(memory, guard, PROT_NONE) != 0) std::abort();
  auto* const lowest = static_cast<uint8_t*>(memory) + guard;
  std::memset(lowest, kFill, kStackBytes);
  return lowest;
}

size_t g_deepest = 0;
ucontext_t g_test;
ucontext_t g_call;
void (*g_work)(void*);
void* g_argument;

struct DepthReport : testing::Environment {
  void TearDown() override { testing::Test::RecordProperty("deepest_call", std::to_string(g_deepest)); }
};
const testing::Environment* const g_report = testing::AddGlobalTestEnvironment(new DepthReport);

void run_work() { g_work(g_argument); }

void note_depth(uint8_t* lowest) {
  const uint8_t* used = std::find_if(lowest, lowest + kStackBytes, [](uint8_t byte) { return byte != kFill; });
  const auto depth = static_cast<size_t>(lowest + kStackBytes - used);
  g_deepest = std::max(g_deepest, depth);
  std::memset(lowest, kFill, kStackBytes);
  if (depth > kLimitBytes) {
    std::fprintf(stderr, "an entry point took %zu bytes of stack, %zu are allowed\n", depth, kLimitBytes);
    std::abort();
  }
}

template <typename Call>
uint32_t on_small_stack(Call call) {
  struct Given {
    Call* call;
    uint32_t result;
  } given = {&call, 0};
  static uint8_t* const lowest = map_stack();
  if (getcontext(&g_call) != 0) std::abort();
  g_call.uc_stack.ss_sp = lowest;
  g_call.uc_stack.ss_size = kStackBytes;
  g_call.uc_link = &g_test;
  g_work = [](void* argument) {
    auto* const work = static_cast<Given*>(argument);
    work->result = (*work->call)();
  };
  g_argument = &given;
  makecontext(&g_call, run_work, 0);
  if (swapcontext(&g_test, &g_call) != 0) std::abort();
  note_depth(lowest);
  return given.result;
}

}  // namespace
}  // namespace plc_test

using plc_test::on_small_stack;

extern "C" {

uint32_t __real_ev_plc_init(CommSettings* settings);
uint32_t __real_ev_plc_read(RegRequest* request, RegValue* value, ConnContext* conn);
uint32_t __real_ev_plc_write(RegRequest* request, RegValue* value, ConnContext* conn);
uint32_t __real_ev_OMRON_plc_read(BatchReadRequest* elements, int32_t count, ConnContext* conn);

uint32_t __wrap_ev_plc_init(CommSettings* settings);
uint32_t __wrap_ev_plc_read(RegRequest* request, RegValue* value, ConnContext* conn);
uint32_t __wrap_ev_plc_write(RegRequest* request, RegValue* value, ConnContext* conn);
uint32_t __wrap_ev_OMRON_plc_read(BatchReadRequest* elements, int32_t count, ConnContext* conn);

uint32_t __wrap_ev_plc_init(CommSettings* settings) {
  return on_small_stack([=] { return __real_ev_plc_init(settings); });
}

uint32_t __wrap_ev_plc_read(RegRequest* request, RegValue* value, ConnContext* conn) {
  return on_small_stack([=] { return __real_ev_plc_read(request, value, conn); });
}

uint32_t __wrap_ev_plc_write(RegRequest* request, RegValue* value, ConnContext* conn) {
  return on_small_stack([=] { return __real_ev_plc_write(request, value, conn); });
}

uint32_t __wrap_ev_OMRON_plc_read(BatchReadRequest* elements, int32_t count, ConnContext* conn) {
  return on_small_stack([=] { return __real_ev_OMRON_plc_read(elements, count, conn); });
}
}
