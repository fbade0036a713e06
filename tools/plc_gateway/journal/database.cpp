#include "tools/plc_gateway/journal/database.h"

#include <algorithm>
#include <array>

#include "tools/plc_gateway/journal/log_look.h"

namespace plc_gateway {
namespace {

constexpr uint64_t kFrameBytes = Database::kPageBytes + 24;
// A checkpoint follows when half of the log is in use: the other half is for the largest change.
constexpr int kCheckpointFrames = static_cast<int>(Database::kLogBytes / kFrameBytes / 2);
constexpr int kMostFrames = static_cast<int>(Database::kLogBytes / kFrameBytes);

sqlite3_file* log_file(sqlite3* connection) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_JOURNAL_POINTER, &file);
  return file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

uint64_t length_of(sqlite3_file* file) {
  sqlite3_int64 length = 0;
  if (file == nullptr || file->pMethods == nullptr || file->pMethods->xFileSize(file, &length) != SQLITE_OK) return 0;
  return static_cast<uint64_t>(length);
}

bool fill_log(sqlite3_file* file) {
  constexpr uint64_t kStep = 1ULL << 16;
  static const std::array<char, kStep> kZeros{};
  uint64_t length = length_of(file);
  if (length >= Database::kLogBytes) return true;
  while (length < Database::kLogBytes) {
    const uint64_t step = std::min(kStep, Database::kLogBytes - length);
    if (file->pMethods->xWrite(file, kZeros.data(), static_cast<int>(step), static_cast<sqlite3_int64>(length)) !=
        SQLITE_OK) {
      return false;
    }
    length += step;
  }
  return file->pMethods->xSync(file, SQLITE_SYNC_NORMAL) == SQLITE_OK;
}

uint64_t rounded_up(uint64_t pages) {
  constexpr uint64_t kChunkPages = Database::kChunkBytes / Database::kPageBytes;
  return (pages + kChunkPages - 1) / kChunkPages * kChunkPages;
}

// What a stored schema could do of its own, as part of our statements.
void refuse_stored_code(sqlite3* connection) {
  for (const int power :
       {SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW, SQLITE_DBCONFIG_TRUSTED_SCHEMA}) {
    sqlite3_db_config(connection, power, 0, static_cast<int*>(nullptr));
  }
}

}  // namespace

Query::~Query() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

Query& Query::with(uint64_t number) {
  sqlite3_bind_int64(statement_, ++parameter_, static_cast<sqlite3_int64>(number));
  return *this;
}

Query& Query::with_nothing() {
  sqlite3_bind_null(statement_, ++parameter_);
  return *this;
}

Query& Query::with_bytes(std::string_view bytes) {
  sqlite3_bind_blob64(statement_, ++parameter_, bytes.data(), bytes.size(), SQLITE_STATIC);
  return *this;
}

