// Tests of what all entry points share: the host's records, the lazy connect, the pause, the tag file, SIGPIPE.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <numeric>
#include <string>

#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/tags/tag_table.h"
#include "tests/support/descriptors.h"
#include "tests/support/driver_build.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/fresh_driver.h"

namespace {

using plc_test::empty_directory;
using plc_test::free_driver_tables;
using plc_test::PeerStep;
using plc_test::wrapped_calls;
using plc_test::operator+;

constexpr const char* kOneWord = "A1,INT,,,a,b,c,0,1,0,0,,DM\n";

// The two replies of a read of one word.
std::vector<PeerStep> word_read(uint8_t high = 0x12, uint8_t low = 0x34) {
  return {plc_test::answer(plc_test::resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}})),
          plc_test::answer(plc_test::value_reply({high, low}))};
}

TEST(DriverInfoTest, Numbers_AreTheFourBytesAlone) {
  DriverInfo infos[3];
  std::memset(infos, 0xEE, sizeof infos);
  EXPECT_EQ(ev_plc_driver_info(&infos[1]), 0U);
  plc_test::Bytes bytes(sizeof infos);
  std::memcpy(bytes.data(), infos, sizeof infos);
  EXPECT_EQ(plc_test::to_hex(bytes), "EE EE EE EE D2 02 01 00 EE EE EE EE");
}

TEST(DriverInfoTest, NullPointer_Fails) { EXPECT_EQ(ev_plc_driver_info(nullptr), 3U); }

TEST(PlcRegister, Call_ReturnsZeroAndPrintsNothing) {
  EXPECT_EQ(plc_test::capture_output([] { EXPECT_EQ(ev_OMRON_plc_register(), 0U); }), "");
}

class EntryPoints : public plc_test::DriverFixture {
 protected:
  // The three transfer entries on records of their own, for what they share. Writes and batches of one word.
  std::vector<std::function<uint32_t()>> transfers() {
    return {[this] { return read_id(0, 0, 1, word_); },
            [this] {
              RegRequest request = plc_test::request_for(0);
              RegValue value = {1, word_};
              return write(&request, &value);
            },
            [this] {
              BatchReadRequest element{};
              element.count = 1;
              return read_batch(&element, 1);
            }};
  }

  uint8_t word_[4] = {};
};

TEST_F(EntryPoints, Init_StoresTheSettingsAndResetsTheState) {
  plc::sid = 77;
  plc::init = 1;
  settings_ = {0, 0xC0A8000A, 50000, 0, 0};
  EXPECT_EQ(captured([&] { return ev_plc_init(&settings_); }), 0U);
  EXPECT_EQ(take_output(), "ev_plc_init ok\r\n");
  EXPECT_EQ(plc::sid, 0);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(plc::ip_addr, 0xC0A8000AU);
  EXPECT_EQ(plc::port, static_cast<int16_t>(50000));
  EXPECT_EQ(plc::tcp_settings, &settings_);
  EXPECT_EQ(plc::g_plc_tags.links.next, &plc::g_plc_tags.links);
  EXPECT_EQ(settings_.ip_address, 0xC0A8000AU);
}

TEST_F(EntryPoints, Init_LeavesDirectoryStringRecordsAndGroupNumbers) {
  plc::localNum = 3;
  plc::string_id = 4;
  plc::groupID_table[5] = 6;
  EXPECT_EQ(captured([&] { return ev_plc_init(&settings_); }), 0U);
  EXPECT_EQ(plc::localNum, 3U);
  EXPECT_EQ(plc::string_id, 4U);
  EXPECT_EQ(plc::groupID_table[5], 6U);
}

TEST_F(EntryPoints, InitWithANullPointer_FailsAndTouchesNothing) {
  plc::init = 1;
  EXPECT_EQ(captured([&] { return ev_plc_init(nullptr); }), 3U);
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(plc::init, 1U);
  EXPECT_EQ(plc::tcp_settings, nullptr);
}

