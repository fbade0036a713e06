// What hosts make of a profile.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "profile/profile.h"

namespace plc_profile {

// That a host asks the loaded driver for at a time: the least of what is set and of the limits that were met; 0 where
// there are none.
uint32_t names_at_a_time(const Profile& profile, bool is_guarded);

// The variables that must not be asked for: the controller does not have them, and the driver that is loaded takes what
// it answers for a value. Of the others nobody knows. Names with their programs.
std::vector<std::pair<std::string, std::string>> absent_names(const Profile& profile, bool is_guarded);

// How the guarded driver has to be built to be usable, "PLC_GUARD_STATUS=OFF"; "" where the usual one is, where none
// is, or where nobody knows.
std::string guarded_options(Profile::Guarded guarded);

// What a survey and hosts advise where the guarded driver is to be built so: "the path of a guarded driver built with
// PLC_GUARD_STATUS=OFF"; "" otherwise.
std::string better_driver(Profile::Guarded guarded);

// The build that a host takes unless another is named: "contract" where the guarded driver as it is usually built
// cannot be used; "guarded", which fails, where the contract build would give wrong values; "" where the profile says
// nothing.
std::string driver_choice(const Profile& profile);

// What a host says that takes such a build: the problem, and what it has to look after; "" otherwise. Where the user
// has named a driver, that one is kept, and the problem is said all the same.
std::string contract_word(const Profile& profile, bool is_driver_named = false);

// What a host says beside that of a contract build that is loaded though nothing rules the guarded one out; "" where
// contract_word says it, or where the contract build reads this controller like any other.
std::string loaded_contract_word(const Profile& profile);

}  // namespace plc_profile
