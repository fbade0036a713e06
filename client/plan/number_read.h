// Reads a register by its number, as a panel does: number, offset and count as they stand.
#pragma once

#include "client/driver/driver_session.h"
#include "client/plan/tag_transfer.h"
#include "client/tags/tag_list.h"

namespace plc_client::core {

// The driver takes no reply that holds more elements.
inline constexpr uint32_t kMostCounted = 4096;

// The elements that the call stored, as a value of the record's type. offset and count are in the driver's units.
TagResult read_number(DriverSession& session, const TagList& tags, uint32_t register_id, uint32_t offset,
                      uint32_t count);

}  // namespace plc_client::core