TEST_F(EntryPoints, Init_ForgetsTheTagFilesWithoutFreeingThem_D8) {
  write_tags(0, kOneWord);
  start_connected(word_read());
  ASSERT_EQ(read_id(0, 0, 1, word_), 0U);
  TagTable* held = get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv");
  ASSERT_NE(held, nullptr);
  captured([&] { return ev_plc_init(&settings_); });
  EXPECT_EQ(get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv"), nullptr);
  EXPECT_STREQ(held->entries[0].name, "A1") << "whoever holds it keeps it";
  plc::free_tag_arrays(held->entries, held->indexed_groups);
  free(held->name);
  free(held);
}

TEST_F(EntryPoints, TransfersBeforeInit_FailAndTouchNothing) {
  conn_.socket_fd = 12345;
  RegRequest request = {7, 0, 2, 0x00050003};
  RegValue value = {9, word_};
  BatchReadRequest element{};
  element.reg_type = 2;
  EXPECT_EQ(read(&request, &value), 3U);
  EXPECT_EQ(write(&request, &value), 3U);
  EXPECT_EQ(read_batch(&element, 1), 3U);
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(request.reg_type, 2);
  EXPECT_EQ(element.reg_type, 2);
  EXPECT_EQ(value.count, 9U);
  EXPECT_EQ(conn_.socket_fd, 12345);
}

TEST_F(EntryPoints, NullRecords_FailAndTouchNothing) {
  start({});
  RegRequest request = {0, 0, 2, 0};
  RegValue value = {9, word_};
  RegValue without_data = {9, nullptr};
  BatchReadRequest element{};
  element.reg_type = 2;
  const auto fails = [this](const std::function<uint32_t()>& call) { EXPECT_EQ(captured(call), 3U); };
  fails([&] { return ev_plc_read(nullptr, &value, &conn_); });
  fails([&] { return ev_plc_read(&request, nullptr, &conn_); });
  fails([&] { return ev_plc_read(&request, &value, nullptr); });
  fails([&] { return ev_plc_read(&request, &without_data, &conn_); });
  fails([&] { return ev_plc_write(nullptr, &value, &conn_); });
  fails([&] { return ev_plc_write(&request, nullptr, &conn_); });
  fails([&] { return ev_plc_write(&request, &value, nullptr); });
  fails([&] { return ev_plc_write(&request, &without_data, &conn_); });
  fails([&] { return ev_OMRON_plc_read(nullptr, 1, &conn_); });
  fails([&] { return ev_OMRON_plc_read(&element, 1, nullptr); });
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(request.reg_type, 2);
  EXPECT_EQ(element.reg_type, 2);
  EXPECT_EQ(value.count, 9U);
  EXPECT_EQ(peer_->connections(), 0U);
}

TEST_F(EntryPoints, FailedConnect_PrintsTheEntrysLineAndGivesTwoEachTime) {
  write_tags(0, kOneWord);
  const plc_test::FullBacklog held_back;
  settings_.tcp_port = held_back.port();
  captured([&] { return ev_plc_init(&settings_); });
  take_output();
  const std::string begin = "server ip = 127.0.0.1\r\nselect time out \r\nsend error\n";
  const char* const lines[] = {"ev_plc_read init fail\r\n", "ev_plc_write init fail\r\n", "ev_plc_read init fail\r\n"};
  const auto calls = transfers();
  for (size_t i = 0; i < calls.size(); ++i) {
    EXPECT_EQ(calls[i](), 2U) << i;
    EXPECT_EQ(take_output(), begin + lines[i]) << i;
    EXPECT_EQ(plc::init, 0U);
  }
}

TEST_F(EntryPoints, ZeroFilledContext_DoesNotCostTheHostItsStandardInput) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const plc_test::ScopedDescriptor far_end(ends[1]);
  const plc_test::ClosedDescriptor saved(STDIN_FILENO);
  ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  close(ends[0]);
  const plc_test::FullBacklog held_back;
  settings_.tcp_port = held_back.port();
  captured([&] { return ev_plc_init(&settings_); });
  for (const auto& transfer : transfers()) {
    conn_ = ConnContext{};
    EXPECT_EQ(transfer(), 2U);
    EXPECT_EQ(conn_.socket_fd, -1);
    EXPECT_TRUE(plc_test::is_open_descriptor(STDIN_FILENO));
    uint8_t byte = 0;
    EXPECT_EQ(recv(far_end.get(), &byte, 1, MSG_DONTWAIT), -1) << "nothing was written to it";
  }
}

TEST_F(EntryPoints, ConnectWhoseDirectoryFails_CountsAsConnected_D18) {
  write_tags(0, kOneWord);
  start({plc_test::reset_connection()});
  plc::localNum = 5;
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U) << "the read's own request fails on the broken socket";
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\nsend error\n");
  EXPECT_EQ(plc::localNum, 5U);
  EXPECT_EQ(peer_->connections(), 1U);
}

