// What people hand in around plc-sim: names that look like its own words, files in its way, and hosts that take without
// an end.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/shown_text.h"
#include "base/utf8.h"
#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"
#include "tools/plc_sim/console/report.h"
#include "tools/plc_sim/descriptors.h"
#include "wire/big_endian.h"
#include "wire/captures/pcap_reader.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kResolveD;
using plc_test::TempDir;
using test::from_hex;
using test::HostSocket;
using test::PlcSimProcess;
using test::TemporaryFile;
using test::to_hex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kHostileTags = "D,INT,,,a,b,c,0,1,0,0,,DM1\nL,INT,[0..2],,a,b,c,1,0,0,5,MAIN,\n";

// A request for one global name.
Bytes resolve_request(uint16_t sequence, const std::u16string& name) {
  Bytes body{0, 1, 0, 0, 0, 1};
  append_u16(body, static_cast<uint16_t>(name.size()));
  for (const char16_t unit : name) append_u16(body, unit);
  Bytes frame;
  const auto length = static_cast<uint32_t>(wire::kHeadBytes + body.size() - wire::kLengthExcludes);
  append_u32(frame, length);
  append_u32(frame, ~length);
  append_u16(frame, sequence);
  frame.push_back(wire::kClassNames);
  frame.push_back(wire::kResolve);
  frame.insert(frame.end(), body.begin(), body.end());
  return frame;
}

void expect_shown(const std::string& text, const std::string& what) {
  EXPECT_TRUE(plc_base::is_utf8(text)) << what;
  EXPECT_EQ(plc_base::shown_lines(text), text) << what;
}

// Every line begins with a word of plc-sim's own.
void expect_own_lines(const std::string& text, const std::vector<std::string>& beginnings) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    EXPECT_TRUE(std::any_of(beginnings.begin(), beginnings.end(), [&](const std::string& beginning) {
      return line.rfind(beginning, 0) == 0;
    })) << line;
  }
}

const std::vector<std::u16string> kForgedNames{u"x\nviolation: connection 1, request 1 (read): forged",
                                               u"x\rviolation: forged",
                                               u"x\u2028violation: forged",
                                               u"x\u0085violation: forged",
                                               u"x\u2029plc-sim: forged",
                                               u"violation: forged",
                                               u"violation:",
                                               u"x\x1B[2J\x1B]0;title\a",
                                               u"x\u009B2J",
                                               u"x\u202Edegrof",
                                               u"x\u200B\uFEFF\u00AD\u2066",
                                               std::u16string(1900, u'V') + u"\nviolation: forged",
                                               std::u16string{u'x', 0xD800},
                                               std::u16string{u'x', 0xDB40, 0xDC41},
                                               u"=cmd|' /C calc'!A0",
                                               u"\t@SUM(1)"};

TEST(PlcSim, NamesOfAHost_AreNoWordsOfPlcSim) {
  TemporaryFile tags(kHostileTags);
  for (const char* ending : {".txt", ".json", ".csv"}) {
    const TempDir folder;
    PlcSimProcess sim({"--report", folder.file("report") + ending, tags.path()});
    HostSocket host(PlcSimProcess::port_in(sim.read_line()));
    host.exchange(kDirectoryStart);
    host.exchange(kDirectoryRead);
    uint16_t sequence = 0;
    for (const std::u16string& name : kForgedNames) {
      host.send(resolve_request(sequence++, name));
      EXPECT_FALSE(host.receive().empty());
    }
    expect_shown(sim.command("report text"), "report text");
    expect_shown(sim.command("report csv"), "report csv");
    EXPECT_EQ(sim.finish(), 0);
    EXPECT_THAT(
        sim.errors(),
        HasSubstr("plc-sim: refused: no variable x\\nviolation\\x3a connection 1, request 1 (read)\\x3a forged\n"));
    expect_shown(sim.errors(), "standard error");
    expect_own_lines(sim.errors(), {"plc-sim: refused: no variable "});
    const std::string report = folder.read(std::string("report") + ending);
    expect_shown(report, ending);
    if (ending == std::string(".txt")) {
      expect_own_lines(report, {"  ", "never asked for:", "programs:"});
      EXPECT_THAT(report, HasSubstr("\n  'violation\\x3a forged' "));
    } else if (ending == std::string(".csv")) {
      EXPECT_THAT(report, HasSubstr("\n'=cmd|' /C calc'!A0,,,refused,1,0,0,-\n"));
    } else {
      const nlohmann::json json = nlohmann::json::parse(report);
      std::vector<std::string> names;
      for (const auto& entry : json.at("asked")) names.push_back(entry.at("name"));
      EXPECT_THAT(names, testing::Contains("x\nviolation: connection 1, request 1 (read): forged"));
    }
  }
}

