// The controller behind its seam: the client library in a thread of its own, which waits for replies while the loop
// goes on.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "client/plc_client.h"
#include "tools/plc_gateway/controller/samples.h"
#include "tools/plc_gateway/model/variable.h"
#include "tools/plc_gateway/node/seams.h"
#include "tools/plc_gateway/poll/schedule.h"

namespace plc_gateway {

// Over the worker's whole life.
struct LinkFigures {
  bool connected = false;
  uint64_t connects = 0;
  uint64_t exchanges = 0;
  uint64_t drops = 0;  // late replies that were thrown away
};

class ControllerWorker : public ControllerPort {
 public:
  using Result = std::variant<ReadResult, WriteOutcome>;

  // Connects when first used. `wake` is called by the thread when take_results() has something; it must not throw.
  // Throws plc_client::Error: no such tag file, driver or variable. The address may be a name: it is looked up by the
  // thread, and until it is found the controller is lost; `tag_address` is the one by which its tag files are found.
  ControllerWorker(const plc_client::Options& options, std::string tag_address, std::vector<Variable> variables,
                   std::vector<CommandRule> rules, std::function<void()> wake);
  ~ControllerWorker() override;
  ControllerWorker(const ControllerWorker&) = delete;
  ControllerWorker& operator=(const ControllerWorker&) = delete;

  // What start_read takes.
  const std::vector<Piece>& pieces() const { return pieces_; }

  // One job at a time; each is answered by one result.
  void start_read(size_t piece) override;
  void start_write(const WriteJob& job) override;

  // What has ended since the last call, in its order.
  std::vector<Result> take_results();

  // Ends the thread and the connection. A job under way ends before, with a silent controller within the reply
  // time-out; one that was not begun is not, and has no result. Nothing may be started afterwards.
  void stop();

  // Does not wait for a job under way.
  LinkFigures figures() const;

 private:
  using Job = std::variant<size_t, WriteJob>;

  void start(Job job);
  void work();
  std::optional<Job> next_job();
  void use(std::unique_ptr<plc_client::Controller> controller);
  plc_client::Problem find_controller();
  ReadResult read(size_t piece);
  void take_readings(const Piece& piece, const std::vector<plc_client::Reading>& readings, ReadResult& result);
  WriteOutcome write(const WriteJob& job);
  void note_figures();

  std::vector<Variable> variables_;
  std::vector<CommandRule> rules_;
  std::function<void()> wake_;
  const plc_client::Options options_;
  std::unique_ptr<plc_client::Controller> controller_;  // of the thread; none as long as nobody knows its address
  std::chrono::steady_clock::time_point next_search_;
  std::chrono::milliseconds search_pause_{0};
  std::string search_problem_;
  std::vector<Piece> pieces_;
  std::vector<plc_client::Plan> plans_;
  SampleMaker maker_;

  std::mutex lock_;  // of what follows
  std::condition_variable has_job_;
  std::optional<Job> job_;
  bool is_stopping_ = false;
  std::vector<Result> results_;

  std::atomic<bool> connected_{false};
  std::atomic<uint64_t> connects_{0};
  std::atomic<uint64_t> exchanges_{0};
  std::atomic<uint64_t> drops_{0};

  std::thread thread_;  // the last, for it uses all the others
};

}  // namespace plc_gateway
