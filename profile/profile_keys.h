// Every key of a profile, in the order in which they stand in a file: reading and writing go by this table alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "profile/profile.h"

namespace plc_profile {

struct PacePart {
  Pace Profile::*pace;
  std::optional<double> Pace::*part;
};

// Where a key's value is in a profile.
using Slot = std::variant<std::string Profile::*, std::optional<bool> Profile::*, std::optional<double> Profile::*,
                          std::optional<uint16_t> Profile::*, std::optional<uint32_t> Profile::*,
                          std::optional<Echo> Profile::*, std::optional<Turned> Profile::*,
                          std::optional<Profile::Shape> Profile::*, Profile::Guarded Profile::*, PacePart>;

struct KeyRow {
  const char* section;
  const char* name;
  const char* meaning;
  Slot slot;
  uint32_t low = 0;  // of a number
  uint32_t high = 0;
};

const std::vector<KeyRow>& key_rows();

// The words for a flag or an enumeration, in the order of its values.
using Words = std::vector<std::string>;
const Words& words_of(bool);
const Words& words_of(Echo);
const Words& words_of(Turned);
const Words& words_of(Profile::Shape);
const Words& words_of(Profile::Guarded);
const Words& words_of(Profile::Refused::What);

// Stands once for each variable that the controller refuses.
inline constexpr char kRefusedSection[] = "refused";

}  // namespace plc_profile
