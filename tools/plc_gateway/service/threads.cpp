// Starts threads, and lets them end.
#include "tools/plc_gateway/service/threads.h"

#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace plc_gateway {

std::string problem_with_threads(size_t count) {
  std::vector<std::thread> started;
  started.reserve(count);
  std::string problem;
  std::mutex gate;
  gate.lock();  // none ends before all have begun
  try {
    while (started.size() < count) {
      started.emplace_back([&gate] { const std::lock_guard<std::mutex> pass(gate); });
    }
  } catch (const std::system_error& error) {
    problem = error.code().message();
  }
  gate.unlock();
  for (std::thread& thread : started) thread.join();
  return problem;
}

}  // namespace plc_gateway
