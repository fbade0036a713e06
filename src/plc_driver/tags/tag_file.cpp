// One tag file -> its arrays of records. The file is read into memory once, so that both passes see the same bytes.
#include "plc_driver/tags/tag_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "plc_driver/diagnostics.h"
#include "plc_driver/tags/file_status.h"
#include "plc_driver/tags/line_reader.h"
#include "plc_driver/tags/tag_line.h"

namespace plc {
namespace {

constexpr uint32_t kRunLimit = 100;  // ids counted in a run
constexpr uint32_t kGroupLimit = 100;
constexpr size_t kFirstReadBytes = 4096;
constexpr size_t kHugePagesFromBytes = 4 * 1024 * 1024;
constexpr size_t kFileLimitBytes = 256 * 1024 * 1024;  // far above what ids can address; ends an endless file
constexpr const char* kTooLarge = "larger than 256 MiB";

// What lies at the path may be anything. Nothing of it holds the call: a pipe opens at once where nobody writes into
// it. A terminal does not become the host's, and a program that the host starts does not inherit the file.
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// What a build has taken and what it has found out; rejected is the reason, once there is one.
struct Build {
  int descriptor = -1;
  char* text = nullptr;
  size_t text_length = 0;
  const char* rejected = nullptr;
  uint32_t rejected_line = 0;