Query& Query::with_text(std::string_view text) {
  sqlite3_bind_text64(statement_, ++parameter_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
  return *this;
}

std::string_view Query::bytes(int column) const {
  const void* bytes = sqlite3_column_blob(statement_, column);
  const auto length = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
  return bytes == nullptr ? std::string_view() : std::string_view(static_cast<const char*>(bytes), length);
}

Database::Database(const JournalOptions& options, Access access)
    : path_(options.folder + "/journal.sqlite"),
      vfs_(options.vfs),
      access_(access),
      most_pages_((std::max(options.most_bytes, kLeastBytes) - kLogBytes) / kPageBytes) {
  std::string problem = vfs_.empty() ? problem_with_journal_files(options.folder) : std::string();
  if (problem.empty() && is_looked_at()) problem = problem_with_a_look(path_);
  if (!problem.empty()) throw JournalError(problem);
  if (vfs_.empty()) unreadable_changes_ = plc_gateway::unreadable_changes(path_ + "-wal");
  try {
    open();
    set_up();
    if (vfs_.empty()) places_ = JournalPlaces(path_);
  } catch (...) {
    sqlite3_close_v2(connection_);
    throw;
  }
}

Database::~Database() {
  for (Statement* statement : {&begin_, &commit_, &rollback_, &page_count_, &free_count_}) *statement = {};
  sqlite3_close_v2(connection_);
}

void Database::open() {
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (is_looked_at() ? 0 : SQLITE_OPEN_CREATE);
  const int code = sqlite3_open_v2(path_.c_str(), &connection_, flags, vfs_.empty() ? nullptr : vfs_.c_str());
  if (code != SQLITE_OK) throw_for(answer(code), "cannot be opened");
  refuse_stored_code(connection_);
  if (is_looked_at()) {
    lock_and_look();
  } else {
    lock_and_log();
  }
}

// Under the lock of the whole file SQLite reads the log as it is, and at the end this leaves it as it is.
void Database::lock_and_look() {
  sqlite3_db_config(connection_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, static_cast<int*>(nullptr));
  for (const char* sql : {"PRAGMA locking_mode=EXCLUSIVE", "PRAGMA query_only=ON", "PRAGMA temp_store=MEMORY",
                          "PRAGMA cell_size_check=ON", "SELECT count(*) FROM sqlite_master"}) {
    const Answer done = run(sql);
    if (done != Answer::kDone) throw_for(done, "cannot be read");
  }
}

void Database::lock_and_log() {
  auto chunk = static_cast<int>(kChunkBytes);
  sqlite3_file_control(connection_, "main", SQLITE_FCNTL_CHUNK_SIZE, &chunk);
  // The lock of the whole file comes before the log: SQLite then needs no memory shared with other processes.
  for (const char* sql : {"PRAGMA page_size=4096", "PRAGMA locking_mode=EXCLUSIVE", "PRAGMA journal_mode=WAL",
                          "PRAGMA synchronous=FULL", "PRAGMA wal_autocheckpoint=0", "PRAGMA journal_size_limit=-1",
                          "PRAGMA secure_delete=OFF", "PRAGMA temp_store=MEMORY", "PRAGMA cache_size=-256",
                          "PRAGMA cell_size_check=ON", "BEGIN IMMEDIATE", "COMMIT"}) {
    const Answer done = run(sql);
    if (done != Answer::kDone) throw_for(done, "cannot be opened");
  }
  int keep_log = 1;
  sqlite3_file_control(connection_, "main", SQLITE_FCNTL_PERSIST_WAL, &keep_log);
  sqlite3_wal_hook(
      connection_,
      [](void* self, sqlite3*, const char*, int frames) {
        static_cast<Database*>(self)->frames_ = frames;
        return SQLITE_OK;
      },
      this);
}

void Database::set_up() {
  begin_ = prepare("BEGIN IMMEDIATE");
  commit_ = prepare("COMMIT");
  rollback_ = prepare("ROLLBACK");
  page_count_ = prepare("PRAGMA page_count");
  free_count_ = prepare("PRAGMA freelist_count");
  // A page that is larger than ours was made by somebody else.
  if (pragma(prepare("PRAGMA page_size")) != kPageBytes) throw_damaged("it has pages of another size");
  if (is_looked_at()) return;
  checkpoint();
  make_reserve();
  pages_ = pragma(page_count_);
  if (pages_ != 0 && pages_ == rounded_up(pages_)) {
    allow(pages_);
  } else if (!grow()) {
    allow(std::max<uint64_t>(pages_, 1));
  }
}

void Database::throw_for(Answer answer, const std::string& what) {
  const std::string reason = connection_ != nullptr ? sqlite3_errmsg(connection_) : "no memory";
  const int code = sqlite3_errcode(connection_) & 0xFF;
  if (answer == Answer::kDamaged) {
    throw DamagedDatabase(path_ + ": " + what + ": " + reason, stamp());
  }
  if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
    throw JournalError(path_ + (is_looked_at()
                                    ? ": a gateway runs with it; its /metrics tells the same, or end it first"
                                    : ": another process has it open; give every gateway a journal folder of its own"));
  }
  if (answer == Answer::kFull) {
    throw JournalError(path_ + ": the disk is full; free " + std::to_string(kLeastBytes >> 20U) + " MiB at least");
  }
  throw JournalError(path_ + ": " + what + ": " + reason +
                     "; the folder must exist, and this user must be allowed to write in it");
}

