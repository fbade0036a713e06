// What the guarded build takes for a connection: connected, and the directory of programs fetched whole.
#include <cerrno>

#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/link/directory.h"
#include "tests/driver/guarded/guarded_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class GuardedConnect : public GuardedTest {
 protected:
  // A read whose connect does not come about: 2, its lines, nothing left open, and the next one connects anew.
  void expect_no_connection(const std::string& lines) {
    EXPECT_EQ(read(0), kNoConnect);
    EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n" + lines +
                                 "[PLC] guard: no connection without the directory of programs\r\n"
                                 "ev_plc_read init fail\r\n");
    EXPECT_EQ(conn_.socket_fd, -1);
    EXPECT_FALSE(socket_.is_open());
    EXPECT_TRUE(buffer_.holds_only(0x77));
    for (const unsigned kind : {kDirectoryStart, kDirectory}) {
      answer(kind, [this](const Bytes& request) { return std::vector<Arrival>{piece(healthy_reply(request))}; });
    }
    EXPECT_EQ(read(0), kOk) << output_;
  }
};

TEST_F(GuardedConnect, DirectoryRequests_AreAnsweredUnderTheirFixedNumbers) {
  EXPECT_EQ(read(0), kOk);
  const std::vector<Bytes> requests = take_requests();
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_EQ(to_hex(requests[0]), "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  EXPECT_EQ(to_hex(requests[1]), "00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00");
}

TEST_F(GuardedConnect, StartThatIsNotAnswered_IsNoConnection) {
  answer(kDirectoryStart, [](const Bytes&) { return std::vector<Arrival>{}; });
  expect_no_connection("--timeout--\r\n");
}

TEST_F(GuardedConnect, DirectoryThatIsNotAnswered_IsNoConnection) {
  answer(kDirectory, [](const Bytes&) { return std::vector<Arrival>{}; });
  expect_no_connection("--timeout--\r\n");
}

TEST_F(GuardedConnect, StartThatIsRefused_IsNoConnection) {
  answer(kDirectoryStart,
         [](const Bytes& request) { return std::vector<Arrival>{piece(reply_to(request, {}, 0x0100))}; });
  expect_no_connection("[PLC] guard: controller refused the directory, status 0100\r\n");
}

TEST_F(GuardedConnect, DirectoryThatIsRefused_IsNoConnection) {
  answer(kDirectory, [](const Bytes& request) { return std::vector<Arrival>{piece(reply_to(request, {0}, 1))}; });
  expect_no_connection("[PLC] guard: controller refused the directory, status 0001\r\n");
}

TEST_F(GuardedConnect, AnotherDevice_IsNoConnection) {
  answer(kDirectoryStart, [](const Bytes&) { return std::vector<Arrival>{piece(Bytes(20, 'x'))}; });
  expect_no_connection("[PLC] guard: not a reply of this protocol\r\n");
}

TEST_F(GuardedConnect, Refused_IsNoConnection) {
  socket_.connect_error = ECONNREFUSED;
  expect_no_connection("[PLC] guard: connect refused\r\nsend error\n");
}

TEST_F(GuardedConnect, NoRoute_IsNoConnection) {
  for (const int error : {EHOSTUNREACH, ENETUNREACH}) {
    use_tags("Word,INT,,,a,b,c,0,1,0,0,,DM\n");
    buffer_ = GuardedBuffer(16, 0x77);
    output_.clear();
    plc::close_connection(&conn_);
    socket_.connect_error = error;
    expect_no_connection("[PLC] guard: no route to the controller\r\nsend error\n");
  }
}

TEST_F(GuardedConnect, ByItself_ReturnsZeroOrMinusOne) {
  int result = 1;
  capture_output([&] { result = KV8000_init(&conn_); });
  EXPECT_EQ(result, 0);
  plc::close_connection(&conn_);
  answer(kDirectory, [](const Bytes&) { return std::vector<Arrival>{}; });
  capture_output([&] { result = KV8000_init(&conn_); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(GuardedConnect, ThatTakesTooLong_IsNoConnectionWhateverNumberTheHostHad) {
  for (const int number : {-1, 7, TimedSocket::kDescriptor}) {
    conn_.socket_fd = number;
    socket_.connect_error = EINPROGRESS;
    EXPECT_EQ(read(0), kNoConnect);
    EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nselect time out \r\nsend error\nev_plc_read init fail\r\n");
    EXPECT_EQ(conn_.socket_fd, -1);
    EXPECT_FALSE(socket_.is_open());
    EXPECT_TRUE(take_requests().empty());
  }
  EXPECT_EQ(read(0), kOk) << output_;
}

TEST_F(GuardedConnect, OtherError_IsTold) {
  socket_.connect_error = EACCES;
  expect_no_connection("[PLC] guard: connect failed, error " + std::to_string(EACCES) + "\r\nsend error\n");
}

}  // namespace
}  // namespace plc_test
