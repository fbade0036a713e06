// The judges of the simulated world themselves: a payload read by hand, deadbands, and that a seed is a life.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/plc_gateway/simulation/judge/readings.h"
#include "tests/tools/plc_gateway/simulation/life.h"
#include "tests/tools/plc_gateway/simulation/world/wire.h"

namespace plc_gateway::simulation {
namespace {

TEST(SimulatedWire, PayloadFromFieldNumbers_IsReadFieldByField) {
  // time 5, a metric (alias 7, time 6, historical, Int32 -2), seq 255
  const std::string bytes =
      "\x08\x05"
      "\x12\x0d"
      "\x10\x07\x18\x06\x28\x01\x50\xfe\xff\xff\xff\x0f\x18"
      "\xff\x01";
  Payload payload;
  EXPECT_THROW(read_payload(bytes, payload), Violation);
  const std::string whole =
      "\x08\x05"
      "\x12\x0c"
      "\x10\x07\x18\x06\x28\x01\x50\xfe\xff\xff\xff\x0f\x18"
      "\xff\x01";
  read_payload(whole, payload);
  EXPECT_EQ(payload.time, 5U);
  EXPECT_EQ(payload.seq, 255U);
  ASSERT_EQ(payload.metrics.size(), 1U);
  EXPECT_EQ(payload.metrics[0].alias, 7U);
  EXPECT_EQ(payload.metrics[0].time, 6U);
  EXPECT_TRUE(payload.metrics[0].historical);
  EXPECT_TRUE(holds(payload.metrics[0], DataType::kInt32, true, 0xfffffffe, {}));
  EXPECT_FALSE(holds(payload.metrics[0], DataType::kInt32, false, 0, {}));
}

TEST(SimulatedWire, NullWithValue_IsAViolation) {
  Payload payload;
  EXPECT_THROW(read_payload("\x12\x04\x38\x01\x50\x01", payload), Violation);
}

TEST(SimulatedWire, UnknownField_IsAViolation) {
  Payload payload;
  EXPECT_THROW(read_payload("\x30\x01", payload), Violation);
}

TEST(SimulatedReadings, ChangeBeyondTheDeadband_MustBeTold) {
  Variable variable;
  variable.type = DataType::kInt16;
  variable.deadband = 2.5;
  Sample before;
  before.good = true;
  before.bits = 0xffff;  // -1
  Sample now = before;
  now.bits = 1;
  EXPECT_FALSE(must_be_told(variable, before, now));
  now.bits = 2;
  EXPECT_TRUE(must_be_told(variable, before, now));
  now.bits = 0xffff;
  now.good = false;
  EXPECT_TRUE(must_be_told(variable, before, now));
}

TEST(SimulatedLife, SameSeed_IsTheSameLife) {
  std::ostringstream first;
  std::ostringstream second;
  const Totals totals = Life(3, &first).live();
  Life(3, &second).live();
  EXPECT_EQ(first.str(), second.str());
  EXPECT_GT(totals.kills + totals.power_cuts, 0U);
  EXPECT_GT(totals.broker_losses, 0U);
  EXPECT_GT(totals.accepted, 0U);
}

}  // namespace
}  // namespace plc_gateway::simulation
