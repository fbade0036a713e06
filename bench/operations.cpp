// The operations of operations.h.
#include "bench/operations.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

namespace bench {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr const char* kTagFile = "PLC7F000001_0.csv";
constexpr size_t kValueBytes = 4096;
constexpr uint32_t kReceiveTimeoutS = 10;
constexpr uint32_t kManyElements = 100;
constexpr uint32_t kBatchElements = 34;  // the most that one frame pair carries

// Record numbers of the tag file.
constexpr uint32_t kScalar = 0;
constexpr uint32_t kArray = 1;
constexpr uint32_t kGrid = 2;
constexpr uint32_t kJapanese = 3;
constexpr uint32_t kFirstRegister = 4;

void write_tag_file() {
  std::FILE* const file = std::fopen(kTagFile, "w");
  if (file == nullptr) {
    std::perror(kTagFile);
    std::exit(1);
  }
  std::fputs("Motor_Speed,INT,,,,,,0,1,0,0,,DM\n", file);
  std::fputs("Motor_Table,INT,[0..999],,,,,1,1,0,0,,DM\n", file);
  std::fputs("Motor_Grid,INT,[0..99_0..99],,,,,2,1,0,0,,DM\n", file);
  std::fputs("\xE9\x80\x9F\xE5\xBA\xA6\xE8\xA8\xAD\xE5\xAE\x9A,INT,,,,,,3,1,0,0,,DM\n", file);
  for (uint32_t id = kFirstRegister; id < kFirstRegister + kBatchElements; ++id) {
    std::fprintf(file, "Register_%03u,INT,,,,,,%u,1,0,0,,DM\n", static_cast<unsigned>(id), static_cast<unsigned>(id));
  }
  std::fclose(file);
}

template <typename Function>
bool find_function(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  return *function != nullptr;
}

}  // namespace

std::FILE* take_standard_output() {
  std::FILE* const output = fdopen(dup(STDOUT_FILENO), "w");
  if (output == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::perror("standard output");
    std::exit(1);
  }
  return output;
}

Driver load_driver(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  Driver driver;
  if (library == nullptr || !find_function(library, "ev_plc_init", &driver.init) ||
      !find_function(library, "ev_plc_read", &driver.read) || !find_function(library, "ev_plc_write", &driver.write) ||
      !find_function(library, "ev_OMRON_plc_read", &driver.read_batch)) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(1);
  }
  return driver;
}

Host::Host(uint16_t port, const Driver& driver) : driver_(driver), values_(kValueBytes), batch_(kBatchElements) {
  char folder[] = "/tmp/plc_bench.XXXXXX";
  if (mkdtemp(folder) == nullptr || chdir(folder) != 0) {
    std::perror(folder);
    std::exit(1);
  }
  folder_ = folder;
  write_tag_file();
  settings_.ip_address = kLoopback;
  settings_.tcp_port = port;
  conn_.socket_fd = -1;
  conn_.recv_timeout_s = kReceiveTimeoutS;
  driver_.init(&settings_);
}

Host::~Host() {
  close(conn_.socket_fd);
  unlink(kTagFile);
  if (chdir("/") == 0) rmdir(folder_.c_str());
}

const std::vector<Host::NamedOperation>& Host::operations() {
  static const std::vector<NamedOperation> all = {
      {"single_read", &Host::read_one},
      {"single_read_utf8", &Host::read_japanese},
      {"word_write", &Host::write_one},
      {"read_100_elements", &Host::read_array},
      {"read_100_of_grid", &Host::read_grid},
      {"batch_34_registers", &Host::read_registers},
      {"batch_34_elements", &Host::read_elements},
  };
  return all;
}

Host::Operation Host::find_operation(const std::string& name) {
  for (const NamedOperation& candidate : operations()) {
    if (name == candidate.name) return candidate.operation;
  }
  std::fprintf(stderr, "unknown operation: %s\n", name.c_str());
  std::exit(2);
}

void Host::repeat(Operation operation, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t result = (this->*operation)();
    if (result != PLC_OK) {
      std::fprintf(stderr, "operation failed with %u\n", static_cast<unsigned>(result));
      std::exit(1);
    }
  }
}

uint32_t Host::read_one() { return read(kScalar, 1); }

uint32_t Host::read_array() { return read(kArray, kManyElements); }

uint32_t Host::read_grid() { return read(kGrid, kManyElements); }

uint32_t Host::read_japanese() { return read(kJapanese, 1); }

uint32_t Host::read_registers() { return read_batch(kFirstRegister, 1); }

uint32_t Host::read_elements() { return read_batch(kArray, 0); }

uint32_t Host::write_one() {
  RegRequest request{0, 0, 0, kScalar << 16};
  RegValue value{1, values_.data()};
  return driver_.write(&request, &value, &conn_);
}

uint32_t Host::read(uint32_t id, uint32_t count) {
  RegRequest request{0, 0, 0, id << 16};
  RegValue value{count, values_.data()};
  return driver_.read(&request, &value, &conn_);
}

// Registers follow each other by id, or are elements of one array with an id step of 0.
uint32_t Host::read_batch(uint32_t first_id, uint32_t id_step) {
  uint32_t position = 0;
  for (BatchReadRequest& element : batch_) {
    element = BatchReadRequest{};
    element.address = (first_id + id_step * position) << 16 | (id_step == 0 ? position : 0);
    element.count = 1;
    ++position;
  }
  return driver_.read_batch(batch_.data(), static_cast<int32_t>(batch_.size()), &conn_);
}

}  // namespace bench
