// Tests of the pcapng files that are written: their bytes, what is read of them, and files that end early.
#include "wire/captures/pcapng_writer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "tests/support/temp_dir.h"
#include "tests/wire/file_limit.h"
#include "tests/wire/trace_fixture.h"
#include "wire/big_endian.h"
#include "wire/captures/capture.h"
#include "wire/exchange.h"

namespace {

using plc_sim::Bytes;
using plc_sim::PcapngWriter;
using plc_test::from_hex;
using trace_test::kReadD;
using trace_test::kResolveD;
using trace_test::kResolveReply;

constexpr uint16_t kPort = 8501;
constexpr uint64_t kSomeTime = 1767225600123456789;

std::string text_of(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

struct Block {
  uint32_t type = 0;
  Bytes body;
};

// Blocks whose two lengths agree, and how many bytes lie behind them.
struct Blocks {
  std::vector<Block> blocks;
  size_t rest = 0;

  explicit Blocks(const std::string& file) {
    const plc_sim::ByteView view(file.data(), file.size());
    size_t at = 0;
    while (at + 12 <= file.size()) {
      const size_t size = view.u32(at + 4);
      if (size < 12 || size % 4 != 0 || at + size > file.size() || view.u32(at + size - 4) != size) break;
      blocks.push_back({view.u32(at), view.part(at + 8, size - 12).bytes()});
      at += size;
    }
    rest = file.size() - at;
  }

  size_t packets() const {
    size_t count = 0;
    for (const Block& block : blocks) count += block.type == 6 ? 1 : 0;
    return count;
  }
};

PcapngWriter::Origin plain_origin() { return {{kPort, 0x0A000002, 0x0A000001}, "plc-host 1.1.0", ""}; }

TEST(PcapngWriter, OneByte_IsTheseBlocks) {
  const plc_test::TempDir folder;
  {
    PcapngWriter writer([] { return kSomeTime; });
    ASSERT_EQ(writer.open(folder.file("x"), {{kPort, 0x0A000002, 0x0A000001}, "made", "a comment"}), "");
    writer.opened(1, 0xC001);
    writer.received(1, from_hex("AA"));
    writer.comment("first");
    writer.comment("second");
    EXPECT_EQ(writer.packets(), 4U);
  }
  const Blocks file(folder.read("x"));
  EXPECT_EQ(file.rest, 0U);
  ASSERT_EQ(file.blocks.size(), 6U);
  EXPECT_EQ(file.blocks[0].type, 0x0A0D0D0AU);
  EXPECT_EQ(file.blocks[0].body, from_hex("1A 2B 3C 4D 00 01 00 00 FF FF FF FF FF FF FF FF "
                                          "00 01 00 09 61 20 63 6F 6D 6D 65 6E 74 00 00 00 "
                                          "00 04 00 04 6D 61 64 65 00 00 00 00"));
  EXPECT_EQ(file.blocks[1].type, 1U);
  EXPECT_EQ(file.blocks[1].body, from_hex("00 01 00 00 00 00 FF FF 00 09 00 01 09 00 00 00 00 00 00 00"));
  EXPECT_EQ(file.blocks[5].type, 6U);
  EXPECT_EQ(file.blocks[5].body,
            from_hex("00 00 00 00 18 86 72 51 F5 55 CD 15 00 00 00 37 00 00 00 37 "
                     "00 00 00 00 00 00 00 00 00 00 00 00 08 00 "
                     "45 00 00 29 00 00 40 00 40 06 26 CD 0A 00 00 02 0A 00 00 01 "
                     "C0 01 21 35 00 00 03 E9 00 00 07 D1 50 18 FF FF 04 D8 00 00 AA 00 "
                     "00 01 00 05 66 69 72 73 74 00 00 00 00 01 00 06 73 65 63 6F 6E 64 00 00 00 00 00 00"));
}

TEST(PcapngWriter, WrittenConnections_AreReadBack) {
  const plc_test::TempDir folder;
  uint64_t now = kSomeTime;
  PcapngWriter writer([&now] { return now++; });
  ASSERT_EQ(writer.open(folder.file("x"), plain_origin()), "");
  writer.opened(1, 9000);
  writer.received(1, from_hex(kResolveD));
  writer.sent(1, from_hex(kResolveReply));
  writer.refused(2, 9001);
  writer.unheard(3, 9002);
  writer.received(1, from_hex(kReadD));
  writer.reset(1, false);
  EXPECT_EQ(writer.close(), "");
  const wire_trace::CapturedRecording read = wire_trace::read_recording_file(folder.file("x"), kPort);
  EXPECT_EQ(read.problem, "");
  ASSERT_EQ(read.recording.connections.size(), 3U);
  EXPECT_TRUE(read.recording.connections[1].is_refused);
  EXPECT_FALSE(read.recording.connections[2].is_refused);
  const std::vector<wire_trace::Exchange> exchanges = wire_trace::find_exchanges(read.recording);
  ASSERT_EQ(exchanges.size(), 2U);
  EXPECT_EQ(exchanges[0].request_bytes, from_hex(kResolveD));
  EXPECT_EQ(exchanges[0].request_ns, static_cast<int64_t>(kSomeTime) + 3);
  EXPECT_EQ(exchanges[0].reply(), from_hex(kResolveReply));
  EXPECT_EQ(exchanges[1].ending, wire_trace::Ending::kReset);
}

TEST(PcapngWriter, CommentsOfAnyBytes_AreOneLineOfWholeCharacters) {
  const plc_test::TempDir folder;
  std::string longer = "x";
  for (int i = 0; i < 3000; ++i) longer += "\xC3\xA4";
  {
    PcapngWriter writer([] { return uint64_t{0}; });
    ASSERT_EQ(writer.open(folder.file("x"), plain_origin()), "");
    writer.comment("nothing to say this of");
    writer.unheard(1, 9000);
    writer.comment("a\n\x1b[2J\xff");
    writer.comment(longer);
    writer.comment("");
  }
  const std::string file = folder.read("x");
  EXPECT_NE(file.find("a\\n\\x1b[2J\\xff"), std::string::npos);
  EXPECT_EQ(file.find("nothing to say"), std::string::npos);
  const size_t at = file.find("x\xC3\xA4\xC3\xA4");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(text_of({static_cast<uint8_t>(file[at - 2]), static_cast<uint8_t>(file[at - 1])}), "\x0F\x9F");  // 3999
  EXPECT_EQ(Blocks(file).rest, 0U);
}

TEST(PcapngWriter, LargePieces_AreSeveralPackets) {
  const plc_test::TempDir folder;
  PcapngWriter writer([] { return uint64_t{0}; });
  ASSERT_EQ(writer.open(folder.file("x"), plain_origin()), "");
  writer.opened(1, 9000);
  writer.sent(1, Bytes(70000, 0x11));
  EXPECT_EQ(writer.packets(), 6U);
  EXPECT_EQ(writer.close(), "");
  EXPECT_EQ(Blocks(folder.read("x")).packets(), 6U);
}

// Whatever the limit, the file ends with a whole block, and the failure is told once.
TEST(PcapngWriter, PacketsThatDoNotFit_AreLeftOutWhole) {
  const plc_test::TempDir folder;
  std::map<size_t, size_t> packets;
  for (const rlim_t limit : {10U, 100U, 120U, 200U, 300U, 380U, 500U}) {
    const trace_test::FileLimit limited(limit);
    size_t told = 0;
    PcapngWriter writer([] { return uint64_t{0}; });
    writer.on_failure([&told](const std::string& problem) {
      EXPECT_EQ(problem, "File too large");
      ++told;
    });
    static_cast<void>(writer.open(folder.file("x"), plain_origin()));
    writer.opened(1, 50000);
    writer.received(1, Bytes(400, 0x11));
    EXPECT_EQ(writer.close(), "File too large");
    EXPECT_EQ(told, 1U);
    const Blocks file(folder.read("x"));
    EXPECT_EQ(file.rest, 0U) << limit;
    packets[limit] = file.packets();
  }
  EXPECT_EQ(packets[100], 0U);
  EXPECT_EQ(packets[200], 1U);
  EXPECT_EQ(packets[300], 2U);
  EXPECT_EQ(packets[500], 3U);
}

TEST(PcapngWriter, FileThatCannotBeMade_IsSaid) {
  PcapngWriter writer;
  EXPECT_EQ(writer.open("/nonexistent/x", plain_origin()), "No such file or directory");
  writer.opened(1, 9000);
  EXPECT_EQ(writer.close(), "");
}

}  // namespace
