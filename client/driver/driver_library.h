// The driver, loaded as a panel loads it: dlopen and the six entry points by name.
#pragma once

#include <string>
#include <vector>

#include "plc_driver.h"
#include "plc_driver_hooks.h"

namespace plc_client::core {

// The function by which the driver reads a tag file: counts[0] plain records, counts[1] the largest indexed id; null
// when it rejects the file. group_ids has kGroupIdWords words.
using BuildTagTable = uint32_t* (*)(TagEntry** entries, IndexedTagEntry** groups, const char* path,
                                    uint32_t* group_ids);

struct DriverLibrary {
  std::string path;         // as it was given to the loader
  std::string build;        // what it calls itself: "1.1.0 guarded"
  bool is_guarded = false;  // it returns 0 only for a whole reply of its own that refuses nothing
  decltype(&ev_plc_driver_info) driver_info = nullptr;
  decltype(&ev_plc_init) init = nullptr;
  decltype(&ev_OMRON_plc_register) register_host = nullptr;
  decltype(&ev_plc_read) read = nullptr;
  decltype(&ev_plc_write) write = nullptr;
  decltype(&ev_OMRON_plc_read) read_batch = nullptr;
  BuildTagTable build_tagtable = nullptr;               // null when the library does not export it
  decltype(&plc_driver_load_tags) load_tags = nullptr;  // null when it is older than its hooks
};

// Loads "contract", "guarded", the library at a path or, for an empty choice, the guarded build where there is one and
// else the contract one. The library stays loaded: it keeps its connection and its tables for the life of the process.
// Throws ClientError, also when "guarded" turns out to be another build.
DriverLibrary load_driver_library(const std::string& choice);

// The file that load_driver_library would load for this choice. Throws ClientError when there is none.
std::string find_driver_file(const std::string& choice);

// Fills what the loaded library at library.path exports. Throws ClientError.
void bind_entry_points(void* handle, const std::string& choice, DriverLibrary& library);

// Beside the program, in ../lib, for a program of a build tree in that tree, and last the name that the loader looks up
// by itself.
std::vector<std::string> default_library_paths();

// The folders guarded/ of the same places; the loader has none.
std::vector<std::string> guarded_library_paths();

// Folder of this program's file; "." when it cannot be told.
std::string program_folder();

// Folder of the file that holds this code: the program, or a library or module that it has loaded.
std::string own_folder();

// Whether this program lies where it was built: what lies in other folders around it was then built with it.
bool is_in_build_tree();

}  // namespace plc_client::core
