// Workers that end, also where no thread is left to wait for them.
#include "tools/plc_gateway/service/worker_end.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/without_threads.h"
#include "tests/tools/plc_gateway/tag_line.h"

namespace plc_gateway_test {
namespace {

std::unique_ptr<plc_gateway::ControllerWorker> idle_worker(const plc_test::TempDir& folder) {
  folder.write("PLC7F000001_0.csv", tag_line("Speed", "INT"));
  plc_client::Options options;
  options.address = "127.0.0.1";
  options.tags = {folder.path()};
  options.driver = PLC_TEST_GUARDED;
  return std::make_unique<plc_gateway::ControllerWorker>(options, "127.0.0.1", std::vector<plc_gateway::Variable>(),
                                                         std::vector<plc_gateway::CommandRule>(), [] {});
}

TEST(WorkerEnds, IdleWorker_EndsAtOnce) {
  const plc_test::TempDir folder;
  plc_gateway::WorkerEnds ends;
  ends.add(idle_worker(folder));
  EXPECT_TRUE(ends.all_ended());
}

TEST(WorkerEnds, WithoutAThreadForIt_TheWorkerStaysUntilTheEnd) {
  const plc_test::TempDir folder;
  plc_gateway::WorkerEnds ends;
  auto worker = idle_worker(folder);
  {
    const WithoutRoomForThreads limit;
    ends.add(std::move(worker));
  }
  EXPECT_FALSE(ends.all_ended());
  ends.add(idle_worker(folder));
  EXPECT_FALSE(ends.all_ended());
}

}  // namespace
}  // namespace plc_gateway_test
