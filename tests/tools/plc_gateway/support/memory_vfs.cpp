#include "tests/tools/plc_gateway/support/memory_vfs.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace plc_test {
namespace {

constexpr int kMostPath = 512;
constexpr sqlite3_int64 kMoment = 212000000000000;  // any day will do, as long as it is always the same

}  // namespace

// What SQLite calls. It gives the memory for an open file.
struct DiskCalls {
  struct Handle {
    sqlite3_file base;
    MemoryDisk* disk;
    MemoryDisk::FilePointer file;
    std::string path;
    size_t chunk;
    bool keeps_log;
  };

  static Handle& handle(sqlite3_file* file) { return *reinterpret_cast<Handle*>(file); }
  static MemoryDisk& disk(sqlite3_vfs* vfs) { return *static_cast<MemoryDisk*>(vfs->pAppData); }

  static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* out, int flags, int* out_flags) {
    MemoryDisk& disk = DiskCalls::disk(vfs);
    out->pMethods = nullptr;
    const int code = disk.begin_operation();
    if (code != SQLITE_OK) return SQLITE_CANTOPEN;
    MemoryDisk::FilePointer file;
    if (path == nullptr) {
      file = std::make_shared<MemoryDisk::File>();
    } else if (const auto known = disk.files_.find(path); known != disk.files_.end()) {
      file = known->second;
    } else if ((flags & SQLITE_OPEN_CREATE) != 0) {
      file = std::make_shared<MemoryDisk::File>();
      disk.files_.emplace(path, file);
    } else {
      return SQLITE_CANTOPEN;
    }
    auto* made = new (out) Handle{{}, &disk, std::move(file), path != nullptr ? path : "", 0, false};
    made->base.pMethods = methods();
    if (out_flags != nullptr) *out_flags = flags;
    return SQLITE_OK;
  }

  static int remove(sqlite3_vfs* vfs, const char* path, int) {
    MemoryDisk& disk = DiskCalls::disk(vfs);
    const int code = disk.begin_operation();
    if (code != SQLITE_OK) return SQLITE_IOERR_DELETE;
    const auto file = disk.files_.find(path);
    if (file == disk.files_.end()) return SQLITE_IOERR_DELETE_NOENT;
    disk.files_.erase(file);
    return SQLITE_OK;
  }

  static int access(sqlite3_vfs* vfs, const char* path, int, int* out) {
    const MemoryDisk& disk = DiskCalls::disk(vfs);
    const auto file = disk.files_.find(path);
    *out = !disk.is_stopped_ && file != disk.files_.end() && !file->second->bytes.empty() ? 1 : 0;
    return disk.is_stopped_ ? SQLITE_IOERR_ACCESS : SQLITE_OK;
  }

  static int full_path(sqlite3_vfs*, const char* path, int room, char* out) {
    if (std::strlen(path) >= static_cast<size_t>(room)) return SQLITE_CANTOPEN;
    std::memcpy(out, path, std::strlen(path) + 1);
    return SQLITE_OK;
  }

  static int randomness(sqlite3_vfs* vfs, int length, char* out) {
    for (int i = 0; i < length; ++i) out[i] = static_cast<char>(disk(vfs).random(256));
    return length;
  }

  static int sleep(sqlite3_vfs*, int microseconds) { return microseconds; }

  static int moment(sqlite3_vfs*, sqlite3_int64* out) {
    *out = kMoment;
    return SQLITE_OK;
  }

  static int last_error(sqlite3_vfs*, int, char*) { return 0; }

  static int close(sqlite3_file* file) {
    Handle& it = handle(file);
    unlock(file, SQLITE_LOCK_NONE);
    it.~Handle();
    return SQLITE_OK;
  }

  static int read(sqlite3_file* file, void* out, int length, sqlite3_int64 place) {
    const Handle& it = handle(file);
    if (it.disk->begin_operation() != SQLITE_OK) return SQLITE_IOERR_READ;
    const std::string& bytes = it.file->bytes;
    const auto from = static_cast<size_t>(place);
    const auto wanted = static_cast<size_t>(length);
    const size_t there = from < bytes.size() ? std::min(bytes.size() - from, wanted) : 0;
    if (there != 0) std::memcpy(out, bytes.data() + from, there);
    std::memset(static_cast<char*>(out) + there, 0, wanted - there);
    return there == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
  }

  static int write(sqlite3_file* file, const void* bytes, int length, sqlite3_int64 place) {
    const Handle& it = handle(file);
    if (!it.path.empty() && it.path == it.disk->refused_path_) return SQLITE_IOERR_WRITE;
    return it.disk->write(*it.file, static_cast<const char*>(bytes), static_cast<size_t>(length),
                          static_cast<size_t>(place));
  }

  static int truncate(sqlite3_file* file, sqlite3_int64 length) {
    const Handle& it = handle(file);
    if (it.disk->begin_operation() != SQLITE_OK) return SQLITE_IOERR_TRUNCATE;
    return it.disk->resize(*it.file, rounded(it, length));
  }

  static int sync(sqlite3_file* file, int) {
    const Handle& it = handle(file);
    if (it.disk->begin_operation() != SQLITE_OK) return SQLITE_IOERR_FSYNC;
    it.disk->sync(*it.file);
    return SQLITE_OK;
  }

  static int length(sqlite3_file* file, sqlite3_int64* out) {
    *out = static_cast<sqlite3_int64>(handle(file).file->bytes.size());
    return handle(file).disk->is_stopped_ ? SQLITE_IOERR_FSTAT : SQLITE_OK;
  }

  static int lock(sqlite3_file* file, int wanted) {
    auto& locks = handle(file).file->locks;
    int mine = SQLITE_LOCK_NONE;
    int others = SQLITE_LOCK_NONE;
    for (const auto& [owner, level] : locks) {
      int& seen = owner == file ? mine : others;
      seen = std::max(seen, level);
    }
    const int most_beside = wanted == SQLITE_LOCK_SHARED     ? SQLITE_LOCK_RESERVED
                            : wanted == SQLITE_LOCK_RESERVED ? SQLITE_LOCK_SHARED
                                                             : SQLITE_LOCK_NONE;
    if (mine >= wanted) return SQLITE_OK;
    if (others > most_beside) return SQLITE_BUSY;
    unlock(file, SQLITE_LOCK_NONE);
    locks.emplace_back(file, wanted);
    return SQLITE_OK;
  }

  static int unlock(sqlite3_file* file, int level) {
    auto& locks = handle(file).file->locks;
    const auto mine = std::find_if(locks.begin(), locks.end(), [&](const auto& each) { return each.first == file; });
    if (mine == locks.end()) return SQLITE_OK;
    mine->second = level;
    if (level == SQLITE_LOCK_NONE) locks.erase(mine);
    return SQLITE_OK;
  }

  static int is_reserved(sqlite3_file* file, int* out) {
    const auto& locks = handle(file).file->locks;
    *out = std::any_of(locks.begin(), locks.end(), [](const auto& each) { return each.second >= SQLITE_LOCK_RESERVED; })
               ? 1
               : 0;
    return SQLITE_OK;
  }

  static int control(sqlite3_file* file, int operation, void* argument) {
    Handle& it = handle(file);
    if (operation == SQLITE_FCNTL_CHUNK_SIZE) {
      it.chunk = static_cast<size_t>(*static_cast<int*>(argument));
      return SQLITE_OK;
    }
    if (operation == SQLITE_FCNTL_PERSIST_WAL) {
      int& flag = *static_cast<int*>(argument);
      if (flag >= 0) it.keeps_log = flag != 0;
      flag = it.keeps_log ? 1 : 0;
      return SQLITE_OK;
    }
    if (operation == SQLITE_FCNTL_SIZE_HINT) {
      const size_t wanted = rounded(it, *static_cast<sqlite3_int64*>(argument));
      if (it.chunk == 0 || wanted <= it.file->bytes.size()) return SQLITE_OK;
      const int code = it.disk->begin_operation();
      return code != SQLITE_OK ? code : it.disk->resize(*it.file, wanted);
    }
    return SQLITE_NOTFOUND;
  }

  static int sector(sqlite3_file*) { return static_cast<int>(MemoryDisk::kSectorBytes); }

  // As SQLite takes it of the disks of its systems.
  static int characteristics(sqlite3_file*) { return SQLITE_IOCAP_POWERSAFE_OVERWRITE; }

  static size_t rounded(const Handle& it, sqlite3_int64 length) {
    const auto wanted = static_cast<size_t>(length);
    return it.chunk == 0 ? wanted : (wanted + it.chunk - 1) / it.chunk * it.chunk;
  }

  static const sqlite3_io_methods* methods() {
    static const sqlite3_io_methods kMethods = [] {
      sqlite3_io_methods made{};
      made.iVersion = 1;
      made.xClose = close;
      made.xRead = read;
      made.xWrite = write;
      made.xTruncate = truncate;
      made.xSync = sync;
      made.xFileSize = length;
      made.xLock = lock;
      made.xUnlock = unlock;
      made.xCheckReservedLock = is_reserved;
      made.xFileControl = control;
      made.xSectorSize = sector;
      made.xDeviceCharacteristics = characteristics;
      return made;
    }();
    return &kMethods;
  }
};

