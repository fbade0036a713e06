// Files that a user asked for: never written through a link that somebody else made, never over what was read or what
// a standard stream of this process leads to.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/files.h"

namespace plc_base {

// Whether the path leads to one of these files, by whatever name.
bool is_one_of(const std::string& path, const std::vector<std::string>& files);

// What becomes of a regular file that is there already.
enum class OldFile { kReplaced, kKept };
inline constexpr char kFileIsThere[] = "there is a file of this name";
inline constexpr char kIsInput[] = "it is a file that is read";

// Writes a regular file that is whole or, after a failure, what it was before. It has the permissions of the file that
// it replaces. Refused where a link, no regular file, one of inputs, paths of what was read, or a file to be kept is at
// the path. Returns why it was not done, empty when it was.
std::string write_whole_file(const std::string& path, std::string_view bytes, const std::vector<std::string>& inputs,
                             OldFile old_file = OldFile::kReplaced);

// Why write_whole_file would fail if it were called now, for programs that write at their end: a file is made beside,
// gets a few bytes and goes. Empty when nothing is in the way.
std::string why_not_written(const std::string& path, const std::vector<std::string>& inputs);

// What a user can do about a problem of these functions: "name a file in it". Empty where it says so itself.
std::string advice_on_output(const std::string& problem);

// Opens a file that grows, empty, under the same rules; a file with a second name is refused too, for it stays the file
// that it is. A device is opened, and a pipe that somebody reads, also by the name /dev/fd/N, a link of the system.
OpenedFile open_growing_file(const std::string& path, const std::vector<std::string>& inputs);

}  // namespace plc_base
