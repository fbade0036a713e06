// Takes what the gateway needs, or tells what is missing.
#include "tools/plc_gateway/service/resources.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "base/descriptors.h"
#include "base/no_memory.h"
#include "base/text.h"
#include "tools/plc_gateway/journal/database.h"
#include "tools/plc_gateway/service/exit_codes.h"
#include "tools/plc_gateway/service/threads.h"

namespace plc_gateway {
namespace {

constexpr size_t kDescriptors = 40;  // of the loop, the driver, the journal, both connections, and visitors
constexpr size_t kThreads = 7;       // four of the loop's, the controller's, and two while another takes its place

void* had(void* memory) {
  if (memory != nullptr) return memory;
  plc_base::say_without_memory("plc-gateway: ended: there is no memory left\n");
  _exit(kExitMemory);
}

void require(const std::string& problem, const std::string& needed, const char* limits) {
  if (problem.empty()) return;
  throw GatewayError(kExitFailed, "it needs " + needed + " (" + problem + "): raise the limit, " + limits);
}

// A file that may not grow looks like a full disk to the journal, and like a bad library to what loads the driver.
std::string problem_with_file_size(uint64_t bytes) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur >= bytes) return {};
  return "the limit is " + plc_base::plural(limit.rlim_cur, "byte");
}

}  // namespace

void require_resources() {
  uv_replace_allocator([](size_t bytes) { return had(std::malloc(bytes)); },
                       [](void* memory, size_t bytes) { return had(std::realloc(memory, bytes)); },
                       [](size_t count, size_t bytes) { return had(std::calloc(count, bytes)); }, std::free);
  require(plc_base::problem_with_descriptors(kDescriptors),
          std::to_string(kDescriptors) + " descriptors besides those that are open", "ulimit -n or LimitNOFILE");
  require(problem_with_threads(kThreads), std::to_string(kThreads) + " threads besides its own",
          "ulimit -u, ulimit -v or TasksMax");
  require(problem_with_file_size(Database::kLeastBytes),
          "files of " + std::to_string(Database::kLeastBytes >> 20U) + " MiB", "ulimit -f or LimitFSIZE");
}

void begin_loop(uv_loop_t* loop) {
  const int problem = uv_loop_init(loop);
  if (problem != 0) throw GatewayError(kExitFailed, std::string("its loop cannot begin: ") + uv_strerror(problem));
  // The first work starts the threads: now, while there is room for them.
  auto work = std::make_unique<uv_work_t>();
  uv_queue_work(
      loop, work.get(), [](uv_work_t*) {}, [](uv_work_t* done, int) { const std::unique_ptr<uv_work_t> owned(done); });
  work.release();  // NOLINT(bugprone-unused-return-value): the loop gives it back
}

}  // namespace plc_gateway
