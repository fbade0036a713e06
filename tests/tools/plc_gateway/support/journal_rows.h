// Variables, samples and rows as tests of the journal need them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tools/plc_gateway/journal/journal.h"

namespace plc_gateway {

inline bool operator==(const Sample& a, const Sample& b) {
  return a.variable == b.variable && a.good == b.good && a.unguarded == b.unguarded && a.time == b.time &&
         a.bits == b.bits && a.bytes == b.bytes && a.reason == b.reason && a.error == b.error;
}

inline bool operator==(const JournalRow& a, const JournalRow& b) {
  return a.id == b.id && a.kind == b.kind && a.time == b.time && a.changes == b.changes;
}

inline std::ostream& operator<<(std::ostream& out, const JournalRow& row) {
  out << "row " << row.id << " kind " << static_cast<int>(row.kind) << " time " << row.time << ':';
  for (const Sample& sample : row.changes) {
    out << " [" << sample.variable << (sample.good ? " good " : " bad ") << sample.bits << ' '
        << testing::PrintToString(sample.bytes) << " at " << sample.time << ']';
  }
  return out;
}

}  // namespace plc_gateway

namespace plc_test {

inline plc_gateway::Variable variable(const std::string& name,
                                      plc_gateway::DataType type = plc_gateway::DataType::kInt16) {
  plc_gateway::Variable made;
  made.name = name;
  made.type = type;
  made.declared_type = "INT";
  return made;
}

// V0, V1 and so on.
inline std::vector<plc_gateway::Variable> variables(size_t count) {
  std::vector<plc_gateway::Variable> made;
  for (size_t i = 0; i < count; ++i) made.push_back(variable("V" + std::to_string(i)));
  return made;
}

inline plc_gateway::Sample number(uint32_t index, uint64_t bits, plc_gateway::Ms time) {
  plc_gateway::Sample made;
  made.variable = index;
  made.good = true;
  made.time = time;
  made.bits = bits;
  return made;
}

inline plc_gateway::Sample text(uint32_t index, const std::string& bytes, plc_gateway::Ms time) {
  plc_gateway::Sample made;
  made.variable = index;
  made.good = true;
  made.time = time;
  made.bytes = bytes;
  return made;
}

inline plc_gateway::Sample bad(uint32_t index, plc_client::Reason reason, plc_gateway::Ms time) {
  plc_gateway::Sample made;
  made.variable = index;
  made.time = time;
  made.reason = reason;
  return made;
}

inline std::vector<uint64_t> ids_of(const std::vector<plc_gateway::JournalRow>& rows) {
  std::vector<uint64_t> ids;
  for (const plc_gateway::JournalRow& row : rows) ids.push_back(row.id);
  return ids;
}

}  // namespace plc_test