TEST_F(EntryPoints, RefusedConnect_IsReportedByTheExchangesAndMendedByTheNextCall_D16) {
  write_tags(0, kOneWord);
  start(empty_directory() + word_read());
  const uint16_t served = settings_.tcp_port;
  {
    const plc_test::LoopbackSocket nobody_listens(SOCK_STREAM, 1);
    plc::port = static_cast<int16_t>(nobody_listens.port());
  }
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
  EXPECT_EQ(take_output(),
            "server ip = 127.0.0.1\r\nsend error\nbuild tag table for PLC7F000001_0.csv\r\nsend error\n");
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(conn_.socket_fd, -1);
  plc::port = static_cast<int16_t>(served);
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
}

TEST_F(EntryPoints, LowRegisterTypes_AreSetToZeroInTheHostsRecords_D37) {
  write_tags(0, kOneWord);
  start_connected(word_read() + word_read());
  RegRequest request = {0, 0xEE, 2, 0};
  RegValue value = {1, word_};
  EXPECT_EQ(read(&request, &value), 0U);
  EXPECT_EQ(request.reg_type, 0);
  EXPECT_EQ(request.host_byte, 0xEE);
  request.reg_type = 3;
  EXPECT_EQ(write(&request, &value), 0U);
  EXPECT_EQ(request.reg_type, 0);
}

TEST_F(EntryPoints, RegisterTypeFour_StaysAndIsPartOfTheId) {
  write_tags(0, kOneWord);
  start_connected({});
  RegRequest request = {0, 0, 4, 0x00050003};
  RegValue value = {1, word_};
  EXPECT_EQ(read(&request, &value), 3U);
  EXPECT_EQ(request.reg_type, 4);
  EXPECT_THAT(take_output(),
              testing::HasSubstr("tag id 262149 is not exist in this tag list PLC7F000001_0.csv, max:0"));
}

TEST_F(EntryPoints, Pause_IsTheContextsDelayUpToOneSecond) {
  write_tags(0, kOneWord);
  start_connected(word_read() + word_read() + word_read() + word_read());
  wrapped_calls().skip_pauses = true;
  const auto paused_ms = [this](uint32_t delay_ms) {
    wrapped_calls().pauses_us.clear();
    conn_.delay_ms = delay_ms;
    EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
    const std::vector<unsigned>& pauses = wrapped_calls().pauses_us;
    return std::accumulate(pauses.begin(), pauses.end(), 0U) / 1000;
  };
  EXPECT_EQ(paused_ms(4), 4U);
  EXPECT_EQ(paused_ms(5000), 1000U);
  EXPECT_EQ(paused_ms(1000), 1000U);
  EXPECT_EQ(paused_ms(2), 2U);
}

TEST_F(EntryPoints, DelayOfZeroAndOfThree_AreNoPause_D38) {
  write_tags(0, kOneWord);
  for (const uint32_t delay_ms : {0U, 3U}) {
    start_connected({});
    conn_.delay_ms = delay_ms;
    wrapped_calls().pauses_us.clear();
    peer_->extend(word_read());
    EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
    EXPECT_TRUE(wrapped_calls().pauses_us.empty()) << delay_ms;
  }
}

TEST_F(EntryPoints, DelayOfThreeAndOfFour_AreTheSameRuleInAllEntries_D38) {
  start_connected({});  // without a tag file every transfer ends behind the pause
  wrapped_calls().skip_pauses = true;
  for (const auto& transfer : transfers()) {
    conn_.delay_ms = 3;
    wrapped_calls().pauses_us.clear();
    EXPECT_EQ(transfer(), 3U);
    EXPECT_TRUE(wrapped_calls().pauses_us.empty());
    conn_.delay_ms = 4;
    EXPECT_EQ(transfer(), 3U);
    EXPECT_FALSE(wrapped_calls().pauses_us.empty());
  }
}

TEST_F(EntryPoints, TagFile_IsNamedByAddressAndArea) {
  start_connected({});
  settings_.ip_address = 0xC0A8000A;  // read on each transfer; the connection keeps the address it was given
  RegRequest request = plc_test::request_for(0);
  request.area = 1;
  RegValue value = {1, word_};
  EXPECT_EQ(read(&request, &value), 3U);
  EXPECT_THAT(take_output(),
              testing::MatchesRegex("server ip = 127.0.0.1\r\nbuild tag table for PLCC0A8000A_1.csv\r\n\\[PLC\\] open "
                                    "PLCC0A8000A_1.csv file failed, at line: [0-9]+\r\nbuild tag table failed!"));
}

