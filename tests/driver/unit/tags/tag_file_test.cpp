// Tests of the step from a tag file to its arrays: lines that count, groups of indexed records, rejected files, memory
// that runs out.
#include "plc_driver/tags/tag_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "tests/support/captured_output.h"
#include "tests/support/descriptors.h"
#include "tests/support/loopback.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wrapped_calls.h"

namespace {

using plc_test::capture_output;
using plc_test::wrapped_calls;
using testing::Each;

constexpr uint32_t kUntouched = 0xEEEEEEEE;
constexpr off_t kMostBytes = 256 * 1024 * 1024;
constexpr const char* kNotRegular = "it is not a regular file";

// A line of twelve columns, which is classified by its id.
std::string line_of(const std::string& name, uint32_t id) {
  return name + ",INT,,,a,b,c," + std::to_string(id) + ",1,0,0,\n";
}

std::string lines_of(std::initializer_list<uint32_t> ids) {
  std::string lines;
  for (const uint32_t id : ids) lines += line_of("V" + std::to_string(id), id);
  return lines;
}

// count lines with consecutive ids.
std::string run_of(uint32_t first, uint32_t count) {
  std::string lines;
  for (uint32_t i = 0; i < count; ++i) lines += line_of("V", first + i);
  return lines;
}

class TagFile : public testing::Test {
 protected:
  TagFile() { group_ids_.fill(kUntouched); }
  ~TagFile() override {
    wrapped_calls().reset();
    release();
  }

  // Builds the arrays of a file with these lines. True when there is a result.
  bool build(const std::string& lines) {
    release();
    path_ = folder_.write("tags.csv", lines);
    return build_path();
  }

  bool build_path() {
    const int open_before = plc_test::count_open_descriptors();
    const uint32_t* counts = nullptr;
    output_ = capture_output([&] { counts = build_tagtable(&entries_, &groups_, path_.c_str(), group_ids_.data()); });
    EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
    if (counts != nullptr) counts_ = {counts[0], counts[1]};
    return counts != nullptr;
  }

  // Expects that the file is rejected on this line, with nothing stored.
  void expect_rejected(const std::string& lines, uint32_t line, const std::string& reason) {
    EXPECT_FALSE(build(lines));
    EXPECT_EQ(output_, "build tag table for " + path_ + "\r\n[PLC] tag file " + path_ + " rejected, line " +
                           std::to_string(line) + ": " + reason + "\r\n");
    EXPECT_EQ(entries_, nullptr);
    EXPECT_EQ(groups_, nullptr);
  }

  // Expects that what lies at path_ is rejected before any line of it is read.
  void expect_path_rejected(const std::string& reason) {
    EXPECT_FALSE(build_path());
    EXPECT_EQ(output_,
              "build tag table for " + path_ + "\r\n[PLC] tag file " + path_ + " rejected, line 0: " + reason + "\r\n");
    EXPECT_EQ(entries_, nullptr);
  }

  void release() {
    plc::free_tag_arrays(entries_, groups_);
    entries_ = nullptr;
    groups_ = nullptr;
  }

  uint32_t group_count() const {
    uint32_t count = 0;
    while (groups_ != nullptr && groups_[count].entries != nullptr) ++count;
    return count;
  }

