// What stands in the places of a journal's files.
#pragma once

#include <string>

namespace plc_gateway {

// Why a journal in this folder cannot use the files that are there, with what to do; empty when it can, or there are
// none. Opens and makes nothing.
std::string problem_with_journal_files(const std::string& folder);

}  // namespace plc_gateway
