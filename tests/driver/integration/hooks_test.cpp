// Tests of what programs that embed the driver use beside the entry points: the sink, tag files by path, the connect,
// the release.
#include "plc_driver_hooks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/tags/tag_table.h"
#include "tests/support/descriptors.h"
#include "tests/support/driver_build.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/sunk_lines.h"

namespace plc_test::hooks {
namespace {

constexpr const char* kWords = "A1,INT,,,a,b,c,0,1,0,0,,DM\nA2,INT,,,a,b,c,1,1,0,0,,DM\n";
constexpr const char* kIndexed = "A1,INT,,,a,b,c,0,1,0,0,,DM\nG1,INT,,,,,,262144,1,0,0,\nG2,INT,,,,,,262145,1,0,0,\n";
constexpr const char* kTableName = "PLC7F000001_0.csv";

// The two replies of a read of one word.
std::vector<PeerStep> word_read(uint8_t high = 0x12, uint8_t low = 0x34) {
  return {answer(resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}})), answer(value_reply({high, low}))};
}

// The two replies of a write.
std::vector<PeerStep> word_write() {
  return {answer(resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}})), answer(Bytes(14))};
}

class Hooks : public DriverFixture {
 protected:
  uint32_t load(const std::string& path, uint16_t area = 0, uint32_t address = kLoopbackAddress) {
    return captured([&] { return plc_driver_load_tags(address, area, path.c_str()); });
  }

  uint32_t connect() {
    return captured([&] { return plc_driver_connect(&conn_); });
  }

  uint32_t read_word(uint32_t id = 0) { return read_id(id, 0, 1, word_); }

  static TagTable* table(const char* name = kTableName) { return get_tagtable(&plc::g_plc_tags, name); }

  bool is_working_folder_empty() const { return std::filesystem::is_empty(folder_.path()); }

  TempDir elsewhere_;
  uint8_t word_[8] = {};
};

class HookSink : public Hooks {};

TEST_F(HookSink, LinesOfCalls_GoThereInsteadOfToStandardOutput) {
  start_connected(word_read());
  ASSERT_EQ(load(elsewhere_.write("t.csv", kWords)), 0U);
  take_output();
  const SunkLines sink;
  EXPECT_EQ(read_word(), 0U);
  EXPECT_EQ(read_word(9), 3U);
  EXPECT_EQ(captured([&] { return ev_plc_init(nullptr); }), 3U);
  EXPECT_EQ(take_output(), "");
  const std::string begin = "server ip = 127.0.0.1\r\n[PLC] tag id 9 is not exist in this tag list " +
                            std::string(kTableName) + ", max:2, at line: ";
  EXPECT_EQ(sink.text().substr(0, begin.size()), begin);
  EXPECT_EQ(sink.text().substr(sink.text().size() - 2), "\r\n");
}

class HookTags : public Hooks {};

TEST_F(HookTags, LoadedByPath_ServeEveryTransferWithoutAFileInTheWorkingFolder) {
  start_connected(word_read() + word_write() + word_read(0x56, 0x78));
  const std::string path = elsewhere_.write("any name at all", kWords);
  EXPECT_EQ(load(path), 0U);
  EXPECT_EQ(take_output(), "build tag table for " + path + "\r\n");
  std::filesystem::remove(path);
  EXPECT_TRUE(is_working_folder_empty());

  EXPECT_EQ(read_word(1), 0U);
  EXPECT_EQ(word_[0], 0x34);
  RegRequest request = request_for(0);
  RegValue value = {1, word_};
  EXPECT_EQ(write(&request, &value), 0U);
  BatchReadRequest element{};
  element.count = 1;
  EXPECT_EQ(read_batch(&element, 1), 0U);
  EXPECT_EQ(element.value, 0x5678U);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n");
  EXPECT_EQ(finish().size(), 6U);
}

TEST_F(HookTags, EachAddressAndArea_HasItsName) {
  start_connected({});
  const std::string path = elsewhere_.write("t.csv", kWords);
  EXPECT_EQ(load(path, 7, 0xC0A8000A), 0U);
  EXPECT_EQ(load(path, 65535, 0xFFFFFFFF), 0U);
  EXPECT_NE(table("PLCC0A8000A_7.csv"), nullptr);
  EXPECT_NE(table("PLCFFFFFFFF_65535.csv"), nullptr);
  EXPECT_EQ(table(), nullptr);
  EXPECT_EQ(read_word(), 3U) << "of another address and area";
}

