// Writes recorded traffic to a capture file, all of it or with the reason why not.
#ifndef TOOLS_PLC_HOST_WHY_CAPTURE_FILE_H_
#define TOOLS_PLC_HOST_WHY_CAPTURE_FILE_H_

#include <cstdint>
#include <string>

#include "wire/captures/capture.h"

namespace plc_host {

// Throws HostError with kExitOutput when the file does not hold everything afterwards.
void write_capture_file(const wire_trace::Recording& recording, uint16_t controller_port, const std::string& path);

}  // namespace plc_host

#endif  // TOOLS_PLC_HOST_WHY_CAPTURE_FILE_H_
