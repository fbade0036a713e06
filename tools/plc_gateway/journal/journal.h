// The journal: what was read and is not yet known to be at the broker, in an SQLite database that survives kills, power
// cuts and full disks.
//
// A row holds what one poll found, or that the controller was lost. Rows are numbered in the order of their appending,
// also across restarts. A row is durable when append() returns, unless the disk refuses: then it is kept in memory
// alone, and says so in the counters.
//
// The files take their room at once or by whole MiB, and keep it: what was stored once can be stored again on a full
// disk.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

class JournalError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct JournalRow {
  enum class Kind : uint8_t {
    kData = 0,  // changes of variables
    kLost = 1,  // the controller was lost: from now on no variable has a value
  };
  uint64_t id = 0;
  Kind kind = Kind::kData;
  Ms time = 0;                  // of kLost; else of the last change
  std::vector<Sample> changes;  // variables by their index; without `error`
};

struct JournalOptions {
  std::string folder;                  // must exist; the database is journal.sqlite in it
  uint64_t most_bytes = 512ULL << 20;  // of all files; 3 MiB at least
  std::string vfs;  // the name of an SQLite VFS; empty: the system's own. A VFS cannot rename: damaged databases of
                    // another one are deleted, not put aside
};

struct JournalCounters {
  uint64_t rows = 0;         // held now, also those in memory
  uint64_t values = 0;       // in them
  uint64_t bytes = 0;        // of the database with its log
  Ms oldest = 0;             // time of the oldest row; 0 when empty
  uint64_t dropped = 0;      // values that went unconfirmed: for want of room, for their type is another one now, or
                             // damaged while this runs; over the journal's whole life
  uint64_t in_memory = 0;    // rows that the disk refused and that a kill would lose
  uint64_t failures = 0;     // statements that the disk refused
  uint64_t lost_damage = 0;  // 1 when the database was found damaged and was put aside
  uint64_t unreadable_changes = 0;  // behind a damaged one in the log when it was opened: SQLite reads no further
  uint64_t removed = 0;  // 1 when somebody removed or replaced the files since they were opened; as of retry()
};

class Journal {
 public:
  // Opens or makes the database. Variables get numbers of their own (aliases) that never change as long as the folder
  // lives: the same name with the same type has the same alias after each restart. A damaged database is put aside as
  // journal.damaged.<n> and a new one made: when that is found here, the aliases are new too, and the numbers of
  // connections go on half the way round from the last one; when it is found later, both go on as if nothing was.
  // Throws JournalError when there can be none (the folder is missing, or another process has it open: two gateways
  // must never share a journal).
  Journal(const JournalOptions& options, const std::vector<Variable>& variables);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Of a variable, from 1; of retired ones too.
  uint64_t alias(uint32_t variable) const;

  // Variables of earlier configurations, of which rows are stored: their names and types, in the order of their
  // aliases. Samples of stored rows name them with the indices behind the last variable of today. One whose name a
  // variable of today has with another type is not among them: its samples cannot be published and are counted as
  // dropped.
  const std::vector<Variable>& retired() const;

  // One transaction. The number of the new row, never 0. When the journal has reached its most bytes or the disk is
  // full, the oldest rows go first, counted.
  uint64_t append(JournalRow::Kind kind, Ms time, const std::vector<Sample>& changes);

  // Rows from `first` on, oldest first, until they hold at least `most_values` values; a row without values counts as
  // one. Empty at the end, and when the disk cannot be read (counted as a failure). Damaged rows are dropped, counted.
  std::vector<JournalRow> read(uint64_t first, size_t most_values) const;
  // The last read() ended too early, for the disk could not be read: what is missing may still be there.
  bool read_failed() const;

  // Rows first..last are at the broker and go. A power cut may bring them back, a kill does not.
  void remove(uint64_t first, uint64_t last);

  // 0 when there is none.
  uint64_t first_id() const;
  uint64_t last_id() const;  // of the last row ever appended, whether it is still there or not

  // The number for the next connection to the broker: 0 to 255 and round again, durable when it is returned. Nothing:
  // the disk refused, and the connection must wait.
  std::optional<uint64_t> next_bd_seq();

  // Of each variable the newest time of a command that was taken, over the journal's whole life.
  using CommandTimes = std::map<std::string, Ms>;
  const CommandTimes& command_times() const;
  // Commands with these times are taken: durable when true is returned. False: the disk refused, and none of them may
  // be carried out.
  bool take_commands(const CommandTimes& times);

  JournalCounters counters() const;
  // What was found when it was put aside last; empty: it was not.
  const std::string& damage() const;

  // Does what the disk refused, rows and removals, when it takes them again, and looks for its files; called now and
  // then.
  void retry();

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace plc_gateway
