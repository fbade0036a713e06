// Reads one value through a recording relay.
#include "tools/plc_host/why/why_live.h"

#include <filesystem>

#include "base/text.h"
#include "base/whole_file.h"
#include "client/plan/number_read.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/target/relay_route.h"
#include "tools/plc_host/why/why_findings.h"
#include "tools/plc_host/why/why_lookup.h"
#include "tools/plc_host/written_file.h"
#include "wire/captures/capture.h"
#include "wire/relay.h"

namespace plc_host {
namespace {

constexpr int kQuietMs = 20;
constexpr int kRestQuietMs = 400;  // for the rest of a reply that came in part
constexpr int kMostWaitMs = 2000;

void find_reach_faults(const RelayRoute& route, WhyReport& report) {
  const wire_trace::Reach& reach = route.reach();
  const std::string where = target_text(route.controller());
  const std::string took = plc_base::milliseconds_text(reach.took_ns, 0);
  if (reach.is_refused) {
    report.fault(where + " refuses connections: nothing listens on that port",
                 "Check the port, and whether the controller's host link is switched on.");
  } else if (!reach.problem.empty()) {
    report.fault(where + " takes no connection: " + reach.problem + " after " + took,
                 "Check the address, cable, subnet and firewall, and whether other hosts use up the controller's "
                 "connections.");
  } else if (reach.took_ns > RelayRoute::kDriverPatienceNs) {
    report.fault(where + " took " + took + " to take a connection; the driver waits 30 ms",
                 "Look for what is slow on the way: a radio link, a switch that wakes up, a controller under load.");
  }
}

bool came_in_part(const wire_trace::Exchange& exchange) {
  const wire_trace::Bytes reply = exchange.reply();
  return !reply.empty() && wire_trace::head_of(reply).announced > reply.size();
}

// Waits for what is still under way, and takes the recording.
wire_trace::Recording take_recording(wire_trace::RecordingRelay& relay) {
  relay.wait_until_quiet(kQuietMs, kMostWaitMs);
  const std::vector<wire_trace::Exchange> exchanges = wire_trace::find_exchanges(relay.recording());
  if (!exchanges.empty() && came_in_part(exchanges.back())) relay.wait_until_quiet(kRestQuietMs, kMostWaitMs);
  relay.stop();
  return relay.recording();
}

void take_result(const TagResult& result, WhyReport& report) {
  const TagValue* value = result.reading.value();
  report.code = value != nullptr ? uint32_t{PLC_OK} : result.reading.failure().code;
  if (value != nullptr) report.set_value({result.reference.tag->entry, *value, result.reference.extents});
}

TagResult transfer(const HostOptions& options, Host& host, const std::optional<TagReference>& reference) {
  host.session().leave_programs_unasked();
  if (options.by_id) {
    return read_number(host.session(), host.tags(), options.register_id, options.offset, options.count);
  }
  return read_tag(host.session(), *reference);
}

// What the driver asked for instead of what the numbers say.
void find_other_request(const HostOptions& options, WhyReport& report) {
  if (!options.by_id || report.tag() == nullptr) return;
  const std::optional<OtherRequest> other = other_request(*report.tag(), options.offset, options.count);
  if (!other) return;
  report.fault(other->what, "Give " + other->advice);
}

// The file under the path that it has in every folder.
void record_road(const RelayRoute& route, const HostOptions& options, const std::string& pcap_file, WhyReport& report) {
  if (route.relay() == nullptr) return;
  const wire_trace::Recording recording = take_recording(*route.relay());
  report.exchanges = wire_trace::find_exchanges(recording);
  for (size_t i = 0; i < report.exchanges.size(); ++i) report.road.push_back(i);
  find_recording_bound(recording.is_cut, report);
  if (pcap_file.empty()) return;
  const std::string problem = wire_trace::write_recording(recording, route.controller().tcp_port, pcap_file);
  if (!problem.empty()) throw unwritten(options.pcap_file, problem);
}

// The capture is written when all is done; here its name is known to be a wrong one.
void refuse_own_files(const HostOptions& options, const std::string& tag_file, const ResultFile& results) {
  if (options.pcap_file.empty()) return;
  if (plc_base::is_one_of(options.pcap_file, {tag_file})) throw unwritten(options.pcap_file, plc_base::kIsInput);
  demand_apart(options.pcap_file, results);
  demand_capture(options.pcap_file);
}

std::string path_of_tag_file(const HostOptions& options, const Target& controller) {
  if (!options.tag_file.empty()) return tag_file_at(options.tag_file, controller);
  return options.sim_tag_file.empty() ? tag_file_name(controller) : options.sim_tag_file;
}

}  // namespace

int follow_live(const HostOptions& options, CommandOutput& output, WhyReport& report) {
  RelayRoute route;
  // The host changes the working directory.
  const std::string pcap_file =
      options.pcap_file.empty() ? "" : std::filesystem::absolute(options.pcap_file).lexically_normal().string();
  Host host(options, output, [&](const Target& controller) {
    report.from = target_text(controller);
    const std::string tag_file = path_of_tag_file(options, controller);
    refuse_own_files(options, tag_file, output.result_file());
    report.source = std::make_unique<TagSource>(tag_file);
    return route.choose(controller);
  });
  report.build = host.library().build;
  report.is_guarded = host.library().is_guarded;
  report.tags = host.tags();
  const std::optional<TagReference> reference = look_up(options, report);
  const bool can_ask = options.by_id || (reference && !report.calls.empty());
  TagResult result;
  if (can_ask) {
    host.session().set_line_sink([&report](const std::string& line) { report.driver_lines.push_back(line); });
    result = transfer(options, host, reference);
    host.show_simulator_lines();
    take_result(result, report);
    find_reach_faults(route, report);
    find_other_request(options, report);
  }
  record_road(route, options, pcap_file, report);
  if (!result.ok() && result.reading.failure().is_interrupted) {
    report.fault(
        "interrupted before the reply was there: what follows it is not known",
        "Run it again. It waits " + plc_base::plural(options.timeout_s, "second") + " for a reply (--timeout).");
  } else {
    find_road_faults(options.by_id, report);
  }
  const bool unconnected = can_ask && !result.ok() && (route.has_failed() || report.code == PLC_NO_CONNECT);
  const int code = unconnected ? kExitNoConnection : report.has_fault() ? kExitTagFailed : kExitOk;
  return host.finish(stop_requested() ? kExitInterrupted : code);
}

}  // namespace plc_host
