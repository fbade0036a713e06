#include "tools/plc_gateway/journal/row_store.h"

#include <algorithm>

#include "tools/plc_gateway/journal/sum.h"

namespace plc_gateway {
namespace {

// Life is written every so many rows, at most so many are counted at the opening.
constexpr uint64_t kLifeEvery = 256;
// Numbers so far behind the last one that life knows were never given.
constexpr uint64_t kMostAhead = 1ULL << 32U;
// Beyond all counts, and far from the last number that SQLite has.
constexpr uint64_t kMostCount = 1ULL << 60U;
// More than one row's worth goes at once, so that not every row has to look for old ones.
constexpr uint64_t kSlackPages = 16;
constexpr size_t kRowsAtOnce = 64;

uint64_t less(uint64_t all, uint64_t part) { return all > part ? all - part : 0; }

uint32_t sum_of_life(const JournalLife& life) {
  Sum sum;
  for (const uint64_t count : {life.last_id, life.rows, life.values, life.dropped, life.names}) sum.add(count);
  return sum.value();
}

}  // namespace

RowStore::RowStore(const JournalOptions& options, uint32_t stamp_when_new, Access access) : database_(options, access) {
  make_tables(stamp_when_new);
  insert_ = database_.prepare("INSERT INTO rows(id, n, time, body) VALUES(?, ?, ?, ?)");
  erase_ = database_.prepare("DELETE FROM rows WHERE id BETWEEN ? AND ?");
  sums_ = database_.prepare(
      // A damaged count must not make the sum one: a value has one byte at least.
      "SELECT count(*), coalesce(sum(min(max(n, 0), length(body))), 0), max(id) FROM rows WHERE id BETWEEN ? AND ?");
  oldest_ = database_.prepare("SELECT id, time FROM rows WHERE id >= ? ORDER BY id LIMIT 1");
  rows_from_ = database_.prepare("SELECT id, n, time, body FROM rows WHERE id >= ? ORDER BY id");
  write_life_ = database_.prepare(
      "UPDATE life SET last_id = ?, stored_rows = ?, stored_values = ?, dropped = ?, names = ?, sum = ?");
  read_life();
}

void RowStore::make_tables(uint32_t stamp) {
  uint64_t tables = 0;
  {
    const Statement count = database_.prepare("SELECT count(*) FROM sqlite_master");
    Query query(count);
    const Answer done = database_.answer(query.step());
    if (done != Answer::kDone) database_.throw_for(done, "cannot be read");
    tables = query.number(0);
  }
  if (tables != 0) return;
  if (database_.is_looked_at()) throw JournalError(no_journal_yet(database_.path()));
  const Answer made = database_.transaction(true, [&] {
    const Answer stamped = database_.set_stamp(stamp);
    if (stamped != Answer::kDone) return stamped;
    const Answer tables_made = database_.run(
        "CREATE TABLE rows(id INTEGER PRIMARY KEY, n INTEGER NOT NULL, time INTEGER NOT NULL, body BLOB NOT NULL);"
        "CREATE TABLE names(alias INTEGER PRIMARY KEY, name TEXT NOT NULL, type INTEGER NOT NULL,"
        " declared TEXT NOT NULL, shape TEXT NOT NULL, last_row INTEGER, sum INTEGER NOT NULL);"
        "CREATE TABLE command_times(name TEXT PRIMARY KEY, time INTEGER NOT NULL) WITHOUT ROWID;"
        "CREATE TABLE life(last_id INTEGER NOT NULL, stored_rows INTEGER NOT NULL, stored_values INTEGER NOT NULL,"
        " dropped INTEGER NOT NULL, names INTEGER NOT NULL, sum INTEGER NOT NULL)");
    if (tables_made != Answer::kDone) return tables_made;
    const Statement begin_life = database_.prepare("INSERT INTO life VALUES(0, 0, 0, 0, 0, ?)");
    return database_.run(Query(begin_life).with(sum_of_life({})));
  });
  if (made != Answer::kDone) database_.throw_for(made, "cannot be set up");
}

void RowStore::read_life() {
  const Statement select =
      database_.prepare("SELECT last_id, stored_rows, stored_values, dropped, names, sum FROM life");
  {
    Query query(select);
    const int code = query.step();
    const Answer done = database_.answer(code);
    if (done != Answer::kDone) database_.throw_for(done, "cannot be read");
    if (code != SQLITE_ROW) database_.throw_damaged("it lacks its counts");
    life_ = {query.number(0), query.number(1), query.number(2), query.number(3), query.number(4)};
    bool is_whole = query.number(5) == sum_of_life(life_);
    for (const uint64_t count : {life_.last_id, life_.rows, life_.values, life_.dropped}) {
      is_whole = is_whole && count <= kMostCount;
    }
    if (!is_whole) database_.throw_damaged("its counts are damaged");
  }
  Query query(sums_);
  const Answer done = database_.answer(query.with(life_.last_id + 1).with(INT64_MAX).step());
  if (done != Answer::kDone) database_.throw_for(done, "cannot be read");
  life_.rows += query.number(0);
  life_.values += query.number(1);
  if (query.is_nothing(2)) return;
  if (query.number(2) > life_.last_id + kMostAhead) database_.throw_damaged("it has rows with impossible numbers");
  life_.last_id = query.number(2);
}

Answer RowStore::write_life(const JournalLife& life) {
  Query query(write_life_);
  query.with(life.last_id).with(life.rows).with(life.values).with(life.dropped).with(life.names);
  return database_.run(query.with(sum_of_life(life)));
}

Answer RowStore::continue_life(const JournalLife& life) {
  const Answer done = database_.transaction(true, [&] { return write_life(life); });
  if (done == Answer::kDone) life_ = life;
  return done;
}

Journal::CommandTimes RowStore::command_times() {
  const Statement select = database_.prepare("SELECT name, time FROM command_times");
  Query query(select);
  Journal::CommandTimes times;
  int code = query.step();
  for (; code == SQLITE_ROW; code = query.step()) {
    times[std::string(query.bytes(0))] = static_cast<Ms>(query.number(1));
  }
  const Answer done = database_.answer(code);
  if (done != Answer::kDone) database_.throw_for(done, "cannot be read");
  return times;
}

Answer RowStore::write_command_times(const Journal::CommandTimes& times) {
  const Statement write = database_.prepare("INSERT OR REPLACE INTO command_times VALUES(?, ?)");
  uint64_t bytes = 0;
  for (const auto& [name, time] : times) bytes += name.size() + kNameBytes;
  return change(bytes / kPartBytes * 2 + kSparePages, [&](JournalLife&) {
    for (const auto& [name, time] : times) {
      const Answer done = database_.run(Query(write).with_text(name).with(static_cast<uint64_t>(time)));
      if (done != Answer::kDone) return done;
    }
    return Answer::kDone;
  });
}

Answer RowStore::append(const std::vector<PackedRow>& rows, uint64_t dropped) {
  uint64_t pages = kSparePages;
  for (const PackedRow& row : rows) pages += row.bytes.size() / kPartBytes + 1;
  return change(pages, [&](JournalLife& life) {
    life.dropped += dropped;
    Answer done = Answer::kDone;
    for (size_t i = 0; i < rows.size() && done == Answer::kDone; ++i) done = insert(rows[i], life);
    return done;
  });
}

Answer RowStore::change(uint64_t pages, const Work& work) {
  Answer done = Answer::kFull;
  if (!tight_) done = change_once(0, work);
  if (done == Answer::kFull) {
    tight_ = !make_room(pages);
    done = change_once(tight_ ? pages : 0, work);
  }
  return done;
}

Answer RowStore::change_once(uint64_t room, const Work& work) {
  JournalLife next = life_;
  has_erased_ = false;
  const Answer done = database_.transaction(true, [&] {
    Answer step = erase_pending(next);
    if (step == Answer::kDone && room != 0) step = drop_oldest(room, next);
    if (step == Answer::kDone) step = work(next);
    const bool is_due = has_erased_ || next.dropped != life_.dropped || next.names != life_.names ||
                        next.last_id / kLifeEvery != life_.last_id / kLifeEvery;
    if (step == Answer::kDone && is_due) step = write_life(next);
    return step;
  });
  if (done != Answer::kDone) return done;
  if (has_erased_ || life_.rows == 0) first_.reset();
  life_ = next;
  pending_.clear();
  return done;
}

bool RowStore::make_room(uint64_t pages) {
  while (database_.free_pages() < pages) {
    if (!database_.grow()) return false;
  }
  return true;
}

Answer RowStore::drop_oldest(uint64_t pages, JournalLife& life) {
  if (database_.free_pages() >= pages) return Answer::kDone;
  while (database_.free_pages() < pages + kSlackPages) {
    uint64_t id = 0;
    {
      Query query(oldest_);
      const int code = query.with(0).step();
      if (code != SQLITE_ROW) return database_.answer(code);
      id = query.number(0);
    }
    const uint64_t before = life.values;
    const Answer done = erase(id, id, life);
    if (done != Answer::kDone) return done;
    life.dropped += before - life.values;
  }
  return Answer::kDone;
}

Answer RowStore::insert(const PackedRow& row, JournalLife& life) {
  life.last_id = row.id;
  life.rows += 1;
  life.values += row.values;
  return database_.run(
      Query(insert_).with(row.id).with(row.values).with(static_cast<uint64_t>(row.time)).with_bytes(row.bytes));
}

Answer RowStore::erase(uint64_t first, uint64_t last, JournalLife& life) {
  {
    Query query(sums_);
    const Answer done = database_.answer(query.with(first).with(last).step());
    if (done != Answer::kDone) return done;
    life.rows = less(life.rows, query.number(0));
    life.values = less(life.values, query.number(1));
  }
  has_erased_ = true;
  return database_.run(Query(erase_).with(first).with(last));
}

Answer RowStore::erase_pending(JournalLife& life) {
  for (const auto& [first, last] : pending_) {
    const Answer done = erase(first, last, life);
    if (done != Answer::kDone) return done;
  }
  return Answer::kDone;
}

Answer RowStore::remove(uint64_t first, uint64_t last) {
  last = std::min<uint64_t>(last, INT64_MAX);
  if (first > last) return Answer::kDone;
  const auto before = std::find_if(pending_.begin(), pending_.end(), [&](const auto& range) {
    return range.first <= first && first <= range.second + 1;
  });
  if (before != pending_.end()) {
    before->second = std::max(before->second, last);
  } else {
    pending_.emplace_back(first, last);
  }
  first_.reset();
  return remove_pending();
}

Answer RowStore::remove_pending() {
  if (pending_.empty()) return Answer::kDone;
  JournalLife next = life_;
  const Answer done = database_.transaction(false, [&] {
    const Answer step = erase_pending(next);
    return step == Answer::kDone ? write_life(next) : step;
  });
  if (done == Answer::kDone) {
    life_ = next;
    pending_.clear();
  }
  return done;
}

const std::pair<uint64_t, uint64_t>* RowStore::pending(uint64_t id) const {
  const auto range = std::find_if(pending_.begin(), pending_.end(),
                                  [&](const auto& each) { return each.first <= id && id <= each.second; });
  return range == pending_.end() ? nullptr : &*range;
}

Answer RowStore::read(uint64_t first, size_t most_values, const std::vector<uint32_t>& index_of,
                      std::vector<JournalRow>& rows) {
  std::vector<uint64_t> damaged;
  size_t values = 0;
  int code = SQLITE_DONE;
  {
    Query query(rows_from_);
    query.with(std::min<uint64_t>(first, INT64_MAX));
    while (values < most_values && (code = query.step()) == SQLITE_ROW) {
      const uint64_t id = query.number(0);
      if (pending(id) != nullptr) continue;
      JournalRow row;
      bool is_whole = unpack_row(id, static_cast<Ms>(query.number(2)), query.number(1), query.bytes(3), row);
      for (Sample& sample : row.changes) {
        sample.variable = sample.variable < index_of.size() ? index_of[sample.variable] : kNoIndex;
        is_whole = is_whole && sample.variable != kNoIndex;
      }
      if (!is_whole) {
        damaged.push_back(id);
        continue;
      }
      values += std::max<size_t>(row.changes.size(), 1);
      rows.push_back(std::move(row));
    }
  }
  const Answer done = database_.answer(code);
  if (!damaged.empty()) drop_damaged(damaged);
  return done;
}

void RowStore::look_at_all(const std::function<void(const RowFacts&)>& see) {
  Query query(rows_from_);
  query.with(0);
  int code = SQLITE_DONE;
  while ((code = query.step()) == SQLITE_ROW) {
    JournalRow row;
    RowFacts facts;
    facts.id = query.number(0);
    facts.is_whole = unpack_row(facts.id, static_cast<Ms>(query.number(2)), query.number(1), query.bytes(3), row) &&
                     std::all_of(row.changes.begin(), row.changes.end(),
                                 [this](const Sample& sample) { return sample.variable <= life_.names; });
    if (facts.is_whole) {
      facts.kind = row.kind;
      facts.time = row.time;
      facts.values = row.changes.size();
    }
    see(facts);
  }
  const Answer done = database_.answer(code);
  if (done != Answer::kDone) database_.throw_for(done, "cannot be read");
}

Answer RowStore::drop_damaged(const std::vector<uint64_t>& ids) {
  JournalLife next = life_;
  const Answer done = database_.transaction(true, [&] {
    for (const uint64_t id : ids) {
      const uint64_t before = next.values;
      const Answer step = erase(id, id, next);
      if (step != Answer::kDone) return step;
      next.dropped += before - next.values;
    }
    return write_life(next);
  });
  if (done == Answer::kDone) life_ = next;
  first_.reset();
  return done;
}

Answer RowStore::find(std::unordered_set<uint64_t> aliases, uint64_t last, std::unordered_set<uint64_t>& found) {
  Query query(rows_from_);
  query.with(0);
  int code = SQLITE_DONE;
  while (!aliases.empty() && (code = query.step()) == SQLITE_ROW && query.number(0) <= last) {
    JournalRow row;
    if (!unpack_row(query.number(0), static_cast<Ms>(query.number(2)), query.number(1), query.bytes(3), row)) continue;
    for (const Sample& sample : row.changes) {
      if (aliases.erase(sample.variable) != 0) found.insert(sample.variable);
    }
  }
  return database_.answer(code);
}

// Rows up to the last one that hold samples of the aliases, without these, some at a time; `next_id` is where the
// search begins, and where the next one does.
Answer RowStore::find_without(const std::unordered_set<uint64_t>& aliases, uint64_t last, uint64_t& next_id,
                              std::vector<PackedRow>& changed) {
  const auto is_dropped = [&](const Sample& sample) { return aliases.count(sample.variable) != 0; };
  Query query(rows_from_);
  query.with(next_id);
  next_id = last + 1;
  int code = SQLITE_DONE;
  while ((code = query.step()) == SQLITE_ROW && query.number(0) <= last) {
    JournalRow row;
    const uint64_t id = query.number(0);
    if (!unpack_row(id, static_cast<Ms>(query.number(2)), query.number(1), query.bytes(3), row)) continue;
    const size_t before = row.changes.size();
    row.changes.erase(std::remove_if(row.changes.begin(), row.changes.end(), is_dropped), row.changes.end());
    if (row.changes.size() == before) continue;
    changed.push_back(pack_row(id, row.kind, row.time, row.changes, {}));
    if (changed.size() < kRowsAtOnce) continue;
    next_id = id + 1;
    break;
  }
  return database_.answer(code);
}

Answer RowStore::drop_samples(const std::unordered_set<uint64_t>& aliases, uint64_t last) {
  uint64_t next_id = 0;
  while (next_id <= last) {
    std::vector<PackedRow> changed;
    Answer done = find_without(aliases, last, next_id, changed);
    if (done == Answer::kDone) done = rewrite(changed);
    if (done != Answer::kDone) return done;
  }
  return Answer::kDone;
}

// A row goes before its shorter form comes: a journal that is full has the room then.
Answer RowStore::rewrite(const std::vector<PackedRow>& rows) {
  uint64_t pages = kSparePages;
  for (const PackedRow& row : rows) pages += row.bytes.size() / kPartBytes + 1;
  const Answer done = change(pages, [&](JournalLife& life) {
    const uint64_t last_id = life.last_id;
    for (const PackedRow& row : rows) {
      const uint64_t before = life.values;
      Answer step = erase(row.id, row.id, life);
      const uint64_t held = before - life.values;
      if (step == Answer::kDone && held == 0) continue;  // it went for want of room
      if (step == Answer::kDone && row.values != 0) step = insert(row, life);
      if (step != Answer::kDone) return step;
      life.dropped += held - row.values;
    }
    life.last_id = last_id;
    return Answer::kDone;
  });
  first_.reset();
  return done;
}

uint64_t RowStore::first_id() {
  if (first_) return *first_;
  uint64_t from = 0;
  while (true) {
    Query query(oldest_);
    const int code = query.with(from).step();
    first_answer_ = database_.answer(code);
    if (code != SQLITE_ROW) {
      if (code == SQLITE_DONE) first_ = 0;
      return 0;
    }
    const auto* range = pending(query.number(0));
    if (range == nullptr) {
      first_ = query.number(0);
      return *first_;
    }
    from = range->second + 1;
  }
}

Ms RowStore::oldest() {
  Query query(oldest_);
  return query.with(first_id()).step() == SQLITE_ROW && first_id() != 0 ? static_cast<Ms>(query.number(1)) : 0;
}

}  // namespace plc_gateway