void Database::throw_damaged(const std::string& what) { throw DamagedDatabase(path_ + ": " + what, stamp()); }

Statement Database::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v3(connection_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (code != SQLITE_OK) {
    const Answer done = answer(code);
    if ((code & 0xFF) != SQLITE_ERROR) throw_for(done, "cannot be used");
    throw_for(Answer::kDamaged, "it was not made by this version of plc-gateway, or somebody has changed it");
  }
  return Statement(statement);
}

Answer Database::answer(int code) {
  switch (code & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return Answer::kDone;
    case SQLITE_FULL:
      return Answer::kFull;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      ++failures_;
      return Answer::kDamaged;
    default:
      ++failures_;
      return Answer::kRefused;
  }
}

Answer Database::run(const char* sql) { return answer(sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr)); }

Answer Database::run(Query& query) {
  int code = SQLITE_ROW;
  while (code == SQLITE_ROW) code = query.step();
  return answer(code);
}

Answer Database::transaction(bool durable, const std::function<Answer()>& work) {
  if (frames_ >= kCheckpointFrames) checkpoint();
  if (frames_ >= kMostFrames) return Answer::kRefused;
  if (durable != durable_) {
    const Answer set = run(durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    if (set != Answer::kDone) return set;
    durable_ = durable;
  }
  Answer done = run(Query(begin_));
  if (done == Answer::kDone) done = work();
  if (done == Answer::kDone) done = run(Query(commit_));
  if (done != Answer::kDone && sqlite3_get_autocommit(connection_) == 0) Query(rollback_).step();
  return done;
}

void Database::checkpoint() {
  int in_log = 0;
  int in_file = 0;
  const int code = sqlite3_wal_checkpoint_v2(connection_, nullptr, SQLITE_CHECKPOINT_PASSIVE, &in_log, &in_file);
  if (answer(code) == Answer::kDone && in_log == in_file) frames_ = 0;
}

uint64_t Database::pragma(const Statement& statement) {
  Query query(statement);
  const int code = query.step();
  answer(code);
  return code == SQLITE_ROW ? query.number(0) : 0;
}

uint64_t Database::free_pages() {
  const uint64_t used = pragma(page_count_);
  return pragma(free_count_) + (pages_ > used ? pages_ - used : 0);
}

bool Database::grow() {
  const uint64_t wanted = rounded_up(pages_ + 1);
  if (wanted > most_pages_) return false;
  const uint64_t bytes = wanted * kPageBytes;
  auto length = static_cast<sqlite3_int64>(bytes);
  if (sqlite3_file_control(connection_, "main", SQLITE_FCNTL_SIZE_HINT, &length) != SQLITE_OK) return false;
  return allow(wanted);
}

bool Database::allow(uint64_t pages) {
  if (run(("PRAGMA max_page_count=" + std::to_string(pages)).c_str()) != Answer::kDone) return false;
  pages_ = pages;
  return true;
}

void Database::make_reserve() {
  if (has_reserve_) return;
  sqlite3_file* file = log_file(connection_);
  has_reserve_ = file != nullptr && fill_log(file);
}

uint32_t Database::stamp() {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(connection_, "PRAGMA user_version", -1, &statement, nullptr) != SQLITE_OK) return 0;
  return static_cast<uint32_t>(pragma(Statement(statement)));
}

Answer Database::set_stamp(uint32_t stamp) { return run(("PRAGMA user_version=" + std::to_string(stamp)).c_str()); }

uint64_t Database::bytes() {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection_, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return length_of(file) + length_of(log_file(connection_));
}

}  // namespace plc_gateway
