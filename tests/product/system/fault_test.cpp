// Every fault of the simulated controller happens, gives its stated code and line, and the driver recovers.
#include <gtest/gtest.h>

#include "tests/product/system/panel.h"
#include "tests/product/system/simulator.h"
#include "tests/support/driver_build.h"

namespace plc_test {
namespace {

struct Outcome {
  uint32_t result;      // of the read during which it happens
  const char* printed;  // by that read; null where both depend on what came in time
  uint32_t failures;    // further reads that may fail before one succeeds
};

struct Fault {
  const char* name;
  const char* command;
  Outcome contract;
  Outcome guarded;
};

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.command; }

// An orderly close looks like an empty reply, which leaves the connection alone: one more exchange may find it empty,
// and one fails to send, before the next connects anew.
constexpr uint32_t kAfterClose = 2;

// The guarded build has closed the connection that something went wrong on.
constexpr Outcome kLost = {3, "[PLC] guard: connection lost, error 104\r\n", 0};
constexpr Outcome kClosed = {3, "[PLC] guard: connection closed by the controller\r\n", 0};
constexpr Outcome kUnharmed = {0, "", 0};

constexpr Fault kFaults[] = {
    {"delay", "fault delay 50", kUnharmed, kUnharmed},
    {"no-reply", "fault no-reply", {3, "--timeout--\r\n", 0}, {3, "--timeout--\r\n", 0}},
    {"close", "fault close", {3, "", kAfterClose}, kClosed},
    {"reset", "fault reset", {3, "", 0}, kLost},
    {"cut",
     "fault cut 5 on=read",
     {3, "read data err!\r\n", 0},
     {3, "[PLC] guard: reply cut off, 5 bytes in time\r\n", 0}},
    {"close-after", "fault close-after 5 on=read", {3, "read data err!\r\n", kAfterClose}, kClosed},
    {"split", "fault split 5 20 on=read", {3, "read data err!\r\n", 1}, kUnharmed},
    {"stale", "fault stale 7", {0, nullptr, 1}, {0, nullptr, 1}},
    {"trailing", "fault trailing 7", {0, nullptr, 1}, {0, nullptr, 1}},
    {"duplicate", "fault duplicate", {0, nullptr, 1}, {0, nullptr, 1}},
    {"oversize", "fault oversize 4000", {0, "", 1}, {3, "[PLC] guard: bytes behind the reply\r\n", 0}},
    {"garbage", "fault garbage on=read", kUnharmed, {3, "[PLC] guard: not a reply of this protocol\r\n", 0}},
    {"wrong-sequence",
     "fault wrong-sequence",
     kUnharmed,
     {3, "--timeout--\r\n[PLC] guard: 1 late replies dropped\r\n", 0}},
};

class EveryFault : public testing::TestWithParam<Fault> {};

TEST_P(EveryFault, OfTheController_HappensAndIsRecoveredFrom) {
  Panel panel("Speed,INT,,,,,,0,1,0,0,\n");
  Simulator simulator(panel.tag_file());
  panel.use_port(simulator.port());
  const Fault& fault = GetParam();
  const Outcome expected = by_build(fault.contract, fault.guarded);
  std::vector<uint8_t> data;
  ASSERT_EQ(panel.read(0, 0, 1, &data), 0U);
  const std::vector<uint8_t> value = data;
  panel.take_printed();

  simulator.tell(fault.command);
  const uint32_t result = panel.read(0, 0, 1, &data);
  const std::string printed = panel.take_printed();
  EXPECT_EQ(simulator.count(std::string("fault.") + fault.name), 1U);
  if (expected.printed != nullptr) {
    EXPECT_EQ(result, expected.result);
    EXPECT_EQ(printed, expected.printed);
  }

  simulator.tell("fault clear");
  panel.await_late_bytes();
  uint32_t failures = 0;
  while (failures < expected.failures && (panel.read(0, 0, 1, &data) != 0 || data != value)) ++failures;
  EXPECT_EQ(panel.read(0, 0, 1, &data), 0U);
  EXPECT_EQ(data, value);
}

INSTANTIATE_TEST_SUITE_P(Simulator, EveryFault, testing::ValuesIn(kFaults), [](const auto& fault) {
  std::string name = fault.param.name;
  for (char& c : name) {
    if (c == '-') c = '_';
  }
  return name;
});

TEST(Connecting, ControllerThatTakesNone_GivesTwoUntilItDoes) {
  Panel panel("Speed,INT,,,,,,0,1,0,0,\n");
  Simulator simulator(panel.tag_file());
  panel.use_port(simulator.port());
  panel.take_printed();
  std::vector<uint8_t> data;
  simulator.tell("fault refuse-accept");
  EXPECT_EQ(panel.read(0, 0, 1, &data), 2U);
  EXPECT_EQ(panel.take_printed(), "server ip = 127.0.0.1\r\nselect time out \r\nsend error\nev_plc_read init fail\r\n");
  EXPECT_GE(simulator.count("fault.refuse-accept"), 1U);
  simulator.tell("fault clear");
  EXPECT_EQ(panel.read(0, 0, 1, &data), 0U);
}

TEST(Connecting, ControllerThatIsGone_GivesThreeAndIsFoundWhenItIsBack) {
  Panel panel("Speed,INT,,,,,,0,1,0,0,\n");
  Simulator simulator(panel.tag_file());
  panel.use_port(simulator.port());
  std::vector<uint8_t> data;
  ASSERT_EQ(panel.read(0, 0, 1, &data), 0U);
  simulator.tell("fault gone");
  EXPECT_EQ(panel.read(0, 0, 1, &data), 3U);
  EXPECT_EQ(panel.read(0, 0, 1, &data), by_build(3U, 2U)) << "by contract a refused connect counts as connected";
  simulator.tell("fault clear");
  EXPECT_EQ(panel.read(0, 0, 1, &data), 0U);
}

}  // namespace
}  // namespace plc_test
