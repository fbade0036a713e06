// What loading a tag file takes from the system: every allocation of a file with many groups, the advice for large
// tables, and the mapping for the strings of batches.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_table.h"
#include "tests/driver/faults/transfer_faults.h"

namespace plc_test {
namespace {

class LoadFaults : public FaultFixture {};

// Three groups: two plain records' array, the groups' array, three arrays of records, the table's node and its name.
TEST_F(LoadFaults, AnyAllocationOfAFileWithGroupsRefused_LosesNothingAndTheNextCallLoads) {
  std::string tags = "A,INT,,,,,,0,1,0,0,\n";
  for (int block = 0; block < 3; ++block) {
    for (int i = 0; i < 2; ++i) tags += "G,INT,,,,,," + std::to_string(0x40000 + 0x2000 * block + i) + ",1,0,0,\n";
  }
  folder_.write("PLC7F000001_0.csv", tags);
  const Call kinds[] = {Call::kRealloc, Call::kCalloc, Call::kMalloc};
  const int allocations[] = {1, 6, 1};
  for (size_t kind = 0; kind < 3; ++kind) {
    for (int nth = 0; nth < allocations[kind]; ++nth) {
      for (const bool from_then_on : {false, true}) {
        SCOPED_TRACE(testing::Message() << name_of(kinds[kind]) << " " << nth);
        start_over();
        const Seen seen = run(Transfer::kRead, Fault{kinds[kind], nth, from_then_on, fails_with(ENOMEM)});
        EXPECT_EQ(seen.calls.faults_met, 1);
        EXPECT_EQ(seen.result, uint32_t{PLC_FAILED});
        EXPECT_EQ(seen.calls.live_blocks, 0);
        EXPECT_EQ(seen.calls.open_files, 0);
        const Seen next = run(Transfer::kRead);
        EXPECT_EQ(next.result, uint32_t{PLC_OK}) << next.lines;
        EXPECT_EQ(next.calls.live_blocks, 7);
        EXPECT_EQ(free_tables(), 7);
      }
    }
  }
}

// A text that grows while it is read: every growth refused.
TEST_F(LoadFaults, AnyGrowthOfALongFileRefused_LosesNothing) {
  std::string tags;
  for (int line = 0; line < 2000; ++line) tags += "A,INT,,,,,," + std::to_string(line) + ",1,0,0,\n";
  folder_.write("PLC7F000001_0.csv", tags);
  start_over();
  const int growths = run(Transfer::kRead).calls.count(Call::kRealloc);
  EXPECT_GE(growths, 4);
  for (int nth = 0; nth < growths; ++nth) {
    start_over();
    const Seen seen = run(Transfer::kRead, Fault{Call::kRealloc, nth, false, fails_with(ENOMEM)});
    EXPECT_EQ(seen.calls.faults_met, 1);
    EXPECT_EQ(seen.result, uint32_t{PLC_FAILED});
    EXPECT_EQ(seen.lines,
              "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\nmalloc tag_str failedbuild tag table "
              "failed!");
    EXPECT_EQ(seen.calls.live_blocks, 0);
    EXPECT_EQ(run(Transfer::kRead).result, uint32_t{PLC_OK});
  }
}

// A file that breaks off half-way is no file: nothing is kept of it, and the next call reads it whole.
TEST_F(LoadFaults, TagFileThatCannotBeReadToItsEnd_IsNotKept) {
  const Fault faults[] = {{Call::kRead, 0, false, stops_after(60)}, {Call::kRead, 1, false, fails_with(EIO)}};
  const Seen seen = run(Transfer::kBatch, faults, 2);
  EXPECT_EQ(seen.calls.faults_met, 2);
  EXPECT_EQ(seen.result, uint32_t{PLC_FAILED});
  EXPECT_EQ(seen.lines,
            "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\n[PLC] tag file PLC7F000001_0.csv "
            "rejected, line 0: it cannot be read to its end\r\nbuild tag table failed!");
  EXPECT_EQ(seen.calls.live_blocks, 0);
  EXPECT_EQ(seen.calls.open_files, 0);
  EXPECT_EQ(run(Transfer::kBatch).result, uint32_t{PLC_OK});
}

// The files of /proc say that they are empty, and some have no end.
TEST_F(LoadFaults, FileLongerThanItSays_IsReadToItsEndButNotBeyond256MiB) {
  const Fault says_nothing = {Call::kFstat, 0, false, stops_after(0)};
  EXPECT_EQ(run(Transfer::kRead, says_nothing).result, uint32_t{PLC_OK});
  ASSERT_EQ(truncate("PLC7F000001_0.csv", 256 * 1024 * 1024 + 1), 0);
  start_over();
  const Seen seen = run(Transfer::kRead, says_nothing);
  EXPECT_EQ(seen.calls.faults_met, 1);
  EXPECT_EQ(seen.result, uint32_t{PLC_FAILED});
  EXPECT_EQ(seen.lines,
            "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\n[PLC] tag file PLC7F000001_0.csv "
            "rejected, line 0: larger than 256 MiB\r\nbuild tag table failed!");
  EXPECT_EQ(seen.calls.live_blocks, 0);
}

// From 4 MiB of records on the driver asks for huge pages; it does not need them.
TEST_F(LoadFaults, AdviceThatTheSystemRefuses_IsNotMissed) {
  std::string tags;
  for (int line = 0; line < 8000; ++line) tags += "A,INT,,,,,," + std::to_string(line) + ",1,0,0,\n";
  folder_.write("PLC7F000001_0.csv", tags);
  for (const Outcome& outcome : outcomes_of(Call::kMadvise)) {
    start_over();
    const Seen seen = run(Transfer::kRead, Fault{Call::kMadvise, 0, true, outcome});
    EXPECT_EQ(seen.calls.faults_met, 1);
    EXPECT_EQ(seen.result, uint32_t{PLC_OK}) << seen.lines;
    EXPECT_EQ(value_, kPeerValue);
  }
}

// 7490 records of 560 bytes are the first that take 4 MiB. The advice is for whole pages, none of another block.
TEST_F(LoadFaults, AdviceForALargeTable_IsForItsWholePages) {
  for (const int lines : {7489, 7490, 7495}) {
    std::string tags;
    for (int line = 0; line < lines; ++line) tags += "A,INT,,,,,," + std::to_string(line) + ",1,0,0,\n";
    folder_.write("PLC7F000001_0.csv", tags);
    start_over();
    const Seen seen = run(Transfer::kRead);
    EXPECT_EQ(seen.result, uint32_t{PLC_OK}) << seen.lines;
    EXPECT_EQ(seen.calls.count(Call::kMadvise), lines < 7490 ? 0 : 1);
    if (lines < 7490) continue;
    constexpr uintptr_t kPage = 4096;
    const auto first = reinterpret_cast<uintptr_t>(get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv")->entries);
    const uintptr_t end = first + static_cast<uintptr_t>(lines) * sizeof(TagEntry);
    EXPECT_EQ(last_advice().first, (first + kPage - 1) / kPage * kPage);
    EXPECT_EQ(last_advice().end, last_advice().first + (end - last_advice().first) / kPage * kPage);
    EXPECT_EQ(last_advice().advice, MADV_HUGEPAGE);
  }
}

// The mapping is made once in a process: this is the only test here that reads strings in a batch.
TEST_F(LoadFaults, StringsOfABatchWithoutMemoryBelow4GiB_AreReadAsZero) {
  folder_.write("PLC7F000001_0.csv", "Text,STRING,,4,,,,0,1,0,0,\n");
  start_over();
  BatchReadRequest element = {};
  element.count = 1;
  const auto read = [&](const Fault* faults, size_t count) {
    CapturedOutput captured;
    WatchedCalls watched(faults, count);
    element.value = 7;
    const uint32_t result = ev_OMRON_plc_read(&element, 1, &conn_);
    EXPECT_EQ(result, uint32_t{PLC_OK});
    return watched.end();
  };
  for (const int error : {EACCES, EAGAIN, EINVAL, ENFILE, ENODEV, ENOMEM, EPERM}) {
    const Fault fault = {Call::kMmap, 0, true, fails_with(error)};
    EXPECT_EQ(read(&fault, 1).faults_met, 15) << "all addresses are tried";
    EXPECT_EQ(element.value, 0U);
  }
  const Fault first = {Call::kMmap, 0, false, fails_with(ENOMEM)};
  EXPECT_EQ(read(&first, 1).faults_met, 1);
  EXPECT_NE(element.value, 0U) << "the next address is taken";
  EXPECT_EQ(read(nullptr, 0).count(Call::kMmap), 0) << "once for the process";
  EXPECT_NE(element.value, 0U);
}

}  // namespace
}  // namespace plc_test
