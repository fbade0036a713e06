// Threads that wait for workers.
#include "tools/plc_gateway/service/worker_end.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

namespace plc_gateway {

void WorkerEnds::add(std::unique_ptr<ControllerWorker> worker) {
  // Those of earlier configurations that have ended.
  for (auto end = ends_.begin(); end != ends_.end();) {
    if (end->done) {
      end->thread.join();
      end = ends_.erase(end);
    } else {
      ++end;
    }
  }
  End& end = ends_.emplace_back();
  end.worker = std::move(worker);
  try {
    end.thread = std::thread([&end] {
      end.worker.reset();
      end.done = true;
    });
  } catch (const std::system_error&) {
    // Without a thread that waits for it, it ends with the program.
  }
}

bool WorkerEnds::all_ended() {
  constexpr int kLooks = 20;
  constexpr std::chrono::milliseconds kBetween{5};
  const auto ended = [this] {
    return std::all_of(ends_.begin(), ends_.end(), [](const End& end) { return end.done.load(); });
  };
  for (int i = 0; i < kLooks && !ended(); ++i) std::this_thread::sleep_for(kBetween);
  return ended();
}

}  // namespace plc_gateway