TEST_F(EntryPoints, EmptyTagFile_FailsWithTheReadsLine) {
  write_tags(0, "");
  start_connected({});
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\nbuild tag table failed!");
  EXPECT_EQ(get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv"), nullptr);
}

TEST_F(EntryPoints, TableThatCannotBeRegistered_FailsWithTheEntrysLine) {
  write_tags(0, kOneWord);
  start_connected({});
  const auto refuse = [&](int nth, size_t transfer, const std::string& line) {
    wrapped_calls().allocations_until_failure = nth;
    EXPECT_EQ(transfers()[transfer](), 3U);
    EXPECT_EQ(wrapped_calls().failed_allocations, 1);
    EXPECT_THAT(take_output(), testing::EndsWith(line));
    wrapped_calls().reset();
  };
  refuse(2, 0, "malloc plc_tag failedadd_tagtable failed!");
  refuse(3, 0, "malloc name failedadd_tagtable failed!");
  refuse(2, 1, "malloc plc_tag failedadd_tagtable failed!\r\n");
  EXPECT_EQ(plc::g_plc_tags.links.next, &plc::g_plc_tags.links);
}

TEST_F(EntryPoints, TagFile_IsReadOnceUntilTheNextInit) {
  write_tags(0, kOneWord);
  start_connected(word_read() + word_read());
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_THAT(take_output(), testing::HasSubstr("build tag table for PLC7F000001_0.csv\r\n"));
  write_tags(0, "");
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(take_output(), "");
  start_connected({});
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
}

TEST_F(EntryPoints, TimeoutInARead_GivesThreeAndTheNextTransferReconnects) {
  write_tags(0, kOneWord);
  for (size_t entry = 0; entry < 3; ++entry) {
    start(empty_directory() + std::vector<PeerStep>{plc_test::stay_silent()} + empty_directory());
    // The directory's replies are waited for, the resolve reply is not.
    wrapped_calls().before_send = [this] {
      if (peer_->requests().size() == 2) conn_.recv_timeout_s = 0;
    };
    EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
    EXPECT_THAT(take_output(), testing::EndsWith("--timeout--\r\n"));
    EXPECT_EQ(plc::init, 0U);
    EXPECT_EQ(conn_.socket_fd, -1);
    wrapped_calls().reset();
    conn_.recv_timeout_s = 10;
    std::remove((folder_.path() + "/PLC7F000001_0.csv").c_str());
    free_driver_tables();
    EXPECT_EQ(transfers()[entry](), 3U) << "no tag file any more";
    EXPECT_EQ(peer_->connections(), 2U) << entry;
    EXPECT_EQ(plc::init, 1U);
    finish();
    write_tags(0, kOneWord);
    take_output();
  }
}

TEST_F(EntryPoints, EmptyReply_GivesThreeAndTheNextTransferUsesTheSameSocket) {
  write_tags(0, kOneWord);
  start_connected({plc_test::close_orderly()});
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
  EXPECT_EQ(plc::init, 1U);
  const int socket_fd = conn_.socket_fd;
  EXPECT_TRUE(plc_test::is_open_descriptor(socket_fd));
  peer_->extend(empty_directory() + word_read());
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U) << "sent on the same socket, whose end is still all there is to read";
  EXPECT_EQ(plc::init, 1U);
  EXPECT_EQ(conn_.socket_fd, socket_fd);
  // Now that the controller has refused that request, sending fails, and the call behind it connects again.
  ASSERT_TRUE(plc_test::wait_for_hangup(socket_fd));
  take_output();
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
  EXPECT_EQ(take_output(), "send error\n");
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(peer_->connections(), 2U);
}

TEST_F(EntryPoints, SecondInitWithANewAddress_ConnectsThereAndLeavesTheOldSocketOpen) {
  constexpr uint32_t kSecondAddress = 0x7F000002;
  write_tags(0, kOneWord);
  folder_.write("PLC7F000002_0.csv", "B2,INT,,,a,b,c,0,1,0,0,,DM\n");
  start_connected(word_read());
  ASSERT_EQ(read_id(0, 0, 1, word_), 0U);
  const int old_socket = conn_.socket_fd;
  plc_test::ScriptedPeer second(empty_directory() + word_read(0x56, 0x78), kSecondAddress);
  free_driver_tables();
  CommSettings settings = {0, kSecondAddress, second.port(), 0, 0};
  captured([&] { return ev_plc_init(&settings); });
  EXPECT_TRUE(plc_test::is_open_descriptor(old_socket));
  take_output();
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.2\r\nbuild tag table for PLC7F000002_0.csv\r\n");
  EXPECT_EQ(plc_test::to_hex(plc_test::Bytes(word_, word_ + 2)), "78 56");
  EXPECT_NE(conn_.socket_fd, old_socket);
  EXPECT_TRUE(plc_test::is_open_descriptor(old_socket));
  EXPECT_EQ(peer_->connections(), 1U);
  EXPECT_EQ(second.finish().size(), 4U);
}

