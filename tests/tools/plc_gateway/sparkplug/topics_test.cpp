// Tests of the topics of an edge node.
#include "tools/plc_gateway/sparkplug/topics.h"

#include <gtest/gtest.h>

namespace {

using plc_gateway::id_problem;
using plc_gateway::Topics;

TEST(Topics, OfANodeAndItsDevice_AreTheStandards) {
  const Topics topics("Plant1", "press1-node", "press1", "scada");
  EXPECT_EQ(topics.node_birth, "spBv1.0/Plant1/NBIRTH/press1-node");
  EXPECT_EQ(topics.node_death, "spBv1.0/Plant1/NDEATH/press1-node");
  EXPECT_EQ(topics.node_data, "spBv1.0/Plant1/NDATA/press1-node");
  EXPECT_EQ(topics.node_command, "spBv1.0/Plant1/NCMD/press1-node");
  EXPECT_EQ(topics.device_birth, "spBv1.0/Plant1/DBIRTH/press1-node/press1");
  EXPECT_EQ(topics.device_death, "spBv1.0/Plant1/DDEATH/press1-node/press1");
  EXPECT_EQ(topics.device_data, "spBv1.0/Plant1/DDATA/press1-node/press1");
  EXPECT_EQ(topics.device_command, "spBv1.0/Plant1/DCMD/press1-node/press1");
  EXPECT_EQ(topics.host_state, "spBv1.0/STATE/scada");
}

TEST(Topics, WithoutAPrimaryHost_NameNoState) { EXPECT_EQ(Topics("g", "n", "d", "").host_state, ""); }

TEST(Topics, Fence_IsOutsideOfTheStandardsNamespace) {
  EXPECT_EQ(Topics("g", "n", "d", "").fence, "plc-gateway/g/n/fence");
}

TEST(Topics, IdWithAWildcardASlashOrAControlCharacter_IsRefused) {
  EXPECT_EQ(id_problem("press 1"), "");
  EXPECT_EQ(id_problem(""), "is empty");
  for (const char* id : {"a+", "#", "a/b"}) EXPECT_NE(id_problem(id), "") << id;
  EXPECT_EQ(id_problem("a\nb"), "holds a control character");
  EXPECT_EQ(id_problem("a\xE2\x80\xAE"), "holds the hidden character \\u{202e}");
  EXPECT_EQ(id_problem("\xC2\x9B"), "holds the hidden character \\u{9b}");
  EXPECT_EQ(id_problem("Pre\xC3\x9F 1"), "");
}

TEST(Topics, NameThatNoTopicMayHold_IsToldWithTheReason) {
  EXPECT_EQ(plc_gateway::name_in_topic_problem("Main/Table[0..9]"), "");
  EXPECT_EQ(plc_gateway::name_in_topic_problem("A+B"), "holds + or #, which no topic may");
  EXPECT_EQ(plc_gateway::name_in_topic_problem("A\x01"), "holds the hidden character \\x01");
}

}  // namespace