MemoryDisk::MemoryDisk(uint64_t seed) : random_(seed) {
  static std::atomic<uint64_t> disks{0};
  name_ = "memory-disk-" + std::to_string(++disks);
  sqlite3_initialize();
  calls_.iVersion = 2;
  calls_.szOsFile = sizeof(DiskCalls::Handle);
  calls_.mxPathname = kMostPath;
  calls_.zName = name_.c_str();
  calls_.pAppData = this;
  calls_.xOpen = DiskCalls::open;
  calls_.xDelete = DiskCalls::remove;
  calls_.xAccess = DiskCalls::access;
  calls_.xFullPathname = DiskCalls::full_path;
  calls_.xRandomness = DiskCalls::randomness;
  calls_.xSleep = DiskCalls::sleep;
  calls_.xGetLastError = DiskCalls::last_error;
  calls_.xCurrentTimeInt64 = DiskCalls::moment;
  sqlite3_vfs_register(&calls_, 0);
}

MemoryDisk::~MemoryDisk() { sqlite3_vfs_unregister(&calls_); }

uint64_t MemoryDisk::used() const {
  uint64_t bytes = 0;
  for (const auto& [path, file] : files_) bytes += file->bytes.size();
  return bytes;
}

int MemoryDisk::begin_operation() {
  if (is_spared_ && !is_stopped_) return SQLITE_OK;
  ++operations_;
  if (stop_at_ != 0 && operations_ >= stop_at_) is_stopped_ = true;
  return is_stopped_ || refuse_ || operations_ == fail_at_ ? SQLITE_IOERR : SQLITE_OK;
}

