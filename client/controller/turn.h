// Who uses a controller: one thread at a time, of the process that made it.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace plc_client {

// What a controller keeps for it.
struct Turns {
  std::mutex in_use;
  std::atomic<std::thread::id> user{};  // that has its turn; none otherwise
  const pid_t process = getpid();

  // A fork has copied the controller, and shares the socket with the process that made it.
  bool is_copy() const { return getpid() != process; }
};

// Held for one use; other threads wait meanwhile. Throws Error for the thread that has a turn already, which would wait
// for itself, and in another process.
class Turn {
 public:
  explicit Turn(Turns& turns);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Turns& turns_;
};

}  // namespace plc_client