  plc_test::TempDir folder_;
  std::string path_;
  std::string output_;
  TagEntry* entries_ = nullptr;
  IndexedTagEntry* groups_ = nullptr;
  std::array<uint32_t, 2048> group_ids_{};
  std::array<uint32_t, 2> counts_{};
};

using Counts = std::array<uint32_t, 2>;

TEST_F(TagFile, PlainLines_GiveRecordsInFileOrderAndNoGroups) {
  ASSERT_TRUE(build("First,INT,,,a,b,c,7,1,0,0,\nSecond,DINT,,,a,b,c,5,1,0,0,\nThird,BOOL,,,a,b,c,9,1,0,0,\n"));
  EXPECT_EQ(counts_, (Counts{3, 0}));
  EXPECT_STREQ(entries_[0].name, "First");
  EXPECT_STREQ(entries_[1].name, "Second");
  EXPECT_STREQ(entries_[2].name, "Third");
  EXPECT_EQ(entries_[1].tag_id, 5U);
  EXPECT_EQ(groups_, nullptr);
  EXPECT_THAT(group_ids_, Each(kUntouched));
  EXPECT_EQ(output_, "build tag table for " + path_ + "\r\n");
}

TEST_F(TagFile, OneRunOfIds_GivesOneGroup) {
  ASSERT_TRUE(build(lines_of({0x40000, 0x40001, 0x40002})));
  EXPECT_EQ(counts_, (Counts{0, 0x40002}));
  ASSERT_EQ(group_count(), 1U);
  EXPECT_EQ(groups_[0].count, 3);
  EXPECT_EQ(groups_[0].entries[0].tag_id, 0x40000U);
  EXPECT_EQ(groups_[0].entries[2].tag_id, 0x40002U);
  EXPECT_THAT(group_ids_, Each(kUntouched));
}

TEST_F(TagFile, FirstGroup_HasOneRecordToSpare_D7) {
  ASSERT_TRUE(build(lines_of({0x40000, 0x40001, 0x40002})));
  EXPECT_EQ(groups_[0].entries[3].tag_id, 0U);
  EXPECT_STREQ(groups_[0].entries[3].name, "");
}

TEST_F(TagFile, TwoRunsOfIds_GiveTwoGroupsAndTheNumberOfTheSecond) {
  ASSERT_TRUE(build(lines_of({0x40000, 0x40001, 0x42000, 0x42001})));
  EXPECT_EQ(counts_, (Counts{0, 0x42001}));
  ASSERT_EQ(group_count(), 2U);
  EXPECT_EQ(groups_[0].count, 2);
  EXPECT_EQ(groups_[1].count, 2);
  EXPECT_EQ(groups_[0].entries[2].tag_id, 0U);  // the spare record
  EXPECT_EQ(groups_[1].entries[0].tag_id, 0x42000U);
  EXPECT_EQ(groups_[1].entries[1].tag_id, 0x42001U);
  EXPECT_EQ(group_ids_[1], 1U);
  EXPECT_EQ(std::count(group_ids_.begin(), group_ids_.end(), kUntouched), 2047);
}

TEST_F(TagFile, PlainAndIndexedLines_MayBeMixed) {
  ASSERT_TRUE(build(line_of("P0", 1) + line_of("I0", 0x40000) + line_of("P1", 2) + line_of("I1", 0x40001)));
  EXPECT_EQ(counts_, (Counts{2, 0x40001}));
  EXPECT_STREQ(entries_[1].name, "P1");
  EXPECT_EQ(groups_[0].count, 2);
  EXPECT_STREQ(groups_[0].entries[1].name, "I1");
}

TEST_F(TagFile, LargestIndexedId_NeedNotBeTheLast) {
  ASSERT_TRUE(build(lines_of({0x42000, 0x42001, 0x40000, 0x40001})));
  EXPECT_EQ(counts_[1], 0x42001U);
  EXPECT_EQ(group_ids_[0], 1U);
}

TEST_F(TagFile, LastRunOfOneId_IsAGroup) {
  ASSERT_TRUE(build(lines_of({0x40000, 0x40001, 0x42000})));
  ASSERT_EQ(group_count(), 2U);
  EXPECT_EQ(groups_[1].count, 1);
  EXPECT_EQ(groups_[1].entries[0].tag_id, 0x42000U);
  ASSERT_TRUE(build(lines_of({0x40000})));
  ASSERT_EQ(group_count(), 1U);
  EXPECT_EQ(groups_[0].count, 1);
}

TEST_F(TagFile, EarlierRunOfOneId_RejectsTheFile_D7) {
  expect_rejected(lines_of({0x40000, 0x40001, 0x42000, 0x44000, 0x44001}), 4,
                  "its run of ids does not match the ids of column 8");
  EXPECT_EQ(group_ids_[1], 1U) << "what the first pass wrote stays";
  EXPECT_EQ(group_ids_[2], kUntouched) << "the id behind the first of a run continues it";
}

TEST_F(TagFile, EmptyFile_GivesTwoZeroCounts) {
  ASSERT_TRUE(build(""));
  EXPECT_EQ(counts_, (Counts{0, 0}));
  EXPECT_EQ(groups_, nullptr);
}

TEST_F(TagFile, LineWithoutALineEnd_DoesNotCount_D6) {
  ASSERT_TRUE(build(line_of("A", 1) + "B,INT,,,a,b,c,2,1,0,0,"));
  EXPECT_EQ(counts_[0], 1U);
  ASSERT_TRUE(build("A,INT,,,a,b,c,2,1,0,0,"));
  EXPECT_EQ(counts_[0], 0U);
}

TEST_F(TagFile, BlankAndHeadingLines_AreRecords) {
  ASSERT_TRUE(build("name,type,range,length,x,y,z,id,global\n\n" + line_of("A", 1)));
  EXPECT_EQ(counts_[0], 3U);
  EXPECT_STREQ(entries_[0].name, "name");
  EXPECT_STREQ(entries_[1].name, "");
  EXPECT_STREQ(entries_[2].name, "A");
}

TEST_F(TagFile, LineOf255Bytes_IsTakenWhole) {
  const std::string tail = ",INT,,,a,b,c,7,1,0,0,\n";
  const std::string name(255 - tail.size(), 'n');
  ASSERT_TRUE(build(name + tail));
  ASSERT_EQ(counts_[0], 1U);
  EXPECT_EQ(std::string(entries_[0].name), name);
  EXPECT_EQ(entries_[0].tag_id, 7U);
}

TEST_F(TagFile, LongerLine_LosesItsFirst255BytesAndTheRestIsALine_D6) {
  const std::string tail = "Rest,INT,,,a,b,c,7,1,0,0,\n";
  ASSERT_TRUE(build(std::string(255, 'x') + tail + line_of("Next", 8)));
  ASSERT_EQ(counts_[0], 2U);
  EXPECT_STREQ(entries_[0].name, "Rest");
  EXPECT_EQ(entries_[0].tag_id, 7U);
  EXPECT_STREQ(entries_[1].name, "Next");
  ASSERT_TRUE(build(std::string(255, 'x') + "\n"));
  EXPECT_EQ(counts_[0], 1U) << "the line feed alone is left";
  ASSERT_TRUE(build(std::string(2 * 255, 'x') + tail));
  ASSERT_EQ(counts_[0], 1U);
  EXPECT_STREQ(entries_[0].name, "Rest");
}

TEST_F(TagFile, LineWithAZeroByte_DoesNotCount) {
  ASSERT_TRUE(build(line_of("A", 1) + std::string("B\0,INT,,,a,b,c,2,1,0,0,\n", 24) + line_of("C", 3)));
  ASSERT_EQ(counts_[0], 2U);
  EXPECT_STREQ(entries_[1].name, "C");
}

TEST_F(TagFile, LineWithFewerThanFiveCommas_IsAPlainRecordInBothPasses) {
  ASSERT_TRUE(build(line_of("I0", 0x40000) + "1,2,3,4,5\n" + line_of("I1", 0x40001)));
  EXPECT_EQ(counts_, (Counts{1, 0x40001}));
  EXPECT_STREQ(entries_[0].name, "1");
  EXPECT_EQ(groups_[0].count, 2);
}

TEST_F(TagFile, FieldsThatALineDoesNotSet_AreZero) {
  ASSERT_TRUE(build("A\n"));
  EXPECT_EQ(entries_[0].type_code, 0);
  EXPECT_EQ(entries_[0].dim1_high, 0);
  EXPECT_EQ(entries_[0].is_global, 0);
  EXPECT_EQ(entries_[0].tag_id, 0U);
  EXPECT_EQ(entries_[0].device_kind, 30);
}

TEST_F(TagFile, LargerThanOneRead_IsReadWhole) {
  std::string lines;
  constexpr uint32_t kLines = 9000;  // some 300 KiB, and records of 5 MB, from which the driver asks for huge pages
  for (uint32_t i = 0; i < kLines; ++i) lines += line_of("Variable" + std::to_string(i), i);
  ASSERT_TRUE(build(lines));
  EXPECT_EQ(counts_, (Counts{kLines, 0}));
  EXPECT_STREQ(entries_[kLines - 1].name, "Variable8999");
}

// Sparse: nothing but its first line takes room.
TEST_F(TagFile, FileOf256MiB_IsReadWhole) {
  path_ = folder_.write("large.csv", line_of("A", 1));
  ASSERT_EQ(truncate(path_.c_str(), kMostBytes), 0);
  ASSERT_TRUE(build_path());
  EXPECT_EQ(counts_, (Counts{1, 0}));
}

TEST_F(TagFile, FileAbove256MiB_IsRejectedUnread) {
  path_ = folder_.write("large.csv", line_of("A", 1));
  ASSERT_EQ(truncate(path_.c_str(), kMostBytes + 1), 0);
  wrapped_calls().allocations_until_failure = 0;
  expect_path_rejected("larger than 256 MiB");
  EXPECT_EQ(wrapped_calls().failed_allocations, 0) << "no memory is taken for it";
}

TEST_F(TagFile, Device_IsRejected) {
  for (const char* device : {"/dev/zero", "/dev/null"}) {
    path_ = device;
    expect_path_rejected(kNotRegular);
  }
}

TEST_F(TagFile, Folder_IsRejected) {
  path_ = folder_.path();
  expect_path_rejected(kNotRegular);
}

// Nobody writes into it: an open that waits would never return.
TEST_F(TagFile, Pipe_IsRejectedAtOnce) {
  const std::string pipe = folder_.file("pipe.csv");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  path_ = pipe;
  expect_path_rejected(kNotRegular);
  path_ = folder_.file("link.csv");
  ASSERT_EQ(symlink(pipe.c_str(), path_.c_str()), 0);
  expect_path_rejected(kNotRegular);
}

TEST_F(TagFile, PipeWithLinesInIt_IsRejectedAndKeepsThem) {
  path_ = folder_.file("pipe.csv");
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  const plc_test::ScopedDescriptor both_ends(open(path_.c_str(), O_RDWR | O_CLOEXEC));
  const std::string line = line_of("A", 1);
  ASSERT_EQ(write(both_ends.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
  expect_path_rejected(kNotRegular);
  std::string left(line.size(), 0);
  EXPECT_EQ(read(both_ends.get(), left.data(), left.size()), static_cast<ssize_t>(line.size()));
  EXPECT_EQ(left, line);
}

TEST_F(TagFile, SocketFile_CannotBeOpened) {
  const plc_test::ScopedDescriptor socket_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  path_ = folder_.file("socket.csv");
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path_.size(), sizeof address.sun_path);
  path_.copy(address.sun_path, path_.size());
  ASSERT_EQ(bind(socket_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_FALSE(build_path());
  EXPECT_THAT(output_, testing::HasSubstr("[PLC] open " + path_ + " file failed, at line: "));
}

TEST_F(TagFile, LinkToAFile_IsTheFile) {
  const std::string target = folder_.write("target.csv", line_of("Linked", 1));
  path_ = folder_.file("link.csv");
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  ASSERT_TRUE(build_path());
  EXPECT_STREQ(entries_[0].name, "Linked");
}

// A date that a 32-bit time does not hold.
TEST_F(TagFile, FileOfTheYear2040_IsRead) {
  path_ = folder_.write("tags.csv", line_of("A", 1));
  ASSERT_EQ(std::system(("touch -d 2040-01-01 '" + path_ + "'").c_str()), 0);
  EXPECT_TRUE(build_path());
}

// A process without a terminal that opens one gets it as its own, and with it the signals of its keys.
TEST_F(TagFile, Terminal_DoesNotBecomeTheHosts) {
  const plc_test::ScopedDescriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(grantpt(master.get()), 0);
  ASSERT_EQ(unlockpt(master.get()), 0);
  path_ = ptsname(master.get());
  EXPECT_EXIT(
      {
        setsid();
        build_path();
        std::_Exit(open("/dev/tty", O_RDWR | O_CLOEXEC) < 0 && errno == ENXIO ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(TagFile, MissingFile_PrintsAndGivesNull) {
  path_ = folder_.file("absent.csv");
  EXPECT_FALSE(build_path());
  EXPECT_THAT(output_, testing::MatchesRegex("build tag table for " + path_ + "\r\n\\[PLC\\] open " + path_ +
                                             " file failed, at line: [0-9]+\r\n"));
  EXPECT_EQ(entries_, nullptr);
}

TEST_F(TagFile, PercentSignsInThePath_ArePlainText) {
  path_ = folder_.file("%n%s.csv");
  EXPECT_FALSE(build_path());
  EXPECT_THAT(output_,
              testing::StartsWith("build tag table for " + path_ + "\r\n[PLC] open " + path_ + " file failed"));
}

TEST_F(TagFile, HundredIdsCountedInARun_AreAccepted) {
  ASSERT_TRUE(build(run_of(0x40000, 100)));
  EXPECT_EQ(groups_[0].count, 100);
  // The id that starts a later run is not counted in it.
  ASSERT_TRUE(build(run_of(0x40000, 2) + run_of(0x42000, 101)));
  EXPECT_EQ(groups_[1].count, 101);
  EXPECT_EQ(groups_[1].entries[100].tag_id, 0x42064U);
}

TEST_F(TagFile, MoreThan100IdsInARun_RejectTheFile) {
  expect_rejected(run_of(0x40000, 101), 101, "more than 100 ids in a run");
  expect_rejected(run_of(0x40000, 2) + run_of(0x42000, 102), 104, "more than 100 ids in a run");
  EXPECT_EQ(group_ids_[1], 1U) << "what the first pass wrote stays";
}

TEST_F(TagFile, HundredGroups_AreAccepted) {
  std::string lines;
  for (uint32_t g = 0; g < 100; ++g) lines += run_of(0x40000 + 0x2000 * g, 2);
  ASSERT_TRUE(build(lines));
  EXPECT_EQ(group_count(), 100U);
  EXPECT_EQ(group_ids_[99], 99U);
  expect_rejected(lines + run_of(0x40000 + 0x2000 * 100, 2), 201, "more than 100 runs of ids");
}

TEST_F(TagFile, GroupStartAboveTheBlocks_RejectsTheFile) {
  // 0x1040000 is the first id behind the last of 2048 blocks.
  const std::string reason = "the first id of a run is above the 2048 blocks of ids";
  expect_rejected(lines_of({0x1040000, 0x1040001}), 1, reason);
  expect_rejected(lines_of({0x40000, 0x40001, 0x1040000}), 3, reason);
  expect_rejected(lines_of({0x40000, 0x40001, 0x7FFFFFFF}), 3, reason);
  ASSERT_TRUE(build(lines_of({0x40000, 0x40001, 0x103E000, 0x103E001})));
  EXPECT_EQ(group_ids_[2047], 1U);
}

TEST_F(TagFile, NegativeId_IsAnIdAboveTheBlocks) {
  expect_rejected("A,INT,,,a,b,c,-1,1,0,0,\n", 1, "the first id of a run is above the 2048 blocks of ids");
}

TEST_F(TagFile, MoreRecordsThanTheFirstPassCounted_RejectTheFile) {
  // Column 9 classifies the line and column 8 numbers the record: the second pass goes on in one group where the first
  // has started another.
  const std::string line = "A,INT,,,a,b,c,262143,262144,0,0,,DM\n";
  expect_rejected(line + line + line, 3, "its run of ids does not match the ids of column 8");
}

TEST_F(TagFile, RejectedLine_IsCountedInLineFeeds) {
  expect_rejected("\n\n" + lines_of({0x1040000}), 3, "the first id of a run is above the 2048 blocks of ids");
}

TEST_F(TagFile, FailedClose_PrintsAndGivesNull) {
  wrapped_calls().fail_closing = true;
  EXPECT_FALSE(build(lines_of({1, 0x40000, 0x40001})));
  EXPECT_EQ(wrapped_calls().failed_closes, 1);
  EXPECT_EQ(output_, "build tag table for " + path_ + "\r\nClose csv file error!!!\r\n");
  EXPECT_EQ(entries_, nullptr);
}

TEST_F(TagFile, EachRefusedAllocation_PrintsItsLineAndGivesEverythingBack) {
  const std::string lines = lines_of({1, 0x40000, 0x40001, 0x42000, 0x42001});
  const std::array<const char*, 5> expected = {"malloc tag_str failed", "malloc tag_str failed",
                                               "malloc indexedtag_table failed", "malloc indextag failed",
                                               "malloc indextag failed"};
  for (size_t i = 0; i < expected.size(); ++i) {
    wrapped_calls().reset();
    wrapped_calls().allocations_until_failure = static_cast<int>(i);
    EXPECT_FALSE(build(lines)) << i;
    EXPECT_EQ(wrapped_calls().failed_allocations, 1) << i;
    EXPECT_EQ(output_, "build tag table for " + path_ + "\r\n" + expected[i]) << i;
    EXPECT_EQ(entries_, nullptr) << i;
  }
  wrapped_calls().reset();
  wrapped_calls().allocations_until_failure = static_cast<int>(expected.size());
  EXPECT_TRUE(build(lines)) << "no allocation beyond those";
}

TEST_F(TagFile, EveryBuild_ReturnsTheSamePair) {
  ASSERT_TRUE(build(lines_of({1})));
  TagEntry* other_entries = nullptr;
  IndexedTagEntry* other_groups = nullptr;
  uint32_t* first = nullptr;
  uint32_t* second = nullptr;
  capture_output([&] {
    first = build_tagtable(&other_entries, &other_groups, path_.c_str(), group_ids_.data());
    plc::free_tag_arrays(other_entries, other_groups);
    second = build_tagtable(&other_entries, &other_groups, path_.c_str(), group_ids_.data());
    plc::free_tag_arrays(other_entries, other_groups);
  });
  EXPECT_EQ(first, second);
}

}  // namespace
