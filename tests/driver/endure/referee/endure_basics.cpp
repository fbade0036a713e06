// The record of the last events.
#include "tests/driver/endure/referee/endure_basics.h"

#include <algorithm>

namespace plc_endure {
namespace {

constexpr size_t kEntries = 256;
constexpr size_t kKeptBytes = 4200;  // a whole frame, and a little of what goes beyond
constexpr size_t kNoteBytes = 400;

}  // namespace

Journal::Journal() : entries_(kEntries) {
  for (Entry& entry : entries_) {
    entry.note.assign(kNoteBytes, ' ');
    entry.bytes.assign(kKeptBytes, 0);
  }
}

void Journal::add(int64_t time_us, unsigned connection, const char* text, const uint8_t* bytes, size_t count) {
  Entry& entry = next_entry();
  entry.time_us = time_us;
  entry.connection = connection;
  entry.text = text;
  entry.count = count;
  entry.bytes.assign(bytes, bytes + std::min(count, kKeptBytes));
}

void Journal::add_note(int64_t time_us, const std::string& text) {
  Entry& entry = next_entry();
  entry.time_us = time_us;
  entry.text = nullptr;
  entry.note.assign(text, 0, kNoteBytes);
}

void Journal::print(std::FILE* out) const {
  for (uint64_t i = count_ > entries_.size() ? count_ - entries_.size() : 0; i < count_; ++i) {
    const Entry& entry = entries_[i % entries_.size()];
    if (entry.text == nullptr) {
      std::fprintf(out, "%lld us: %s\n", static_cast<long long>(entry.time_us), entry.note.c_str());
      continue;
    }
    std::fprintf(out, "%lld us, connection %u: %s, %zu bytes", static_cast<long long>(entry.time_us), entry.connection,
                 entry.text, entry.count);
    for (const uint8_t byte : entry.bytes) std::fprintf(out, " %02x", byte);
    std::fprintf(out, "%s\n", entry.count > entry.bytes.size() ? " ..." : "");
  }
}

}  // namespace plc_endure
