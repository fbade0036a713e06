// What went wrong on the road of a value, in words: from names, from the directory, from the driver and from the wire.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/why/why_report.h"

namespace plc_host {

// A name that cannot be looked up, with the reason that the look-up gave.
void find_name_faults(const std::string& name, const std::string& reason, WhyReport& report);

// A number that no record has.
void find_number_faults(uint32_t register_id, WhyReport& report);

// What the record itself says: the checker's remarks on its line, types that cannot be read, elements out of range.
void find_record_faults(WhyReport& report);

// The scope of a local variable against the controller's directory. Fills programs and sent_scope from the road.
void find_scope_faults(WhyReport& report);

// A recording that ends before the traffic does.
void find_recording_bound(bool is_cut, WhyReport& report);

// The exchanges that opened the connection, and those behind them.
void find_opening_faults(WhyReport& report);
void find_transfer_faults(WhyReport& report);

// The bytes of the reply for each of these of its names.
std::string bytes_of_values(const wire_trace::Exchange& values, const std::vector<size_t>& names);

// Of a type without a width the bytes of the replies, of which the driver stores those up to the first zero byte.
void find_cut_value(WhyReport& report);
void tell_cut_value(WhyReport& report);

// What the driver printed, and what it returned.
void find_driver_faults(WhyReport& report);

// All of these behind a read, in the order of its road.
void find_road_faults(bool by_id, WhyReport& report);

}  // namespace plc_host
