// Whether the controller has a program of a name, asked of the guarded build without a request to the controller.
//
// A local variable whose program is not in the controller's directory goes out with the number of its tag line, which
// may be another program's. The driver says of two such variables that they are of several programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/driver/driver_library.h"

namespace plc_client::core {

// Two local variables of a program, with different numbers in their lines, one of them of 8 bits: no batch of both is
// ever sent. It is of several programs where the directory does not have their name, else of an 8-bit variable. There
// are two for each beginning of the program's name too.
class ProgramProbe {
 public:
  // Gives the driver their lines, in an area that is not taken. Nothing where the driver does not take them.
  static std::optional<ProgramProbe> load(const DriverLibrary& library, uint32_t ip_address, uint16_t taken_area,
                                          uint16_t& next_area, const std::string& program);

  // The batch for the first so many bytes of the name. The driver changes it.
  std::vector<BatchReadRequest> requests(size_t length) const;

  // What the driver said of the batch; the line that says it is taken away.
  static std::optional<bool> take_answer(std::vector<std::string>& lines);

 private:
  explicit ProgramProbe(uint16_t area) : area_(area) {}

  uint16_t area_;
};

}  // namespace plc_client::core
