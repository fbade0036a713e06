// What was learnt of a controller: hosts set themselves by it, and plc-sim imitates it. What was not learnt has no
// value; plc-sim is there as it is without a profile.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plc_profile {

// How a field of a reply's head stands to what it repeats. kOther is the frame's whole length (L), L itself (the
// complement), a number that the controller counts for itself (the sequence), the request's with its highest bit
// changed (class and command).
enum class Echo { kRight, kZero, kOther };

// What becomes of a connect, or of a request, that the controller does not take.
enum class Turned { kRefused, kClosed, kSilent };

// How long an answer to one name or value takes, and how much longer each further one makes it. Absent: not measured.
struct Pace {
  std::optional<double> first_ms;
  std::optional<double> each_ms;
};

struct Profile {
  // Where it comes from; empty in one that somebody wrote by hand.
  std::string made;        // "2026-11-22T15:00:00Z"
  std::string controller;  // "192.168.0.10:8500"
  std::string note;

  std::optional<uint32_t> most_connections;  // that are served at a time; absent: no limit was met
  std::optional<Turned> one_more;            // kRefused: the connect itself; kClosed: at once; kSilent: never answered
  std::optional<bool> answers_half_closed;   // a request with the end of the host's side behind it
  std::optional<uint32_t> segment_bytes;     // that the controller announces; absent: as large as the link takes

  std::optional<uint32_t> piece_bytes;  // of a reply; absent: replies come whole
  std::optional<double> piece_gap_ms;
  std::optional<uint32_t> bytes_behind_values;  // in replies to value requests, counted by L
  std::optional<Echo> length;
  std::optional<Echo> complement;
  std::optional<Echo> sequence;
  std::optional<Echo> request_class;
  std::optional<Echo> command;
  std::optional<uint16_t> status_done;  // of every answer that is no refusal

  Pace connect;  // first_ms alone, of this one and the next two
  Pace directory_start;
  Pace directory;
  Pace resolve;  // by names
  Pace read;     // by values, as the value request counts them
  Pace write;    // of every kind, by the names that were resolved for it

  std::optional<uint32_t> names_per_request;   // absent: as many as were tried
  std::optional<uint32_t> values_per_request;  // in one value request
  std::optional<Turned> beyond;
  std::optional<uint16_t> status_beyond;

  // A name that the controller does not have, and a request for its value.
  enum class Shape { kShort, kFull };  // a head alone; the records of all names, that of the refused one zero
  std::optional<Shape> shape;
  std::optional<uint16_t> refusal_status;

  std::optional<uint32_t> program_name_units;  // names in the directory are cut there
  std::optional<uint32_t> longest_name_units;  // of those in the directory: none is cut at fewer

  // Declared variables that the controller does not have, or whose values it refuses though it knows their names.
  struct Refused {
    enum class What { kName, kValue };
    std::string name;     // as the tag file has it
    std::string program;  // empty for a global one
    What what = What::kName;
    // Of the refusal of a value: kFull has zeros for it. Absent: as that of names.
    std::optional<Shape> shape = {};
    std::optional<uint16_t> status = {};
  };
  std::vector<Refused> refused;

  // Whether the guarded build can be used here; without some of its checks, which are options of its build.
  enum class Guarded { kUsable, kWithoutStatus, kWithoutValueEnd, kWithoutBoth, kNotUsable, kUnknown };
  Guarded guarded = Guarded::kUnknown;
  std::string contract_problem;  // why the contract build does not read this controller; "" where nobody saw that
  std::optional<uint32_t> contract_names;  // that it may be asked for at a time: the reply is one piece

  // What hosts set unless they are told otherwise; absent: nothing speaks against what is usual.
  std::optional<uint32_t> recv_timeout_s;
  std::optional<uint32_t> delay_ms;
  std::optional<uint32_t> batch_names;
  std::optional<uint32_t> poll_ms;
};

}  // namespace plc_profile