TEST_F(EntryPoints, ManyReconnects_LeaveNoDescriptorBehind) {
  write_tags(0, kOneWord);
  const int open_before = plc_test::count_open_descriptors();
  start({});
  conn_.recv_timeout_s = 0;
  for (int i = 0; i < 20; ++i) {
    peer_->extend({plc_test::stay_silent()});
    // The directory times out, then the read finds no socket.
    EXPECT_EQ(read_id(0, 0, 1, word_), plc_test::by_build(3U, 2U));
  }
  peer_.reset();
  EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
}

// What ev_plc_init leaves of a disposition of SIGPIPE.
struct sigaction disposition_after_init(const struct sigaction& before, CommSettings* settings) {
  struct sigaction host {};
  struct sigaction after {};
  EXPECT_EQ(sigaction(SIGPIPE, &before, &host), 0);
  plc_test::capture_output([&] { EXPECT_EQ(ev_plc_init(settings), 0U); });
  EXPECT_EQ(sigaction(SIGPIPE, &host, &after), 0);
  return after;
}

void own_handler(int) {}
void own_action(int, siginfo_t*, void*) {}

TEST_F(EntryPoints, DefaultBrokenPipe_IsIgnoredFromInitOn) {
  struct sigaction before {};
  before.sa_handler = SIG_DFL;
  EXPECT_EQ(disposition_after_init(before, &settings_).sa_handler, SIG_IGN);
}

TEST_F(EntryPoints, IgnoredBrokenPipe_StaysIgnored) {
  struct sigaction before {};
  before.sa_handler = SIG_IGN;
  EXPECT_EQ(disposition_after_init(before, &settings_).sa_handler, SIG_IGN);
}

TEST_F(EntryPoints, HostsOwnBrokenPipeHandler_IsLeftAlone) {
  struct sigaction before {};
  before.sa_handler = own_handler;
  EXPECT_EQ(disposition_after_init(before, &settings_).sa_handler, &own_handler);
  struct sigaction with_details {};
  with_details.sa_sigaction = own_action;
  with_details.sa_flags = SA_SIGINFO | SA_RESTART;
  const struct sigaction after = disposition_after_init(with_details, &settings_);
  EXPECT_EQ(after.sa_sigaction, &own_action);
  EXPECT_EQ(after.sa_flags & (SA_SIGINFO | SA_RESTART), SA_SIGINFO | SA_RESTART);
}

TEST_F(EntryPoints, ControllerThatIsSwitchedOff_DoesNotEndTheHost) {
  write_tags(0, kOneWord);
  struct sigaction host {};
  struct sigaction by_default {};
  by_default.sa_handler = SIG_DFL;
  ASSERT_EQ(sigaction(SIGPIPE, &by_default, &host), 0);
  start(empty_directory() + std::vector<PeerStep>{plc_test::answer_and_reset(plc_test::resolve_reply({{0x40, {}}}),
                                                                             plc_test::ReplyForm::kComplete)});
  wrapped_calls().before_send = [this] {
    if (peer_->requests().size() == 3) {
      EXPECT_TRUE(plc_test::wait_for_end(conn_.socket_fd));
    }
  };
  EXPECT_EQ(read_id(0, 0, 1, word_), 3U);
  // The guarded build may meet the reset before it sends.
  EXPECT_THAT(take_output(), testing::AnyOf(testing::EndsWith("send error\n"),
                                            testing::EndsWith("[PLC] guard: connection lost, error 104\r\n")));
  EXPECT_EQ(sigaction(SIGPIPE, &host, nullptr), 0);
}

TEST_F(EntryPoints, OneReadAfterTheConnect_TakesExactlyEightCalls) {
  write_tags(0, kOneWord);
  start_connected(word_read() + word_read());
  ASSERT_EQ(read_id(0, 0, 1, word_), 0U);
  wrapped_calls().exchange_calls.clear();
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(wrapped_calls().exchange_calls,
            (std::vector<std::string>{"select", "send", "select", "recv", "select", "send", "select", "recv"}));
}

TEST_F(EntryPoints, OneReadAfterTheConnect_AllocatesNothing) {
  write_tags(0, kOneWord);
  start_connected(word_read() + word_read());
  ASSERT_EQ(read_id(0, 0, 1, word_), 0U);
  wrapped_calls().allocations_until_failure = 0;
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(wrapped_calls().failed_allocations, 0);
}

}  // namespace
