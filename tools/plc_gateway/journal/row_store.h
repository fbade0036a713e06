// The journal's tables: rows, the names of their variables, and the life of the journal as a whole.
//
// What is stored is counted without being read: `life` says it as of a row, and only the rows behind that one are
// counted when the database is opened.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tools/plc_gateway/journal/database.h"
#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/journal/row_code.h"

namespace plc_gateway {

struct JournalLife {
  uint64_t last_id = 0;
  uint64_t rows = 0;    // stored
  uint64_t values = 0;  // in them
  uint64_t dropped = 0;
  uint64_t names = 0;  // as many aliases were given
};

// A variable that was polled at some time.
struct StoredName {
  uint64_t alias = 0;
  Variable variable;                 // as far as births need it
  std::optional<uint64_t> last_row;  // behind which no row has it; nothing: it is polled now
};

// Of a damaged row nothing but its number is true.
struct RowFacts {
  uint64_t id = 0;
  bool is_whole = false;
  JournalRow::Kind kind = JournalRow::Kind::kData;
  Ms time = 0;
  uint64_t values = 0;
};

class RowStore {
 public:
  // Throws as Database does. A new database gets the stamp.
  explicit RowStore(const JournalOptions& options, uint32_t stamp_when_new = 0, Access access = Access::kUse);

  const JournalLife& life() const { return life_; }
  // Of a journal that was damaged: its rows are gone, its numbers go on.
  Answer continue_life(const JournalLife& life);

  // In the order of their aliases. Throws DamagedDatabase where they are not all as they were written.
  std::vector<StoredName> names();
  Answer write_names(const std::vector<StoredName>& names);

  Journal::CommandTimes command_times();
  Answer write_command_times(const Journal::CommandTimes& times);

  // The rows, with numbers above the last one, and values that were dropped before they came here. The oldest rows go
  // when there is no room.
  Answer append(const std::vector<PackedRow>& rows, uint64_t dropped);
  // What the disk refuses to remove now is not seen from here on, and goes with the next change.
  Answer remove(uint64_t first, uint64_t last);
  Answer remove_pending();

  // Appends to `rows` until they have so many values. `index_of` has the index of each alias, kNoIndex where there is
  // none. Damaged rows are dropped.
  static constexpr uint32_t kNoIndex = UINT32_MAX;
  Answer read(uint64_t first, size_t most_values, const std::vector<uint32_t>& index_of, std::vector<JournalRow>& rows);

  // All rows, the damaged ones too. Throws DamagedDatabase where the database itself is damaged.
  void look_at_all(const std::function<void(const RowFacts&)>& see);

  // Which of the aliases occur in rows up to `last`.
  Answer find(std::unordered_set<uint64_t> aliases, uint64_t last, std::unordered_set<uint64_t>& found);
  // Drops the samples of these aliases from rows up to `last`, and rows that have no others.
  Answer find_without(const std::unordered_set<uint64_t>& aliases, uint64_t last, uint64_t& next_id,
                      std::vector<PackedRow>& changed);
  Answer drop_samples(const std::unordered_set<uint64_t>& aliases, uint64_t last);

  uint64_t first_id();                                      // 0: none, or the disk refused to tell
  Answer first_id_answer() const { return first_answer_; }  // how the last call of it ended
  Ms oldest();                                              // of the first row; 0: none

  Database& database() { return database_; }

 private:
  // What a row needs at most besides its own pages: a new page in each level of the tree, and those of the other
  // tables.
  static constexpr uint64_t kSparePages = 8;
  // Of a page that holds a part of a row, as good as all bytes.
  static constexpr uint64_t kPartBytes = 4000;
  // Of a name's row, beside the texts of any length.
  static constexpr uint64_t kNameBytes = 50;

  void make_tables(uint32_t stamp);
  void read_life();
  Answer write_life(const JournalLife& life);
  // All of the work or nothing. When so many pages are needed and not there, the oldest rows go.
  using Work = std::function<Answer(JournalLife&)>;
  Answer change(uint64_t pages, const Work& work);
  Answer change_once(uint64_t room, const Work& work);
  bool make_room(uint64_t pages);
  Answer drop_oldest(uint64_t pages, JournalLife& life);
  Answer insert(const PackedRow& row, JournalLife& life);
  Answer erase(uint64_t first, uint64_t last, JournalLife& life);
  Answer erase_pending(JournalLife& life);
  Answer drop_damaged(const std::vector<uint64_t>& ids);
  Answer rewrite(const std::vector<PackedRow>& rows);
  const std::pair<uint64_t, uint64_t>* pending(uint64_t id) const;

  Database database_;
  Statement insert_, erase_, sums_, oldest_, rows_from_, write_life_;
  JournalLife life_;
  std::vector<std::pair<uint64_t, uint64_t>> pending_;  // to be removed: first and last
  std::optional<uint64_t> first_;                       // nothing: to be looked for
  Answer first_answer_ = Answer::kDone;
  bool tight_ = false;       // the oldest rows go for new ones
  bool has_erased_ = false;  // in the change that is being made
};

}  // namespace plc_gateway
