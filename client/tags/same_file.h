// Loads tag files, each time with the same bytes: a variable's number is the place of its line.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "client/client_error.h"
#include "client/driver/driver_library.h"
#include "client/tags/tag_list.h"

namespace plc_client::core {

struct LoadedTags {
  TagList list;
  std::string bytes;  // of the file that the list was made of
};

// Behind "the tag file PATH".
inline constexpr char kChangedWords[] = " changed while it was loaded. Try: again, once it is whole";

// Is thrown for a file that changes meanwhile.
class FileChanged : public ClientError {
 public:
  explicit FileChanged(const std::string& path);
};

// As load_tag_list. Throws FileChanged too.
LoadedTags load_whole_file(const DriverLibrary& library, const std::string& path);

// Has load load the file for the driver's transfers, and returns its code. Nothing when the file has not had these
// bytes all the time, whatever load has taken then.
std::optional<uint32_t> load_same_file(const std::string& path, const std::string& bytes,
                                       const std::function<uint32_t()>& load);

}  // namespace plc_client::core
