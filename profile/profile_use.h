// What hosts make of a profile.
#pragma once

#include <cstdint>
#include <string>

#include "profile/profile.h"

namespace plc_profile {

// That a host asks for at a time: the least of what is set and of the limits that were met; 0 where there are none.
uint32_t names_at_a_time(const Profile& profile);

// Why the guarded driver as it is usually built cannot be used, "" when it can or nobody knows.
std::string guarded_problem(const Profile& profile);

// What a host says that takes the contract build therefore: the problem, and what it has to look after; "" otherwise.
std::string contract_word(const Profile& profile);

}  // namespace plc_profile
