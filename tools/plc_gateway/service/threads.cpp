// Starts threads, and lets them end.
#include "tools/plc_gateway/service/threads.h"

#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace plc_gateway {

namespace {

// Starts threads that end once all have begun.
std::string start_threads(std::vector<std::thread>& started, size_t count, std::mutex& gate) {
  const std::lock_guard<std::mutex> held(gate);
  try {
    while (started.size() < count) {
      started.emplace_back([&gate] { const std::lock_guard<std::mutex> pass(gate); });
    }
  } catch (const std::system_error& error) {
    return error.code().message();
  }
  return "";
}

}  // namespace

std::string problem_with_threads(size_t count) {
  std::vector<std::thread> started;
  started.reserve(count);
  std::mutex gate;
  std::string problem = start_threads(started, count, gate);
  for (std::thread& thread : started) thread.join();
  return problem;
}

}  // namespace plc_gateway
