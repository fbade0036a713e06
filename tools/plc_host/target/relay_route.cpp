// Puts a recording relay before a controller.
#include "tools/plc_host/target/relay_route.h"

#include <netinet/in.h>

#include <algorithm>

#include "base/text.h"
#include "wire/exchange.h"
#include "wire/reply_parts.h"

namespace plc_host {
namespace {

constexpr int kReachPatienceMs = 2500;
constexpr size_t kMostFrameBytes = 256;  // shown of one piece

std::string event_text(const wire_trace::TrafficEvent& event) {
  const char* const side = event.from_host ? "the driver" : "the controller";
  switch (event.kind) {
    case wire_trace::TrafficEvent::Kind::kFinished:
      return std::string(side) + " closed the connection";
    case wire_trace::TrafficEvent::Kind::kReset:
      return std::string(side) + " reset the connection";
    case wire_trace::TrafficEvent::Kind::kBytes:
      break;
  }
  return std::string(event.from_host ? "sent " : "received ") + plc_base::plural(event.bytes.size(), "byte") + ": " +
         wire_trace::hex_text(event.bytes, kMostFrameBytes);
}

}  // namespace

Target RelayRoute::choose(const Target& controller) {
  controller_ = controller;
  reach_ = wire_trace::reach_controller(controller.ip_address, controller.tcp_port, kReachPatienceMs);
  if (reach_.descriptor < 0 || reach_.took_ns > kDriverPatienceNs) return controller;
  relay_ = std::make_unique<wire_trace::RecordingRelay>(controller.ip_address, controller.tcp_port, reach_.descriptor);
  Target target = controller;
  target.ip_address = INADDR_LOOPBACK;
  target.tcp_port = relay_->port();
  target.name = target_text(controller);
  return target;
}

std::optional<std::vector<std::string>> take_program_names(wire_trace::RecordingRelay& relay) {
  std::optional<std::vector<std::string>> names;
  for (const wire_trace::Exchange& exchange : wire_trace::find_exchanges(relay.take_recording())) {
    if (exchange.request.kind != plc_sim::RequestKind::kDirectory || !exchange.is_answered()) continue;
    names.reset();
    const std::optional<wire_trace::Bytes> reply = exchange.own_reply();
    const auto programs = reply ? wire_trace::whole_directory(*reply) : std::nullopt;
    if (!programs) continue;
    names.emplace();
    for (const wire_trace::Program& program : *programs) names->push_back(program.name);
  }
  return names;
}

std::vector<std::string> frame_lines(wire_trace::RecordingRelay& relay) {
  const wire_trace::Recording recording = relay.take_recording();
  std::vector<const wire_trace::TrafficEvent*> events;
  for (const wire_trace::Connection& connection : recording.connections) {
    for (const wire_trace::TrafficEvent& event : connection.events) events.push_back(&event);
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const auto* one, const auto* other) { return one->time_ns < other->time_ns; });
  std::vector<std::string> lines;
  lines.reserve(events.size());
  for (const wire_trace::TrafficEvent* event : events) lines.push_back(event_text(*event));
  if (recording.is_cut) lines.emplace_back("more went by than is kept");
  return lines;
}

}  // namespace plc_host
