// A program's options with what a profile adds to them.
#pragma once

#include <cstdint>
#include <string>

#include "client/driver/program_names.h"
#include "client/plc_client.h"
#include "profile/profile.h"

namespace plc_client {

struct ProfiledOptions {
  Options options;
  core::ProgramNames program_names = {};
  plc_profile::Profile profile = {};
  std::string word = {};  // for the log: why the driver is another one than asked for; empty when it is not
};

// Throws Error for a profile that cannot be read or has mistakes.
ProfiledOptions with_profile(const Options& given);

}  // namespace plc_client
