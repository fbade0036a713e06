// Whether the beginning of a program's name can be that name cut short by the controller's directory.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plc_client::core {

// What is known without the directory. Lengths are in characters as they travel: units of UTF-16.
struct ProgramNames {
  std::vector<std::string> declared = {};    // by the tag files of the controller
  std::optional<size_t> cut_units = {};      // the directory cuts names there
  std::optional<size_t> longest_units = {};  // of the names that the directory has had
};

// The length of a name in UTF-8, as the directory counts it.
size_t directory_units(std::string_view name);

// Whether the name has nothing but blanks behind its first bytes.
bool lacks_blanks_only(std::string_view name, size_t bytes);

// Whether a program of the name of so many bytes, with which the name begins, is declared itself.
bool is_beginning_declared(const ProgramNames& names, std::string_view name, size_t bytes);

// Whether the directory's name of so many bytes is likely to be all that is left of the name: a profile says that names
// are cut there, or hardly any program's name is as long. Not where that name is declared, where only blanks are
// missing, or where names are cut elsewhere.
bool is_likely_cut(const ProgramNames& names, std::string_view name, size_t bytes);

// The other declared names of which as much would be left.
std::vector<std::string> rivals(const ProgramNames& names, std::string_view name, size_t bytes);

// Declared names of more units, the longest first, as many as are worth asking for. Where the directory has one of
// them, or more of its beginning, names are not cut behind so many units.
std::vector<std::string> longer_names(const ProgramNames& names, size_t units);

}  // namespace plc_client::core