TEST_F(HookTags, IndexedIds_AreFoundAsInAFileThatATransferLoads) {
  start_connected(word_read());
  ASSERT_EQ(load(elsewhere_.write("t.csv", kIndexed)), 0U);
  EXPECT_EQ(read_word(0x40000), 0U);
  EXPECT_EQ(word_[0], 0x34);
  EXPECT_EQ(table()->max_indexed_id, 0x40001U);
}

TEST_F(HookTags, PathOfAnyLength_IsTaken) {
  start({});
  elsewhere_.write("t.csv", kWords);
  std::string path = elsewhere_.path();
  while (path.size() < 3000) path += "/.";
  EXPECT_EQ(load(path + "/t.csv"), 0U);
  EXPECT_EQ(take_output(), "build tag table for " + path + "/t.csv\r\n");
  EXPECT_STREQ(table()->name, kTableName);
}

TEST_F(HookTags, SecondFileOfTheSameName_IsRefusedAndTheFirstStays) {
  start({});
  ASSERT_EQ(load(elsewhere_.write("first.csv", kWords)), 0U);
  TagTable* const first = table();
  take_output();
  EXPECT_EQ(load(elsewhere_.write("second.csv", kIndexed)), 3U);
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(table(), first);
  EXPECT_EQ(first->tag_count, 2U);
  EXPECT_EQ(load(elsewhere_.file("second.csv"), 1), 0U) << "another area";
}

TEST_F(HookTags, FileLoadedByATransfer_StaysToo) {
  write_tags(0, kWords);
  start_connected(word_read());
  ASSERT_EQ(read_word(), 0U);
  TagTable* const first = table();
  EXPECT_EQ(load(elsewhere_.write("t.csv", kIndexed)), 3U);
  EXPECT_EQ(table(), first);
}

TEST_F(HookTags, MissingFile_FailsBehindItsLines) {
  start({});
  const std::string path = elsewhere_.file("none.csv");
  EXPECT_EQ(load(path), 3U);
  const std::string lines = take_output();
  const std::string begin = "build tag table for " + path + "\r\n[PLC] open " + path + " file failed, at line: ";
  const std::string end = "\r\nbuild tag table failed!";
  EXPECT_EQ(lines.substr(0, begin.size()), begin);
  EXPECT_EQ(lines.substr(lines.size() - end.size()), end);
  EXPECT_EQ(table(), nullptr);
}

TEST_F(HookTags, EmptyFile_FailsAndTheNextOneLoads) {
  start({});
  const std::string path = elsewhere_.write("t.csv", "");
  EXPECT_EQ(load(path), 3U);
  EXPECT_EQ(take_output(), "build tag table for " + path + "\r\nbuild tag table failed!");
  EXPECT_EQ(table(), nullptr);
  elsewhere_.write("t.csv", kWords);
  EXPECT_EQ(load(path), 0U);
}

TEST_F(HookTags, AnyAllocationRefused_FailsAndKeepsNothing) {
  start({});
  const std::string path = elsewhere_.write("t.csv", kIndexed);
  for (int nth = 0; nth < 6; ++nth) {
    CapturedOutput capture;
    wrapped_calls().allocations_until_failure = nth;
    const uint32_t result = plc_driver_load_tags(kLoopbackAddress, 0, path.c_str());
    wrapped_calls().allocations_until_failure = kNever;
    capture.take();
    EXPECT_EQ(result, 3U) << nth;
    EXPECT_EQ(table(), nullptr) << nth;
  }
  EXPECT_EQ(wrapped_calls().failed_allocations, 6);
  EXPECT_EQ(load(path), 0U);
}

TEST_F(HookTags, BeforeInitOrWithoutAPath_FailWithoutALine) {
  const std::string path = elsewhere_.write("t.csv", kWords);
  EXPECT_EQ(load(path), 3U);
  EXPECT_EQ(table(), nullptr);
  start({});
  EXPECT_EQ(captured([] { return plc_driver_load_tags(kLoopbackAddress, 0, nullptr); }), 3U);
  EXPECT_EQ(take_output(), "");
}

