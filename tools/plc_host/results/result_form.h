// The forms in which results are shown.
#pragma once

#include "client/values/value_text.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

enum class Form {
  kText,  // a line for each variable, in columns
  kJson,  // an object for each variable, a line each
  kCsv,   // a row for each element, for spreadsheets
  kRaw,   // a line for each variable with its value and nothing else
};

struct ResultForm {
  Form form = Form::kText;
  WideIntegers wide = WideIntegers::kNumbers;  // in JSON
};

}  // namespace plc_host
