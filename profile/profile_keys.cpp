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

const Words& words_of(Profile::Refused::What) {
  static const Words kWords = {"name", "value"};
  return kWords;
}

namespace {

std::vector<KeyRow> rows_for_hosts() {
  return {
      {"survey", "made", "It was learnt at this time.", &Profile::made},
      {"survey", "controller", "It was learnt from this controller.", &Profile::controller},
      {"survey", "note", "People should know this.", &Profile::note},

      {"guarded", "usable", "This tells whether the guarded build works here, and without which of its checks.",
       &Profile::guarded},

      {"contract", "problem", "This is why the contract build gives wrong values here.", &Profile::contract_problem},
      {"contract", "names", "The contract build may be asked for this many names at a time.", &Profile::contract_names,
       1, kMostNumber},

      {"settings", "timeout_s", "A host waits this long for a reply.", &Profile::recv_timeout_s, 1, 86400},
      {"settings", "delay_ms", "A host pauses this long before each transfer.", &Profile::delay_ms, 0, kMostDelayMs},
      {"settings", "batch_names", "A host asks for at most this many names at a time.", &Profile::batch_names, 1,
       kMostNumber},
      {"settings", "poll_ms", "Polling more often than once in this time is too often: plc-gateway check notes it.",
       &Profile::poll_ms, 1, 86400000},
  };
}

std::vector<KeyRow> rows_of_replies() {
  return {
      {"connections", "most", "The controller serves at most this many connections at a time.",
       &Profile::most_connections, 1, kMostNumber},
      {"connections", "one_more", "This happens to one more connection: it is refused, closed or silent.",
       &Profile::one_more},
      {"connections", "half_closed", "This happens to a request behind which the host ends its side.",
       &Profile::answers_half_closed},
      {"connections", "segment_bytes", "The controller announces this as its largest TCP segment.",
       &Profile::segment_bytes, kLeastSegment, kMostSegment},

      {"replies", "length", "Bytes 0 to 3 of a reply, its length, are right, zero or other.", &Profile::length},
      {"replies", "complement", "Bytes 4 to 7, the complement of the length, are right, zero or other.",
       &Profile::complement},
      {"replies", "sequence", "Bytes 8 and 9, the number of the request, are right, zero or other.",
       &Profile::sequence},
      {"replies", "class", "Byte 10, the class of the request, is right, zero or other.", &Profile::request_class},
      {"replies", "command", "Byte 11, the command of the request, is right, zero or other.", &Profile::command},
      {"replies", "status", "Answers that refuse nothing have this in bytes 12 and 13.", &Profile::status_done, 0,
       kMostStatus},
      {"replies", "bytes_behind_values", "Value replies have this many bytes behind their values.",
       &Profile::bytes_behind_values, 0, kMostFrame},
      {"replies", "piece_bytes", "Replies come in pieces of this many bytes.", &Profile::piece_bytes, 1, kMostFrame},
      {"replies", "piece_gap_ms", "This much time passes between two pieces.", &Profile::piece_gap_ms, 0, kMostMs},
  };
}

std::vector<KeyRow> rows_of_times_and_limits() {
  return {
      {"times", "connect_ms", "A connect is answered after this time.", first_of(&Profile::connect), 0, kMostMs},
      {"times", "directory_start_ms", "The request that opens the directory is answered after this time.",
       first_of(&Profile::directory_start), 0, kMostMs},
      {"times", "directory_ms", "The directory is answered after this time.", first_of(&Profile::directory), 0,
       kMostMs},
      {"times", "resolve_ms", "One name is answered after this time.", first_of(&Profile::resolve), 0, kMostMs},
      {"times", "resolve_each_ms", "Each further name takes this much longer.", each_of(&Profile::resolve), 0, kMostMs},
      {"times", "read_ms", "One value is answered after this time.", first_of(&Profile::read), 0, kMostMs},
      {"times", "read_each_ms", "Each further value takes this much longer.", each_of(&Profile::read), 0, kMostMs},
      {"times", "write_ms", "A write of one value is answered after this time.", first_of(&Profile::write), 0, kMostMs},
      {"times", "write_each_ms", "Each further value takes this much longer.", each_of(&Profile::write), 0, kMostMs},

      {"limits", "names", "A resolve request may have this many names.", &Profile::names_per_request, 1, kMostNumber},
      {"limits", "values", "A value request may have this many values.", &Profile::values_per_request, 1, kMostNumber},
      {"limits", "beyond", "This happens to a longer request: it is refused, closed or silent.", &Profile::beyond},
      {"limits", "status", "A longer request is refused with this status.", &Profile::status_beyond, 0, kMostStatus},

      {"refusal", "shape", "A refusal is a head alone (short), or has a record for each name (full).", &Profile::shape},
      {"refusal", "status", "A refusal has this in bytes 12 and 13.", &Profile::refusal_status, 0, kMostStatus},

      {"directory", "name_units", "The directory cuts names of programs behind this many characters.",
       &Profile::program_name_units, 1, 126},
      {"directory", "longest_units",
       "The longest name in the directory has this many characters, so that none is cut at fewer.",
       &Profile::longest_name_units, 1, 126},
  };
}

}  // namespace

const std::vector<KeyRow>& key_rows() {
  static const std::vector<KeyRow> kRows = [] {
    std::vector<KeyRow> all = rows_for_hosts();
    for (const auto& more : {rows_of_replies(), rows_of_times_and_limits()}) {
      all.insert(all.end(), more.begin(), more.end());
    }
    return all;
  }();
  return kRows;
}

}  // namespace plc_profile