TEST(PlcSim, NamesOfTagFiles_AreNoWordsOfPlcSim) {
  std::string lines;
  unsigned id = 0;
  for (const char* name : {"error: forged", "ok",
                           "a\x1B"
                           "c",
                           "b\xC2\x9B", "c\xE2\x80\xAE", "d\xE2\x80\xA8violation: x"}) {
    lines += std::string(name) + ",INT,,,a,b,c," + std::to_string(id++) + ",0,0,5,P\x1B[1m: x,\n";
  }
  TemporaryFile tags(lines);
  PlcSimProcess sim({"--pcap", "/dev/null", tags.path()});
  HostSocket host(PlcSimProcess::port_in(sim.read_line()));
  const std::string shown = sim.command("show");
  expect_shown(shown, "show");
  EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 6);
  EXPECT_THAT(shown, HasSubstr("P\\x1b[1m\\x3a x/error\\x3a forged = 0\n"));
  for (const char* command : {"dump --json", "report text", "report json", "report csv", "show x\x1B[2J",
                              "set \xE2\x80\xAE 1", "fault \x1B", "report \x9B", "\x1B"}) {
    expect_shown(sim.command(command), command);
  }
  EXPECT_EQ(sim.finish(), 0);
  expect_shown(sim.errors(), "standard error");
}

TEST(PlcSim, WordsOfTheCommandLine_AreShownOnOneLine) {
  const TempDir folder;
  TemporaryFile good(kHostileTags);
  const std::string bad = folder.write("x\nviolation: \x1B[2J\xE2\x80\xAE", "A,Bo\x1Bol,,,a,b,c,1\n");
  const std::vector<std::vector<std::string>> cases{{bad},
                                                    {"/nonexistent\nviolation: x\x1B"},
                                                    {"--nonsense\nviolation: \x1B[2J", good.path()},
                                                    {"--listen", "\x1B[2J\nviolation: x", good.path()},
                                                    {"--fault", "\nviolation: \x1B", good.path()},
                                                    {"--program", "\nviolation: \xE2\x80\xAE", good.path()},
                                                    {"--directory-order", "\nviolation: \x9B", good.path()},
                                                    {"--animate-ms", "\nviolation: \x1B", good.path()},
                                                    {"--replay", bad},
                                                    {"--pcap", "/nonexistent/\n\x1B", good.path()},
                                                    {"--report", "/nonexistent/\n\x1B", good.path()}};
  for (const auto& arguments : cases) {
    PlcSimProcess sim(arguments);
    EXPECT_EQ(sim.finish(), 2);
    expect_shown(sim.errors(), arguments[0]);
    // A line of a tag file that is wrong has a second one, which says what to do.
    const int lines = arguments == std::vector<std::string>{bad} ? 2 : 1;
    EXPECT_EQ(std::count(sim.errors().begin(), sim.errors().end(), '\n'), lines) << sim.errors();
    expect_own_lines(sim.errors(), {"plc-sim: "});
  }
}

// A host that looks in its own folder.
TEST(PlcSim, TagFileNamedLikeASpeaker_IsNone) {
  const TempDir folder;
  const plc_test::ScopedWorkingDirectory inside(folder.path());
  folder.write("violation: x", "A,Bool,,,a,b,c,1\n");
  PlcSimProcess sim({"violation: x"});
  EXPECT_EQ(sim.finish(), 2);
  EXPECT_EQ(sim.errors(),
            "plc-sim: ./violation: x:1: error: unknown type 'Bool'\n"
            "plc-sim: nothing was started. Try: plc-host check FILE\n");
}

