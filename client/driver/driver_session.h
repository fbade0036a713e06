// Calls the driver's transfers for one controller and keeps count of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/driver/driver_library.h"
#include "client/driver/program_names.h"
#include "client/driver/program_probe.h"
#include "client/values/reading.h"

namespace plc_client::core {

// The controller and how the host's records describe it.
struct Target {
  uint32_t ip_address = 0;
  uint16_t tcp_port = 0;
  uint16_t area = 0;
  uint32_t recv_timeout_s = 0;
  uint32_t delay_ms = 0;
  std::string name = {};    // what messages call it; empty: address and port
  uint32_t most_names = 0;  // that it takes in a request; 0: as many as the driver sends
};

// What bounds how much is asked for at a time, beside the driver's own limits.
struct RequestRules {
  bool is_guarded = true;
  uint32_t most_names = 0;  // 0: no further bound
  // The smaller one of the driver's limit and the controller's.
  template <typename Number>
  Number names(Number limit) const {
    return most_names == 0 || most_names >= limit ? limit : static_cast<Number>(most_names);
  }
};

// Ids of indexed records begin here.
inline constexpr uint32_t kFirstIndexedId = 0x40000;

// What a host passes to ask for a register.
uint8_t request_reg_type(uint32_t register_id);
uint32_t request_address(uint32_t register_id, uint32_t offset);

// "192.168.0.10:8500"
std::string target_text(const Target& target);

// "PLCC0A8000A_0.csv": the tag file that the driver looks for in the working directory.
std::string tag_file_name(const Target& target);

// Memory for values with guard bytes on both sides, so that a write outside of it is noticed.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(size_t bytes);
  uint8_t* data();
  size_t size() const;
  // Zeros, as of a new one.
  void clear();
  bool is_intact() const;

 private:
  std::vector<uint8_t> memory_;
};

// Figures over all calls of a session.
struct CallFigures {
  uint64_t calls = 0;
  uint64_t failures = 0;
  std::chrono::nanoseconds shortest{0};  // of the calls that succeeded
  std::chrono::nanoseconds longest{0};
  std::chrono::nanoseconds total{0};
  uint64_t of_others = 0;  // calls that succeeded, and whose values may be another program's
  // Those behind which there is no value.
  uint64_t without_value() const { return failures + of_others; }
};

// The outcome of one call.
struct CallResult {
  uint32_t code = 0;               // what the driver returned
  bool connection_lost = false;    // it could not connect, or closed the connection
  bool is_refused = false;         // so, and afterwards nothing listened on the controller's port
  bool is_interrupted = false;     // lost with a stop signal, which ends the driver's waits: no word on the controller
  uint32_t count = 0;              // RegValue.count as the driver left it
  std::vector<std::string> lines;  // printed meanwhile
  WallTime time{};                 // when it ended
  bool ok() const { return code == PLC_OK; }
};

// What the controller's directory has of a program's name.
enum class ProgramMatch { kNone, kBeginning, kWhole };

struct ProgramAnswer {
  std::optional<ProgramMatch> match;        // nothing where it cannot be known, as with the contract build
  std::optional<CallResult> no_connection;  // without which nothing is known
  size_t bytes = 0;                         // of the name that the directory has, the program's or another one's
  bool is_of_two = false;                // shorter beginnings are in the directory too: the driver takes none of them
  bool is_declared = false;              // the tag files have variables of the program of this beginning itself
  std::vector<std::string> rivals = {};  // programs of the tag files that it could be left of as well
};

class DriverSession {
 public:
  using LineSource = std::function<std::vector<std::string>()>;
  using LineSink = std::function<void(const std::string& line)>;

  // Gives the driver its settings. library must outlive the session; source gives what the driver has printed since it
  // was last asked, sink receives each line of it, after the call that printed it.
  DriverSession(const DriverLibrary& library, LineSource source, const Target& target, LineSink sink);
  DriverSession(const DriverSession&) = delete;
  DriverSession& operator=(const DriverSession&) = delete;

