// What visitors of the page may take: connections, time, and the names under which they look for it.
#include "tools/plc_sim/page/web_server.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>

#include "tests/tools/plc_sim/plc_sim_process.h"

namespace plc_sim {
namespace {

using test::HostSocket;

// A server on a loop of its own, which runs as long as a test waits.
class Bound {
 public:
  explicit Bound(WebLimits limits, const std::string& body = "hello\n")
      : server_(
            &loop_, [body](const WebRequest&) { return plain_answer(200, body); }, limits) {
    uv_loop_init(&loop_);
    uv_timer_init(&loop_, &tick_);
    tick_.data = this;
    begun_ = uv_now(&loop_);
    uv_timer_start(
        &tick_, [](uv_timer_t* timer) { static_cast<Bound*>(timer->data)->look_at_the_time(); }, kTickMs, kTickMs);
    EXPECT_EQ(server_.listen("127.0.0.1", 0), "");
  }
  Bound(const Bound&) = delete;
  Bound& operator=(const Bound&) = delete;
  ~Bound() {
    server_.stop();
    uv_close(reinterpret_cast<uv_handle_t*>(&tick_), nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    EXPECT_EQ(uv_loop_close(&loop_), 0);
  }

  std::unique_ptr<HostSocket> visit(const std::string& text) const {
    auto visitor = std::make_unique<HostSocket>(server_.port());
    visitor->send(Bytes(text.begin(), text.end()));
    return visitor;
  }
  std::string request() const {
    return "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server_.port()) + "\r\n\r\n";
  }
  // What the visitor gets until its connection ends, or "nothing" when that does not happen.
  // Meanwhile the visitor sends these bytes again and again.
  std::string wait_for(const HostSocket& visitor, const std::string& more = "") {
    std::string text;
    uint64_t sent_ms = 0;
    while (!is_over_) {
      // As slowly as a tick: a visitor who sends what he can fills the room for a request first.
      if (!more.empty() && uv_now(&loop_) - sent_ms >= kTickMs) {
        visitor.send(Bytes(more.begin(), more.end()));
        sent_ms = uv_now(&loop_);
      }
      char part[4096];
      const ssize_t count = recv(visitor.descriptor(), part, sizeof part, MSG_DONTWAIT);
      if (count > 0) {
        text.append(part, static_cast<size_t>(count));
      } else if (count < 0 && errno == EAGAIN) {
        uv_run(&loop_, UV_RUN_ONCE);
      } else {
        return text;
      }
    }
    return "nothing";
  }

  void run_until_nobody_visits() {
    do {
      uv_run(&loop_, UV_RUN_ONCE);
    } while (server_.visitors() > 0 && !is_over_);
    EXPECT_FALSE(is_over_);
  }

 private:
  // A run of the loop may close a visitor by a timer that was due as it began, and then waits for what comes next:
  // without a tick, that would be the end of the test.
  static constexpr uint64_t kTickMs = 10;
  static constexpr uint64_t kWholeTestMs = 60000;

  void look_at_the_time() { is_over_ = uv_now(&loop_) - begun_ > kWholeTestMs; }

  uv_loop_t loop_{};
  uv_timer_t tick_{};
  uint64_t begun_ = 0;
  bool is_over_ = false;
  WebServer server_;
};

bool is_open(const HostSocket& visitor) {
  char byte = 0;
  return recv(visitor.descriptor(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
}

WebLimits limits_of(unsigned connections, unsigned per_address, unsigned idle_seconds) {
  WebLimits limits;
  limits.connections = connections;
  limits.connections_per_address = per_address;
  limits.idle_seconds = idle_seconds;
  return limits;
}

TEST(WebServer, VisitorWithoutAWholeRequest_IsClosedInTime) {
  Bound bound(limits_of(8, 8, 1));
  const auto idle = bound.visit("");
  const auto half = bound.visit("GET / HTTP/1.1\r\nHost:");
  const auto half_body = bound.visit("POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\nset");
  EXPECT_EQ(bound.wait_for(*idle), "");
  EXPECT_EQ(bound.wait_for(*half), "");
  EXPECT_EQ(bound.wait_for(*half_body), "");
}

// Never silent for long, and never done.
TEST(WebServer, VisitorWhoSendsAByteNowAndThen_IsClosedInTime) {
  WebLimits limits = limits_of(8, 8, 60);
  limits.whole_seconds = 1;
  Bound bound(limits);
  const auto slow = bound.visit("GET / HTTP/1.1\r\nX: ");
  EXPECT_EQ(bound.wait_for(*slow, "x"), "");
  EXPECT_THAT(bound.wait_for(*bound.visit(bound.request())), testing::EndsWith("\r\n\r\nhello\n"));
}

// Only the head of its answer fits the buffers.
TEST(WebServer, VisitorWhoDoesNotTakeTheAnswer_IsClosedInTime) {
  WebLimits limits = limits_of(8, 8, 60);
  limits.whole_seconds = 1;
  Bound bound(limits, std::string(size_t{32} << 20U, 'x'));
  const auto silent = bound.visit(bound.request());
  bound.run_until_nobody_visits();
  EXPECT_LT(bound.wait_for(*silent).size(), size_t{32} << 20U);
}

TEST(WebServer, VisitorsOfOneAddressAboveItsLimit_AreClosedAsTheyCome) {
  Bound bound(limits_of(8, 2, 60));
  const auto first = bound.visit("");
  const auto second = bound.visit("");
  EXPECT_EQ(bound.wait_for(*bound.visit(bound.request())), "");
  EXPECT_TRUE(is_open(*first));
  EXPECT_TRUE(is_open(*second));
}

TEST(WebServer, VisitorsAboveTheLimitOfAll_WaitUntilOneHasLeft) {
  Bound bound(limits_of(2, 8, 1));
  const auto first = bound.visit("");
  const auto second = bound.visit("");
  const auto third = bound.visit(bound.request());
  EXPECT_THAT(bound.wait_for(*third), testing::EndsWith("\r\n\r\nhello\n"));
  EXPECT_FALSE(is_open(*first) && is_open(*second));
}

TEST(WebServer, Stop_ClosesVisitorsInTheMiddleOfTheirRequests) {
  std::unique_ptr<HostSocket> half;
  {
    Bound bound(limits_of(8, 8, 60));
    half = bound.visit("POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\nset");
    EXPECT_THAT(bound.wait_for(*bound.visit(bound.request())), testing::EndsWith("\r\n\r\nhello\n"));
    EXPECT_TRUE(is_open(*half));
  }
  EXPECT_TRUE(half->receive().empty());
  EXPECT_FALSE(is_open(*half));
}

WebRequest request_to(const std::string& host) {
  WebRequest request;
  request.host = host;
  request.reached_at = "192.0.2.7";
  return request;
}

TEST(VisitorCheck, AddressGivenAndAddressReached_AreThePages) {
  const ServedAt served_at{"198.51.100.3", 8080};
  EXPECT_FALSE(refuse_foreign(request_to("198.51.100.3:8080"), served_at));
  EXPECT_FALSE(refuse_foreign(request_to("192.0.2.7:8080"), served_at));
  const auto refusal = refuse_foreign(request_to("192.0.2.8:8080"), served_at);
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->status, 403);
  EXPECT_EQ(refusal->body,
            "plc-sim: the page is not served under the host name of this request; open http://192.0.2.7:8080/ "
            "instead\n");
}

TEST(VisitorCheck, PortOfHttp_MayBeLeftOut) {
  const ServedAt served_at{"198.51.100.3", 80};
  EXPECT_FALSE(refuse_foreign(request_to("localhost"), served_at));
  EXPECT_FALSE(refuse_foreign(request_to("localhost:80"), served_at));
  EXPECT_TRUE(refuse_foreign(request_to("localhost:8080"), served_at));
  EXPECT_TRUE(refuse_foreign(request_to("elsewhere.example"), served_at));
}

}  // namespace
}  // namespace plc_sim
