// Births that are longer than a broker takes, and how long they can be.
#include "tools/plc_gateway/node/birth_bytes.h"

#include <gtest/gtest.h>

#include "tests/tools/plc_gateway/node/node_world.h"

namespace gateway_test {
namespace {

using plc_gateway::DataType;
using plc_gateway::message_bytes;
using plc_gateway::message_name;
using plc_gateway::most_device_birth_bytes;

constexpr char kDeviceBirth[] = "spBv1.0/Plant1/DBIRTH/node1/press1";

TEST(MessageBytes, CountTopicNumberAndHeader) {
  EXPECT_EQ(message_bytes("t", 0, 0), 1U + 1 + 2 + 1 + 1);
  EXPECT_EQ(message_bytes("t", 0, 1), 1U + 1 + 2 + 1 + 2 + 1);
  EXPECT_EQ(message_bytes("t", 123, 0), 1U + 1 + 127);
  EXPECT_EQ(message_bytes("t", 124, 0), 1U + 2 + 128);
  EXPECT_EQ(message_bytes("t", 16379, 0), 1U + 2 + 16383);
  EXPECT_EQ(message_bytes("t", 16380, 0), 1U + 3 + 16384);
}

TEST(MessageName, IsTheTypeOfTopicsOfTheStandard) {
  EXPECT_EQ(message_name(kDeviceBirth), "DBIRTH");
  EXPECT_EQ(message_name("spBv1.0/Plant1/NBIRTH/node1"), "NBIRTH");
  EXPECT_EQ(message_name("plant1/press1/Speed"), "plant1/press1/Speed");
}

// Of every kind: arrays, texts, and numbers of any width, with their longest values.
TEST(MostDeviceBirthBytes, AreNotLessThanTheLongestBirthHas) {
  plc_gateway::EdgeNodeOptions options = World::usual_options();
  options.variables[1].declared_type = "STRING(20)";
  plc_gateway::Variable table;
  table.name = "Table";
  table.declared_type = "LINT[0..99]";
  table.type = DataType::kInt64Array;
  table.shape = {100};
  plc_gateway::Variable texts = table;
  texts.name = "Texts";
  texts.declared_type = "STRING(7)[0..2]";
  texts.type = DataType::kStringArray;
  texts.shape = {3};
  plc_gateway::Variable bits = table;
  bits.name = "Bits";
  bits.declared_type = "BOOL[0..3_0..4]";
  bits.type = DataType::kBooleanArray;
  bits.shape = {4, 5};
  options.variables.insert(options.variables.end(), {table, texts, bits});
  options.pieces = {{0, {0, 1, 3, 4, 5}}, {1, {2}}};
  World world(options);
  world.set(0, 0xFFFF);
  world.set(1, std::string(20, 'x'));
  world.set(2, 0xFFFFFFFF);
  world.set(3, std::string(800, 'x'));
  world.set(4, std::string("1234567\0001234567\0001234567\000", 24));
  world.set(5, std::string("\x14\0\0\0\xFF\xFF\xF0", 7));
  world.pass(50);
  world.let_broker_in();
  world.pass(50);
  const std::vector<Told> told = world.take();
  ASSERT_EQ(told[1].type, "DBIRTH");
  const size_t length = message_bytes(kDeviceBirth, told[1].text.size(), 0);
  EXPECT_EQ(world.node->counters().device_birth_bytes, length);
  EXPECT_GE(most_device_birth_bytes(kDeviceBirth, options.variables), length);
  // Longer names of metrics alone, a flag for values that nobody has checked, and a byte more for the greatest seq.
  EXPECT_LE(most_device_birth_bytes(kDeviceBirth, options.variables), length + 6 * 30);
}

TEST(MostDeviceBirthBytes, OfManyVariablesAreTheSumOfAll) {
  plc_gateway::Variable text;
  text.name = "Text";
  text.declared_type = "STRING(60000)";
  text.type = DataType::kString;
  const size_t of_five = most_device_birth_bytes(kDeviceBirth, std::vector<plc_gateway::Variable>(5, text));
  const size_t of_ten = most_device_birth_bytes(kDeviceBirth, std::vector<plc_gateway::Variable>(10, text));
  const size_t of_fifteen = most_device_birth_bytes(kDeviceBirth, std::vector<plc_gateway::Variable>(15, text));
  EXPECT_GT(of_five, size_t{300000});
  EXPECT_EQ(of_ten - of_five, of_fifteen - of_ten);
}

TEST(EdgeNode, DeviceBirthBeyondTheBrokersLimit_EndsTheConnectionWithBothLengths) {
  World world;
  world.pass(50);
  world.set(1, std::string(500, 'x'));
  world.broker.most_bytes = 600;
  world.pass(150);
  world.let_broker_in();
  EXPECT_EQ(world.types(), "NBIRTH");
  EXPECT_EQ(world.broker.events.back(), "drop");
  EXPECT_EQ(world.node->broker_problem(),
            "the broker takes messages of at most 600 bytes, DBIRTH has 673: raise its max_packet_size");
  EXPECT_EQ(world.node->counters().device_births, 0U);
  EXPECT_EQ(world.node->counters().values_live, 0U);
}

TEST(EdgeNode, BirthsWithinTheBrokersLimit_AreSent) {
  World world;
  world.broker.most_bytes = 600;
  world.pass(50);
  world.let_broker_in();
  EXPECT_EQ(world.types(), "NBIRTH DBIRTH");
}

}  // namespace
}  // namespace gateway_test
