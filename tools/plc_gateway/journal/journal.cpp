#include "tools/plc_gateway/journal/journal.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tools/plc_gateway/journal/memory_rows.h"
#include "tools/plc_gateway/journal/names.h"
#include "tools/plc_gateway/journal/row_store.h"

namespace plc_gateway {
namespace {

constexpr uint64_t kBdSeqs = 256;
constexpr int kMostAside = 9;

sqlite3_vfs* vfs_of(const JournalOptions& options) {
  return sqlite3_vfs_find(options.vfs.empty() ? nullptr : options.vfs.c_str());
}

// The last one of the names takes what comes when all are taken: a disk that damages each new database must not fill
// up with them.
void put_aside(const JournalOptions& options) {
  const std::string path = options.folder + "/journal.sqlite";
  if (!options.vfs.empty()) {
    sqlite3_vfs* vfs = vfs_of(options);
    for (const char* suffix : {"", "-wal", "-journal"}) vfs->xDelete(vfs, (path + suffix).c_str(), 1);
    return;
  }
  std::string aside;
  for (int n = 1; n <= kMostAside; ++n) {
    aside = options.folder + "/journal.damaged." + std::to_string(n);
    std::error_code ignored;
    if (!std::filesystem::exists(aside, ignored)) break;
  }
  // The database goes first: a log without one is never read.
  for (const char* suffix : {"", "-wal", "-journal"}) {
    std::error_code ignored;
    std::filesystem::rename(path + suffix, aside + suffix, ignored);
  }
}

// The numbers of the last connections must not come again soon, or a late will of one of them would be taken for that
// of a living connection. The one that is half the way round from the last is the farthest from all of them; where the
// last one cannot be read any more, no number is better than another.
uint32_t stamp_behind_damage(uint32_t stamp, const JournalOptions& options) {
  if (stamp != 0 && stamp <= kBdSeqs) return static_cast<uint32_t>((stamp - 1 + kBdSeqs / 2) % kBdSeqs + 1);
  uint8_t random = 0;
  sqlite3_vfs* vfs = vfs_of(options);
  vfs->xRandomness(vfs, 1, reinterpret_cast<char*>(&random));
  return random + 1U;
}

}  // namespace

// One more than the last number of a connection stands as the database's stamp, 0 before the first connection.
struct Journal::Body {
  Body(const JournalOptions& journal_options, const std::vector<Variable>& variables);

  void open(uint32_t stamp_when_new);
  void match_names(const std::vector<Variable>& variables);
  bool begin_anew();
  Answer append_from_memory();
  // What is to be done when the disk has answered so. True: the same can be tried once more.
  bool is_worth_another(Answer answer);

