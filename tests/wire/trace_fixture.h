// Traffic written by hand: one read of the variable D, as events and as a capture.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/frames.h"
#include "wire/recording.h"

namespace trace_test {

using plc_test::from_hex;
using plc_test::kDirectoryRead;
using plc_test::kDirectoryStart;
using plc_test::kReadD;
using plc_test::kResolveD;
using wire_trace::Bytes;
using wire_trace::Connection;
using wire_trace::Recording;
using wire_trace::TrafficEvent;

inline constexpr char kStartReply[] = "00 00 00 04 FF FF FF FB 00 00 0C 2C 00 00";
inline constexpr char kDirectoryReply[] = "00 00 00 0F FF FF FF F0 00 01 0C 25 00 00 01 00 00 06 00 07 00 4D 00 31 00";
inline constexpr char kResolveLocalD[] =
    "00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 44";
inline constexpr char kResolveReply[] =
    "00 00 00 1F FF FF FF E0 00 00 0C 28 00 00 01 00 01 00 10 00 00 06 01 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 00 00";
inline constexpr char kRefusedReply[] =
    "00 00 00 1F FF FF FF E0 00 00 0C 28 00 04 01 00 01 FF 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 00 00";
inline constexpr char kReadReply[] = "00 00 00 06 FF FF FF F9 00 01 1E 09 00 00 12 34";

// Events one millisecond apart, on one connection.
class Traffic {
 public:
  Traffic& host(const std::string& hex) { return bytes(true, from_hex(hex)); }
  Traffic& controller(const std::string& hex) { return bytes(false, from_hex(hex)); }
  Traffic& end(bool from_host, TrafficEvent::Kind kind) {
    connection_.events.push_back({now_ns_ += kStepNs, from_host, kind, {}});
    return *this;
  }
  Traffic& pass(int64_t ns) {
    now_ns_ += ns;
    return *this;
  }
  Recording recording() const { return {{connection_}}; }
  const Connection& connection() const { return connection_; }

 private:
  static constexpr int64_t kStepNs = 1000000;

  Traffic& bytes(bool from_host, Bytes bytes) {
    connection_.events.push_back({now_ns_ += kStepNs, from_host, TrafficEvent::Kind::kBytes, std::move(bytes)});
    return *this;
  }

  Connection connection_;
  int64_t now_ns_ = 0;
};

}  // namespace trace_test
