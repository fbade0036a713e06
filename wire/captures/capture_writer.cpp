// Cuts a capture file that cannot be written any further to its whole packets.
#include "wire/captures/capture_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace plc_sim {

void CaptureWriter::close_descriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

bool CaptureWriter::cut_to_whole_packets() {
  struct stat status {};
  const bool is_file = fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
  const bool is_whole = !is_file || ftruncate(descriptor_, static_cast<off_t>(whole_bytes_)) == 0;
  close_descriptor();
  return is_whole;
}

void CaptureWriter::end_after(int error) {
  problem_ = std::strerror(error);
  if (!cut_to_whole_packets()) problem_ += "; its last packet is cut off";
  if (tell_) tell_(problem_);
}

}  // namespace plc_sim
