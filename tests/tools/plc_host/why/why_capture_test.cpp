// Tests of how a name's road is found in captured traffic, on recordings that no simulator makes.
#include "tools/plc_host/why/why_capture.h"

#include <gtest/gtest.h>

#include "tools/plc_host/exit_codes.h"

namespace plc_host {
namespace {

using wire_trace::Bytes;
using wire_trace::CapturedRecording;
using wire_trace::TrafficEvent;

Bytes framed(uint8_t sequence, const Bytes& rest) {
  Bytes frame(8);
  const size_t length = rest.size();
  frame[3] = static_cast<uint8_t>(length);
  for (size_t i = 0; i < 4; ++i) frame[4 + i] = static_cast<uint8_t>(~frame[i]);
  frame.insert(frame.end(), {0, sequence});
  frame.insert(frame.end(), rest.begin(), rest.end());
  return frame;
}

// The name A, and the refusal of a name.
Bytes asked(uint8_t sequence) { return framed(sequence, {0x0C, 0x28, 0, 1, 0, 0, 0, 1, 0, 1, 0, 'A'}); }
Bytes refused(uint8_t sequence) { return framed(sequence, {0x0C, 0x28, 0, 4, 0, 0}); }

Bytes given_handle(uint8_t sequence) {
  constexpr size_t kRecordBytes = 24;
  constexpr size_t kAreaAt = 4;
  Bytes reply = {0x0C, 0x28, 0, 0, 1, 0, 1};
  const size_t record = reply.size();
  reply.resize(record + kRecordBytes);
  reply[record + kAreaAt] = 6;
  return framed(sequence, reply);
}

void add(wire_trace::Connection& connection, bool from_host, Bytes bytes) {
  TrafficEvent event;
  event.time_ns = static_cast<int64_t>(connection.events.size()) * 1000;
  event.from_host = from_host;
  event.bytes = std::move(bytes);
  connection.events.push_back(std::move(event));
}

WhyReport explained(const CapturedRecording& captured) {
  HostOptions options;
  options.names = {"A"};
  options.capture = "field.pcap";
  WhyReport report;
  take_capture(options, captured, report);
  EXPECT_EQ(explain_capture(options, report), kExitTagFailed);
  return report;
}

TEST(WhyCapture, FaultOfTheOpening_CountsForEveryNameBehindIt) {
  CapturedRecording captured;
  captured.recording.connections.resize(2);
  add(captured.recording.connections[0], true, framed(0, {0x0C, 0x2C, 0, 0, 0, 0}));
  for (wire_trace::Connection& connection : captured.recording.connections) {
    for (uint8_t sequence = 1; sequence <= 3; ++sequence) {
      add(connection, true, asked(sequence));
      add(connection, false, given_handle(sequence));
    }
  }
  const WhyReport report = explained(captured);
  EXPECT_EQ(report.times_asked, 6U);
  EXPECT_EQ(report.times_wrong, 3U);
}

// Had each name its road looked for anew, and each reply its request, this would take a minute and more.
TEST(WhyCapture, CaptureOfManyNames_IsReadInOneGo) {
  constexpr size_t kNames = 50000;
  CapturedRecording captured;
  captured.recording.connections.resize(1);
  for (size_t i = 0; i < kNames; ++i) {
    add(captured.recording.connections[0], true, asked(1));
    add(captured.recording.connections[0], false, refused(2));
  }
  const WhyReport report = explained(captured);
  EXPECT_EQ(report.times_asked, kNames);
  EXPECT_EQ(report.times_wrong, kNames);
}

}  // namespace
}  // namespace plc_host
