// Watches the guarded driver's calls on its socket and knows from the bytes that it is given what each exchange must
// come to. A call that breaks a rule ends the process.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

// Ends the process: the driver did what it may not do.
[[noreturn]] void accuse(const char* what);

// What an answering frame says.
enum class Content : uint8_t { kGood, kRefused, kIncomplete };

// A request and the frame that answered it.
struct Exchange {
  const uint8_t* request;
  uint32_t request_bytes;
  const uint8_t* reply;
  uint32_t reply_bytes;
  Content content;

  // Class and command.
  unsigned kind() const { return unsigned{request[10]} << 8 | request[11]; }
  bool is_directory() const { return kind() == 0x0C2C || kind() == 0x0C25; }
  bool is_resolve() const { return kind() == 0x0C28; }
  bool is_read() const { return kind() == 0x1E09; }
};

// Names that a resolve request asks for, and the place of a name's record in the reply; 0 when it is not there.
uint32_t names_asked(const uint8_t* request);
uint32_t name_record(const Exchange& resolve, uint32_t name);

class Referee {
 public:
  // Forgets the exchanges; the connection is as it is.
  void begin_transfer();
  // The connection that a run begins with, or none.
  void begin_run(bool is_connected);

  // The driver's calls, before they are answered.
  void connects();
  void waits(int64_t timeout_ns, int64_t now_ns);
  void sends(const uint8_t* bytes, size_t length, int64_t now_ns, uint32_t wait_s);
  void closes(int64_t now_ns);
  void receives() const;
  void peeks(size_t length, bool is_waiting) const;
  void asks_time(bool is_monotonic) const;

  // What they got.
  void got_wait(int result);
  void got_bytes(const uint8_t* bytes, size_t count);
  void got_end();
  void got_peek(bool has_more);
  void got_send_error();

  // The socket of this connection is open.
  bool is_open() const { return phase_ != Phase::kClosed; }
  // An exchange of this transfer failed.
  bool has_failed() const { return has_failed_; }
  // No exchange is under way, and none waits to be closed.
  bool is_at_rest() const { return phase_ == Phase::kIdle || phase_ == Phase::kClosed; }
  // Of this transfer, in their order; those of its connect too.
  const Exchange* begin() const { return exchanges_; }
  const Exchange* end() const { return exchanges_ + count_; }

 private:
  enum class Phase : uint8_t {
    kClosed,
    kIdle,      // between exchanges
    kPending,   // a request is sent
    kMustPeek,  // its answer fills the buffer: what stands behind it is not known
    kMustClose  // the exchange failed
  };
  static constexpr size_t kFrameBytes = 4096;
  static constexpr size_t kMostExchanges = 512;

  void look_at_bytes();
  void take_answer(size_t bytes);
  void must_close();

  Phase phase_ = Phase::kClosed;
  bool has_failed_ = false;
  bool is_drained_ = false;
  bool is_last_look_ = false;
  bool may_give_up_ = false;
  bool was_readable_ = false;
  uint32_t last_sequence_ = 0;
  uint32_t discarded_ = 0;
  int64_t deadline_ns_ = 0;
  size_t received_ = 0;
  size_t count_ = 0;
  size_t stored_ = 0;
  uint8_t frame_[kFrameBytes];
  Exchange exchanges_[kMostExchanges];
  uint8_t storage_[kMostExchanges * kFrameBytes];
};

extern Referee referee;

}  // namespace fuzz