  uint32_t plain = 0;
  uint32_t max_id = 0;
  uint32_t group_count = 0;
  uint8_t group_sizes[kGroupLimit] = {};

  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
};

void reject(Build* build, uint32_t line, const char* reason) {
  build->rejected = reason;
  build->rejected_line = line;
}

// The descriptor of the opened file, or -1.
int open_file(const char* path, FileStatus* status) {
  const int descriptor = open(path, kOpenFlags);
  if (descriptor >= 0 && !ask_file_status(descriptor, status)) {
    close(descriptor);
    return -1;
  }
  return descriptor;
}

// Rejects what is no file of a bounded length, before anything of it is read.
void check_status(Build* build, const FileStatus& status) {
  if (!status.is_regular) {
    reject(build, 0, "it is not a regular file");
  } else if (status.bytes > static_cast<int64_t>(kFileLimitBytes)) {
    reject(build, 0, kTooLarge);
  }
}

// Fills the room that the text has; false at the file's end.
bool fill_text(Build* build, size_t capacity) {
  while (build->text_length < capacity) {
    const ssize_t count = read(build->descriptor, build->text + build->text_length, capacity - build->text_length);
    if (count < 0 && build->text_length > 0) reject(build, 0, "it cannot be read to its end");
    if (count <= 0) return false;
    build->text_length += static_cast<size_t>(count);
  }
  return true;
}

// Reads the whole file, whatever length it was said to have. One that breaks off half-way would give a table that lacks
// variables: it is rejected; one that cannot be read at all is an empty file. False when memory runs out.
bool read_text(Build* build) {
  for (size_t capacity = kFirstReadBytes;; capacity *= 2) {
    if (capacity > kFileLimitBytes) capacity = kFileLimitBytes + 1;
    auto* text = static_cast<char*>(realloc(build->text, capacity));
    if (text == nullptr) return false;
    build->text = text;
    if (!fill_text(build, capacity)) return true;
    if (capacity > kFileLimitBytes) {
      reject(build, 0, kTooLarge);
      return true;
    }
  }
}

uint32_t block_of(uint32_t id) { return (id >> kIdBlockShift) - kFirstIdBlock; }

// First pass over one indexed id. The id that starts a group is not counted in run, and the next one always continues
// it, so that run + 1 is the size of every group but the first, which gets one record too many (D7).
void count_indexed(Build* build, uint32_t id, uint32_t line, uint32_t* run, uint32_t* last_id, uint32_t* group_ids) {
  if (id > build->max_id) build->max_id = id;
  const bool first = build->group_count == 0;
  const bool continues = *run == 0 || *last_id == id - 1;
  if ((first || !continues) && block_of(id) >= kIdBlocks) {
    reject(build, line, "the first id of a run is above the 2048 blocks of ids");
    return;
  }
  if (first) build->group_count = 1;
  if (!continues) {
    if (build->group_count == kGroupLimit) {
      reject(build, line, "more than 100 runs of ids");
      return;
    }
    build->group_sizes[build->group_count - 1] = static_cast<uint8_t>(*run + 1);
    *run = 0;
    group_ids[block_of(id)] = build->group_count++;
    return;
  }
  if (*run == kRunLimit) {
    reject(build, line, "more than 100 ids in a run");
    return;
  }
  ++*run;
  *last_id = id;
}

void count_records(Build* build, uint32_t* group_ids) {
  LineReader lines(build->text, build->text_length);
  TagLine line;
  uint32_t run = 0;
  uint32_t last_id = 0;
  while (build->rejected == nullptr && lines.next(&line)) {
    uint32_t id = 0;
    if (!classify_tag_line(line, &id) || id < kFirstIndexedId) {
      ++build->plain;
    } else {
      count_indexed(build, id, lines.number, &run, &last_id, group_ids);
    }
  }
  if (build->group_count > 0) build->group_sizes[build->group_count - 1] = static_cast<uint8_t>(run + 1);
}

// A large table is touched page by page while it is filled: with huge pages, where the system has them, in half the
// time.
void ask_for_huge_pages(void* entries, size_t records) {
  constexpr uintptr_t kPageBytes = 4096;
  const uintptr_t first = (reinterpret_cast<uintptr_t>(entries) + kPageBytes - 1) & ~(kPageBytes - 1);
  const uintptr_t end = reinterpret_cast<uintptr_t>(entries) + records * sizeof(TagEntry);
  madvise(reinterpret_cast<void*>(first), (end - first) & ~(kPageBytes - 1), MADV_HUGEPAGE);
}

// Zero-filled, so that every field that a line does not set reads as 0; at least one record, so that null means
// failure.
TagEntry* allocate_records(uint32_t count) {
  const size_t records = count > 0 ? count : 1;
  void* entries = calloc(records, sizeof(TagEntry));
  if (entries != nullptr && records * sizeof(TagEntry) >= kHugePagesFromBytes) ask_for_huge_pages(entries, records);
  return static_cast<TagEntry*>(entries);
}

// False behind a message when memory runs out.
bool allocate_arrays(Build* build) {
  build->entries = allocate_records(build->plain);
  if (build->entries == nullptr) {
    print_text("malloc tag_str failed");
    return false;
  }
  if (build->group_count == 0) return true;
  // One record more than there are groups: null entries end the array.
  build->groups = static_cast<IndexedTagEntry*>(calloc(build->group_count + 1, sizeof(IndexedTagEntry)));
  if (build->groups == nullptr) {
    print_text("malloc indexedtag_table failed");
    return false;
  }
  for (uint32_t g = 0; g < build->group_count; ++g) {
    build->groups[g].entries = allocate_records(build->group_sizes[g]);
    if (build->groups[g].entries == nullptr) {
      print_text("malloc indextag failed");
      return false;
    }
    build->groups[g].count = build->group_sizes[g];
  }
  return true;
}

// Where the second pass stands among the groups.
struct GroupCursor {
  uint32_t group = 0;
  uint32_t filled = 0;
};

// The record that this indexed line fills, or null when it does not fit what the first pass allocated.
TagEntry* next_indexed_record(Build* build, GroupCursor* cursor, uint32_t id) {
  if (cursor->filled > 0) {
    const TagEntry& previous = build->groups[cursor->group].entries[cursor->filled - 1];
    if (id - 1 != previous.tag_id) {
      build->groups[cursor->group].count = static_cast<uint8_t>(cursor->filled);
      cursor->filled = 0;
      ++cursor->group;
    }
  }
  if (cursor->group >= build->group_count || cursor->filled >= build->group_sizes[cursor->group]) return nullptr;
  return &build->groups[cursor->group].entries[cursor->filled++];
}

void parse_records(Build* build) {
  LineReader lines(build->text, build->text_length);
  TagLine line;
  TagEntry* plain = build->entries;
  GroupCursor cursor;
  while (lines.next(&line)) {
    uint32_t id = 0;
    const bool is_plain = !classify_tag_line(line, &id) || id < kFirstIndexedId;
    TagEntry* entry = is_plain ? plain++ : next_indexed_record(build, &cursor, id);
    if (entry == nullptr) {
      reject(build, lines.number, "its run of ids does not match the ids of column 8");
      return;
    }
    parse_tag_line(line, entry);
  }
  if (cursor.filled > 0) build->groups[cursor.group].count = static_cast<uint8_t>(cursor.filled);
}

// Everything between the look at the opened file and closing it. False behind a message.
bool build_arrays(Build* build, const char* path, uint32_t* group_ids) {
  if (build->rejected == nullptr && !read_text(build)) {
    print_text("malloc tag_str failed");
    return false;
  }
  if (build->rejected == nullptr) count_records(build, group_ids);
  if (build->rejected == nullptr) {
    if (!allocate_arrays(build)) return false;
    parse_records(build);
  }
  if (build->rejected != nullptr) {
    print_file_rejected(path, build->rejected_line, build->rejected);
    return false;
  }
  return true;
}

}  // namespace

void free_tag_arrays(TagEntry* entries, IndexedTagEntry* groups) {
  free(entries);
  if (groups == nullptr) return;
  for (IndexedTagEntry* group = groups; group->entries != nullptr; ++group) free(group->entries);
  free(groups);
}

}  // namespace plc

extern "C" {

uint32_t* build_tagtable(TagEntry** entries_out, IndexedTagEntry** groups_out, const char* path, uint32_t* group_ids) {
  static uint32_t temp_count[2];
  plc::print_build_table(path);
  plc::Build build;
  plc::FileStatus status;
  build.descriptor = plc::open_file(path, &status);
  if (build.descriptor < 0) {
    plc::print_open_failed(path, __LINE__);
    return nullptr;
  }
  plc::check_status(&build, status);
  bool built = plc::build_arrays(&build, path, group_ids);
  free(build.text);
  if (close(build.descriptor) != 0 && built) {
    plc::print_line("Close csv file error!!!");
    built = false;
  }
  if (!built) {
    plc::free_tag_arrays(build.entries, build.groups);
    return nullptr;
  }
  *entries_out = build.entries;
  *groups_out = build.groups;
  temp_count[0] = build.plain;
  temp_count[1] = build.max_id;
  return temp_count;
}
}
