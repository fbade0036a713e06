// plc-sim with a profile, over real connections: who is served, what becomes of half-closed connections, and mistakes.
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kResolveD;
using test::from_hex;
using test::HostSocket;
using test::PlcSimProcess;
using test::TemporaryFile;
using testing::HasSubstr;

constexpr const char* kOneTag = "D,INT,,,a,b,c,0,1,0,0,,DM1\n";

struct Imitating {
  explicit Imitating(const std::string& toml) : profile(toml), process({"--profile", profile.path(), tags.path()}) {
    port = PlcSimProcess::port_in(process.read_line());
  }
  TemporaryFile tags{kOneTag};
  TemporaryFile profile;
  PlcSimProcess process;
  uint16_t port = 0;
};

TEST(PlcSimProfile, OneConnectionOnly_RefusesAnotherUntilItEnds) {
  Imitating sim("[connections]\nmost = 1\none_more = \"refused\"\n");
  {
    const HostSocket first(sim.port);
    EXPECT_EQ(first.exchange(kDirectoryStart).size(), 16U);
    EXPECT_FALSE(HostSocket(sim.port).is_connected());
    EXPECT_EQ(first.exchange(kDirectoryRead).size(), 15U);
  }
  // Its end reaches plc-sim before the next command does.
  bool is_back = false;
  for (int i = 0; i < 1000 && !is_back; ++i) {
    sim.process.command("counts");
    is_back = HostSocket(sim.port).is_connected();
  }
  EXPECT_TRUE(is_back);
}

TEST(PlcSimProfile, OneMoreConnection_IsClosed) {
  const Imitating sim("[connections]\nmost = 1\none_more = \"closed\"\n");
  const HostSocket first(sim.port);
  EXPECT_EQ(first.exchange(kDirectoryStart).size(), 16U);
  const HostSocket second(sim.port);
  ASSERT_TRUE(second.is_connected());
  EXPECT_TRUE(second.receive().empty());
  EXPECT_EQ(first.exchange(kDirectoryRead).size(), 15U);
}

TEST(PlcSimProfile, OneMoreConnection_IsNeverAnswered) {
  Imitating sim("[connections]\nmost = 1\none_more = \"silent\"\n");
  const HostSocket first(sim.port);
  EXPECT_EQ(first.exchange(kDirectoryStart).size(), 16U);
  const HostSocket second(sim.port);
  second.send(from_hex(kDirectoryStart));
  EXPECT_EQ(first.exchange(kDirectoryRead).size(), 15U);
  while (sim.process.command("counts").find("requests 3\n") == std::string::npos) {
  }
  uint8_t byte = 0;
  EXPECT_EQ(recv(second.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
}

TEST(PlcSimProfile, HalfClosedConnection_IsAnsweredHoweverLate) {
  const Imitating sim("[times]\ndirectory_start_ms = 30\n");
  const HostSocket host(sim.port);
  host.send(from_hex(kDirectoryStart));
  shutdown(host.descriptor(), SHUT_WR);
  EXPECT_EQ(host.receive().size(), 16U);
  EXPECT_TRUE(host.receive().empty());
}

TEST(PlcSimProfile, HalfClosedConnection_IsNotAnswered) {
  const Imitating sim("[connections]\nhalf_closed = \"not answered\"\n[times]\ndirectory_start_ms = 2000\n");
  const HostSocket host(sim.port);
  host.send(from_hex(kDirectoryStart));
  shutdown(host.descriptor(), SHUT_WR);
  EXPECT_TRUE(host.receive().empty());
}

TEST(PlcSimProfile, Segments_AreAnnouncedToHosts) {
  const Imitating sim("[connections]\nsegment_bytes = 536\n");
  const HostSocket host(sim.port);
  int bytes = 0;
  socklen_t length = sizeof bytes;
  ASSERT_EQ(getsockopt(host.descriptor(), IPPROTO_TCP, TCP_MAXSEG, &bytes, &length), 0);
  EXPECT_LE(bytes, 536);
}

TEST(PlcSimProfile, JudgeSaysNothing_OfWhatTheProfileCauses) {
  Imitating sim("[replies]\npiece_bytes = 8\n[limits]\nnames = 1\n");
  const HostSocket host(sim.port);
  // A host that takes what comes first for the whole reply.
  host.exchange(kDirectoryStart);
  host.exchange(kDirectoryRead);
  host.exchange(kResolveD);
  host.exchange("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 00 00 01 00 00 00 00");
  EXPECT_EQ(sim.process.finish(), 0) << sim.process.errors();
}

TEST(PlcSimProfile, Mistakes_EndItWithTheirPlace) {
  const TemporaryFile tags(kOneTag);
  const TemporaryFile bad("[replies]\nlenght = \"zero\"\n\n[reply]\n");
  PlcSimProcess process({"--profile", bad.path(), tags.path()});
  EXPECT_EQ(process.finish(), 2);
  EXPECT_THAT(process.errors(),
              HasSubstr(bad.path() + ":2:1: unknown key 'lenght' in [replies]; did you mean length?\n"));
  EXPECT_THAT(process.errors(), HasSubstr(bad.path() + ":4:2: unknown section 'reply'"));

  PlcSimProcess missing({"--profile", "/nonexistent/p.toml", tags.path()});
  EXPECT_EQ(missing.finish(), 2);
  EXPECT_THAT(missing.errors(),
              HasSubstr("plc-sim: --profile: cannot read /nonexistent/p.toml: No such file or directory. Try: "));

  PlcSimProcess both({"--profile", bad.path(), "--replay", bad.path()});
  EXPECT_EQ(both.finish(), 2);
  EXPECT_THAT(both.errors(), HasSubstr("--profile and --replay exclude each other"));
}

TEST(PlcSimProfile, WhatCannotBeImitated_IsTold) {
  Imitating sim("[times]\nconnect_ms = 300\n[[refused]]\nname = \"E\"\n");
  EXPECT_EQ(sim.process.finish(), 0);
  EXPECT_THAT(sim.process.errors(), HasSubstr("plc-sim: warning: the profile refuses E, which no tag file declares\n"));
  EXPECT_THAT(sim.process.errors(), HasSubstr("plc-sim: warning: the profile's connect_ms is not imitated"));
}

}  // namespace
}  // namespace plc_sim
