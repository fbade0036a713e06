// The answers of the benchmarks' peer: one per kind of request, looked up, cut to length and given the head
// that answers the request.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

constexpr size_t kFrameBytes = 4096;

// A reply to send.
struct Answer {
  const uint8_t* bytes;
  size_t length;
};

class AnswerTable {
 public:
  AnswerTable();

  // The answer to a request of length bytes; of no bytes for a request that the table does not know.
  // Its bytes are good until the next call.
  Answer find(const uint8_t* request, size_t length);

 private:
  std::vector<uint8_t> directory_;
  std::vector<uint8_t> handles_;
  std::vector<uint8_t> values_;
};

}  // namespace bench