  JournalOptions options;
  std::unique_ptr<RowStore> store;  // none: it was damaged, and no other one could be made
  std::optional<Names> names;
  MemoryRows memory;
  CommandTimes command_times;
  uint64_t last_id = 0;
  uint32_t stamp = 0;
  JournalLife last_life;  // when there is no store
  uint64_t earlier_failures = 0;
  uint64_t lost_damage = 0;
  std::string damage;
  bool is_removed = false;
  bool read_failed = false;
};

Journal::Body::Body(const JournalOptions& journal_options, const std::vector<Variable>& variables)
    : options(journal_options) {
  if (vfs_of(options) == nullptr) throw JournalError(options.folder + ": there is no file system " + options.vfs);
  try {
    open(0);
    match_names(variables);
  } catch (const DamagedDatabase& damaged) {
    lost_damage = 1;
    damage = damaged.what();
    names.reset();
    store.reset();
    put_aside(options);
    try {
      open(stamp_behind_damage(damaged.stamp(), options));
      match_names(variables);
    } catch (const DamagedDatabase& again) {
      throw JournalError(std::string(again.what()) + "; the disk does not hold what is written to it");
    }
  }
}

void Journal::Body::open(uint32_t stamp_when_new) {
  store = std::make_unique<RowStore>(options, stamp_when_new);
  last_id = store->life().last_id;
  stamp = store->database().stamp();
  // The last numbers may stand in what cannot be read.
  if (store->database().unreadable_changes() != 0) stamp = stamp_behind_damage(stamp, options);
  command_times = store->command_times();
}

void Journal::Body::match_names(const std::vector<Variable>& variables) {
  Database& database = store->database();
  const auto hold = [&database](Answer answer) {
    if (answer != Answer::kDone) database.throw_for(answer, "cannot take the names of the variables");
  };
  names.emplace(store->names(), variables, last_id);
  // Before anything else: from here on, rows up to the last one are known to hold former variables.
  const std::vector<StoredName> changed = names->changed();
  if (!changed.empty()) hold(store->write_names(changed));
  const uint64_t first_id = store->first_id();
  // Without an answer the samples of former variables would be taken for ones that do not exist.
  hold(store->first_id_answer());
  const Names::Former former = names->former(first_id);
  std::unordered_set<uint64_t> occurring;
  if (!former.kept.empty()) hold(store->find(former.kept, former.last_row, occurring));
  if (!former.replaced.empty()) hold(store->drop_samples(former.replaced, former.last_row));
  if (names->settle(occurring)) hold(store->write_names(names->changed()));
}

bool Journal::Body::is_worth_another(Answer answer) {
  if (answer == Answer::kFull && store) store->database().count_failure();
  return answer == Answer::kDamaged && begin_anew();
}

// The numbers of rows and connections go on, and so do the aliases, which the broker's clients know, and the times of
// commands.
bool Journal::Body::begin_anew() {
  if (store) {
    lost_damage = 1;
    damage = store->database().path() + ": what was written does not come back";
    earlier_failures += store->database().failures();
    last_life = store->life();
    last_life.dropped += last_life.values;
    last_life.rows = 0;
    last_life.values = 0;
    last_life.names = 0;
    store.reset();
    put_aside(options);
  }
  try {
    auto fresh = std::make_unique<RowStore>(options, stamp);
    Answer done = fresh->continue_life(last_life);
    if (done == Answer::kDone) done = fresh->write_names(names->all());
    if (done == Answer::kDone) done = fresh->write_command_times(command_times);
    if (done != Answer::kDone) return false;
    store = std::move(fresh);
    return true;
  } catch (const DamagedDatabase&) {
    put_aside(options);
    ++earlier_failures;
    return false;
  } catch (const JournalError&) {
    ++earlier_failures;
    return false;
  }
}

Answer Journal::Body::append_from_memory() {
  if (!store && !begin_anew()) return Answer::kRefused;
  store->database().make_reserve();
  while (!memory.rows().empty() || memory.dropped() != 0) {
    const std::vector<PackedRow> some = memory.some();
    const Answer done = store->append(some, memory.dropped());
    if (done != Answer::kDone) return done;
    memory.stored(some.size());
    memory.dropped_are_counted();
  }
  return Answer::kDone;
}

Journal::Journal(const JournalOptions& options, const std::vector<Variable>& variables)
    : body_(std::make_unique<Body>(options, variables)) {}

Journal::~Journal() = default;

uint64_t Journal::alias(uint32_t variable) const { return body_->names->alias_of().at(variable); }

const std::vector<Variable>& Journal::retired() const { return body_->names->retired(); }

uint64_t Journal::append(JournalRow::Kind kind, Ms time, const std::vector<Sample>& changes) {
  Body& body = *body_;
  std::vector<PackedRow> rows;
  rows.push_back(pack_row(++body.last_id, kind, time, changes, body.names->alias_of()));
  Answer done = Answer::kRefused;
  if (body.store && body.memory.rows().empty()) {
    done = body.store->append(rows, body.memory.dropped());
    if (done == Answer::kDone) body.memory.dropped_are_counted();
  }
  if (done != Answer::kDone) {
    body.memory.append(std::move(rows.front()));
    if (body.is_worth_another(done)) body.append_from_memory();
  }
  return body.last_id;
}

std::vector<JournalRow> Journal::read(uint64_t first, size_t most_values) const {
  Body& body = *body_;
  std::vector<JournalRow> rows;
  const auto& index_of = body.names->index_of();
  if (body.store) {
    const Answer done = body.store->read(first, most_values, index_of, rows);
    if (done == Answer::kDamaged) body.begin_anew();
    body.read_failed = done == Answer::kRefused;
    if (body.read_failed) return rows;
  }
  size_t values = 0;
  for (const JournalRow& row : rows) values += std::max<size_t>(row.changes.size(), 1);
  for (const PackedRow& packed : body.memory.rows()) {
    if (values >= most_values) break;
    if (packed.id < first) continue;
    JournalRow& row = rows.emplace_back();
    unpack_row(packed.id, packed.time, packed.values, packed.bytes, row);
    for (Sample& sample : row.changes) sample.variable = index_of[sample.variable];
    values += std::max<size_t>(row.changes.size(), 1);
  }
  return rows;
}

bool Journal::read_failed() const { return body_->read_failed; }

void Journal::remove(uint64_t first, uint64_t last) {
  Body& body = *body_;
  body.memory.remove(first, last);
  if (body.store) body.is_worth_another(body.store->remove(first, last));
}

uint64_t Journal::first_id() const {
  const uint64_t stored = body_->store ? body_->store->first_id() : 0;
  if (stored != 0) return stored;
  return body_->memory.rows().empty() ? 0 : body_->memory.rows().front().id;
}

uint64_t Journal::last_id() const { return body_->last_id; }

std::optional<uint64_t> Journal::next_bd_seq() {
  Body& body = *body_;
  const auto next = static_cast<uint32_t>(body.stamp % kBdSeqs + 1);
  for (int attempt = 0; attempt < 2 && body.store; ++attempt) {
    Database& database = body.store->database();
    const Answer done = database.transaction(true, [&] { return database.set_stamp(next); });
    if (done == Answer::kDone) {
      body.stamp = next;
      return next - 1;
    }
    if (!body.is_worth_another(done)) break;
  }
  return {};
}

const Journal::CommandTimes& Journal::command_times() const { return body_->command_times; }

bool Journal::take_commands(const CommandTimes& times) {
  Body& body = *body_;
  CommandTimes newer;
  for (const auto& [name, time] : times) {
    const auto known = body.command_times.find(name);
    if (known == body.command_times.end() || known->second < time) newer.emplace(name, time);
  }
  if (newer.empty()) return true;
  for (int attempt = 0; attempt < 2 && body.store; ++attempt) {
    const Answer done = body.store->write_command_times(newer);
    if (done == Answer::kDone) {
      for (const auto& [name, time] : newer) body.command_times[name] = time;
      return true;
    }
    if (!body.is_worth_another(done)) break;
  }
  return false;
}

JournalCounters Journal::counters() const {
  const Body& body = *body_;
  JournalCounters counters;
  const JournalLife& life = body.store ? body.store->life() : body.last_life;
  counters.rows = life.rows + body.memory.rows().size();
  counters.values = life.values + body.memory.values();
  counters.dropped = life.dropped + body.memory.dropped();
  counters.in_memory = body.memory.rows().size();
  counters.failures = body.earlier_failures;
  counters.lost_damage = body.lost_damage;
  counters.removed = body.is_removed ? 1 : 0;
  if (body.store) {
    counters.failures += body.store->database().failures();
    counters.unreadable_changes = body.store->database().unreadable_changes();
    counters.bytes = body.store->database().bytes();
    counters.oldest = body.store->oldest();
  }
  if (counters.oldest == 0 && !body.memory.rows().empty()) counters.oldest = body.memory.rows().front().time;
  return counters;
}

const std::string& Journal::damage() const { return body_->damage; }

void Journal::retry() {
  Body& body = *body_;
  body.is_removed = body.store && body.store->database().is_left();
  if (body.store) body.is_worth_another(body.store->remove_pending());
  if (body.store && body.memory.rows().empty() && body.memory.dropped() == 0) return;
  if (body.is_worth_another(body.append_from_memory())) body.append_from_memory();
}

}  // namespace plc_gateway