int MemoryDisk::write(File& file, const char* bytes, size_t length, size_t place) {
  const bool was_stopped = is_stopped_;
  const bool is_refused = begin_operation() != SQLITE_OK;
  size_t done = length;
  if (is_refused) {
    if (was_stopped || !is_stopped_) return SQLITE_IOERR_WRITE;
    const size_t sectors = length / kSectorBytes;
    done = random(sectors + 1) * kSectorBytes;
  }
  const size_t end = std::max(file.bytes.size(), place + done);
  if (end - file.bytes.size() > limit_ - std::min(limit_, used())) return SQLITE_FULL;
  remember(file, place, place + done);
  if (file.bytes.size() < end) file.bytes.resize(end);
  file.bytes.replace(place, done, bytes, done);
  return is_refused ? SQLITE_IOERR_WRITE : SQLITE_OK;
}

int MemoryDisk::resize(File& file, size_t length) {
  if (length > file.bytes.size() && length - file.bytes.size() > limit_ - std::min(limit_, used())) return SQLITE_FULL;
  remember(file, std::min(length, file.bytes.size()), std::max(length, file.bytes.size()));
  file.bytes.resize(length);
  return SQLITE_OK;
}

void MemoryDisk::remember(File& file, size_t from, size_t to) {
  // Sectors behind the durable length are not kept one by one: after a power cut they are new, or not there.
  for (size_t sector = from / kSectorBytes; sector * kSectorBytes < std::min(to, file.bytes.size()); ++sector) {
    if (sector >= file.is_changed.size()) file.is_changed.resize(sector + 1);
    if (file.is_changed[sector]) continue;
    file.is_changed[sector] = true;
    file.before.emplace_back(sector, file.bytes.substr(sector * kSectorBytes, kSectorBytes));
  }
}

void MemoryDisk::sync(File& file) {
  for (const auto& [sector, bytes] : file.before) file.is_changed[sector] = false;
  file.before.clear();
  file.durable_length = file.bytes.size();
  file.is_durable = true;
}

void MemoryDisk::start() {
  is_stopped_ = false;
  refuse_ = false;
  stop_at_ = 0;
  fail_at_ = 0;
}

void MemoryDisk::cut_power() {
  for (auto file = files_.begin(); file != files_.end();) {
    if (!file->second->is_durable && random(2) == 0) {
      file = files_.erase(file);
      continue;
    }
    forget_unsynced(*file->second);
    sync(*file->second);
    ++file;
  }
  start();
}

void MemoryDisk::forget_unsynced(File& file) {
  const size_t length = file.bytes.size();
  const bool is_length_lost = random(2) == 0;
  if (is_length_lost) file.bytes.resize(file.durable_length);
  for (const auto& [sector, bytes] : file.before) {
    const size_t place = sector * kSectorBytes;
    const bool was_cut_off = place + bytes.size() > length;
    if (place < file.bytes.size() && (was_cut_off || random(2) == 0)) file.bytes.replace(place, bytes.size(), bytes);
  }
  // What lies behind the durable length was never there before: zeros where it was not written.
  for (size_t place = file.durable_length; place < file.bytes.size(); place += kSectorBytes) {
    const size_t rest = std::min(kSectorBytes, file.bytes.size() - place);
    if (random(2) == 0) file.bytes.replace(place, rest, rest, '\0');
  }
}

std::string MemoryDisk::content(const std::string& path) const {
  const auto file = files_.find(path);
  return file == files_.end() ? std::string() : file->second->bytes;
}

void MemoryDisk::put(const std::string& path, const std::string& content) {
  FilePointer& file = files_[path];
  if (!file) file = std::make_shared<File>();
  file->bytes = content;
  file->is_changed.clear();
  file->before.clear();
  sync(*file);
}

}  // namespace plc_test
