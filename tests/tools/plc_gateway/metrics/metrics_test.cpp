// The gateway's figures as Prometheus reads them, and the server that gives them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/loopback.h"
#include "tests/tools/plc_gateway/broker/loop_run.h"
#include "tools/plc_gateway/metrics/metrics_server.h"
#include "tools/plc_gateway/metrics/metrics_text.h"

namespace gateway_test {
namespace {

using plc_gateway::Counters;
using plc_gateway::MetricsAnswer;
using plc_gateway::MetricsLimits;
using plc_gateway::MetricsServer;
using plc_gateway::MetricsView;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST(MetricsText, Figures_StandUnderTheirNamesAndLabels) {
  Counters counters;
  counters.groups.resize(2);
  counters.groups[1].skipped = 7;
  counters.groups[1].longest_ms = 1500;
  counters.failures[static_cast<size_t>(plc_client::Reason::kNoAnswer)] = 4;
  counters.values_historical = 12;
  counters.commands["not-listed"] = 3;
  MetricsView view;
  view.counters = &counters;
  view.periods = {500, 1000};
  view.device = "press \"1\"\\\n";
  view.journal.oldest = 1000;
  view.journal.dropped = 9;
  view.journal.removed = 1;
  view.journal.unreadable_changes = 4;
  view.now = 3500;
  const std::string text = metrics_text(view);
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_polls_skipped_total{poll=\"1\",every_ms=\"1000\"} 7\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_poll_longest_seconds{poll=\"1\",every_ms=\"1000\"} 1.5\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_read_failures_total{reason=\"no-answer\"} 4\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_values_published_total{kind=\"historical\"} 12\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_commands_total{result=\"not-listed\"} 3\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_journal_oldest_age_seconds 2.5\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_journal_dropped_values_total 9\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_journal_removed 1\n"));
  EXPECT_THAT(text, HasSubstr("\nplc_gateway_journal_unreadable_changes 4\n"));
  EXPECT_THAT(text, HasSubstr("device=\"press \\\"1\\\"\\\\\\n\"} 1\n"));
}

TEST(MetricsText, EmptyJournal_HasNoAge) {
  const Counters counters;
  MetricsView view;
  view.counters = &counters;
  view.now = 3500;
  EXPECT_THAT(metrics_text(view), HasSubstr("\nplc_gateway_journal_oldest_age_seconds 0\n"));
}

// A visitor in the same thread as the server: what it sends waits in the socket.
class Visitor {
 public:
  explicit Visitor(uint16_t port, const std::string& request)
      : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(plc_test::kLoopbackAddress);
    connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    send(socket_.get(), request.data(), request.size(), MSG_NOSIGNAL);
  }
  // All that came, when the server has hung up.
  bool is_done() {
    char buffer[4096];
    for (;;) {
      const ssize_t count = recv(socket_.get(), buffer, sizeof buffer, MSG_DONTWAIT);
      if (count <= 0) return count == 0 || errno == ECONNRESET;
      answer.append(buffer, static_cast<size_t>(count));
    }
  }

  std::string answer;

 private:
  plc_test::ScopedDescriptor socket_;
};

class MetricsServerTest : public testing::Test {
 protected:
  void serve(MetricsLimits limits = {}, const std::string& host = "127.0.0.1") {
    server = std::make_unique<MetricsServer>(
        loop.get(),
        [](const std::string& path) {
          MetricsAnswer answer;
          answer.body = "you asked for " + path;
          return answer;
        },
        limits);
    ASSERT_EQ(server->listen(host, 0), "");
  }
  void TearDown() override {
    server->stop();
    uv_run(loop.get(), UV_RUN_DEFAULT);
  }
  std::string answer_to(const std::string& request) {
    Visitor visitor(server->port(), request);
    EXPECT_TRUE(loop.run_until([&] { return visitor.is_done(); }));
    return visitor.answer;
  }

  TestLoop loop;
  std::unique_ptr<MetricsServer> server;
};

TEST_F(MetricsServerTest, Get_IsAnsweredAndTheConnectionClosed) {
  serve();
  const std::string answer = answer_to("GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: text/plain; charset=utf-8\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\nyou asked for /metrics"));
}

TEST_F(MetricsServerTest, WebSitesWhoseNameMeansThisMachine_AreNotAnswered) {
  serve();
  for (const char* host : {"evil.example", "evil.example:9600", "localhost.evil.example", "127.0.0.1.evil.example", "",
                           "[::1", "[evil]", "[]", "x@127.0.0.1"}) {
    const std::string answer = answer_to("GET /metrics HTTP/1.1\r\nHost: " + std::string(host) + "\r\n\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 403 ")) << host;
    EXPECT_THAT(answer, Not(HasSubstr("you asked"))) << host;
  }
}

TEST_F(MetricsServerTest, AddressesAndLocalhost_AreAnswered) {
  serve();
  for (const char* host : {"127.0.0.1", "127.0.0.1:9600", "[::1]:9600", "[::1]", "LocalHost:1"}) {
    EXPECT_THAT(answer_to("GET /m HTTP/1.1\r\nHost: " + std::string(host) + "\r\n\r\n"), EndsWith("asked for /m"));
  }
  EXPECT_THAT(answer_to("GET /m HTTP/1.0\r\n\r\n"), EndsWith("asked for /m"));
}

// Who may reach it there reads it under whatever name the network has for this machine.
TEST_F(MetricsServerTest, AddressOfANetwork_IsServedUnderAnyName) {
  serve({}, "0.0.0.0");
  EXPECT_THAT(answer_to("GET /m HTTP/1.1\r\nHost: press1.plant\r\n\r\n"), EndsWith("asked for /m"));
}

TEST_F(MetricsServerTest, AddressOfThisMachineWrittenAsIpv6_IsServedUnderNoOtherName) {
  serve({}, "::ffff:127.0.0.1");
  EXPECT_THAT(answer_to("GET /m HTTP/1.1\r\nHost: evil.example\r\n\r\n"), StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(answer_to("GET /m HTTP/1.1\r\nHost: localhost\r\n\r\n"), EndsWith("asked for /m"));
}

TEST_F(MetricsServerTest, AnythingButGetAndHead_IsRefused) {
  serve();
  for (const char* method : {"POST", "PUT", "DELETE"}) {
    const std::string answer =
        answer_to(std::string(method) + " / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 "));
    EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n"));
  }
}

TEST_F(MetricsServerTest, VisitorThatNeverAsks_IsSentAway) {
  MetricsLimits limits;
  limits.whole_seconds = 0;
  serve(limits);
  EXPECT_THAT(answer_to("GET /met"), IsEmpty());
}

TEST_F(MetricsServerTest, VisitorsBeyondTheirNumber_AreClosed) {
  MetricsLimits limits;
  limits.connections_per_address = 2;
  serve(limits);
  Visitor first(server->port(), "GET /1");
  Visitor second(server->port(), "GET /2");
  EXPECT_THAT(answer_to("GET /3 HTTP/1.1\r\nHost: localhost\r\n\r\n"), IsEmpty());
}

TEST_F(MetricsServerTest, AddressThatIsNone_IsTold) {
  serve();
  MetricsServer other(loop.get(), nullptr);
  EXPECT_EQ(other.listen("not.an.address", 80), "invalid argument");
  EXPECT_EQ(other.listen("127.0.0.1", server->port()), "address already in use");
}

}  // namespace
}  // namespace gateway_test
