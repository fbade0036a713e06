// Puts a failed call into words.
#include "client/driver/failure.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "client/driver/driver_lines.h"
#include "client/driver/program_names.h"
#include "client/values/value_text.h"

namespace plc_client::core {
namespace {

constexpr char kInTime[] = " in time";
constexpr char kDropped[] = " late replies dropped";
constexpr char kCutOff[] = "guard: reply cut off";
constexpr char kOthersAdvice[] =
    "Replies with other sequence numbers than the request's came. Either the controller does not repeat sequence "
    "numbers: then the guarded build reads nothing here, and plc-host survey tells whether the contract build does. Or "
    "they are late: raise the reply time-out (plc-host: --timeout; Python: reply_timeout; C++ and plc-gateway: "
    "reply_timeout_s).";
constexpr char kRefusedWrite[] = "refused the write";
constexpr char kUnclearProgram[] = "guard: program of the variable is ambiguous";

// The line nearest to the cause.
std::optional<LineMeaning> nearest_meaning(const std::vector<std::string>& lines) {
  std::optional<LineMeaning> nearest;
  for (const std::string& line : lines) {
    const std::optional<LineMeaning> meaning = meaning_of_line(line);
    if (meaning && (!nearest || meaning->rank < nearest->rank)) nearest = meaning;
  }
  return nearest;
}

// What was found out behind the call says more than its lines.
std::optional<LineMeaning> spoken_meaning(const CallResult& call) {
  return call.is_refused ? meaning_of_line("guard: connect refused") : nearest_meaning(call.lines);
}

// A failure without a line of its own.
LineMeaning unspoken_meaning(const CallResult& call) {
  if (call.code == PLC_NO_CONNECT && !call.connection_lost) {
    return {Quality::kIncomplete, "the reply is shorter than it must be", "plc-host why NAME shows what came.", 0};
  }
  if (call.connection_lost) return {Quality::kLost, "the connection is gone", "", 0};
  return {Quality::kFailed, "", "plc-host why NAME shows what came.", 0};
}

bool answered_others_only(const std::vector<std::string>& lines) {
  return std::any_of(lines.begin(), lines.end(),
                     [](const std::string& line) { return line.find(kDropped) != std::string::npos; });
}

// Of the reply a part came.
bool is_cut_off(const std::vector<std::string>& lines) {
  return std::any_of(lines.begin(), lines.end(),
                     [](const std::string& line) { return line.find(kCutOff) != std::string::npos; });
}

// Whatever the driver printed of it: the connection is gone because its wait was ended.
Failure interruption(const CallResult& call) {
  Failure failure = not_read(kInterruptedWord);
  failure.code = call.code;
  failure.connection_lost = true;
  failure.is_interrupted = true;
  return failure;
}

bool speaks_of_the_controller(Quality quality) {
  return quality == Quality::kNoConnection || quality == Quality::kNoAnswer || quality == Quality::kLost ||
         quality == Quality::kForeign;
}

// One of them, and how many more there are.
std::string rivals_text(const std::vector<std::string>& rivals) {
  const std::string first = quote_text(rivals.front());
  return rivals.size() == 1 ? first : first + " or " + std::to_string(rivals.size() - 1) + " more";
}

// In place of "that port", else before all.
void name_controller(const Target& target, std::string& reason) {
  for (const std::string_view place : {"that port", "that address"}) {
    const size_t at = reason.find(place);
    if (at == std::string::npos) continue;
    reason.replace(at, place.size(), target_text(target));
    return;
  }
  reason.insert(0, target_text(target) + ": ");
}

}  // namespace

Failure explain_failure(const CallResult& call, const Target& target) {
  if (call.is_interrupted) return interruption(call);
  const LineMeaning meaning = spoken_meaning(call).value_or(unspoken_meaning(call));
  Failure failure;
  failure.quality = meaning.quality;
  failure.advice = meaning.advice;
  failure.code = call.code;
  failure.connection_lost = call.connection_lost;
  failure.is_unclear = std::any_of(call.lines.begin(), call.lines.end(), [](const std::string& line) {
    return line.find(kUnclearProgram) != std::string::npos;
  });
  failure.is_silence = failure.quality == Quality::kNoAnswer || failure.quality == Quality::kNoConnection;
  failure.has_answer =
      failure.quality == Quality::kForeign ||
      (failure.quality == Quality::kNoAnswer && (is_cut_off(call.lines) || answered_others_only(call.lines)));
  if (meaning.meaning.empty()) {
    failure.reason = code_text(call.code);
    return failure;
  }
  failure.reason = meaning.meaning;
  const size_t in_time = failure.reason.find(kInTime);
  if (failure.quality == Quality::kNoAnswer && in_time != std::string::npos) {
    failure.reason.replace(in_time, sizeof kInTime - 1, " within " + std::to_string(target.recv_timeout_s) + " s");
  }
  if (failure.quality == Quality::kNoAnswer && answered_others_only(call.lines)) {
    failure.reason += ", only replies to other requests";
    failure.advice = kOthersAdvice;
  }
  if (speaks_of_the_controller(failure.quality)) name_controller(target, failure.reason);
  failure.reason += " (" + std::to_string(call.code) + ")";
  return failure;
}

bool leaves_write_open(const Failure& failure) {
  if (failure.code != PLC_FAILED) return false;  // the connect failed, or nothing serves the variable: nothing was sent
  switch (failure.quality) {
    case Quality::kNoAnswer:
    case Quality::kLost:
    case Quality::kForeign:
    case Quality::kIncomplete:
    case Quality::kFailed:
    case Quality::kNoConnection:  // found out behind the call: there may have been one during it
      return true;
    case Quality::kRefused:  // of the names, the write was not sent; behind its own status it may have been carried out
      return failure.reason.find(kRefusedWrite) != std::string::npos;
    default:
      return false;
  }
}

Failure interrupted_write(const Failure& call, const std::string& progress) {
  Failure failure = call;
  if (call.code != PLC_FAILED && progress.empty()) {
    failure.quality = Quality::kNotWritten;
    failure.reason = std::string("not written: ") + kInterruptedWord;
    return failure;
  }
  failure.quality = Quality::kFailed;
  failure.reason = kInterruptedWord + progress;
  failure.advice = "Read it to see what the controller has.";
  return failure;
}

Failure text_out_of_reach(size_t bytes) {
  Failure failure;
  failure.quality = Quality::kIncomplete;
  failure.reason = "reads reach the first " + std::to_string(bytes) + " bytes of the text, and it goes on behind them";
  failure.advice = "Keep the text shorter in the controller, or read it in a batch (plc-host: batch).";
  return failure;
}

Failure cut_at_zeros() {
  Failure failure;
  failure.quality = Quality::kIncomplete;
  failure.reason = kCutAtZero;
  failure.advice = "plc-host why NAME shows the bytes of the reply. Declare it by a type with a width where one fits.";
  return failure;
}

Failure cut_at_zero(std::string_view stored) {
  Failure failure = cut_at_zeros();
  failure.reason += stored.empty() ? "; stored: nothing" : "; stored: " + hexadecimal_bytes(stored);
  return failure;
}

Failure missing_program(const TagEntry& entry, const ProgramAnswer& answer) {
  Failure failure;
  failure.quality = Quality::kFailed;
  failure.lacks_program = true;
  const std::string program = quote_text(entry.scope_name);
  const std::string beginning = quote_text(std::string_view(entry.scope_name).substr(0, answer.bytes));
  if (!answer.rivals.empty()) {
    failure.reason = "the controller's program " + beginning + " may be " + program + " or " +
                     rivals_text(answer.rivals) + ", each cut short: nobody knows which";
    failure.advice = "Write " + beginning + " in column 12 of the lines of the one that it is.";
    return failure;
  }
  failure.reason = "the controller has no program " + program + ": what answers may be another program's variable";
  failure.advice = kProgramAdvice;
  if (answer.bytes == 0) return failure;
  if (lacks_blanks_only(entry.scope_name, answer.bytes)) {
    failure.advice = "Remove the blanks at the end of column 12 of its line: the controller has " + beginning + ".";
  } else if (!answer.is_declared) {
    failure.advice = "The controller has " + beginning +
                     ". If that is this program, its name cut short, write it so in column 12; else correct "
                     "column 12.";
  }
  return failure;
}

Failure impossible(const std::string& reason) {
  Failure failure;
  failure.quality = Quality::kImpossible;
  failure.reason = reason;
  return failure;
}

Failure not_read(const std::string& why) {
  Failure failure;
  failure.reason = "not read: " + why;
  return failure;
}

Failure not_written(const std::string& why) {
  Failure failure;
  failure.quality = Quality::kNotWritten;
  failure.reason = "not written: " + why;
  return failure;
}

}  // namespace plc_client::core
