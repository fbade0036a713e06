// The commands that transfer once: read, write and batch.
#include "batch_plan.h"
#include "batch_transfer.h"
#include "commands.h"
#include "exit_codes.h"
#include "host.h"
#include "messages.h"
#include "number_read.h"
#include "result_writer.h"
#include "stop_signal.h"

namespace plc_host {
namespace {

int read_by_number(const HostOptions& options, DriverOutput& output) {
  if (options.count > kMostCounted) throw HostError(kExitUsage, "--count is at most " + std::to_string(kMostCounted));
  Host host(options, output);
  const TagResult result = read_number(host.session(), host.tags(), options.register_id, options.offset, options.count);
  host.show_simulator_lines();
  ResultWriter(host.results(), options.json, {result}).add(result);
  return host.finish(exit_code_of({result}, stop_requested()));
}

// Reads back what was written. The exit code that it gives, kExitOk when both are the same.
int verify_write(Host& host, const PreparedWrite& write, TagResult& result) {
  const TagResult back = read_tag(host.session(), write.reference);
  if (!back.ok()) {
    result = back;
    result.error = "written, but cannot be read back: " + back.error;
    return kExitTagFailed;
  }
  const TagEntry& entry = write.reference.tag->entry;
  if (same_value(entry, write.value, back.value)) return kExitOk;
  result.error = "wrote " + format_value(entry, write.value, write.reference.extents) + ", read back " +
                 format_value(entry, back.value, back.reference.extents);
  return kExitVerifyDiffers;
}

// Checks everything that can be checked; what cannot be written is shown.
std::vector<PreparedWrite> prepare_writes(Host& host, const HostOptions& options) {
  std::vector<PreparedWrite> writes;
  bool refused = false;
  const ResultWriter writer(host.results(), options.json, {});
  for (const std::string& assignment : options.names) {
    TagResult failure;
    failure.name = assignment;
    try {
      std::string_view name;
      std::string_view value;
      split_assignment(assignment, name, value);
      failure.name = name;
      writes.push_back(prepare_write(find_reference(host.tags(), name), value));
    } catch (const std::runtime_error& error) {
      failure.error = error.what();
      refused = true;
      writer.add(failure);
    }
  }
  if (refused) throw HostError(kExitTagFailed, "nothing was written");
  return writes;
}

std::vector<TagResult> results_of(const std::vector<PreparedWrite>& writes) {
  std::vector<TagResult> named;
  for (const PreparedWrite& write : writes) {
    TagResult result;
    result.name = write.reference.text;
    result.reference = write.reference;
    named.push_back(result);
  }
  return named;
}

}  // namespace

int run_read(const HostOptions& options, DriverOutput& output) {
  if (options.by_id) return read_by_number(options, output);
  Host host(options, output);
  const std::vector<TagResult> named = look_up_names(options, host.tags());
  const ResultWriter writer(host.results(), options.json, named);
  std::vector<TagResult> results;
  for (const TagResult& entry : named) {
    if (stop_requested()) break;
    results.push_back(entry.ok() ? read_tag(host.session(), entry.reference) : entry);
    host.show_simulator_lines();
    writer.add(results.back());
  }
  return host.finish(exit_code_of(results, stop_requested()));
}

int run_write(const HostOptions& options, DriverOutput& output) {
  Host host(options, output);
  const std::vector<PreparedWrite> writes = prepare_writes(host, options);
  const ResultWriter writer(host.results(), options.json, results_of(writes));
  std::vector<TagResult> results;
  int differing = kExitOk;
  for (const PreparedWrite& write : writes) {
    if (stop_requested()) break;
    TagResult result = write_tag(host.session(), write);
    if (result.ok() && options.verify) {
      const int code = verify_write(host, write, result);
      if (code == kExitVerifyDiffers) differing = code;
    }
    host.show_simulator_lines();
    writer.add_written(result, options.verify);
    results.push_back(result);
  }
  const int code = exit_code_of(results, stop_requested());
  return host.finish(code == kExitTagFailed && differing != kExitOk ? differing : code);
}

int run_batch(const HostOptions& options, DriverOutput& output) {
  Host host(options, output);
  std::vector<TagResult> results = look_up_names(options, host.tags());
  const ResultWriter writer(host.results(), options.json, results);
  std::vector<TagReference> references;
  for (const TagResult& entry : results) {
    if (!entry.ok()) continue;
    references.push_back(entry.reference);
    const std::optional<std::string> reason = why_not_batched(entry.reference);
    if (reason && !options.quiet) show_message(entry.name + ": read singly: " + *reason);
  }
  BatchFigures figures;
  const std::vector<TagResult> read = read_tags_batched(host.session(), references, stop_requested, figures);
  size_t next = 0;
  for (TagResult& result : results) {
    if (result.ok()) result = read[next++];
    writer.add(result);
  }
  if (!options.quiet) {
    show_message(std::to_string(figures.batches) + " batch reads of " + std::to_string(figures.slots) + " registers, " +
                 std::to_string(figures.single_reads) + " variables read singly");
  }
  return host.finish(exit_code_of(results, stop_requested()));
}

}  // namespace plc_host
