// The page of plc-sim over real connections: what it answers, to whom, and that visitors do not disturb the controller.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim {
namespace {

using nlohmann::json;
using plc_test::kDirectoryStart;
using test::HostSocket;
using test::PlcSimProcess;
using test::TemporaryFile;
using test::to_hex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPageTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nL,INT,[1..3],,a,b,c,1,0,0,5,MAIN,\na&b=c d,INT,,,a,b,c,2,1\n";

struct Reply {
  std::string head;  // with the status line
  std::string body;
};

// Everything that comes until the end of the connection.
std::string receive_all(const HostSocket& visitor) {
  std::string text;
  for (Bytes part = visitor.receive(); !part.empty(); part = visitor.receive()) text.append(part.begin(), part.end());
  return text;
}

void send_text(const HostSocket& visitor, const std::string& text) { visitor.send(Bytes(text.begin(), text.end())); }

struct Served {
  explicit Served(const std::string& web = "127.0.0.1:0", const std::string& declared = kPageTags)
      : tags(declared), sim({"--allow-remote", "--web", web, tags.path()}) {
    port = PlcSimProcess::port_in(sim.read_line());
    web_line = sim.read_line();
    web_port = PlcSimProcess::port_in(web_line);
    host = "127.0.0.1:" + std::to_string(web_port);
  }

  Reply browse(const std::string& request) const {
    const HostSocket visitor(web_port);
    send_text(visitor, request);
    const std::string text = receive_all(visitor);
    const size_t end = std::min(text.find("\r\n\r\n"), text.size());
    return {text.substr(0, end) + "\r\n", text.substr(std::min(end + 4, text.size()))};
  }
  // A request of a browser that has the page open, without a body.
  Reply ask(const std::string& method_and_target, const std::string& more_headers = "") const {
    return browse(method_and_target + " HTTP/1.1\r\nHost: " + host + "\r\n" + more_headers + "\r\n");
  }
  std::string command_request(const std::string& line, const std::string& headers) const {
    return "POST /command HTTP/1.1\r\nHost: " + host + "\r\n" + headers +
           "Content-Length: " + std::to_string(line.size()) + "\r\n\r\n" + line;
  }
  Reply command(const std::string& line, const std::string& headers = "X-Plc-Sim: 1\r\n") const {
    return browse(command_request(line, headers));
  }

  // As soon as a visitor is let in: the page learns one by one that those before have gone.
  std::string style_sheet() const {
    for (int i = 0; i < 1000; ++i) {
      const Reply reply = ask("GET /page.css");
      if (!reply.body.empty()) return reply.body;
    }
    return "";
  }

