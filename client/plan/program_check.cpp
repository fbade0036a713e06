// Asks for the program of a variable, and says what is wrong when it is missing.
#include "client/plan/program_check.h"

#include <utility>

#include "client/driver/failure.h"

namespace plc_client::core {

ProgramRule rule_of_single_read(const Tag& tag) {
  return tag.register_id && *tag.register_id >= kFirstIndexedId ? ProgramRule::kWhole : ProgramRule::kBeginning;
}

std::optional<Failure> program_hindrance(DriverSession& session, const Tag& tag, ProgramRule rule) {
  if (tag.entry.is_global == 1 || tag.entry.scope_name[0] == '\0') return std::nullopt;
  const ProgramAnswer answer = session.ask_for_program(tag.entry.scope_name);
  if (answer.no_connection) return explain_failure(*answer.no_connection, session.target());
  const ProgramMatch match = answer.match.value_or(ProgramMatch::kWhole);
  const bool is_taken = rule == ProgramRule::kBeginning && match == ProgramMatch::kBeginning;
  if (match == ProgramMatch::kWhole || is_taken) return std::nullopt;
  return missing_program(tag.entry, answer.bytes);
}

Reading of_own_program(DriverSession& session, const Tag& tag, Reading reading) {
  const bool is_answer = reading.value() != nullptr || reading.quality() == Quality::kRefused;
  if (!is_answer || !session.is_connected()) return reading;
  const std::optional<Failure> hindrance = program_hindrance(session, tag, rule_of_single_read(tag));
  return hindrance ? Reading(*hindrance, reading.time()) : std::move(reading);
}

}  // namespace plc_client::core
