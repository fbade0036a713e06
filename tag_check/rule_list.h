// The rules of the checker: stable codes, what each means, what to do, and a sample on either side.
#pragma once

#include <string>
#include <vector>

#include "finding.h"

namespace tag_check {

struct Rule {
  const char* code;
  Severity severity;
  const char* title;
  const char* explanation;  // what the driver does
  const char* suggestion;
  std::string good;  // a whole file on which no rule fires
  std::string bad;   // a whole file on which this rule fires
};

// In the order of their codes.
const std::vector<Rule>& rule_list();

// The rule with this code, which exists.
const Rule& rule_of(const char* code);

const char* severity_name(Severity severity);

}  // namespace tag_check
