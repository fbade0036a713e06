// The journal of the program: what its command shows of it, and what a run tells of damage.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/tools/plc_gateway/program/program_world.h"

namespace gateway_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class GatewayProgramsJournal : public testing::Test {
 protected:
  ProgramWorld world;
};

TEST_F(GatewayProgramsJournal, ShowsWhatNoBrokerHasHeard) {
  world.start_controller();
  world.broker_port = 1;  // nothing listens there
  world.start_gateway();
  ASSERT_TRUE(world.logs("event=controller_up"));
  ASSERT_EQ(world.end_gateway(), 0);
  const plc_host_test::Outcome shown = world.run({"journal", world.folder.file("gateway.toml"), "--rows"});
  EXPECT_EQ(shown.code, 0) << shown.err;
  EXPECT_THAT(shown.out, AllOf(StartsWith("rows 1\nvalues 1\ndamaged_rows 0\nunreadable_changes 0\n"),
                               HasSubstr("\ndropped 0\nrow time kind values\n1 "), HasSubstr(" data 1\n")));
}

TEST_F(GatewayProgramsJournal, DamagedRow_IsShownWithoutFigures) {
  world.start_controller();
  world.controller->tell("set Motor.Speed 987045495");
  world.broker_port = 1;
  world.start_gateway();
  ASSERT_TRUE(world.logs("event=controller_up"));
  ASSERT_EQ(world.end_gateway(), 0);
  std::string bytes = world.folder.read("journal/journal.sqlite");
  const size_t value = bytes.find("\x77\x1E\xD5\x3A");
  ASSERT_NE(value, std::string::npos);
  bytes[value] = 'x';
  world.folder.write("journal/journal.sqlite", bytes);
  world.folder.write("journal/journal.sqlite-wal", "");  // all of it is in the database since the end
  const plc_host_test::Outcome shown = world.run({"journal", world.folder.file("gateway.toml"), "--rows"});
  EXPECT_EQ(shown.code, 0) << shown.err;
  EXPECT_THAT(shown.out, AllOf(StartsWith("rows 0\nvalues 0\ndamaged_rows 1\nunreadable_changes 0\nbytes "),
                               HasSubstr("\noldest -\ndropped 0\nrow time kind values\n1 - damaged -\n")));
}

TEST_F(GatewayProgramsJournal, DamagedLog_IsToldAtTheStart) {
  world.start_controller();
  world.broker_port = 1;
  world.start_gateway();
  ASSERT_TRUE(world.logs("event=controller_up"));
  ASSERT_EQ(world.end_gateway(), 0);
  std::string log = world.folder.read("journal/journal.sqlite-wal");
  ASSERT_GT(log.size(), 100U);
  log[100] = static_cast<char>(log[100] ^ 1);  // of the first page
  world.folder.write("journal/journal.sqlite-wal", log);
  const plc_host_test::Outcome shown = world.run({"journal", world.folder.file("gateway.toml")});
  const std::string figure = "\nunreadable_changes ";
  const size_t place = shown.out.find(figure);
  ASSERT_NE(place, std::string::npos) << shown.out;
  const std::string changes = std::to_string(std::stoi(shown.out.substr(place + figure.size())));
  EXPECT_NE(changes, "0");
  world.start_gateway();
  EXPECT_TRUE(world.logs("event=journal_log_damaged"));
  EXPECT_THAT(
      world.log(),
      HasSubstr("level=error event=journal_log_damaged folder=" + world.folder.file("journal") +
                " unreadable_changes=" + changes +
                " reason=\"a change in journal.sqlite-wal is damaged, and those behind it cannot be read\" "
                "what_to_do=\"after a power cut this may be the change that was being written; else the newest values "
                "may be lost: see what damages the disk\"\n"));
  EXPECT_EQ(world.end_gateway(), 0);
}

TEST_F(GatewayProgramsJournal, Damage_IsShownAsOneAndPutAsideByARunAlone) {
  world.controller_port = world.broker_port = 1;  // nobody is asked
  const std::string config = world.write_config();
  const std::string database = world.folder.write("journal/journal.sqlite", std::string(8192, 'x'));
  const plc_host_test::Outcome shown = world.run({"journal", config});
  EXPECT_EQ(shown.code, 8);
  EXPECT_THAT(shown.out, IsEmpty());
  EXPECT_THAT(shown.err, HasSubstr("plc-gateway: " + database +
                                   ": cannot be read: file is not a database; 'run' puts the journal aside, with what "
                                   "it holds, and makes a new one\n"));
  EXPECT_EQ(world.folder.read("journal/journal.sqlite"), std::string(8192, 'x'));
  EXPECT_FALSE(std::filesystem::exists(world.folder.file("journal/journal.damaged.1")));
  world.start_gateway();
  EXPECT_TRUE(world.logs("event=journal_damaged"));
  EXPECT_THAT(world.log(), HasSubstr("level=error event=journal_damaged folder=" + world.folder.file("journal") +
                                     " reason=\"" + database +
                                     ": cannot be opened: file is not a database\" "
                                     "what_to_do=\"the old one is kept beside the new one\"\n"));
  EXPECT_EQ(world.folder.read("journal/journal.damaged.1"), std::string(8192, 'x'));
  EXPECT_EQ(world.end_gateway(), 0);
}

}  // namespace
}  // namespace gateway_test
