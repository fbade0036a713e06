// An SQLite database of one process, with room kept for it: what it has of the disk suffices to go on when the disk is
// full.
//
// The log of changes (WAL) has its full length from the beginning and is used from its start again after each
// checkpoint. The file itself grows by whole chunks, before SQLite may use their pages: a checkpoint never needs more
// of the disk than there is already.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/journal/journal_files.h"

namespace plc_gateway {

enum class Answer : uint8_t {
  kDone,
  kFull,     // no page is left, or the disk is full
  kRefused,  // the disk failed
  kDamaged,  // what is stored makes no sense
};

enum class Access : uint8_t {
  kUse,   // it is made when it is not there
  kLook,  // nothing of it is changed, nor of what stands beside it
};

// Found when the database was opened.
class DamagedDatabase : public std::runtime_error {
 public:
  DamagedDatabase(const std::string& what, uint32_t stamp) : std::runtime_error(what), stamp_(stamp) {}
  uint32_t stamp() const { return stamp_; }  // as far as it could be read, else 0

 private:
  uint32_t stamp_;
};

class Statement {
 public:
  Statement() = default;
  explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}
  sqlite3_stmt* get() const { return statement_.get(); }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// One use of a statement, which is ready for the next one when this ends.
class Query {
 public:
  explicit Query(const Statement& statement) : statement_(statement.get()) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query();

  // The next parameter. Bytes and texts must live as long as the query.
  Query& with(uint64_t number);
  Query& with_nothing();
  Query& with_bytes(std::string_view bytes);
  Query& with_text(std::string_view text);

  int step() { return sqlite3_step(statement_); }  // of SQLite: SQLITE_ROW, SQLITE_DONE, or what went wrong

  uint64_t number(int column) const { return static_cast<uint64_t>(sqlite3_column_int64(statement_, column)); }
  bool is_nothing(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  std::string_view bytes(int column) const;  // until the next step

 private:
  sqlite3_stmt* statement_;
  int parameter_ = 0;
};

class Database {
 public:
  static constexpr uint64_t kPageBytes = 4096;
  static constexpr uint64_t kChunkBytes = 1ULL << 20;
  static constexpr uint64_t kLogBytes = 2ULL << 20;
  static constexpr uint64_t kLeastBytes = kLogBytes + kChunkBytes;

  // Opens or makes it, for this process alone. Throws JournalError, or DamagedDatabase when it must be put aside.
  explicit Database(const JournalOptions& options, Access access = Access::kUse);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Throws DamagedDatabase: the statements are fixed, so one that cannot be prepared does not fit what is stored.
  Statement prepare(const char* sql);

  // What a code of SQLite means. Counts what the disk refused.
  Answer answer(int code);
  // A statement without a result, or with one that nobody needs.
  Answer run(const char* sql);
  Answer run(Query& query);
  Answer run(Query&& query) { return run(query); }

  // All of the work or nothing of it. Durable: also after a power cut when this returns; else only after a kill.
  Answer transaction(bool durable, const std::function<Answer()>& work);

  // Pages that can be used without more of the disk.
  uint64_t free_pages();
  // Takes one more chunk of the disk. False: it would be more than allowed, or the disk is full.
  bool grow();
  // The log's length, when the disk did not give it at the opening.
  void make_reserve();

  // A number of 32 bits that is told even of many a damaged database, for it stands at its very beginning.
  uint32_t stamp();
  Answer set_stamp(uint32_t stamp);

  uint64_t bytes();  // of the file and its log
  // Somebody has removed or replaced the files since they were opened.
  bool is_left() const { return places_.are_left(); }
  // At the opening, behind a damaged one in the log.
  uint64_t unreadable_changes() const { return unreadable_changes_; }
  uint64_t failures() const { return failures_; }
  void count_failure() { ++failures_; }
  const std::string& path() const { return path_; }
  bool is_looked_at() const { return access_ == Access::kLook; }

  // With SQLite's own words for what it met last.
  [[noreturn]] void throw_for(Answer answer, const std::string& what);
  // DamagedDatabase, where SQLite has met nothing.
  [[noreturn]] void throw_damaged(const std::string& what);

 private:
  void open();
  void lock_and_log();
  void lock_and_look();
  void set_up();
  void checkpoint();
  bool allow(uint64_t pages);
  uint64_t pragma(const Statement& statement);

  std::string path_;
  std::string vfs_;
  Access access_;
  uint64_t most_pages_;
  sqlite3* connection_ = nullptr;
  Statement begin_, commit_, rollback_, page_count_, free_count_;
  uint64_t pages_ = 0;  // that may be used
  int frames_ = 0;      // pages in the log that are not in the file
  JournalPlaces places_;
  uint64_t unreadable_changes_ = 0;
  bool has_reserve_ = false;
  bool durable_ = true;
  uint64_t failures_ = 0;
};

}  // namespace plc_gateway
