// The fixture of tests that call the driver's entry points: fresh module state, a working directory of its own with
// tag files, captured output, and a scripted controller to connect to.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "plc_driver.h"
#include "tests/support/bytes.h"
#include "tests/support/captured_output.h"
#include "tests/support/peer/scripted_peer.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wrapped_calls.h"

namespace plc_test {

// What a resolve reply says of one name: the five bytes of its handle, and the byte that holds a bit's number.
struct ResolvedName {
  uint8_t lead;
  uint8_t reference[4];
  uint8_t bit_number = 0;
};

// A resolve reply with 24 bytes for each name, so that each name's step byte is 0.
Bytes resolve_reply(const std::vector<ResolvedName>& names);

// A value reply: a head of 14 zero bytes, then these values as they travel.
Bytes value_reply(const Bytes& values);

// The replies to the two requests that follow each connect; the second holds an empty directory.
std::vector<PeerStep> empty_directory();

// The same with a directory of these records (after its count byte, as they travel).
std::vector<PeerStep> directory_of(uint8_t count, const Bytes& records);

std::vector<PeerStep> operator+(std::vector<PeerStep> first, const std::vector<PeerStep>& second);

class DriverFixture : public ::testing::Test {
 public:
  DriverFixture();
  ~DriverFixture() override;

 protected:
  // Writes the tag file of 127.0.0.1 and this area.
  void write_tags(uint16_t area, std::string_view lines);

  // Starts a peer with this script and points the driver at it with ev_plc_init. Tables of an earlier start are freed.
  void start(std::vector<PeerStep> script);

  // The same with the steps of a connect and an empty directory in front.
  void start_connected(const std::vector<PeerStep>& script);

  // Ends the peer. Returns its requests without the first `skipped`, those of the directory. Expects that every step of
  // the script was used and that no request came beyond it.
  std::vector<Bytes> finish(size_t skipped = 2);

  // ev_plc_read, ev_plc_write and ev_OMRON_plc_read on conn_, with what they print added to output_.
  uint32_t read(RegRequest* request, RegValue* value);
  uint32_t write(RegRequest* request, RegValue* value);
  uint32_t read_batch(BatchReadRequest* elements, int32_t count);

  // Reads count elements of the variable with this id, from element `offset` of area 0, into data.
  uint32_t read_id(uint32_t id, uint16_t offset, uint32_t count, uint8_t* data);

  // What was printed by calls since the last take_output().
  std::string take_output() { return std::exchange(output_, std::string()); }

  // Runs action and adds what it prints to output_.
  template <typename Action>
  auto captured(Action&& action) {
    CapturedOutput capture;
    auto result = std::forward<Action>(action)();
    output_ += capture.take();
    return result;
  }

  TempDir folder_;
  ScopedWorkingDirectory inside_{folder_.path()};
  CommSettings settings_{};
  ConnContext conn_{};
  std::unique_ptr<ScriptedPeer> peer_;
  std::string output_;
};

// A request record for an id and an element offset of area 0.
RegRequest request_for(uint32_t id, uint16_t offset = 0);

}  // namespace plc_test
