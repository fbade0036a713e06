// The commands that transfer once: read, write and batch.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <system_error>

#include "base/text.h"
#include "base/utf8.h"
#include "base/values/typed_value.h"
#include "client/driver/failure.h"
#include "client/plan/batch_plan.h"
#include "client/plan/batch_transfer.h"
#include "client/plan/number_read.h"
#include "client/plan/transfer_plan.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/form_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/target/tag_files.h"
#include "tools/plc_host/target/wanted_names.h"

namespace plc_host {
namespace {

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

// Values of variables without a type are bytes as they came.
void tell_types(const HostOptions& options, const Host& host, const std::vector<TagResult>& results) {
  std::vector<const Tag*> tags;
  for (const TagResult& result : results) {
    if (result.is_found()) tags.push_back(result.reference.tag);
  }
  const std::string remark = remark_on_types(host.tags(), host.tag_file(), tags);
  if (!remark.empty() && !options.quiet) show_message(remark);
}

// A missing line would make the others stand for other variables.
bool is_all_or_none(const HostOptions& options) { return options.raw || options.strict; }

bool can_be_shown(const HostOptions& options, const TagResult& result) {
  const Quality quality = result.reading.quality();
  return result.ok() && (quality == Quality::kGood || (!options.strict && quality == Quality::kUnguarded));
}

void tell_why_none(const HostOptions& options, ResultWriter& writer, const std::vector<TagResult>& results) {
  size_t missing = 0;
  size_t unguarded = 0;
  for (const TagResult& result : results) {
    missing += can_be_shown(options, result) ? 0U : 1U;
    unguarded += result.reading.quality() == Quality::kUnguarded ? 1U : 0U;
    if (!result.ok() && result.reading.is_taken()) writer.tell_failure(result);
  }
  tell_unread(results);
  if (options.strict && unguarded > 0) {
    show_error("--strict: the contract build takes any reply for the right one. Try: --driver guarded");
  }
  show_error("no value is shown: " + std::to_string(missing) + " of " + plc_base::plural(results.size(), "variable") +
             (missing == 1 ? " has" : " have") + (options.strict ? " none that is good" : " none"));
}

// Shows every value, or none and why. Returns the exit code.
int show_all_or_none(const HostOptions& options, ResultWriter& writer, const std::vector<TagResult>& results) {
  const int code = exit_code_of(results, stop_requested());
  const auto is_shown = [&options](const TagResult& result) { return can_be_shown(options, result); };
  if (!std::all_of(results.begin(), results.end(), is_shown)) {
    tell_why_none(options, writer, results);
    return code == kExitOk ? kExitTagFailed : code;
  }
  for (const TagResult& result : results) {
    if (!writer.add(result)) break;
  }
  return code;
}

std::string advice_on_numbers(const HostOptions& options, const TagResult& result) {
  const std::optional<OtherRequest> other = other_request(*result.reference.tag, options.offset, options.count);
  return other ? ". Try: " + other->advice : "";
}

int read_by_number(const HostOptions& options, CommandOutput& output) {
  if (options.count > kMostCounted) throw HostError(kExitUsage, "--count is at most " + std::to_string(kMostCounted));
  Host host(options, output);
  const TagResult result = read_number(host.session(), host.tags(), options.register_id, options.offset, options.count);
  host.show_simulator_lines();
  // Also with --quiet: the value may be another variable's.
  if (!result.remark.empty()) show_message(result.name + ": " + result.remark + advice_on_numbers(options, result));
  ResultWriter writer(host.results(), form_of(options), {result});
  if (is_all_or_none(options)) return host.finish(show_all_or_none(options, writer, {result}));
  writer.add(result);
  tell_unread({result});
  return host.finish(exit_code_of({result}, stop_requested()));
}

// The contract build reports a write as done that the controller refused.
constexpr char kAnyReturnsZero[] =
    "the driver returned 0, which this build does for a refusal too; whether it was written is not known";

// Nobody but the guarded build can tell that a value was written, whatever was read back.
std::string unread_back(bool is_acknowledged, const std::string& reason) {
  return is_acknowledged ? "written, but cannot be read back: " + reason
                         : std::string(kAnyReturnsZero) + "; it cannot be read back: " + reason;
}

std::string read_back_different(bool is_acknowledged, const std::string& sent, const std::string& back) {
  return is_acknowledged ? "wrote " + sent + ", read back " + back
                         : "sent " + sent + ", read back " + back + "; " + kAnyReturnsZero;
}

// What reading back makes of a write that the driver reported as done.
Reading verified(Host& host, const PreparedWrite& write, const Reading& written, bool is_acknowledged) {
  const TagResult back = read_tag(host.session(), write.reference);
  const TagValue* value = back.reading.value();
  const TagEntry& entry = write.reference.tag->entry;
  if (value != nullptr && same_value(entry, write.value, *value)) return written;
  Failure failure = back.reading.failure();
  if (value == nullptr) {
    const bool is_interrupted = stop_requested() && !back.reading.is_taken();
    if (is_interrupted) failure.quality = Quality::kFailed;
    failure.reason = unread_back(is_acknowledged, is_interrupted ? kInterruptedWord : failure.reason);
  } else {
    failure.quality = Quality::kDifferent;
    failure.reason = read_back_different(is_acknowledged, format_value(entry, write.value, write.reference.extents),
                                         format_value(entry, *value, back.reference.extents));
  }
  return {failure, back.reading.time()};
}

TagResult write_one(Host& host, const PreparedWrite& write, bool verify, Confirmation& confirmation) {
  TagResult result = write_tag(host.session(), write);
  confirmation.is_acknowledged = result.ok() && host.session().is_guarded();
  confirmation.is_unclear = result.ok() && !host.session().is_guarded();
  if (!result.ok() || !verify) return result;
  result.reading = verified(host, write, result.reading, confirmation.is_acknowledged);
  confirmation.is_read_back = result.ok();
  return result;
}

// Why the next value is not written.
std::optional<Failure> hindrance(Host& host, const Patience& patience) {
  if (stop_requested()) return not_written(kInterruptedWord);
  if (patience.is_over()) return not_written(target_text(host.session().target()) + " " + patience.last_word());
  return std::nullopt;
}

// Nothing is sent, so nothing is connected to. The address only tells the name of a tag file that --tags does not name.
HostOptions without_controller(HostOptions options) {
  std::error_code error;
  const bool names_file = !options.tag_file.empty() && !std::filesystem::is_directory(options.tag_file, error);
  const bool needs_address = !options.address.empty() && !names_file;
  if (options.sim_tag_file.empty() && !needs_address) options.address = "127.0.0.1";
  options.verbosity = std::min(options.verbosity, 1);
  return options;
}

std::unique_ptr<Host> writing_host(const HostOptions& options, CommandOutput& output) {
  if (!options.dry_run) return std::make_unique<Host>(options, output);
  try {
    return std::make_unique<Host>(without_controller(options), output);
  } catch (const HostError& error) {
    if (error.code() != kExitNoConnection) throw;
    throw HostError(
        kExitNoConnection,
        std::string(error.what()) + "; or --tags FILE: --dry-run needs the address only for the tag file's name");
  }
}

// Which of several variables a pattern means to write is not to be guessed.
void refuse_pattern(const TagList& tags, std::string_view name) {
  if (!is_pattern(name) || !positions_of(tags, name).empty()) return;
  throw ReferenceError("write takes no patterns: give each variable by its name");
}

// Only a text can be empty.
void demand_value(const TagReference& reference, std::string_view value) {
  const bool is_empty = value.find_first_not_of(" \t") == std::string_view::npos;
  if (!is_empty || value_kind(reference.tag->entry) == ValueKind::kText) return;
  throw ReferenceError("no value stands behind the =");
}

// What is written and cannot be read back would have a state that is true of neither.
void demand_way_back(const TagReference& reference) {
  if (value_kind(reference.tag->entry) == ValueKind::kText) return;
  try {
    plan_elements(reference, Direction::kRead);
  } catch (const PlanError& error) {
    throw ReferenceError("--verify cannot read it back: " + std::string(error.what()) + ". Try: without --verify");
  }
}

// A line of a list often has blanks in front, before the = and around a quoted text. They count for nothing, unless the
// tag file has them in a name.
void drop_blanks_of_list(const TagList& tags, std::string_view& name, std::string_view& value) {
  if (positions_of(tags, name).empty()) name = plc_base::without_blanks(name);
  const std::string_view inner = plc_base::without_blanks(value);
  if (inner.size() > 1 && inner.front() == '"' && inner.back() == '"') value = inner;
}

// In a word of the command line somebody put them between quotes. In the name they would be a part of it.
void refuse_blanks(const TagList& tags, std::string_view name, std::string_view value) {
  const std::string meant(plc_base::without_blanks(name));
  if (meant == name || meant.empty() || !positions_of(tags, name).empty() || positions_of(tags, meant).empty()) return;
  std::string text = meant;
  text.append("=").append(plc_base::without_blanks(value));
  throw ReferenceError("blanks stand before the name or before the =: write " + plc_base::quoted(text));
}

// The name of a variable may have a = of its own, also in front: the longest name of the tag file counts.
void split_known(const TagList& tags, std::string_view text, std::string_view& name, std::string_view& value) {
  split_assignment(text, name, value);
  for (size_t at = text.rfind('='); at > name.size(); at = text.rfind('=', at - 1)) {
    if (positions_of(tags, text.substr(0, at)).empty()) continue;
    name = text.substr(0, at);
    value = text.substr(at + 1);
    return;
  }
  if (!name.empty() || value.find('=') == std::string_view::npos) return;
  // Of a name that is none: what stands before the value.
  name = text.substr(0, text.rfind('='));
  value = text.substr(name.size() + 1);
}

// The digits of a number without zeros at their ends, and the power of ten that they count: the same for 1.50 and
// 15e-1.
std::string digits_of(std::string_view number) {
  const size_t exponent = std::min(number.find_first_of("eE"), number.size());
  const std::string_view mantissa = number.substr(0, exponent);
  const size_t point = std::min(mantissa.find('.'), mantissa.size());
  std::string digits;
  std::copy_if(mantissa.begin(), mantissa.end(), std::back_inserter(digits),
               [](char sign) { return sign >= '0' && sign <= '9'; });
  const size_t first = std::min(digits.find_first_not_of('0'), digits.size());
  const size_t end = digits.find_last_not_of('0') + 1;  // 0 where there is none
  if (first >= end) return {};
  long power = static_cast<long>(digits.size() - end);
  if (point < mantissa.size()) power -= static_cast<long>(mantissa.size() - point - 1);
  if (exponent < number.size()) power += std::strtol(std::string(number.substr(exponent + 1)).c_str(), nullptr, 10);
  return digits.substr(first, end - first) + 'e' + std::to_string(power);
}

// Every digit of what the controller gets.
std::string all_digits(double number) {
  std::array<char, 1024> text{};  // no LREAL has more than 767 digits
  std::snprintf(text.data(), text.size(), "%.800e", number);
  return text.data();
}

// The first number that is written as another one, for it has more digits than its type holds.
void tell_rounded(const TagReference& reference, std::string_view typed, const TagValue& value) {
  constexpr uint8_t kSingleBits = 32;
  const TagEntry& entry = reference.tag->entry;
  if (value_kind(entry) != ValueKind::kReal) return;
  const std::vector<std::string_view> numbers = plc_base::typed_elements(typed, reference.extents).elements;
  for (size_t i = 0; i < std::min(numbers.size(), value.elements.size()); ++i) {
    const double number = element_number(entry, value.elements[i]);
    const std::string written = format_element(entry, value.elements[i]);
    const std::string wanted = digits_of(numbers[i]);
    if (!std::isfinite(number) || wanted == digits_of(written) || wanted == digits_of(all_digits(number))) continue;
    const bool is_single = entry.bit_width == kSingleBits;
    std::string text = plc_base::told_name(reference.text);
    text.append(is_single ? ": a REAL holds about 7 digits: " : ": an LREAL holds about 16 digits: ");
    text.append(numbers[i]).append(" becomes ").append(written);
    return show_message(text);
  }
}

// The rows of a command of which nothing is written.
[[noreturn]] void refuse_writes(Host& host, const HostOptions& options, std::vector<TagResult>& results) {
  for (TagResult& result : results) {
    if (result.reading.is_taken()) continue;
    result.reading = {not_written("the command has one that cannot be written"), std::chrono::system_clock::now()};
  }
  ResultWriter writer(host.results(), form_of(options), results);
  for (const TagResult& result : results) writer.add_written(result, {});
  tell_unread(results);
  throw HostError(kExitTagFailed, "nothing was written");
}

// Checks everything that can be checked; where something cannot be written, each variable is shown with the reason.
std::vector<PreparedWrite> prepare_writes(Host& host, const HostOptions& options) {
  std::vector<PreparedWrite> writes;
  std::vector<TagResult> results;
  bool refused = false;
  for (size_t i = 0; i < options.names.size(); ++i) {
    const std::string& assignment = options.names[i];
    TagResult failure;
    failure.name = assignment;
    try {
      std::string_view name;
      std::string_view value;
      split_known(host.tags(), assignment, name, value);
      if (i + options.names_of_file >= options.names.size()) drop_blanks_of_list(host.tags(), name, value);
      failure.name = name;
      refuse_blanks(host.tags(), name, value);
      refuse_pattern(host.tags(), name);
      const TagReference reference = find_variable(host.tags(), host.tag_file(), name);
      demand_value(reference, value);
      writes.push_back(prepare_write(reference, value, host.session().rules()));
      if (options.verify) demand_way_back(reference);
      if (!options.quiet) tell_rounded(reference, value, writes.back().value);
      results.push_back(unread(reference));
    } catch (const std::runtime_error& error) {
      failure.reading = {impossible(error.what()), std::chrono::system_clock::now()};
      refused = true;
      results.push_back(failure);
    }
  }
  if (refused) refuse_writes(host, options, results);
  return writes;
}

// What would be written, as the controller would get it.
int show_writes(Host& host, const HostOptions& options, const std::vector<PreparedWrite>& writes) {
  std::vector<TagResult> results;
  for (const PreparedWrite& write : writes) {
    results.push_back(unread(write.reference));
    results.back().reading = {write.value, Quality::kGood, std::chrono::system_clock::now()};
  }
  ResultWriter writer(host.results(), form_of(options), results);
  Confirmation confirmation;
  confirmation.is_only_checked = true;
  for (const TagResult& result : results) writer.add_written(result, confirmation);
  if (!options.quiet) show_message(plc_base::plural(results.size(), "variable") + " checked, nothing was sent");
  return host.finish(kExitOk);
}

std::vector<TagResult> results_of(const std::vector<PreparedWrite>& writes) {
  std::vector<TagResult> named;
  named.reserve(writes.size());
  for (const PreparedWrite& write : writes) named.push_back(unread(write.reference));
  return named;
}

}  // namespace

int run_read(const HostOptions& options, CommandOutput& output) {
  if (options.by_id) return read_by_number(options, output);
  Host host(options, output);
  std::vector<TagResult> results = look_up_names(options, host);
  ResultWriter writer(host.results(), form_of(options), results);
  if (is_all_or_none(options)) {
    read_tags(host.session(), results, stop_requested, [&host](const TagResult&) { host.show_simulator_lines(); });
    return host.finish(show_all_or_none(options, writer, results));
  }
  bool has_reader = true;
  // Without anybody to show the values to there is nothing to ask for.
  const auto stop = [&has_reader] { return stop_requested() || !has_reader; };
  read_tags(host.session(), results, stop, [&](const TagResult& result) {
    host.show_simulator_lines();
    if (!has_reader) return;
    has_reader = writer.add(result);
  });
  if (has_reader) {
    tell_unread(results);
    tell_types(options, host, results);
  }
  return host.finish(exit_code_of(results, stop_requested()));
}

int run_write(const HostOptions& options, CommandOutput& output) {
  const std::unique_ptr<Host> opened = writing_host(options, output);
  Host& host = *opened;
  const std::vector<PreparedWrite> writes = prepare_writes(host, options);
  if (options.dry_run) return show_writes(host, options, writes);
  std::vector<TagResult> results = results_of(writes);
  ResultWriter writer(host.results(), form_of(options), results);
  bool is_different = false;
  std::string done;
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
    done.append(done.empty() ? "" : ", ").append(plc_base::told_name(results[i].name)).append(" ");
    done.append(write_word(results[i], confirmation));
  }
  if (output.result_file().has_failed()) show_message("the controller was written to all the same: " + done);
  tell_unread(results);
  const int code = exit_code_of(results, stop_requested());
  return host.finish(code == kExitTagFailed && is_different ? kExitVerifyDiffers : code);
}

int run_batch(const HostOptions& options, CommandOutput& output) {
  Host host(options, output);
  std::vector<TagResult> results = look_up_names(options, host);
  ResultWriter writer(host.results(), form_of(options), results);
  const bool is_guarded = host.session().is_guarded();
  tell_types(options, host, results);
  for (const TagResult& entry : results) {
    if (!entry.is_found() || options.verbosity == 0) continue;
    const std::optional<std::string> reason = why_not_batched(entry.reference, is_guarded);
    if (reason) show_message(entry.name + ": read singly: " + *reason);
  }
  const BatchFigures figures = read_tags_batched(host.session(), results, stop_requested);
  int code = exit_code_of(results, stop_requested());
  if (is_all_or_none(options)) {
    code = show_all_or_none(options, writer, results);
  } else {
    for (const TagResult& result : results) {
      if (!writer.add(result)) break;
    }
    tell_unread(results);
  }
  if (options.verbosity > 0) {
    show_message(plc_base::plural(figures.batches, "batch read") + " of " +
                 plc_base::plural(figures.slots, "register") + ", " +
                 plc_base::plural(figures.single_reads, "variable") + " read singly");
  }
  return host.finish(code);
}

}  // namespace plc_host