TEST(PlcSim, FilesInTheWay_AreNotWrittenOver) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kHostileTags);
  const std::string precious = folder.write("precious", "precious");
  const std::string link = folder.file("link");
  ASSERT_EQ(symlink(precious.c_str(), link.c_str()), 0);
  const std::string other_name = folder.file("again.csv");
  ASSERT_EQ(::link(tags.c_str(), other_name.c_str()), 0);
  struct Case {
    const char* option;
    std::string path;
    const char* reason;
  };
  for (const Case& each : std::vector<Case>{{"--pcap", link, "it is a symbolic link"},
                                            {"--report", link, "it is a symbolic link"},
                                            {"--pcap", tags, "it is a file that is read"},
                                            {"--report", tags, "it is a file that is read"},
                                            {"--pcap", other_name, "it is a file that is read"},
                                            {"--report", other_name, "it is a file that is read"},
                                            {"--report", folder.path(), "it is a folder"}}) {
    PlcSimProcess sim({each.option, each.path, tags});
    EXPECT_EQ(sim.finish(), 2) << each.option << " " << each.path;
    EXPECT_THAT(sim.errors(), StartsWith("plc-sim: cannot write " + each.path + ": " + each.reason + ". Try: "));
  }
  PlcSimProcess both({"--pcap", folder.file("both"), "--report", folder.file("both"), tags});
  EXPECT_EQ(both.finish(), 2);
  EXPECT_EQ(both.errors(), "plc-sim: cannot write " + folder.file("both") +
                               ": --report and --pcap name the same file. Try: name two files\n");
  PlcSimProcess replay({"--replay", folder.file("both"), "--pcap", folder.file("both")});
  EXPECT_EQ(replay.finish(), 2);
  EXPECT_EQ(folder.read("precious"), "precious");
  EXPECT_EQ(folder.read("tags.csv"), kHostileTags);
}

