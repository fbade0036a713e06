// The keys of a profile, and the words that some of them take.
#include "profile/profile_keys.h"

namespace plc_profile {
namespace {

constexpr uint32_t kMostMs = 600000;
constexpr uint32_t kMostDelayMs = 1000;  // the driver pauses no longer
constexpr uint32_t kMostStatus = 0xFFFF;
constexpr uint32_t kMostNumber = 65535;
constexpr uint32_t kLeastSegment = 88;  // what TCP here takes
constexpr uint32_t kMostSegment = 32767;
constexpr uint32_t kMostFrame = 4096;

PacePart first_of(Pace Profile::*pace) { return {pace, &Pace::first_ms}; }
PacePart each_of(Pace Profile::*pace) { return {pace, &Pace::each_ms}; }

}  // namespace

const Words& words_of(bool) {
  static const Words kWords = {"not answered", "answered"};
  return kWords;
}

const Words& words_of(Echo) {
  static const Words kWords = {"right", "zero", "other"};
  return kWords;
}

const Words& words_of(Turned) {
  static const Words kWords = {"refused", "closed", "silent"};
  return kWords;
}

const Words& words_of(Profile::Shape) {
  static const Words kWords = {"short", "full"};
  return kWords;
}

const Words& words_of(Profile::Guarded) {
  static const Words kWords = {"yes", "without status", "without value end", "without both", "no", "unknown"};
  return kWords;
}

const std::vector<KeyRow>& key_rows() {
  static const std::vector<KeyRow> kRows = {
      {"survey", "made", "when it was learnt", &Profile::made},
      {"survey", "controller", "from whom", &Profile::controller},
      {"survey", "note", "what people are to know of it", &Profile::note},

      {"guarded", "usable", "the guarded driver here, and without which of its checks", &Profile::guarded},

      {"contract", "problem", "why the contract build gives wrong values here", &Profile::contract_problem},
      {"contract", "names", "that the contract build may be asked for at a time", &Profile::contract_names, 1,
       kMostNumber},

      {"settings", "timeout_s", "how long a host waits for a reply", &Profile::recv_timeout_s, 1, 86400},
      {"settings", "delay_ms", "how long a host pauses before each transfer", &Profile::delay_ms, 0, kMostDelayMs},
      {"settings", "batch_names", "names that a host asks for at a time", &Profile::batch_names, 1, kMostNumber},
      {"settings", "poll_ms", "the shortest period at which it may be polled", &Profile::poll_ms, 1, 86400000},

      {"connections", "most", "served at a time", &Profile::most_connections, 1, kMostNumber},
      {"connections", "one_more", "one more is: refused, closed, silent", &Profile::one_more},
      {"connections", "half_closed", "a request with the host's end behind it", &Profile::answers_half_closed},
      {"connections", "segment_bytes", "the largest segment that the controller announces", &Profile::segment_bytes,
       kLeastSegment, kMostSegment},

      {"replies", "length", "of the frame in bytes 0 to 3: right, zero, other", &Profile::length},
      {"replies", "complement", "of the length in bytes 4 to 7", &Profile::complement},
      {"replies", "sequence", "the request's number in bytes 8 and 9", &Profile::sequence},
      {"replies", "class", "the request's class in byte 10", &Profile::request_class},
      {"replies", "command", "the request's command in byte 11", &Profile::command},
      {"replies", "status", "bytes 12 and 13 of answers that are no refusal", &Profile::status_done, 0, kMostStatus},
      {"replies", "bytes_behind_values", "that nobody asked for", &Profile::bytes_behind_values, 0, kMostFrame},
      {"replies", "piece_bytes", "replies come in pieces of so many bytes", &Profile::piece_bytes, 1, kMostFrame},
      {"replies", "piece_gap_ms", "between two pieces", &Profile::piece_gap_ms, 0, kMostMs},

      {"times", "connect_ms", "until a connect is answered", first_of(&Profile::connect), 0, kMostMs},
      {"times", "directory_start_ms", "", first_of(&Profile::directory_start), 0, kMostMs},
      {"times", "directory_ms", "", first_of(&Profile::directory), 0, kMostMs},
      {"times", "resolve_ms", "of one name", first_of(&Profile::resolve), 0, kMostMs},
      {"times", "resolve_each_ms", "more for each further one", each_of(&Profile::resolve), 0, kMostMs},
      {"times", "read_ms", "of one value", first_of(&Profile::read), 0, kMostMs},
      {"times", "read_each_ms", "more for each further one", each_of(&Profile::read), 0, kMostMs},
      {"times", "write_ms", "of one value", first_of(&Profile::write), 0, kMostMs},
      {"times", "write_each_ms", "more for each further one", each_of(&Profile::write), 0, kMostMs},

      {"limits", "names", "in one resolve request", &Profile::names_per_request, 1, kMostNumber},
      {"limits", "values", "in one value request", &Profile::values_per_request, 1, kMostNumber},
      {"limits", "beyond", "what exceeds them is: refused, closed, silent", &Profile::beyond},
      {"limits", "status", "with which it is refused", &Profile::status_beyond, 0, kMostStatus},

      {"refusal", "shape", "short: a head alone; full: a record for each name", &Profile::shape},
      {"refusal", "status", "bytes 12 and 13", &Profile::refusal_status, 0, kMostStatus},

      {"directory", "name_units", "names of programs are cut behind so many characters", &Profile::program_name_units,
       1, 126},
      {"directory", "longest_units", "characters of the longest of them, so that none is cut at fewer",
       &Profile::longest_name_units, 1, 126},
  };
  return kRows;
}

}  // namespace plc_profile