class HookConnect : public Hooks {};

TEST_F(HookConnect, Accepted_ConnectsOnceWithoutAPause) {
  conn_.delay_ms = 500;
  start_connected({});
  EXPECT_EQ(connect(), 0U);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n");
  EXPECT_TRUE(plc::holds_own_socket(conn_));
  const int32_t socket_fd = conn_.socket_fd;
  EXPECT_EQ(connect(), 0U);
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(conn_.socket_fd, socket_fd);
  EXPECT_EQ(wrapped_calls().pauses_us.size(), 0U);
  EXPECT_EQ(finish(0).size(), 2U) << "the directory, once";
  EXPECT_EQ(peer_->connections(), 1U);
}

TEST_F(HookConnect, TransferBehindIt_UsesTheConnection) {
  start_connected(word_read());
  ASSERT_EQ(load(elsewhere_.write("t.csv", kWords)), 0U);
  EXPECT_EQ(connect(), 0U);
  take_output();
  EXPECT_EQ(read_word(), 0U);
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(finish().size(), 2U);
  EXPECT_EQ(peer_->connections(), 1U);
}

TEST_F(HookConnect, TimedOut_GivesTwoWithoutALineOfItsOwn) {
  const FullBacklog held_back;
  settings_.tcp_port = held_back.port();
  captured([&] { return ev_plc_init(&settings_); });
  take_output();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(connect(), 2U);
    EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nselect time out \r\nsend error\n");
    EXPECT_EQ(plc::init, 0U);
    EXPECT_EQ(conn_.socket_fd, -1);
  }
}