TEST(PlcSim, ReportIsWholeOrNotThere) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kHostileTags);
  const std::string report = folder.write("report", "the one before");
  ASSERT_EQ(chmod(report.c_str(), 0640), 0);
  // So few bytes may a file have.
  const auto limited = [&](const char* blocks) {
    plc_test::SimProcess sim(
        "/bin/sh",
        {"-c", std::string("ulimit -f ") + blocks + R"(; exec "$0" "$@")", PLC_SIM_PROGRAM, "--report", report, tags},
        plc_test::SimProcess::Errors::kKept);
    sim.read_line();
    const int code = sim.finish();
    return std::to_string(code) + " " + sim.errors();
  };
  EXPECT_EQ(limited("0"), "2 plc-sim: cannot write " + report +
                              ": File too large. Try: let files be larger (ulimit -f), or do without it\n");
  EXPECT_EQ(folder.read("report"), "the one before");
  EXPECT_EQ(limited("8"), "0 ");
  EXPECT_THAT(folder.read("report"), HasSubstr("never asked for:\n  D\n"));
  struct stat status {};
  ASSERT_EQ(stat(report.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

// Killed wherever it was, and at a limit that no packet ends at.
TEST(PlcSim, CaptureEndsWithAWholePacket_WheneverPlcSimEnds) {
  const TempDir folder;
  const std::string tags = folder.write("tags.csv", kHostileTags);
  for (int round = 0; round < 5; ++round) {
    const std::string path = folder.file("killed");
    plc_test::SimProcess sim("/bin/sh", {"-c", R"(echo $$; exec "$0" "$@")", PLC_SIM_PROGRAM, "--pcap", path, tags},
                             plc_test::SimProcess::Errors::kDropped);
    const int pid = std::stoi(sim.read_line());
    HostSocket host(PlcSimProcess::port_in(sim.read_line()));
    for (int i = 0; i <= round * 10; ++i) EXPECT_EQ(host.exchange(kDirectoryStart).size(), 16U);
    host.send(from_hex(kDirectoryStart));
    ASSERT_EQ(kill(pid, SIGKILL), 0);
    EXPECT_EQ(sim.finish(), -SIGKILL);
    EXPECT_EQ(read_capture_file(path).problem, "");
  }
  const std::string path = folder.file("limited");
  plc_test::SimProcess sim("/bin/sh",
                           {"-c", R"(ulimit -f 4; exec "$0" "$@")", PLC_SIM_PROGRAM, "--quiet", "--pcap", path, tags},
                           plc_test::SimProcess::Errors::kKept);
  HostSocket host(PlcSimProcess::port_in(sim.read_line()));
  host.exchange(kDirectoryStart);
  host.exchange(kDirectoryRead);
  for (uint16_t i = 0; i < 40; ++i) {
    host.send(resolve_request(i, u"D"));
    EXPECT_FALSE(host.receive().empty());
  }
  EXPECT_EQ(sim.finish(), 2);
  EXPECT_EQ(sim.errors(), "plc-sim: cannot write " + path +
                              ": File too large. Try: let files be larger (ulimit -f), or do without it\n");
  EXPECT_EQ(read_capture_file(path).problem, "");
  EXPECT_GT(read_capture_file(path).exchanges.size(), 2U);
}

TEST(PlcSim, AddressesThatOtherMachinesReach_TakeAWordOfConsent) {
  TemporaryFile tags(kHostileTags);
  for (const char* option : {"--listen", "--web"}) {
    PlcSimProcess refused({option, "0.0.0.0:0", tags.path()});
    EXPECT_EQ(refused.finish(), 2);
    EXPECT_EQ(refused.errors(),
              std::string("plc-sim: ") + option +
                  " 0.0.0.0:0 lets other machines in, and there is no password: add --allow-remote if "
                  "that is meant\n");
    PlcSimProcess allowed({"--allow-remote", option, "0.0.0.0:0", tags.path()});
    std::string line = allowed.read_line();
    if (option == std::string("--web")) line = allowed.read_line();
    EXPECT_EQ(allowed.finish(), 0);
    EXPECT_EQ(allowed.errors(), "plc-sim: warning: 0.0.0.0:" + std::to_string(PlcSimProcess::port_in(line)) +
                                    " is open to other machines: whoever reaches it reads and sets every variable\n");
    PlcSimProcess local({option, "127.1.2.3:0", tags.path()});
    EXPECT_EQ(local.finish(), 0);
    EXPECT_EQ(local.errors(), "");
  }
}

TEST(PlcSim, LineWithoutAnEnd_IsAnErrorAndTheNextOneCounts) {
  TemporaryFile tags(kHostileTags);
  PlcSimProcess sim({tags.path()});
  sim.read_line();
  EXPECT_EQ(sim.command("set D " + std::string(65531, '0')), "error: a line has at most 65536 bytes\n");
  EXPECT_EQ(sim.command("set D " + std::string(65529, ' ') + "7"), "");
  EXPECT_EQ(sim.command("show D"), "D = 7\n");
}

TEST(PlcSim, ZeroBytes_AreWrittenOutInMessagesAndEndNone) {
  using namespace std::string_literals;
  TemporaryFile tags(kHostileTags + "E,IN\0T,,,a,b,c,2,1,0,0,,DM1\n"s);
  PlcSimProcess sim({"--skip-bad-lines", tags.path()});
  sim.read_line();
  EXPECT_EQ(sim.command("set D 3\0x"s), "error: '3\\x00x' is no INT value: write 120, -5, 0xFF or 0b101\n");
  EXPECT_EQ(sim.command("show D\0"s), "error: no variable is called 'D\\x00'; did you mean D?\n");
  EXPECT_EQ(sim.command("\0"s), "error: no command is called '\\x00'; help lists them\n");
  EXPECT_EQ(sim.command("fault de\0lay 3"s), "error: no fault is called 'de\\x00lay'; did you mean delay?\n");
  EXPECT_EQ(sim.command("fault delay 3\0"s), "error: '3\\x00' is not a number; the fault is written: delay MS\n");
  EXPECT_EQ(sim.command("report x\0y"s), "error: a report is text, json or csv, not 'x\\x00y'\n");
  EXPECT_EQ(sim.finish(), 0);
  EXPECT_EQ(sim.errors(), "plc-sim: " + tags.path() + ":3: warning: unknown type 'IN\\x00T'\n");
}

TEST(PlcSim, FaultsThatNobodyMeets_AreNotArmedWithoutEnd) {
  TemporaryFile tags(kHostileTags);
  PlcSimProcess sim({tags.path()});
  sim.read_line();
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(sim.command("fault cut 1 on=bit"), "");
  EXPECT_EQ(sim.command("fault cut 1 on=bit"),
            "error: 1000 faults are armed, there is no room for more; fault clear disarms them\n");
  EXPECT_EQ(sim.command("fault clear"), "");
  EXPECT_EQ(sim.command("fault cut 1 on=bit"), "");
}

TEST(AskLog, NamesWithoutEnd_AreCountedAlone) {
  test::Bench bench(kHostileTags);
  AskLog log([] { return uint64_t{0}; }, {10, 1000});
  for (int i = 0; i < 15; ++i) log.add({Asked::What::kRefused, std::to_string(i), nullptr});
  EXPECT_EQ(log.names().size(), 10U);
  EXPECT_EQ(log.left_out(), 5U);
  log.add({Asked::What::kRefused, "0", nullptr});
  EXPECT_EQ(log.left_out(), 5U);
  EXPECT_THAT(make_report(bench.store, log, "text"),
              HasSubstr("\n  and names beyond the room for them, asked for 5 times\n\nnever asked for:\n"));
  EXPECT_EQ(nlohmann::json::parse(make_report(bench.store, log, "json")).at("left_out"), 5);

  AskLog long_names([] { return uint64_t{0}; }, {10, 1000});
  for (int i = 0; i < 5; ++i)
    long_names.add({Asked::What::kRefused, std::string(399, 'x') + std::to_string(i), nullptr});
  EXPECT_EQ(long_names.names().size(), 2U);
  EXPECT_EQ(long_names.left_out(), 3U);
  EXPECT_EQ(AskLimits().names, 100000U);
  EXPECT_EQ(AskLimits().bytes, 16777216U);
}

TEST(Variables, ElementsOutsideTheirBounds_AreRefusedWhenThereAreTooMany) {
  test::Bench bench("L,INT,[0..2],,a,b,c,1,1,0,0,,DM1\n");
  for (size_t i = 0; i < kMostOutsideElements; ++i) {
    ASSERT_TRUE(bench.store.resolve(std::nullopt, "L[#" + std::to_string(i + 3) + "]"));
  }
  EXPECT_FALSE(bench.store.resolve(std::nullopt, "L[#900000]"));
  EXPECT_TRUE(bench.store.resolve(std::nullopt, "L[#3]"));
  EXPECT_TRUE(bench.store.resolve(std::nullopt, "L[#2]"));
}

TEST(Shares, FewDescriptors_ServeBothSides) {
  EXPECT_EQ(shares_of(1024).connections, 256U);
  EXPECT_EQ(shares_of(1024).visitors.connections, 64U);
  EXPECT_EQ(shares_of(1024).visitors.connections_per_address, 32U);
  for (size_t descriptors = 36; descriptors <= 1024; ++descriptors) {
    const Shares shares = shares_of(descriptors);
    EXPECT_GE(shares.connections, 2U) << descriptors;
    EXPECT_GE(shares.visitors.connections, 2U) << descriptors;
    EXPECT_GE(shares.visitors.connections_per_address, 1U) << descriptors;
    EXPECT_LE(shares.connections + shares.visitors.connections + 32, std::max<size_t>(descriptors, 36)) << descriptors;
  }
}

// A host that sends and never receives: what waits for it is bounded, and then it is not read any further.
TEST(PlcSim, HostThatTakesNoReplies_IsNotReadAnyFurther) {
  TemporaryFile tags("S,STRING,,4096,a,b,c,0,1,0,0,,\n");
  plc_test::SimProcess sim(PLC_SIM_PROGRAM, {"--quiet", "--fault", "oversize 4096 times=always", tags.path()},
                           plc_test::SimProcess::Errors::kDropped);
  const uint16_t port = PlcSimProcess::port_in(sim.read_line());
  {
    HostSocket host(port);
    const Bytes request = from_hex(kDirectoryStart);
    Bytes many;
    for (int i = 0; i < 1000; ++i) many.insert(many.end(), request.begin(), request.end());
    // Both ends' buffers fill up, then nothing is taken any more.
    size_t sent = 0;
    for (int idle = 0; idle < 50;) {
      const ssize_t count = send(host.descriptor(), many.data(), many.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      sent += count > 0 ? static_cast<size_t>(count) : 0;
      // plc-sim has had its turn when it answers.
      idle = count > 0 ? 0 : idle + 1;
      sim.command("counts");
      ASSERT_LT(sent, size_t{100} << 20U);
    }
    HostSocket other(port);
    EXPECT_FALSE(other.exchange(kDirectoryStart).empty());
    // It goes on as soon as the replies are taken.
    size_t received = 0;
    while (received < 200000) {
      const Bytes part = host.receive();
      ASSERT_FALSE(part.empty());
      received += part.size();
    }
  }
  sim.finish();
}

struct FewDescriptors {
  FewDescriptors()
      : sim("/bin/sh", {"-c", R"(ulimit -n 64; exec "$0" "$@")", PLC_SIM_PROGRAM, "--web", "127.0.0.1:0", tags.path()},
            plc_test::SimProcess::Errors::kKept) {
    port = PlcSimProcess::port_in(sim.read_line());
    web_port = PlcSimProcess::port_in(sim.read_line());
  }
  TemporaryFile tags{kHostileTags};
  plc_test::SimProcess sim;
  uint16_t port = 0;
  uint16_t web_port = 0;
};

std::vector<std::unique_ptr<HostSocket>> half_requests(uint16_t port, const std::string& text) {
  std::vector<std::unique_ptr<HostSocket>> half;
  for (int i = 0; i < 80; ++i) {
    half.push_back(std::make_unique<HostSocket>(port));
    EXPECT_TRUE(half.back()->is_connected());
    half.back()->send(Bytes(text.begin(), text.end()));
  }
  return half;
}

TEST(PlcSim, EightyHalfRequestsWithFewDescriptors_StopNeitherPageNorPort) {
  FewDescriptors few;
  const auto visitors = half_requests(few.web_port, "GET / HTTP/1.1\r\nHost:");
  const auto hosts = half_requests(few.port, std::string("\0\0\0\6\xFF", 5));
  const HostSocket host(few.port);
  EXPECT_EQ(to_hex(host.exchange(kDirectoryStart)), kDirectoryStart);
  // The first of them was silent for longest.
  Bytes rest = hosts.front()->receive();
  while (!rest.empty()) rest = hosts.front()->receive();
  // The page takes visitors again when the half ones have had their time.
  constexpr int kLongerThanTheirTimeMs = 30000;
  pollfd ended{visitors.front()->descriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&ended, 1, kLongerThanTheirTimeMs), 1);
  std::string answer;
  for (int i = 0; i < 1000 && answer.empty(); ++i) {
    const HostSocket visitor(few.web_port);
    const std::string text = "GET /page.css HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(few.web_port) + "\r\n\r\n";
    visitor.send(Bytes(text.begin(), text.end()));
    const Bytes bytes = visitor.receive();
    answer.assign(bytes.begin(), bytes.end());
  }
  EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_EQ(few.sim.command("show D"), "D = 0\n");
  EXPECT_EQ(few.sim.finish(), 1);
  EXPECT_THAT(few.sim.errors(),
              HasSubstr("plc-sim: note: more than 24 connections at a time: the one that was silent for longest "
                        "is closed\n"));
}

}  // namespace
}  // namespace plc_sim
