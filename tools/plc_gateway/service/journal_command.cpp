// plc-gateway journal: what is stored and not known to be at the broker.
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "base/shown_text.h"
#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/model/utc_text.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"
#include "tools/plc_gateway/service/findings_text.h"

namespace plc_gateway {
namespace {

constexpr size_t kPrintedAtOnce = 2000;

void show_counters(const JournalCounters& counters) {
  std::printf("rows %" PRIu64 "\n", counters.rows);
  std::printf("values %" PRIu64 "\n", counters.values);
  std::printf("bytes %" PRIu64 "\n", counters.bytes);
  std::printf("oldest %s\n", counters.oldest == 0 ? "-" : utc_text(counters.oldest).c_str());
  std::printf("dropped %" PRIu64 "\n", counters.dropped);
  demand_written();
}

void show_rows(const Journal& journal) {
  std::printf("row time kind values\n");
  for (uint64_t next = journal.first_id(); next != 0;) {
    const std::vector<JournalRow> rows = journal.read(next, kPrintedAtOnce);
    for (const JournalRow& row : rows) {
      std::printf("%" PRIu64 " %s %s %zu\n", row.id, utc_text(row.time).c_str(),
                  row.kind == JournalRow::Kind::kLost ? "lost" : "data", row.changes.size());
    }
    demand_written();
    next = rows.empty() ? 0 : rows.back().id + 1;
  }
}

}  // namespace

int show_journal(const std::string& file, bool with_rows) {
  const ConfigResult loaded = load_config(file);
  require_ok(loaded, file);
  const std::string database = loaded.config.journal_folder + "/journal.sqlite";
  if (access(database.c_str(), F_OK) != 0) {
    throw GatewayError(kExitOutput, plc_base::shown_line(database) + ": there is no journal yet; it begins with 'run'");
  }
  JournalOptions options;
  options.folder = loaded.config.journal_folder;
  options.most_bytes = loaded.config.journal_bytes;
  try {
    const Journal journal(options, loaded.config.variables);
    if (journal.counters().lost_damage != 0) {
      throw GatewayError(kExitOutput,
                         database + ": it was damaged; it is kept beside a new one, and what it held is lost");
    }
    show_counters(journal.counters());
    if (with_rows) show_rows(journal);
  } catch (const JournalError& error) {
    throw GatewayError(
        kExitOutput,
        std::string(error.what()) + "; a gateway that runs with it must end first, and tells the same at its /metrics");
  }
  return kExitOk;
}

}  // namespace plc_gateway
