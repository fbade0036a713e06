// A disk in memory for SQLite: it outlives the programs that use it, fills up, fails, and forgets what was not synced.
//
// What it does at random, it does by its seed: the same calls with the same seed have the same results.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace plc_test {

class MemoryDisk {
 public:
  explicit MemoryDisk(uint64_t seed = 1);
  ~MemoryDisk();
  MemoryDisk(const MemoryDisk&) = delete;
  MemoryDisk& operator=(const MemoryDisk&) = delete;

  // The name by which SQLite knows it, until this ends.
  const std::string& vfs() const { return name_; }

  // Opened, read, written, truncated, synced, lengthened and deleted so far.
  uint64_t operations() const { return operations_; }

  // All files together; what would be longer is refused as full.
  void limit(uint64_t bytes) { limit_ = bytes; }
  uint64_t used() const;

  // The operation behind so many others is refused with an I/O error, once.
  void fail_after(uint64_t operations) { fail_at_ = operations_ + operations + 1; }
  // Every operation is refused until this is taken back.
  void refuse(bool all) { refuse_ = all; }
  // The same for writes to one file; an empty path takes it back.
  void refuse_writes(const std::string& path) { refused_path_ = path; }

  // What is done for someone who only looks is neither counted nor refused, unless the program is as killed.
  void spare(bool looks) { is_spared_ = looks; }

  // The operation behind so many others and all that follow are not done: the program is as killed. Of a write, some
  // sectors from the beginning are done.
  void stop_after(uint64_t operations) { stop_at_ = operations_ + operations + 1; }
  void stop() { is_stopped_ = true; }
  bool is_stopped() const { return is_stopped_; }
  // When all files are closed: the next program can start. Everything that was written is there.
  void start();
  // The same after a power cut: of each sector that was not synced, either the old or the new content is there.
  void cut_power();

  bool exists(const std::string& path) const { return files_.count(path) != 0; }
  std::string content(const std::string& path) const;
  void put(const std::string& path, const std::string& content);

 private:
  friend struct DiskCalls;
  static constexpr size_t kSectorBytes = 512;

  struct File {
    std::string bytes;
    bool is_durable = false;  // it would be there after a power cut
    size_t durable_length = 0;
    std::vector<bool> is_changed;                        // by sector, since the last sync
    std::vector<std::pair<size_t, std::string>> before;  // what the changed sectors held, if they were there
    std::vector<std::pair<const void*, int>> locks;      // by handle
  };
  using FilePointer = std::shared_ptr<File>;

  int begin_operation();
  int write(File& file, const char* bytes, size_t length, size_t place);
  int resize(File& file, size_t length);
  void remember(File& file, size_t from, size_t to);
  void sync(File& file);
  void forget_unsynced(File& file);
  uint64_t random(uint64_t below) { return random_() % below; }

  std::string name_;
  std::string refused_path_;
  sqlite3_vfs calls_{};
  std::mt19937_64 random_;
  std::map<std::string, FilePointer> files_;
  uint64_t operations_ = 0;
  uint64_t limit_ = UINT64_MAX;
  uint64_t fail_at_ = 0;
  uint64_t stop_at_ = 0;
  bool refuse_ = false;
  bool is_spared_ = false;
  bool is_stopped_ = false;
};

}  // namespace plc_test
