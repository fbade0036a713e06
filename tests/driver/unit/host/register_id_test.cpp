// Tests of the step from a host's record to a register id and an element offset.
#include "plc_driver/host/register_id.h"

#include <gtest/gtest.h>

namespace {

TEST(RegisterId, TypesBelowFour_CountAsZeroAndAreSetToZero_D37) {
  for (uint8_t given = 0; given <= 3; ++given) {
    uint8_t reg_type = given;
    EXPECT_EQ(plc::take_register_id(&reg_type, 0x00050003), 5U);
    EXPECT_EQ(reg_type, 0);
  }
}

TEST(RegisterId, TypeFour_IsTheHighPartAndStays) {
  uint8_t reg_type = 4;
  EXPECT_EQ(plc::take_register_id(&reg_type, 0x00050003), 0x40005U);
  EXPECT_EQ(reg_type, 4);
  EXPECT_EQ(plc::take_register_id(&reg_type, 0x10000), 0x40001U);
}

TEST(RegisterId, HighestTypeAndAddress_AreTakenWhole) {
  uint8_t reg_type = 0xFF;
  EXPECT_EQ(plc::take_register_id(&reg_type, 0xFFFFFFFF), 0xFFFFFFU);
  EXPECT_EQ(reg_type, 0xFF);
}

TEST(RegisterId, ElementOffset_IsTheLowHalf) {
  EXPECT_EQ(plc::element_offset(0x00050003), 3U);
  EXPECT_EQ(plc::element_offset(0xFFFF0000), 0U);
  EXPECT_EQ(plc::element_offset(0xFFFFFFFF), 0xFFFFU);
}

}  // namespace
