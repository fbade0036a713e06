// The commands that transfer once: read, write and batch.
#include <optional>

#include "base/text.h"
#include "client/driver/failure.h"
#include "client/plan/batch_plan.h"
#include "client/plan/batch_transfer.h"
#include "client/plan/number_read.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/result_writer.h"
#include "tools/plc_host/stop_signal.h"

namespace plc_host {
namespace {

int read_by_number(const HostOptions& options, CommandOutput& output) {
  if (options.count > kMostCounted) throw HostError(kExitUsage, "--count is at most " + std::to_string(kMostCounted));
  Host host(options, output);
  const TagResult result = read_number(host.session(), host.tags(), options.register_id, options.offset, options.count);
  host.show_simulator_lines();
  ResultWriter(host.results(), options.json, {result}).add(result);
  return host.finish(exit_code_of({result}, stop_requested()));
}

// What reading back makes of a write that the driver reported as done.
Reading verified(Host& host, const PreparedWrite& write, const Reading& written) {
  const TagResult back = read_tag(host.session(), write.reference);
  const TagValue* value = back.reading.value();
  const TagEntry& entry = write.reference.tag->entry;
  if (value != nullptr && same_value(entry, write.value, *value)) return written;
  Failure failure = back.reading.failure();
  if (value == nullptr) {
    failure.reason = "written, but cannot be read back: " + failure.reason;
  } else {
    failure.quality = Quality::kDifferent;
    failure.reason = "wrote " + format_value(entry, write.value, write.reference.extents) + ", read back " +
                     format_value(entry, *value, back.reference.extents);
  }
  return {failure, back.reading.time()};
}

TagResult write_one(Host& host, const PreparedWrite& write, bool verify, Confirmation& confirmation) {
  TagResult result = write_tag(host.session(), write);
  confirmation.is_acknowledged = result.ok() && host.session().is_guarded();
  if (!result.ok() || !verify) return result;
  result.reading = verified(host, write, result.reading);
  confirmation.is_read_back = result.ok();
  return result;
}

// Why the next value is not written.
std::optional<Failure> hindrance(Host& host, const Patience& patience) {
  if (patience.is_over()) return not_written(target_text(host.session().target()) + " does not answer");
  if (stop_requested()) return not_written("interrupted");
  return std::nullopt;
}

// Checks everything that can be checked; what cannot be written is shown.
std::vector<PreparedWrite> prepare_writes(Host& host, const HostOptions& options) {
  std::vector<PreparedWrite> writes;
  bool refused = false;
  ResultWriter writer(host.results(), options.json, {});
  for (const std::string& assignment : options.names) {
    TagResult failure;
    failure.name = assignment;
    try {
      std::string_view name;
      std::string_view value;
      split_assignment(assignment, name, value);
      failure.name = name;
      writes.push_back(prepare_write(find_variable(host.tags(), host.tag_file(), name), value));
    } catch (const std::runtime_error& error) {
      failure.reading = {impossible(error.what()), std::chrono::system_clock::now()};
      refused = true;
      writer.add_written(failure, {});
    }
  }
  if (refused) throw HostError(kExitTagFailed, "nothing was written");
  return writes;
}

std::vector<TagResult> results_of(const std::vector<PreparedWrite>& writes) {
  std::vector<TagResult> named;
  named.reserve(writes.size());
  for (const PreparedWrite& write : writes) named.push_back(unread(write.reference));
  return named;
}

// Says how many variables were left out, and why: their rows say no more than that they were not read.
void tell_unread(const std::vector<TagResult>& results) {
  size_t count = 0;
  std::string reason;
  for (const TagResult& result : results) {
    if (result.reading.is_taken()) continue;
    reason = result.reading.failure().reason;
    ++count;
  }
  if (count > 0) show_message(plc_base::plural(count, "variable") + " " + reason);
}

}  // namespace

int run_read(const HostOptions& options, CommandOutput& output) {
  if (options.by_id) return read_by_number(options, output);
  Host host(options, output);
  std::vector<TagResult> results = look_up_names(options, host);
  ResultWriter writer(host.results(), options.json, results);
  bool has_reader = true;
  // Without anybody to show the values to there is nothing to ask for.
  const auto stop = [&has_reader] { return stop_requested() || !has_reader; };
  read_tags(host.session(), results, stop, [&](const TagResult& result) {
    host.show_simulator_lines();
    if (!has_reader) return;
    has_reader = writer.add(result);
  });
  if (has_reader) tell_unread(results);
  return host.finish(exit_code_of(results, stop_requested()));
}

int run_write(const HostOptions& options, CommandOutput& output) {
  Host host(options, output);
  const std::vector<PreparedWrite> writes = prepare_writes(host, options);
  std::vector<TagResult> results = results_of(writes);
  ResultWriter writer(host.results(), options.json, results);
  bool is_different = false;
  Patience patience;
  for (size_t i = 0; i < writes.size(); ++i) {
    Confirmation confirmation;
    if (const std::optional<Failure> left_out = hindrance(host, patience)) {
      results[i].reading = {*left_out, std::chrono::system_clock::now()};
    } else {
      results[i] = write_one(host, writes[i], options.verify, confirmation);
      patience.take(results[i].reading);
    }
    is_different = is_different || results[i].reading.quality() == Quality::kDifferent;
    host.show_simulator_lines();
    writer.add_written(results[i], confirmation);
  }
  tell_unread(results);
  const int code = exit_code_of(results, stop_requested());
  return host.finish(code == kExitTagFailed && is_different ? kExitVerifyDiffers : code);
}

int run_batch(const HostOptions& options, CommandOutput& output) {
  Host host(options, output);
  std::vector<TagResult> results = look_up_names(options, host);
  ResultWriter writer(host.results(), options.json, results);
  const bool is_guarded = host.session().is_guarded();
  for (const TagResult& entry : results) {
    if (!entry.is_found() || options.verbosity == 0) continue;
    const std::optional<std::string> reason = why_not_batched(entry.reference, is_guarded);
    if (reason) show_message(entry.name + ": read singly: " + *reason);
  }
  const BatchFigures figures = read_tags_batched(host.session(), results, stop_requested);
  for (const TagResult& result : results) {
    if (!writer.add(result)) break;
  }
  tell_unread(results);
  if (options.verbosity > 0) {
    show_message(plc_base::plural(figures.batches, "batch read") + " of " +
                 plc_base::plural(figures.slots, "register") + ", " +
                 plc_base::plural(figures.single_reads, "variable") + " read singly");
  }
  return host.finish(exit_code_of(results, stop_requested()));
}

}  // namespace plc_host
