// The guarded driver's socket and clock: whatever a fuzz input lets come, at any time, without waiting. Linked in by
// wrapping the calls, each of which the referee sees. Time passes only in select.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

// What the next connect comes to.
enum class ConnectEvent : uint8_t { kAtOnce, kLater, kTooLate, kRefusedLater, kRefusedAtOnce, kWaitFails, kNoSocket };

class ScriptedLink {
 public:
  static constexpr int kSocket = 5;

  // Nothing waits, and the clock stands at this time.
  void begin_run(int64_t now_ns);
  // From now on calls are the system's again.
  void end_run() { is_running_ = false; }
  bool is_running() const { return is_running_; }

  // Something comes at this time, behind what comes before it. The bytes must stay.
  void add_bytes(int64_t at_ns, const uint8_t* bytes, size_t count);
  void add_end(int64_t at_ns, int error);  // 0: closed in order

  // Room for bytes until the run ends, null when there is none.
  uint8_t* room(size_t count);

  int64_t now_ns() const { return now_ns_; }

  // The wrapped calls.
  int connect();
  int wait(int64_t timeout_ns);
  int wait_connected();
  int connect_result() const { return connect_error_; }
  long send(const uint8_t* bytes, size_t length);
  long receive(uint8_t* bytes, size_t length);
  long peek();
  void close();

  ConnectEvent connect_event = ConnectEvent::kAtOnce;
  bool fail_next_wait = false;  // the next one that finds nothing
  bool fail_next_send = false;
  uint32_t reply_wait_s = 0;

 private:
  struct Piece {
    int64_t at_ns;
    const uint8_t* bytes;  // null: the connection's end
    size_t count;          // or the error number
  };
  static constexpr size_t kMostPieces = 128;
  static constexpr size_t kRoomBytes = size_t{1} << 20;

  bool has_arrived() const { return next_ < pieces_count_ && pieces_[next_].at_ns <= now_ns_; }
  void add(Piece piece);

  bool is_running_ = false;
  int connect_error_ = 0;
  int64_t now_ns_ = 0;
  size_t next_ = 0;
  size_t pieces_count_ = 0;
  size_t used_room_ = 0;
  Piece pieces_[kMostPieces];
  uint8_t room_[kRoomBytes];
};

extern ScriptedLink scripted_link;

}  // namespace fuzz
