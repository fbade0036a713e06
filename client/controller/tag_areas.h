// The tag files of one controller: names in all of them, with the area that each belongs to.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/driver/private_driver.h"
#include "client/plc_client.h"
#include "client/tags/tag_list.h"
#include "client/tags/tag_reference.h"

namespace plc_client {

struct TagArea {
  uint16_t area = 0;
  std::string path;
  core::TagList list;
  std::string bytes;  // of the file, by which the driver is not given another one
};

struct FoundVariable {
  core::TagReference reference;
  uint16_t area = 0;
  std::string impossible;  // why no request can ask for it; empty when one can
};

class TagAreas {
 public:
  // Reads what options.tags names, with the driver's own reader. Throws Error.
  TagAreas(const Options& options, uint32_t ip_address, core::PrivateDriver& driver);

  // Of files that have been read. Throws Error.
  explicit TagAreas(std::vector<std::unique_ptr<TagArea>> areas);

  // Stable for the life of this object: references point into them.
  const std::vector<std::unique_ptr<TagArea>>& areas() const { return areas_; }

  // NAME, NAME[3], SCOPE/NAME. Throws UnknownVariable, TypeMismatch or OutOfRange.
  FoundVariable find(std::string_view name) const;

  // Made at the first call; not by several threads at once.
  const std::vector<Declaration>& declarations() const;
  // Without subscripts. Throws UnknownVariable.
  const Declaration& declaration(std::string_view name) const;

 private:
  void add(uint16_t area, const std::string& path, core::PrivateDriver& driver);
  void add_folder(const std::string& folder, uint32_t ip_address, core::PrivateDriver& driver);
  void check_apart() const;
  std::string places() const;
  [[noreturn]] void unknown(std::string_view name) const;

  std::vector<std::unique_ptr<TagArea>> areas_;
  mutable std::vector<Declaration> declarations_;
};

}  // namespace plc_client