TEST_F(HookConnect, Refused_IsAConnectionToTheContractAlone) {
  {
    const LoopbackSocket nobody_listens(SOCK_STREAM, 1);
    settings_.tcp_port = nobody_listens.port();
  }
  captured([&] { return ev_plc_init(&settings_); });
  EXPECT_EQ(connect(), by_build(0U, 2U));
  EXPECT_EQ(plc::init, by_build(1U, 0U));
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(HookConnect, BeforeInitOrWithoutARecord_FailsAndTouchesNothing) {
  conn_.socket_fd = 12345;
  EXPECT_EQ(connect(), 3U);
  EXPECT_EQ(conn_.socket_fd, 12345);
  start({});
  EXPECT_EQ(captured([] { return plc_driver_connect(nullptr); }), 3U);
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(peer_->connections(), 0U);
}

class HookRelease : public Hooks {
 protected:
  // One round of use: init, tag file, connect, a read.
  void use() {
    start_connected(word_read());
    ASSERT_EQ(load(elsewhere_.write("t.csv", kIndexed)), 0U);
    ASSERT_EQ(read_word(), 0U);
    ASSERT_EQ(word_[0], 0x34);
  }

  static bool is_zero(const void* memory, size_t bytes) {
    const auto* at = static_cast<const uint8_t*>(memory);
    return std::all_of(at, at + bytes, [](uint8_t byte) { return byte == 0; });
  }

  static void expect_state_of_a_library_just_loaded() {
    EXPECT_EQ(plc::init, 0U);
    EXPECT_EQ(plc::ip_addr, 0U);
    EXPECT_EQ(plc::port, 0);
    EXPECT_EQ(plc::sid, 0);
    EXPECT_EQ(plc::tcp_settings, nullptr);
    EXPECT_TRUE(is_zero(plc::EmptyBuff, sizeof plc::EmptyBuff));
    EXPECT_TRUE(is_zero(&plc::stored_sockets, sizeof plc::stored_sockets));
    EXPECT_TRUE(is_zero(plc::LocalInfo, plc::directory_capacity * sizeof plc::LocalInfo[0]));
    EXPECT_EQ(plc::localNum, 0U);
    EXPECT_TRUE(is_zero(&plc::g_plc_tags, sizeof plc::g_plc_tags));
    EXPECT_TRUE(is_zero(plc::groupID_table, sizeof plc::groupID_table));
    EXPECT_TRUE(is_zero(plc::StringInfo, sizeof plc::StringInfo));
    EXPECT_EQ(plc::string_id, 0U);
    EXPECT_TRUE(is_zero(plc::OMRON_TEMP, sizeof plc::OMRON_TEMP));
    EXPECT_TRUE(is_zero(plc::INIT_TAG, sizeof plc::INIT_TAG));
    EXPECT_EQ(plc::batch_slots, 0U);
    EXPECT_EQ(plc::reg_init_num, 0U);
    EXPECT_EQ(plc::reg_interact_num, 0U);
    EXPECT_EQ(plc::line_sink, nullptr);
    EXPECT_EQ(plc::line_context, nullptr);
  }
};

TEST_F(HookRelease, UsedDriver_IsAsWhenLoaded) {
  use();
  plc::localNum = 2;
  plc::LocalInfo[plc::directory_capacity - 1].number = 1;
  plc::groupID_table[2047] = 1;
  plc::StringInfo[49].length = 1;
  plc::string_id = plc::reg_init_num = plc::reg_interact_num = plc::batch_slots = 1;
  plc::OMRON_TEMP[99].run = 1;
  plc::INIT_TAG[99].element = 1;
  plc::EmptyBuff[511] = 1;
  const SunkLines sink;
  const int32_t socket_fd = conn_.socket_fd;
  EXPECT_EQ(capture_output([&] { plc_driver_release(&conn_); }), "");
  EXPECT_EQ(sink.text(), "");
  EXPECT_EQ(conn_.socket_fd, -1);
  EXPECT_FALSE(is_open_descriptor(socket_fd));
  expect_state_of_a_library_just_loaded();
  EXPECT_EQ(read_word(), 3U) << "as before ev_plc_init";
}

TEST_F(HookRelease, UseBehindIt_WorksAgain) {
  for (int round = 0; round < 3; ++round) {
    use();
    EXPECT_EQ(take_output(), "build tag table for " + elsewhere_.file("t.csv") + "\r\nserver ip = 127.0.0.1\r\n");
    finish();
    plc_driver_release(&conn_);
  }
}

TEST_F(HookRelease, SecondTime_IsHarmless) {
  use();
  plc_driver_release(&conn_);
  peer_.reset();
  const int open_before = count_open_descriptors();
  plc_driver_release(&conn_);
  plc_driver_release(nullptr);
  EXPECT_EQ(count_open_descriptors(), open_before);
  EXPECT_EQ(conn_.socket_fd, -1);
  expect_state_of_a_library_just_loaded();
}

TEST_F(HookRelease, WithoutARecord_ClosesTheSocketToo) {
  use();
  const int32_t socket_fd = conn_.socket_fd;
  plc_driver_release(nullptr);
  EXPECT_FALSE(is_open_descriptor(socket_fd));
}

// Each ev_plc_init leaves the open socket to itself.
TEST_F(HookRelease, SocketsOfEarlierInits_AreClosed) {
  const int open_before = count_open_descriptors();
  start_connected(empty_directory());
  ASSERT_EQ(connect(), 0U);
  const int32_t first = conn_.socket_fd;
  captured([&] { return ev_plc_init(&settings_); });
  ASSERT_EQ(connect(), 0U);
  EXPECT_NE(conn_.socket_fd, first);
  EXPECT_TRUE(is_open_descriptor(first));
  plc_driver_release(&conn_);
  EXPECT_FALSE(is_open_descriptor(first));
  peer_.reset();
  EXPECT_EQ(count_open_descriptors(), open_before);
}

// In a zero-filled record that was never connected stands the number of the host's standard input.
TEST_F(HookRelease, DescriptorThatIsNotTheDrivers_StaysOpen) {
  conn_.socket_fd = 0;
  ASSERT_TRUE(is_open_descriptor(0));
  plc_driver_release(&conn_);
  EXPECT_TRUE(is_open_descriptor(0));
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(HookRelease, LinesBehindIt_GoToStandardOutput) {
  const SunkLines sink;
  plc_driver_release(nullptr);
  EXPECT_EQ(captured([&] { return ev_plc_init(&settings_); }), 0U);
  EXPECT_EQ(take_output(), "ev_plc_init ok\r\n");
  EXPECT_EQ(sink.text(), "");
}

}  // namespace
}  // namespace plc_test::hooks
