// Asks for the program of a variable, and says what is wrong when it is missing.
#include "client/plan/program_check.h"

#include <utility>

#include "client/driver/failure.h"

namespace plc_client::core {

ProgramRule rule_of_singles(const Tag& tag) {
  return tag.register_id && *tag.register_id >= kFirstIndexedId ? ProgramRule::kWhole : ProgramRule::kBeginning;
}

std::optional<Failure> program_hindrance(DriverSession& session, const Tag& tag, ProgramRule rule) {
  if (tag.entry.is_global == 1 || tag.entry.scope_name[0] == '\0') return std::nullopt;
  const ProgramAnswer answer = session.ask_for_program(tag.entry.scope_name);
  if (answer.no_connection) return explain_failure(*answer.no_connection, session.target());
  const ProgramMatch match = answer.match.value_or(ProgramMatch::kWhole);
  const bool is_taken = rule == ProgramRule::kBeginning && match == ProgramMatch::kBeginning;
  if (match == ProgramMatch::kWhole || is_taken) return std::nullopt;
  return missing_program(tag.entry, answer);
}

std::optional<Failure> unclear_program(const Tag& tag, const Reading& reading) {
  const bool is_unclear = reading.value() == nullptr && reading.failure().is_unclear;
  return is_unclear ? std::optional<Failure>(missing_program(tag.entry)) : std::nullopt;
}

Reading of_own_program(DriverSession& session, const Tag& tag, Reading reading) {
  const bool may_be_of_another = reading.value() != nullptr || reading.quality() == Quality::kRefused;
  if ((!may_be_of_another && !reading.failure().is_unclear) || !session.is_connected()) return reading;
  std::optional<Failure> hindrance = program_hindrance(session, tag, rule_of_singles(tag));
  if (!hindrance) hindrance = unclear_program(tag, reading);
  return hindrance ? Reading(*hindrance, reading.time()) : std::move(reading);
}

}  // namespace plc_client::core
