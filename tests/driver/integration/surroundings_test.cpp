// Tests of a transfer among what else there is on the panel: what stands in place of a tag file, and programs that the
// host starts.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/support/driver_fixture.h"
#include "tests/support/loopback.h"

namespace {

constexpr const char* kTag = "A1,INT,,,a,b,c,0,1,0,0,,DM\n";

class Surroundings : public plc_test::DriverFixture {
 protected:
  // A read, a write or a batch of one word.
  uint32_t transfer(size_t kind) {
    if (kind == 0) return read_id(0, 0, 1, word_);
    if (kind == 1) {
      RegRequest request = plc_test::request_for(0);
      RegValue value = {1, word_};
      return write(&request, &value);
    }
    BatchReadRequest element{};
    element.count = 1;
    return read_batch(&element, 1);
  }

  uint8_t word_[4] = {};
};

// Whether a program that this process starts has the descriptor.
bool child_has(int descriptor) {
  return std::system(("test -e /proc/self/fd/" + std::to_string(descriptor)).c_str()) == 0;
}

// Nobody writes into it: an open that waits would hold the host for ever.
TEST_F(Surroundings, PipeInPlaceOfATagFile_FailsEveryTransferAtOnce) {
  ASSERT_EQ(mkfifo("PLC7F000001_0.csv", 0600), 0);
  start_connected({});
  const std::string lines =
      "build tag table for PLC7F000001_0.csv\r\n"
      "[PLC] tag file PLC7F000001_0.csv rejected, line 0: it is not a regular file\r\n"
      "build tag table failed!";
  const std::string ends[] = {"", "\n", ""};
  std::string before = "server ip = 127.0.0.1\r\n";
  for (size_t i = 0; i < std::size(ends); ++i) {
    EXPECT_EQ(transfer(i), 3U);
    EXPECT_EQ(take_output(), before + lines + ends[i]);
    before.clear();
  }
  ASSERT_EQ(unlink("PLC7F000001_0.csv"), 0);
}

TEST_F(Surroundings, ProgramThatTheHostStarts_DoesNotInheritTheConnection) {
  write_tags(0, kTag);
  start_connected({plc_test::answer(plc_test::resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}})),
                   plc_test::answer(plc_test::value_reply({0x12, 0x34}))});
  EXPECT_EQ(read_id(0, 0, 1, word_), 0U);
  EXPECT_EQ(fcntl(conn_.socket_fd, F_GETFD), FD_CLOEXEC);
  EXPECT_FALSE(child_has(conn_.socket_fd));
  const plc_test::ScopedDescriptor inherited(dup(conn_.socket_fd));
  EXPECT_TRUE(child_has(inherited.get()));
}

}  // namespace
