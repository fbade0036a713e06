// A capture file as a recording.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "wire/recording.h"

namespace wire_trace {

struct CapturedRecording {
  Recording recording;
  std::string problem;  // why it is empty, or what is not in it
};

// The connections of the capture that carry this protocol, or all of one port of the controller when that is not 0.
CapturedRecording read_recording(std::string_view file, uint16_t controller_port);

CapturedRecording read_recording_file(const std::string& path, uint16_t controller_port);

// Writes the recording as a capture file with made-up addresses. Empty when the file holds all of it, else what went
// wrong, and the file is what it was. Neither through a link nor over one of inputs, paths of what is read.
std::string write_recording(const Recording& recording, uint16_t controller_port, const std::string& path,
                            const std::vector<std::string>& inputs = {});

}  // namespace wire_trace
