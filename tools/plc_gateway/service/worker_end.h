// Workers that are to end: each may wait for a silent controller first, and nobody waits for it.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <thread>

#include "tools/plc_gateway/controller/controller_worker.h"

namespace plc_gateway {

class WorkerEnds {
 public:
  WorkerEnds() = default;
  WorkerEnds(const WorkerEnds&) = delete;
  WorkerEnds& operator=(const WorkerEnds&) = delete;
  // Waits; a program that will not wait ends without it.
  ~WorkerEnds() {
    for (End& end : ends_) {
      if (end.thread.joinable()) end.thread.join();
    }
  }

  // Of a process that can start no thread, the worker does not end before the program does.
  void add(std::unique_ptr<ControllerWorker> worker);
  // Within a moment, for a worker that has nothing to do ends at once.
  bool all_ended();

 private:
  struct End {
    std::unique_ptr<ControllerWorker> worker;
    std::atomic<bool> done{false};
    std::thread thread;
  };
  std::list<End> ends_;
};

}  // namespace plc_gateway
