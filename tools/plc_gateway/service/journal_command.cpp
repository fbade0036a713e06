// plc-gateway journal: what is stored and not known to be at the broker.
#include <cinttypes>
#include <cstdio>
#include <string>

#include "tools/plc_gateway/journal/row_store.h"
#include "tools/plc_gateway/model/utc_text.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"
#include "tools/plc_gateway/service/findings_text.h"

namespace plc_gateway {
namespace {

void show_totals(RowStore& store) {
  uint64_t rows = 0;
  uint64_t values = 0;
  uint64_t damaged = 0;
  Ms oldest = 0;
  store.look_at_all([&](const RowFacts& row) {
    if (!row.is_whole) {
      ++damaged;
      return;
    }
    if (rows++ == 0) oldest = row.time;
    values += row.values;
  });
  std::printf("rows %" PRIu64 "\n", rows);
  std::printf("values %" PRIu64 "\n", values);
  std::printf("damaged_rows %" PRIu64 "\n", damaged);
  std::printf("unreadable_changes %" PRIu64 "\n", store.database().unreadable_changes());
  std::printf("bytes %" PRIu64 "\n", store.database().bytes());
  std::printf("oldest %s\n", rows == 0 ? "-" : utc_text(oldest).c_str());
  std::printf("dropped %" PRIu64 "\n", store.life().dropped);
  demand_written();
}

void show_rows(RowStore& store) {
  std::printf("row time kind values\n");
  store.look_at_all([](const RowFacts& row) {
    if (row.is_whole) {
      std::printf("%" PRIu64 " %s %s %" PRIu64 "\n", row.id, utc_text(row.time).c_str(),
                  row.kind == JournalRow::Kind::kLost ? "lost" : "data", row.values);
    } else {
      std::printf("%" PRIu64 " - damaged -\n", row.id);
    }
    if (std::ferror(stdout) != 0) demand_written();  // while the reason is known
  });
  demand_written();
}

}  // namespace

int show_journal(const std::string& file, bool with_rows) {
  const ConfigResult loaded = load_config(file);
  require_ok(loaded, file);
  JournalOptions options;
  options.folder = loaded.config.journal_folder;
  try {
    RowStore store(options, 0, Access::kLook);
    store.names();  // damage of them is damage of all
    show_totals(store);
    if (with_rows) show_rows(store);
  } catch (const DamagedDatabase& damaged) {
    throw GatewayError(kExitOutput, std::string(damaged.what()) +
                                        "; 'run' puts the journal aside, with what it holds, and makes a new one");
  } catch (const JournalError& error) {
    throw GatewayError(kExitOutput, error.what());
  }
  return kExitOk;
}

}  // namespace plc_gateway
