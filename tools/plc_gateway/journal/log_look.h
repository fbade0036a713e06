// A look at the database's log of changes (WAL) before it is used.
#pragma once

#include <cstdint>
#include <string>

namespace plc_gateway {

// How many changes stand in the log behind a damaged one: SQLite ends its reading there and tells nobody. A power cut
// in the midst of a change may leave the same. 0: none, or there is no log.
uint64_t unreadable_changes(const std::string& log);

}  // namespace plc_gateway
