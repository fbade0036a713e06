// Tag files as a command uses them: which one, and what is said when there is none or it lacks a name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/driver/driver_session.h"
#include "client/tags/tag_list.h"
#include "client/tags/tag_reference.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/command_output.h"

namespace plc_host {

// A tag file by the path at which the driver reads it, and by the one that its user knows.
struct TagFilePath {
  std::string read;
  std::string shown;
  std::string folder = ".";  // in which paths are meant: the user's, where the command works in another one
};

// Of a folder the file in it that the driver would take for this controller, as it has to be called; else the path.
std::string tag_file_at(const std::string& path, const Target& controller);

// Throws HostError for what is no file that can be read, with the system's reason.
void demand_tag_file(const std::string& path);

// The same of the one that the driver would find in the working directory, with those that are there of other areas.
void demand_own_tag_file(const Target& controller);

// Reads the tag list. Throws ClientError when the driver rejects the file; what the driver prints of it is shown then
// when shows_lines. bytes: those of the file, for who has the driver load it again.
TagList read_tag_list(const DriverLibrary& library, CommandOutput& output, const TagFilePath& file, bool shows_lines,
                      std::string* bytes = nullptr);

// Has the driver load the file for its transfers to this target, where it has the hook: with the first transfer it
// would load what the file is by then. Behind DriverSession's making. Throws ClientError when the file has other bytes.
void load_now(const DriverLibrary& library, const Target& target, const TagFilePath& file, const std::string& bytes);

// As find_reference; a name that the file does not have is told with what was probably meant and where that stands.
TagReference find_variable(const TagList& tags, const TagFilePath& file, std::string_view name);

// What to say of a word that is no variable where it is the path of a file: "machine.csv is a file, not a variable: a
// tag file is given with --tags machine.csv"; empty for any other, and for one that ends in neither .csv nor .txt.
std::string file_hint(const std::string& word, const std::string& folder = ".");

// What to say of a file of which the driver understood the type of no line, which is of another kind then: ": none of
// its lines has a type. Try: plc-host check notes.txt"; empty for any other.
std::string hint_on_types(const TagList& tags, const std::string& shown);

// What to say of some of its variables that have no type that the driver knows; empty where all have one.
std::string remark_on_types(const TagList& tags, const TagFilePath& file, const std::vector<const Tag*>& some);

// The tag files of the working directory by their names, in order.
std::vector<std::string> own_tag_files();

// Those of the controller in a folder, of all areas, by their paths. Throws HostError where there is none.
std::vector<std::string> tag_files_in(const std::string& folder, const Target& controller);

// The area of PLC<address>_<area>.csv; nothing for another name.
std::optional<uint16_t> area_in_name(const std::string& name);

}  // namespace plc_host
