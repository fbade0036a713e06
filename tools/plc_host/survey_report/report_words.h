// The words that every form of the report has for what was found.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

const char* word_of(Step::State state);
const char* word_of(ProgramFinding::State state);
bool has_number(const ProgramFinding& finding);
const char* word_of(VariableFinding::State state);

// Of a program that the directory does not name: "missing in the controller's directory". Where the directory has a
// beginning of its name, nobody knows whether that is another program.
std::string missing_words(const ProgramFinding& finding);
const char* word_of(Verdict::Usable usable);

// "0004"
std::string status_text(uint16_t status);

// "1.25 ms": as many decimals as say something.
std::string shown_ms(double ms);

// "2026-11-22 09:30:00 UTC" of "2026-11-22T09:30:00Z"; any other text as it is.
std::string utc_text(const std::string& iso);

// "3 min 12 s"
std::string seconds_text(double seconds);

// "2 h", "30 min"
std::string hours_text(double hours);

// "192.168.0.10:8500"
std::string controller_text(const Link& link);

// "536 + 204 bytes"
std::string pieces_text(const std::vector<size_t>& pieces);

// "Not measured: interrupted."; why may be empty.
std::string not_measured(const Step& step);

}  // namespace plc_host::survey
