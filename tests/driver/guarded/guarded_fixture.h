// What the tests of the guarded build start from: a healthy controller that answers every request, and tests that
// change what it answers.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "plc_driver.h"
#include "tests/driver/guarded/timed_socket.h"
#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/temp_dir.h"

namespace plc_test {

// What a call returns, as the values of the entry points.
constexpr uint32_t kOk = PLC_OK;
constexpr uint32_t kNoConnect = PLC_NO_CONNECT;
constexpr uint32_t kFailed = PLC_FAILED;

// Kinds of requests by class and command.
constexpr unsigned kDirectoryStart = 0x0C2C;
constexpr unsigned kDirectory = 0x0C25;
constexpr unsigned kResolve = 0x0C28;
constexpr unsigned kValues = 0x1E09;
constexpr unsigned kWrite = 0x1E01;
unsigned kind_of(const Bytes& request);

// A reply to this request with this status and body: length, complement, and the request's own number and command.
Bytes reply_to(const Bytes& request, const Bytes& body, unsigned status = 0);

// The same frame with another byte at an offset.
Bytes with_byte(Bytes frame, size_t offset, uint8_t value);

// A record of a resolve reply: the handle's last byte, and this many groups of four bytes behind it.
Bytes name_record(uint8_t last_byte, uint8_t groups = 0);

// The body of a resolve reply: what stands before the records, and the records.
Bytes names_body(const Bytes& records);

// A record of a directory reply, with the byte behind its name.
Bytes directory_record(uint8_t number, std::string_view name);

class GuardedTest : public ::testing::Test {
 protected:
  GuardedTest();
  ~GuardedTest() override;

  // Declares the variables of area 0 and forgets the connection.
  void use_tags(std::string_view lines);

  // The body of the directory reply: its count byte and the records.
  void use_directory(const Bytes& body) { directory_ = body; }

  // From now on this answers the requests of one kind, in place of the healthy answer.
  void answer(unsigned kind, TimedSocket::Controller answer);

  // What a healthy controller answers.
  Bytes healthy_reply(const Bytes& request) const;

  // Transfers of elements of area 0; what they print is added to output_.
  uint32_t read(uint32_t id, uint32_t count = 1, uint16_t element = 0);
  uint32_t write(uint32_t id, const Bytes& data, uint32_t count = 1, uint16_t element = 0);
  uint32_t read_batch(std::vector<BatchReadRequest> elements);

  // An element of a batch.
  static BatchReadRequest element(uint32_t id, uint16_t offset = 0, uint16_t count = 1);

  // Connects with a read of id 0 and forgets what was sent, called and printed for it.
  void connect();

  // What was printed since the last call of this.
  std::string take_output() { return std::exchange(output_, std::string()); }

  // The requests sent since connect() or the last call of this.
  std::vector<Bytes> take_requests();

  Bytes data() const { return Bytes(buffer_.data(), buffer_.data() + buffer_.size()); }

  TempDir folder_;
  ScopedWorkingDirectory inside_{folder_.path()};
  TimedSocket socket_;
  CommSettings settings_{};
  ConnContext conn_{};
  GuardedBuffer buffer_{16, 0x77};
  std::vector<BatchReadRequest> elements_;
  Bytes directory_{0};
  std::string output_;

 private:
  std::vector<Arrival> respond(const Bytes& request) const;

  std::vector<std::pair<unsigned, TimedSocket::Controller>> answers_;
  size_t seen_requests_ = 0;
};

}  // namespace plc_test