  // offset and count in the host's units: 32 bits for 64-bit types, 16 bits for strings, else elements. Throws
  // ClientError when the driver wrote outside the buffer.
  CallResult read(uint32_t register_id, uint32_t offset, uint32_t count, GuardedBuffer& buffer);
  CallResult write(uint32_t register_id, uint32_t offset, uint32_t count, GuardedBuffer& buffer);
  CallResult read_batch(std::vector<BatchReadRequest>& elements);

  // Asks the driver, which connects first unless it is connected, but asks the controller for nothing else. What is
  // known is known until the connection ends. A beginning that can be no name cut short counts as none.
  ProgramAnswer ask_for_program(std::string_view name);
  // For those who show what came whosever it is: from now on nothing is known of programs.
  void leave_programs_unasked() { asks_for_programs_ = false; }
  // By which a name cut short is told from the name of another program.
  void know_programs(ProgramNames names) { names_ = std::move(names); }

  // hook is the one of the driver that does what every transfer does first.
  CallResult connect(uint32_t (*hook)(ConnContext*));

  // Is told of every call, behind its lines and those who observe already.
  void add_observer(std::function<void(const CallResult&)> observer) { observers_.push_back(std::move(observer)); }

  const Target& target() const { return target_; }
  // The tag file that the next calls speak of.
  void set_area(uint16_t area) { target_.area = area; }
  // What the driver writes its socket to.
  ConnContext& connection() { return connection_; }
  bool is_connected() const { return connection_.socket_fd >= 0; }
  // Of what a call that returned 0 delivered.
  Quality quality_of_success() const { return library_.is_guarded ? Quality::kGood : Quality::kUnguarded; }
  bool is_guarded() const { return library_.is_guarded; }
  RequestRules rules() const { return {library_.is_guarded, target_.most_names}; }
  const CallFigures& figures() const { return figures_; }
  // So many of the last calls succeeded, and asked another program.
  void count_of_others(uint64_t calls) { figures_.of_others += calls; }
  void set_line_sink(LineSink sink) { sink_ = std::move(sink); }
  // For programs that note stop signals: stop says whether one came. Calls that it ended count for nothing.
  void set_stop(std::function<bool()> stop) { stop_ = std::move(stop); }

 private:
  CallResult finish(bool single, uint32_t code, uint32_t count, std::chrono::steady_clock::time_point start);
  CallResult note_call(bool single, uint32_t code, uint32_t count, std::chrono::steady_clock::time_point start,
                       std::vector<std::string> lines);
  // Nothing too where no connection could be made: failed has the call then.
  std::optional<bool> has_program(const ProgramProbe& probe, size_t length, std::optional<CallResult>& failed);
  const ProgramProbe* probe_for(std::string_view name);
  void count_call(uint32_t code, std::chrono::nanoseconds took);
  // As the driver takes it: each beginning is a name cut short.
  ProgramAnswer find_program(std::string_view name);
  // The beginnings of the name that the directory has.
  void find_beginnings(const ProgramProbe& probe, std::string_view name, ProgramAnswer& answer);
  // Leaves the beginning a match where it is likely what the directory has left of the name, and of no other one.
  void judge_beginning(std::string_view name, ProgramAnswer& answer);
  // Whether the directory has a declared name, or a beginning of it, of more units. Nothing without a connection:
  // failed has the call then.
  std::optional<bool> has_longer_name(size_t units, std::optional<CallResult>& failed);

  const DriverLibrary& library_;
  LineSource take_lines_;
  Target target_;
  LineSink sink_;
  std::vector<std::function<void(const CallResult&)>> observers_;
  std::function<bool()> stop_;
  CommSettings settings_{};  // the driver keeps a pointer to it
  ConnContext connection_{};
  CallFigures figures_;
  std::map<std::string, std::optional<ProgramProbe>, std::less<>> probes_;  // loaded for good
  using Answers = std::map<std::string, ProgramAnswer, std::less<>>;        // of this connection
  Answers found_;
  Answers programs_;
  ProgramNames names_;
  uint16_t next_probe_area_ = UINT16_MAX;
  bool asks_for_programs_ = true;
};

// Words for a return code of a transfer: "the connection could not be set up (2)".
std::string code_text(uint32_t code);

}  // namespace plc_client::core
