// Which build a host has loaded.
#include <gtest/gtest.h>

#include "plc_driver.h"

namespace plc_test {
namespace {

TEST(BuildName, OfTheGuardedBuild_SaysSo) { EXPECT_STREQ(plc_driver_build(), PLC_VERSION " guarded"); }

}  // namespace
}  // namespace plc_test