  TemporaryFile tags;
  PlcSimProcess sim;
  uint16_t port = 0;
  std::string web_line;
  uint16_t web_port = 0;
  std::string host;
};

std::string source_of(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(std::string(PLC_PAGE_DIR) + "/" + name, std::ios::binary).rdbuf();
  return text.str();
}

TEST(Page, Files_AreServedAsTheyAreWithTheirTypes) {
  const Served served;
  EXPECT_EQ(served.web_line, "web on http://" + served.host + "/");
  const std::vector<std::vector<std::string>> files{{"/", "index.html", "text/html; charset=utf-8"},
                                                    {"/page.css", "page.css", "text/css; charset=utf-8"},
                                                    {"/page.js", "page.js", "text/javascript; charset=utf-8"}};
  for (const auto& file : files) {
    const Reply reply = served.ask("GET " + file[0]);
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nContent-Type: " + file[2] + "\r\n"));
    EXPECT_FALSE(reply.body.empty());
    EXPECT_EQ(reply.body, source_of(file[1]));
  }
}

TEST(Page, EveryAnswer_TellsBrowsersToRunThePageAloneAndKeepNothing) {
  const Served served;
  for (const char* what : {"GET /", "GET /state", "GET /nothing", "POST /"}) {
    const Reply reply = served.ask(what);
    EXPECT_THAT(reply.head, HasSubstr("\r\nContent-Security-Policy: default-src 'none'; script-src 'self'; style-src "
                                      "'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                                      "frame-ancestors 'none'\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nX-Frame-Options: DENY\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nCross-Origin-Resource-Policy: same-origin\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nReferrer-Policy: no-referrer\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nX-Content-Type-Options: nosniff\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nCache-Control: no-store\r\n"));
    EXPECT_THAT(reply.head, HasSubstr("\r\nConnection: close\r\n"));
  }
}

TEST(Page, Commands_SetVariablesAndSwitchFaultsOn) {
  Served served;
  EXPECT_EQ(served.command("set D 77").body, "ok\n");
  EXPECT_EQ(served.sim.command("show D"), "D = 77\n");
  EXPECT_EQ(served.command("set D 99999").body, "error: '99999' is no INT value: outside -32768 to 32767\n");
  EXPECT_EQ(served.command("set D 78\n").body, "ok\n");
  EXPECT_EQ(served.sim.command("show D"), "D = 78\n");
  EXPECT_EQ(served.command("fault no-reply").body, "ok\n");
  const Reply reply = served.ask("GET /state");
  EXPECT_THAT(reply.head, HasSubstr("\r\nContent-Type: application/json\r\n"));
  EXPECT_EQ(json::parse(reply.body).at("armed"), json::array({"no-reply, 1 time more"}));
  EXPECT_EQ(served.sim.finish(), 0);
}

TEST(Page, SecondLineOfACommand_IsRefusedAndNoneIsObeyed) {
  Served served;
  const Reply reply = served.command("set D 78\nset D 79");
  EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 400 Bad Request\r\n"));
  EXPECT_EQ(reply.body, "plc-sim: a request has one command: this one has more lines, and none was obeyed\n");
  EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
  EXPECT_EQ(served.sim.finish(), 0);
}

TEST(Page, State_HasTheVariablesWhoseNameContainsTheQuery) {
  const Served served;
  const auto names = [&](const std::string& query) {
    std::vector<std::string> found;
    const json state = json::parse(served.ask("GET /state" + query).body);
    for (const json& element : state.at("elements")) found.push_back(element.at("name"));
    return found;
  };
  EXPECT_THAT(names(""), testing::ElementsAre("D", "MAIN/L[1]", "MAIN/L[2]", "MAIN/L[3]", "a&b=c d"));
  EXPECT_THAT(names("?L"), testing::ElementsAre("MAIN/L[1]", "MAIN/L[2]", "MAIN/L[3]"));
  EXPECT_THAT(names("?%4C%5B2"), testing::ElementsAre("MAIN/L[2]"));
  for (const char* query : {"?a&b=c+d", "?a%26b%3Dc%20d", "?b=", "?&b", "?c+d"}) {
    EXPECT_THAT(names(query), testing::ElementsAre("a&b=c d")) << query;
  }
  EXPECT_THAT(names("?Nobody"), testing::IsEmpty());
}

TEST(Page, State_CutsALongValueBetweenTwoCharacters) {
  Served served("127.0.0.1:0", "T,STRING,,400,a,b,c,0,1\n");
  std::string value;
  while (value.size() < 400) value += "\xC3\xA9";
  EXPECT_EQ(served.sim.command("set T " + value), "");
  const json state = json::parse(served.ask("GET /state").body);
  EXPECT_EQ(state.at("elements").at(0).at("text"), '"' + value.substr(0, 298) + "... (402 bytes)");
}

TEST(Page, State_NamesThePortAndTheFiles) {
  const Served served;
  const json state = json::parse(served.ask("GET /state").body);
  EXPECT_EQ(state.at("listening"), "127.0.0.1:" + std::to_string(served.port));
  EXPECT_EQ(state.at("files"), json::array({served.tags.path()}));
  EXPECT_EQ(state.at("replay"), "");
}

TEST(Page, CommandsThatAreNotThePages_AreRefused) {
  Served served;
  const Reply bare = served.command("set D 77", "");
  EXPECT_THAT(bare.head, StartsWith("HTTP/1.1 403 Forbidden\r\n"));
  EXPECT_EQ(bare.body, "plc-sim: commands come from the page itself\n");
  const Reply quit = served.command("quit");
  EXPECT_THAT(quit.head, StartsWith("HTTP/1.1 403 Forbidden\r\n"));
  EXPECT_EQ(quit.body, "plc-sim: only set and fault can be used here\n");
  EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
}

TEST(Page, WrongMethodsAndPaths_AreRefused) {
  const Served served;
  const Reply read_command = served.ask("GET /command");
  EXPECT_THAT(read_command.head, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n"));
  EXPECT_THAT(read_command.head, HasSubstr("\r\nAllow: POST\r\n"));
  EXPECT_EQ(read_command.body, "plc-sim: commands are posted\n");
  for (const char* path : {"/", "/page.css", "/page.js", "/state"}) {
    const Reply posted = served.ask(std::string("POST ") + path, "Content-Length: 0\r\n");
    EXPECT_THAT(posted.head, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n")) << path;
    EXPECT_THAT(posted.head, HasSubstr("\r\nAllow: GET, HEAD\r\n")) << path;
    EXPECT_EQ(posted.body, "plc-sim: this is read with GET\n") << path;
    const Reply head = served.ask(std::string("HEAD ") + path);
    EXPECT_THAT(head.head, StartsWith("HTTP/1.1 200 OK\r\n")) << path;
    EXPECT_EQ(head.body, "") << path;
  }
  for (const char* path : {"/etc/passwd", "/index.html", "/page.css/", "/command/", "/../page.js"}) {
    const Reply reply = served.ask(std::string("GET ") + path);
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 404 Not Found\r\n")) << path;
    EXPECT_EQ(reply.body, "plc-sim: there is nothing here\n") << path;
  }
}

TEST(Page, HostsOfOtherNames_AreToldWhereThePageIs) {
  Served served;
  const std::string port = std::to_string(served.web_port);
  const auto with_host = [&](const std::string& header) {
    return served.browse("GET / HTTP/1.1\r\n" + header + "\r\n");
  };
  for (const char* name : {"localhost", "LocalHost", "127.0.0.1", "[::1]"}) {
    EXPECT_THAT(with_host("Host: " + std::string(name) + ":" + port + "\r\n").head, StartsWith("HTTP/1.1 200 OK\r\n"))
        << name;
  }
  for (const std::string& header :
       {"Host: elsewhere.example:" + port + "\r\n", "Host: localhost.elsewhere.example:" + port + "\r\n",
        "Host: 192.0.2.1:" + port + "\r\n", "Host: localhost:1" + port + "\r\n", std::string("Host: 127.0.0.1\r\n"),
        std::string("Host: localhost\r\n"), std::string("Host: \r\n"), "Host: :" + port + "\r\n", std::string()}) {
    const Reply reply = with_host(header);
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 403 Forbidden\r\n")) << header;
    EXPECT_EQ(reply.body, "plc-sim: the page is not served under the host name of this request; open http://" +
                              served.host + "/ instead\n")
        << header;
  }
}

TEST(Page, OtherPagesOfTheSameBrowser_CannotAsk) {
  Served served;
  EXPECT_EQ(served.command("set D 1", "X-Plc-Sim: 1\r\nOrigin: http://" + served.host + "\r\n").body, "ok\n");
  for (const std::string& origin : {std::string("http://elsewhere.example"), std::string("null"),
                                    "https://" + served.host, "http://localhost:" + std::to_string(served.web_port),
                                    "http://" + served.host + ".elsewhere.example", std::string()}) {
    const Reply reply = served.command("set D 2", "X-Plc-Sim: 1\r\nOrigin: " + origin + "\r\n");
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 403 Forbidden\r\n")) << origin;
    EXPECT_EQ(reply.body,
              "plc-sim: pages from elsewhere cannot use this one; open http://" + served.host + "/ instead\n")
        << origin;
    EXPECT_THAT(served.ask("GET /state", "Origin: " + origin + "\r\n").head, StartsWith("HTTP/1.1 403 Forbidden\r\n"))
        << origin;
  }
  EXPECT_EQ(served.sim.command("show D"), "D = 1\n");
}

// A name that somebody lets point here, with the header that only the page sends: the browser of a visitor of that name
// would send both.
TEST(Page, CommandUnderTheNameOfSomebodyElse_ChangesNothing) {
  Served served;
  for (const std::string& name : {std::string("evil.example"), "evil.example:" + std::to_string(served.web_port)}) {
    const Reply reply = served.browse("POST /command HTTP/1.1\r\nHost: " + name + "\r\nOrigin: http://" + name +
                                      "\r\nX-Plc-Sim: 1\r\nContent-Length: 7\r\n\r\nset D 9");
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 403 Forbidden\r\n"));
    EXPECT_EQ(reply.body, "plc-sim: the page is not served under the host name of this request; open http://" +
                              served.host + "/ instead\n");
  }
  EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
}

TEST(Page, RequestsOfOtherSites_AreRefusedByWhatTheBrowserSaysOfThem) {
  Served served;
  for (const char* site : {"cross-site", "same-site", ""}) {
    const std::string header = std::string("Sec-Fetch-Site: ") + site + "\r\n";
    EXPECT_THAT(served.ask("GET /state", header).head, StartsWith("HTTP/1.1 403 ")) << site;
    EXPECT_THAT(served.command("set D 9", "X-Plc-Sim: 1\r\n" + header).head, StartsWith("HTTP/1.1 403 ")) << site;
    // A link may lead to the page.
    EXPECT_THAT(served.ask("GET /", header).head, StartsWith("HTTP/1.1 200 ")) << site;
  }
  for (const char* site : {"same-origin", "none"}) {
    const std::string header = std::string("Sec-Fetch-Site: ") + site + "\r\n";
    EXPECT_THAT(served.ask("GET /state", header).head, StartsWith("HTTP/1.1 200 ")) << site;
  }
  EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
}

TEST(Page, ServedOnAllAddresses_AnswersAtTheOneThatWasReached) {
  const Served served("0.0.0.0:0");
  EXPECT_EQ(served.web_line, "web on http://0.0.0.0:" + std::to_string(served.web_port) + "/");
  EXPECT_THAT(served.ask("GET /").head, StartsWith("HTTP/1.1 200 OK\r\n"));
  const Reply reply = served.browse("GET / HTTP/1.1\r\nHost: elsewhere.example\r\n\r\n");
  EXPECT_THAT(reply.body, HasSubstr("; open http://" + served.host + "/ instead\n"));
}

TEST(Page, BodyOf16384Bytes_IsTheLongest) {
  Served served;
  const auto body = [](size_t size) {
    std::string text = "set D 5";
    text.resize(size, '\n');
    return text;
  };
  EXPECT_EQ(served.command(body(16384)).body, "ok\n");
  EXPECT_EQ(served.sim.command("show D"), "D = 5\n");
  served.sim.command("set D 6");
  for (const size_t size : {size_t{16385}, size_t{1048576}, size_t{1048577}, size_t{3000000}}) {
    const Reply reply = served.command(body(size));
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 413 ")) << size;
    EXPECT_EQ(reply.body, "plc-sim: a command has at most 16384 bytes\n") << size;
  }
  EXPECT_EQ(served.sim.command("show D"), "D = 6\n");
}

TEST(Page, BodyInChunks_IsPutTogetherAndLimitedToo) {
  Served served;
  const std::string head =
      "POST /command HTTP/1.1\r\nHost: " + served.host + "\r\nX-Plc-Sim: 1\r\nTransfer-Encoding: chunked\r\n\r\n";
  EXPECT_EQ(served.browse(head + "4\r\nset \r\n3\r\nD 5\r\n0\r\n\r\n").body, "ok\n");
  EXPECT_EQ(served.sim.command("show D"), "D = 5\n");
  const std::string chunk = "1000\r\n" + std::string(4096, 'x') + "\r\n";
  EXPECT_THAT(served.browse(head + chunk + chunk + chunk + chunk + chunk + "0\r\n\r\n").head,
              StartsWith("HTTP/1.1 413 "));
  // One that never ends is cut off.
  const HostSocket endless(served.web_port);
  send_text(endless, head);
  for (int i = 0; i < 300; ++i) send_text(endless, chunk);
  EXPECT_EQ(receive_all(endless), "");
  EXPECT_EQ(served.ask("GET /page.css").body, source_of("page.css"));
}

TEST(Page, RequestInSingleBytes_IsAnsweredAtItsEndAlone) {
  Served served;
  const std::string request = served.command_request("set D 9", "X-Plc-Sim: 1\r\n");
  const HostSocket visitor(served.web_port);
  for (size_t i = 0; i + 1 < request.size(); ++i) {
    send_text(visitor, request.substr(i, 1));
    EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
  }
  send_text(visitor, request.substr(request.size() - 1));
  EXPECT_THAT(receive_all(visitor), testing::EndsWith("\r\n\r\nok\n"));
  EXPECT_EQ(served.sim.command("show D"), "D = 9\n");
}

TEST(Page, RequestCutOffAnywhere_ChangesNothing) {
  Served served;
  const std::string request = served.command_request("set D 9", "X-Plc-Sim: 1\r\n");
  for (size_t size = 0; size < request.size(); ++size) {
    const HostSocket visitor(served.web_port);
    send_text(visitor, request.substr(0, size));
    // A reset tells the page at once that its visitor has gone.
    const linger at_once{1, 0};
    setsockopt(visitor.descriptor(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  }
  EXPECT_EQ(served.style_sheet(), source_of("page.css"));
  EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
  EXPECT_EQ(served.sim.finish(), 0);
}

TEST(Page, RequestsThatAreNone_AreNotAnsweredWithThePage) {
  Served served;
  const std::string long_head = "GET / HTTP/1.1\r\nHost: " + served.host + "\r\nX: " + std::string(65536, 'x');
  for (const std::string& request :
       {std::string("nonsense\r\n\r\n"), std::string("\r\n\r\n\r\n\r\nGET\r\n\r\n"), long_head + "\r\n\r\n",
        std::string("GET / HTTP/1.1\r\nHost: ") + served.host + "\r\nContent-Length: x\r\n\r\n",
        std::string("\0\1\2\r\n\r\n\xff\xfe\r\n\r\n", 13)}) {
    const Reply reply = served.browse(request);
    EXPECT_THAT(reply.head, Not(HasSubstr(" 200 "))) << request.substr(0, 40);
    EXPECT_THAT(reply.body, Not(HasSubstr("plc-sim"))) << request.substr(0, 40);
  }
  EXPECT_THAT(served.browse(long_head + "\r\n\r\n").head, StartsWith("HTTP/1.1 431 "));
  EXPECT_EQ(served.ask("GET /page.css").body, source_of("page.css"));
}

// Something between the visitor and the page may have understood them otherwise.
TEST(Page, HeadsThatCanBeReadInTwoWays_AreRefusedAndObeyedInNeither) {
  Served served;
  const std::string own = "Host: " + served.host + "\r\n";
  const std::string command = "POST /command HTTP/1.1\r\n" + own + "X-Plc-Sim: 1\r\n";
  const std::string chunks = "\r\n7\r\nset D 9\r\n0\r\n\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {"GET /%00 HTTP/1.1\r\n" + own, "write the path without %00"},
      {"GET /page.js%00x?y HTTP/1.1\r\n" + own, "write the path without %00"},
      {"GET / x HTTP/1.1\r\n" + own, "write %20 for a blank in the path"},
      {"GET / HTTP/1.1\r\n" + own + "Origin : http://elsewhere\r\n", "write the names of its lines without blanks"},
      {"GET / HTTP/1.1\r\n" + own + "host: elsewhere\r\n", "send Host once"},
      {"GET / HTTP/1.1\r\n" + own + "Origin: http://" + served.host + "\r\nOrigin: http://elsewhere\r\n",
       "send Origin once"},
      {"GET /state HTTP/1.1\r\n" + own + "Sec-Fetch-Site: same-origin\r\nSec-Fetch-Site: cross-site\r\n",
       "send Sec-Fetch-Site once"},
      {command + "X-Plc-Sim: 0\r\nContent-Length: 7\r\n\r\nset D 9", "send X-Plc-Sim once"},
      {command + "Content-Type: a/b\r\nContent-Type: c/d\r\nContent-Length: 7\r\n\r\nset D 9",
       "send Content-Type once"},
      {command + "Content-Length: 7\r\nContent-Length: 8\r\n\r\nset D 95", "send Content-Length once"},
      {command + "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n" + chunks,
       "send Transfer-Encoding once"},
      {command + "Content-Length: 7\r\nTransfer-Encoding: chunked\r\n" + chunks,
       "send Content-Length or Transfer-Encoding"},
  };
  for (const auto& [request, advice] : cases) {
    const Reply reply = served.browse(request + "\r\n");
    EXPECT_THAT(reply.head, StartsWith("HTTP/1.1 400 Bad Request\r\n")) << request;
    EXPECT_EQ(reply.body, "plc-sim: the head of this request can be read in two ways: " + advice + "\n") << request;
  }
  EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
  // What is no part of the path, and lines that visitors may send twice.
  EXPECT_THAT(served.ask("GET /state?a%00", "Accept: a/b\r\nAccept: c/d\r\n").head, StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(Page, EightyIdleVisitors_LeaveTheControllerItsPortAndThenThePageItsVisitors) {
  Served served;
  {
    std::vector<std::unique_ptr<HostSocket>> idle;
    for (int i = 0; i < 80; ++i) {
      idle.push_back(std::make_unique<HostSocket>(served.web_port));
      ASSERT_TRUE(idle.back()->is_connected());
      send_text(*idle.back(), i % 2 == 0 ? "" : "POST /command HTTP/1.1\r\nContent-Length: 10\r\n\r\nset");
    }
    for (int i = 0; i < 10; ++i) {
      const HostSocket host(served.port);
      EXPECT_EQ(to_hex(host.exchange(kDirectoryStart)), "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
    }
    EXPECT_EQ(served.sim.command("show D"), "D = 0\n");
    // Those above the limit were closed as they came.
    EXPECT_TRUE(idle.back()->receive().empty());
  }
  EXPECT_EQ(served.style_sheet(), source_of("page.css"));
  EXPECT_EQ(served.sim.finish(), 0);
}

TEST(Page, VisitorsWhoDoNotReadTheirAnswers_LeaveTheControllerItsPort) {
  const Served served;
  std::vector<std::unique_ptr<HostSocket>> visitors;
  for (int i = 0; i < 20; ++i) {
    visitors.push_back(std::make_unique<HostSocket>(served.web_port));
    send_text(*visitors.back(), "GET / HTTP/1.1\r\nHost: " + served.host + "\r\n\r\n");
  }
  const HostSocket host(served.port);
  EXPECT_EQ(host.exchange(kDirectoryStart).size(), 16U);
  for (const auto& visitor : visitors) EXPECT_THAT(receive_all(*visitor), testing::EndsWith("</html>\n"));
}

TEST(Page, PortInUse_EndsPlcSimWithTwo) {
  const Served served;
  const TemporaryFile tags(kPageTags);
  PlcSimProcess second({"--web", served.host, tags.path()});
  EXPECT_EQ(second.finish(), 2);
  EXPECT_EQ(second.errors(), "plc-sim: cannot serve the page on " + served.host +
                                 ": address already in use. Try: another port, or 0 for a free one\n");
}

}  // namespace
}  // namespace plc_sim
