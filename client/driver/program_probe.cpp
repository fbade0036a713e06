// Makes the two lines, loads them, and reads the answer.
#include "client/driver/program_probe.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace plc_client::core {
namespace {

constexpr char kSeveralPrograms[] = "guard: batch over several programs or scopes";
constexpr char kNotInBatches[] = "guard: batch with an 8-bit or 64-bit variable";

// The areas that are tried, from the last one down.
constexpr unsigned kMostAttempts = 32;

// The variables of a beginning follow those of the one that is a byte shorter.
std::string lines_of(const std::string& program) {
  std::string lines;
  for (size_t length = 0; length <= program.size(); ++length) {
    const std::string name = program.substr(0, length);
    lines.append("a,INT,,,,,,0,0,0,0,").append(name).append("\n");
    lines.append("b,SINT,,,,,,0,0,0,1,").append(name).append("\n");
  }
  return lines;
}

// A file in memory; closed with the object.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& text) : descriptor_(memfd_create("program", MFD_CLOEXEC)) {
    const ssize_t count = descriptor_ < 0 ? -1 : write(descriptor_, text.data(), text.size());
    is_whole_ = count >= 0 && static_cast<size_t>(count) == text.size();
  }
  ~MemoryFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  bool is_whole() const { return is_whole_; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
  bool is_whole_ = false;
};

}  // namespace

std::optional<ProgramProbe> ProgramProbe::load(const DriverLibrary& library, uint32_t ip_address, uint16_t taken_area,
                                               uint16_t& next_area, const std::string& program) {
  const MemoryFile file(lines_of(program));
  if (!file.is_whole()) return std::nullopt;
  for (unsigned i = 0; i < kMostAttempts; ++i) {
    const uint16_t area = next_area--;
    if (area == taken_area) continue;
    if (library.load_tags(ip_address, area, file.path().c_str()) == PLC_OK) return ProgramProbe(area);
  }
  return std::nullopt;
}

std::vector<BatchReadRequest> ProgramProbe::requests(size_t length) const {
  constexpr unsigned kIdShift = 16;
  std::vector<BatchReadRequest> both(2);
  auto id = static_cast<uint32_t>(both.size() * length);
  for (BatchReadRequest& request : both) {
    request.area = area_;
    request.address = id++ << kIdShift;
    request.count = 1;
  }
  return both;
}

std::optional<bool> ProgramProbe::take_answer(std::vector<std::string>& lines) {
  for (const bool is_there : {false, true}) {
    const char* const words = is_there ? kNotInBatches : kSeveralPrograms;
    const auto line = std::find_if(lines.begin(), lines.end(),
                                   [words](const std::string& text) { return text.find(words) != std::string::npos; });
    if (line == lines.end()) continue;
    lines.erase(line);
    return is_there;
  }
  return std::nullopt;
}

}  // namespace plc_client::core
