// Captures: written byte by byte, read back into exchanges, and replayed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"
#include "tools/plc_sim/server/replay.h"
#include "wire/captures/pcap_reader.h"
#include "wire/captures/pcap_writer.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kReadD;
using plc_test::kResolveD;
using test::from_hex;
using test::HostSocket;
using test::PlcSimProcess;
using test::TemporaryFile;
using test::to_hex;

std::string content_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return bytes.str();
}

std::string text_of(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

TEST(PcapWriter, OneExchange_IsThesePackets) {
  TemporaryFile file("");
  {
    PcapWriter writer([] { return uint64_t{1000002}; });
    ASSERT_EQ(writer.open(file.path(), 0x2135), "");
    writer.opened(1, 0xC001);
    writer.received(1, from_hex("AA BB"));
    writer.sent(1, from_hex("CC"));
  }
  const std::string written = content_of(file.path());
  const Bytes expected_head = from_hex("D4 C3 B2 A1 02 00 04 00 00 00 00 00 00 00 00 00 FF FF 00 00 01 00 00 00");
  EXPECT_EQ(written.substr(0, 24), text_of(expected_head));
  const Bytes expected_data = from_hex(
      "01 00 00 00 02 00 00 00 38 00 00 00 38 00 00 00"
      "00 00 00 00 00 00 00 00 00 00 00 00 08 00"
      "45 00 00 2A 00 00 40 00 40 06 3C CC 7F 00 00 01 7F 00 00 01"
      "C0 01 21 35 00 00 03 E9 00 00 07 D1 50 18 FF FF");
  constexpr size_t kThreeEmptyPackets = 24 + 3 * (16 + 54);
  EXPECT_EQ(written.substr(kThreeEmptyPackets, expected_data.size()), text_of(expected_data));
  EXPECT_EQ(written.substr(kThreeEmptyPackets + 16 + 54, 2), "\xAA\xBB");
  EXPECT_EQ(written.size(), kThreeEmptyPackets + 16 + 56 + 16 + 55);
}

TEST(PcapWriter, FileThatCannotBeMade_IsSaid) {
  PcapWriter writer;
  EXPECT_EQ(writer.open("/nonexistent/x.pcap", 1), "No such file or directory");
  EXPECT_EQ(writer.open("/dev/full", 1), "No space left on device");
}

// A pipe whose reader goes away stands for a disk that fills up.
TEST(PcapWriter, FileThatCannotBeWrittenFurther_IsSaidOnce) {
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  const plc_test::TempDir folder;
  const std::string path = folder.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  std::vector<std::string> told;
  PcapWriter writer([] { return uint64_t{0}; });
  writer.on_failure([&told](const std::string& problem) { told.push_back(problem); });
  ASSERT_EQ(writer.open(path, 8501), "");
  writer.opened(1, 50000);
  EXPECT_TRUE(told.empty());
  close(reader);
  writer.received(1, from_hex("AA"));
  EXPECT_EQ(told, std::vector<std::string>{"Broken pipe"});
  writer.sent(1, from_hex("BB"));
  writer.closed(1);
  EXPECT_EQ(told.size(), 1U);
  EXPECT_EQ(writer.close(), "Broken pipe");
  std::signal(SIGPIPE, previous);
}

TEST(PcapWriter, FileThatHoldsEverything_ClosesWithoutAWord) {
  TemporaryFile file("");
  PcapWriter writer([] { return uint64_t{0}; });
  ASSERT_EQ(writer.open(file.path(), 8501), "");
  writer.opened(1, 50000);
  EXPECT_EQ(writer.close(), "");
  EXPECT_EQ(content_of(file.path()).size(), 24U + 3 * (16 + 54));
}

// A capture of three exchanges, the last one without a reply.
std::string sample_capture() {
  TemporaryFile file("");
  PcapWriter writer([] { return uint64_t{0}; });
  EXPECT_EQ(writer.open(file.path(), 8501), "");
  writer.opened(1, 50000);
  writer.received(1, from_hex(kDirectoryStart));
  writer.sent(1, from_hex("00 00 00 04 FF FF FF FB 00 00 0C 2C 00 00"));
  writer.received(1, from_hex(kResolveD));
  writer.sent(1, from_hex("00 00 00 02 FF FF"));
  writer.sent(1, from_hex("FF FD 00 00 0C 28"));
  writer.received(1, from_hex(kReadD));
  writer.closed(1);
  return content_of(file.path());
}

TEST(PcapReader, WrittenCapture_GivesItsExchanges) {
  const Capture capture = read_capture(sample_capture());
  EXPECT_EQ(capture.problem, "");
  ASSERT_EQ(capture.exchanges.size(), 3U);
  EXPECT_EQ(to_hex(capture.exchanges[0].request), kDirectoryStart);
  EXPECT_EQ(to_hex(capture.exchanges[1].reply), "00 00 00 02 FF FF FF FD 00 00 0C 28");
  EXPECT_TRUE(capture.exchanges[2].reply.empty());
}

TEST(PcapReader, PacketSentTwice_IsTakenOnce) {
  std::string file = sample_capture();
  constexpr size_t kFirstRequestAt = 24 + 3 * (16 + 54);
  constexpr size_t kFirstRequestBytes = 16 + 54 + 16;
  file.insert(kFirstRequestAt, file.substr(kFirstRequestAt, kFirstRequestBytes));
  const Capture capture = read_capture(file);
  ASSERT_EQ(capture.exchanges.size(), 3U);
  EXPECT_EQ(to_hex(capture.exchanges[0].request), kDirectoryStart);
}

TEST(PcapReader, OtherFiles_AreRefusedWithTheirReason) {
  EXPECT_EQ(read_capture("hello, world, this is text").problem,
            "not a pcap or pcapng file, as tcpdump, tshark and Wireshark write them: unknown file format");
  EXPECT_EQ(read_capture(sample_capture().substr(0, 24)).problem, "no exchange with a controller in it");
  EXPECT_EQ(read_capture_file("/nonexistent").problem, "cannot be read: No such file or directory");
}

TEST(PcapReader, PacketThatIsMissing_IsSaid) {
  std::string file = sample_capture();
  constexpr size_t kFirstRequestAt = 24 + 3 * (16 + 54);
  file.erase(kFirstRequestAt, 16 + 54 + 16);
  EXPECT_EQ(read_capture(file).problem, "16 bytes are missing");
}

TEST(PcapReader, EveryPrefixOfACapture_IsReadWithinIt) {
  const std::string file = sample_capture();
  for (size_t size = 0; size < file.size(); ++size) EXPECT_LE(read_capture(file.substr(0, size)).exchanges.size(), 3U);
}

TEST(Replay, CapturedRequest_GetsItsReplyUnderItsOwnSequence) {
  Replay replay(read_capture(sample_capture()).exchanges);
  Session session;
  session.directory_started = session.directory_sent = true;
  session.requests = 2;
  const Bytes resolve = from_hex("00 00 00 0C FF FF FF F3 00 2A 0C 28 00 01 00 00 00 01 00 01 00 44");
  const Answer answer = replay.handle(session, resolve);
  EXPECT_EQ(to_hex(answer.reply), "00 00 00 02 FF FF FF FD 00 2A 0C 28");
  EXPECT_TRUE(answer.findings.violations.empty());
}

TEST(Replay, RepliesToTheSameRequest_ComeInTheirOrderAndFromTheStartAgain) {
  const Bytes request = from_hex(kResolveD);
  Replay replay({{request, from_hex("01")}, {from_hex(kDirectoryStart), from_hex("02")}, {request, from_hex("03")}});
  Session session;
  std::string replies;
  for (int i = 0; i < 4; ++i) replies += to_hex(replay.handle(session, request).reply) + " ";
  EXPECT_EQ(replies, "01 03 01 03 ");
}

TEST(Replay, WriteOfAnotherValue_IsAnsweredAsTheCapturedOne) {
  const char* captured = "00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 01 02 00 00 12 34";
  Replay replay({{from_hex(captured), from_hex("55")}});
  Session session;
  const Answer same_place =
      replay.handle(session, from_hex("00 00 00 0E FF FF FF F1 00 01 1E 01 00 06 00 00 00 01 01 02 00 00 99 99"));
  EXPECT_EQ(to_hex(same_place.reply), "55");
  const Answer other_place =
      replay.handle(session, from_hex("00 00 00 0E FF FF FF F1 00 02 1E 01 00 06 00 00 00 01 01 02 00 01 99 99"));
  EXPECT_EQ(other_place.findings.refused.size(), 1U);
  EXPECT_EQ(other_place.reply.size(), 14U);
}

// A capture of somebody else's traffic holds anything.
TEST(Replay, RequestsAndRepliesOfEveryLength_AreAnsweredWithTheirOwnBytes) {
  for (size_t request_bytes = 0; request_bytes <= 24; ++request_bytes) {
    for (size_t reply_bytes = 1; reply_bytes <= 24; ++reply_bytes) {
      const Bytes request(request_bytes, 0x11);
      const Bytes reply(reply_bytes, 0x55);
      Replay replay({{request, reply}});
      Session session;
      const Bytes answered = replay.handle(session, request).reply;
      Bytes expected = reply;
      for (size_t at = 8; at < 10 && at < reply_bytes && request_bytes >= 10; ++at) expected[at] = 0x11;
      EXPECT_EQ(to_hex(answered), to_hex(expected)) << request_bytes << " and " << reply_bytes;
    }
  }
}

TEST(Replay, RequestThatIsToBeRefused_IsRefusedWithAHead) {
  Replay replay({{from_hex(kResolveD), from_hex("55")}});
  Session session;
  session.refusal = 19;
  EXPECT_EQ(to_hex(replay.handle(session, from_hex(kResolveD)).reply), "00 00 00 04 FF FF FF FB 00 00 0C 28 00 13");
}

TEST(Replay, ReplyThatNoControllerSends_IsCut) {
  Replay replay({{from_hex(kResolveD), Bytes(20000, 0x55)}});
  Session session;
  EXPECT_EQ(replay.handle(session, from_hex(kResolveD)).reply.size(), 16384U);
}

TEST(PlcSim, ReplayOfARequestOfOneByte_AnswersItWithTheCapturedBytes) {
  TemporaryFile capture("");
  {
    PcapWriter writer([] { return uint64_t{0}; });
    ASSERT_EQ(writer.open(capture.path(), 8501), "");
    writer.opened(1, 50000);
    writer.received(1, from_hex(kDirectoryStart));
    writer.sent(1, from_hex("55"));
    writer.received(1, from_hex("00"));
    writer.sent(1, from_hex("01 02 03 04 05 06 07 08 09 0A 0B 0C"));
    writer.closed(1);
  }
  PlcSimProcess sim({"--fault", "wrong-sequence", "--replay", capture.path()});
  HostSocket host(PlcSimProcess::port_in(sim.read_line()));
  EXPECT_EQ(to_hex(host.exchange(kDirectoryStart)), "55");
  EXPECT_EQ(to_hex(host.exchange("00")), "01 02 03 04 05 06 07 08 09 0A 0B 0C");
  EXPECT_EQ(sim.finish(), 1);
}

TEST(PlcSim, CaptureOfOneRun_AnswersTheNextRunAlike) {
  TemporaryFile tags("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  TemporaryFile capture("");
  std::vector<std::string> recorded;
  {
    PlcSimProcess sim({"--sentinel", "--pcap", capture.path(), tags.path()});
    HostSocket host(PlcSimProcess::port_in(sim.read_line()));
    for (const char* frame : {kDirectoryStart, kDirectoryRead, kResolveD, kReadD}) {
      recorded.push_back(to_hex(host.exchange(frame)));
    }
    EXPECT_EQ(sim.finish(), 0);
  }
  PlcSimProcess replay({"--replay", capture.path()});
  HostSocket host(PlcSimProcess::port_in(replay.read_line()));
  std::vector<std::string> replayed;
  for (const char* frame : {kDirectoryStart, kDirectoryRead, kResolveD, kReadD}) {
    replayed.push_back(to_hex(host.exchange(frame)));
  }
  EXPECT_EQ(replayed, recorded);
  for (const char* command : {"set D 5", "show", "dump --json"}) {
    const std::string word = std::string(command).substr(0, std::string(command).find(' '));
    EXPECT_EQ(replay.command(command),
              "error: " + word + " needs variables, and a replay has none: what the capture holds is answered\n");
  }
  EXPECT_EQ(replay.finish(), 0);
}

// It goes on without the capture, and its exit code tells.
TEST(PlcSim, CaptureThatCannotBeWrittenFurther_IsSaidOnceAndEndsWithTwo) {
  TemporaryFile tags("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  const plc_test::TempDir folder;
  const std::string path = folder.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  PlcSimProcess sim({"--pcap", path, tags.path()});
  HostSocket host(PlcSimProcess::port_in(sim.read_line()));
  close(reader);
  EXPECT_EQ(to_hex(host.exchange(kDirectoryStart)), kDirectoryStart);
  EXPECT_FALSE(host.exchange(kDirectoryRead).empty());
  EXPECT_EQ(sim.finish(), 2);
  EXPECT_EQ(sim.errors(), "plc-sim: cannot write " + path + ": Broken pipe\n");
}

TEST(PlcSim, CaptureOnAFullDevice_EndsWithTwo) {
  TemporaryFile tags("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  PlcSimProcess sim({"--pcap", "/dev/full", tags.path()});
  EXPECT_EQ(sim.finish(), 2);
  EXPECT_EQ(
      sim.errors(),
      "plc-sim: cannot write /dev/full: No space left on device. Try: make room, or name a file on another disk\n");
}

TEST(PlcSim, ReplayWithTagFilesOrOfNothing_EndsWithTwo) {
  TemporaryFile tags("D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  TemporaryFile empty("");
  EXPECT_EQ(PlcSimProcess({"--replay", empty.path(), tags.path()}).finish(), 2);
  EXPECT_EQ(PlcSimProcess({"--replay", empty.path()}).finish(), 2);
  EXPECT_EQ(PlcSimProcess({"--pcap", "/nonexistent/x", tags.path()}).finish(), 2);
}

}  // namespace
}  // namespace plc_sim
