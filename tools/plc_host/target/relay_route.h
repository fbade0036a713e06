// How the driver gets to a controller so that its frames can be seen.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "tools/plc_host/client_names.h"
#include "wire/relay.h"

namespace plc_host {

// Through a recording relay, or by itself when the controller does not take a connection as the driver needs it. Then
// the driver shows what it makes of that.
class RelayRoute {
 public:
  static constexpr int64_t kDriverPatienceNs = 30000000;  // the driver waits so long for a connection

  // Where the driver connects to instead of the controller.
  Target choose(const Target& controller);

  const Target& controller() const { return controller_; }
  const wire_trace::Reach& reach() const { return reach_; }
  // Null when the driver goes by itself.
  wire_trace::RecordingRelay* relay() const { return relay_.get(); }
  bool has_failed() const { return !reach_.problem.empty(); }

 private:
  Target controller_;
  wire_trace::Reach reach_;
  std::unique_ptr<wire_trace::RecordingRelay> relay_;
};

// The names of the controller's programs, as its directory gave them since the last call; nothing where none went by.
// What went by before is forgotten.
std::optional<std::vector<std::string>> take_program_names(wire_trace::RecordingRelay& relay);

// "sent 41 bytes: 46 49 ...", a line for each piece that went by since the last call, in the order of their times.
std::vector<std::string> frame_lines(wire_trace::RecordingRelay& relay);

}  // namespace plc_host
