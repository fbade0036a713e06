// The reads of direct_reads.h.
#include "bench/client/direct_reads.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

constexpr uint32_t kDirectLoopback = 0x7F000001;
constexpr uint32_t kWordsPerCall = 68;  // two frames of 34: what is left goes into the last one
constexpr uint32_t kReplyTimeoutS = 10;
constexpr size_t kMostValueBytes = 4096;

[[noreturn]] void end_with(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

std::unique_ptr<bench::DirectReads> loaded;

}  // namespace

namespace bench {

WordsFolder::WordsFolder() {
  char folder[] = "/tmp/plc_bench.XXXXXX";
  if (mkdtemp(folder) == nullptr || chdir(folder) != 0) end_with(folder);
  path_ = folder;
  std::FILE* const file = std::fopen(kWordsFile, "w");
  if (file == nullptr) end_with(kWordsFile);
  for (uint32_t id = 0; id < kWords; ++id) std::fprintf(file, "Register_%03u,INT,,,,,,%u,1,0,0,,DM\n", id, id);
  std::fclose(file);
}

WordsFolder::~WordsFolder() {
  unlink(kWordsFile);
  if (chdir("/") == 0) rmdir(path_.c_str());
}

DirectReads::DirectReads(const Driver& driver, uint16_t port)
    : driver_(driver), values_(kMostValueBytes), elements_(kWords) {
  settings_.ip_address = kDirectLoopback;
  settings_.tcp_port = port;
  conn_.socket_fd = -1;
  conn_.recv_timeout_s = kReplyTimeoutS;
  driver_.init(&settings_);
  for (uint32_t id = 0; id < kWords; ++id) {
    elements_[id].address = id << 16U;
    elements_[id].count = 1;
  }
}

DirectReads::~DirectReads() { close(conn_.socket_fd); }

void DirectReads::read_word() {
  RegRequest request{0, 0, 0, 0};
  RegValue value{1, values_.data()};
  if (driver_.read(&request, &value, &conn_) != PLC_OK) end_with("a read failed");
}

void DirectReads::read_words() {
  for (uint32_t first = 0; first < kWords; first += kWordsPerCall) {
    const auto count = static_cast<int32_t>(std::min(kWordsPerCall, kWords - first));
    if (driver_.read_batch(&elements_[first], count, &conn_) != PLC_OK) end_with("a batch failed");
  }
}

}  // namespace bench

void direct_open(const char* library, uint16_t port) {
  loaded = std::make_unique<bench::DirectReads>(bench::load_driver(library), port);
}

void direct_read_word(uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) loaded->read_word();
}

void direct_read_words(uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) loaded->read_words();
}

void direct_close() { loaded.reset(); }
