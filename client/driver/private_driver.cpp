// Copies a library into memory and loads the copy.
#include "client/driver/private_driver.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "base/files.h"
#include "base/shown_text.h"
#include "client/client_error.h"
#include "client/driver/driver_output.h"

namespace plc_client::core {
namespace {

// Descriptors below it are left to sockets: the driver waits for them with select, which knows no others.
constexpr int kFirstHighDescriptor = FD_SETSIZE;
constexpr size_t kMostLibraryBytes = size_t{64} << 20U;

[[noreturn]] void fail(const std::string& text) { throw ClientError(ClientError::Kind::kLibrary, text); }

bool write_all(int descriptor, const std::string& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t count = write(descriptor, bytes.data() + done, bytes.size() - done);
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

// A descriptor of a file in memory with these bytes.
int memory_file(const std::string& bytes) {
  const int low = memfd_create("plc_driver", MFD_CLOEXEC);
  if (low < 0) fail(std::string("cannot keep a driver library in memory: ") + std::strerror(errno));
  const int high = fcntl(low, F_DUPFD_CLOEXEC, kFirstHighDescriptor);
  const int descriptor = high >= 0 ? high : low;
  if (high >= 0) close(low);
  if (!write_all(descriptor, bytes)) {
    const int error = errno;
    close(descriptor);
    // The limit of files is one of memory files too, and says nothing of the library.
    const char* remedy = error == EFBIG ? ": raise the limit, ulimit -f or LimitFSIZE" : "";
    fail(std::string("cannot keep a driver library in memory: ") + std::strerror(error) + remedy);
  }
  return descriptor;
}

// A copy can come to lie where another thread's has just been unloaded. The loader orders the two with a lock of its
// own; this one is seen by what looks for data races.
std::mutex& loader_lock() {
  static std::mutex lock;
  return lock;
}

void* load_copy(const std::string& path) {
  const std::lock_guard<std::mutex> lock(loader_lock());
  return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void unload_copy(void* handle) {
  const std::lock_guard<std::mutex> lock(loader_lock());
  dlclose(handle);
}

void add_piece(void* context, const char* text, uint32_t length) {
  static_cast<std::string*>(context)->append(text, length);
}

template <typename Function>
void find_hook(void* handle, const char* name, const std::string& path, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (function == nullptr) {
    fail("the driver library " + path + " has no " + name + ": install one of this version or later");
  }
}

}  // namespace

PrivateDriver::PrivateDriver(const std::string& choice) {
  const std::string path = find_driver_file(choice);
  plc_base::FileText file = plc_base::read_file(path, kMostLibraryBytes);
  if (!file.problem.empty()) fail("cannot load the driver library: " + plc_base::shown_line(file.problem));
  descriptor_ = memory_file(file.text);
  const std::string copy = "/proc/self/fd/" + std::to_string(descriptor_);
  handle_ = load_copy(copy);
  try {
    if (handle_ == nullptr) {
      const char* message = dlerror();
      fail("cannot load the driver library " + path + ": " + (message != nullptr ? message : "unknown reason"));
    }
    library_.path = path;
    bind_entry_points(handle_, choice, library_);
    bind();
  } catch (...) {
    if (handle_ != nullptr) unload_copy(handle_);
    close(descriptor_);
    throw;
  }
}

PrivateDriver::~PrivateDriver() {
  release(nullptr);
  unload_copy(handle_);
  close(descriptor_);
}

void PrivateDriver::bind() {
  find_hook(handle_, "plc_driver_set_line_sink", library_.path, set_line_sink_);
  find_hook(handle_, "plc_driver_load_tags", library_.path, load_tags);
  find_hook(handle_, "plc_driver_connect", library_.path, connect);
  find_hook(handle_, "plc_driver_release", library_.path, release);
  if (library_.build_tagtable == nullptr) fail("the driver library " + library_.path + " has no build_tagtable");
}

void PrivateDriver::collect_lines() { set_line_sink_(add_piece, &said_); }

std::vector<std::string> PrivateDriver::take_lines() {
  if (said_.empty()) return {};
  std::vector<std::string> lines = split_lines(said_);
  said_.clear();
  return lines;
}

}  // namespace plc_client::core
