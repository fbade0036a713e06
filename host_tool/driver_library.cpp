// Finds and loads the driver library.
#include "driver_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

#include "exit_codes.h"

namespace plc_host {
namespace {

constexpr char kLibraryName[] = "libplc_driver.so.1";

std::string loader_message() {
  const char* message = dlerror();
  return message != nullptr ? message : "unknown reason";
}

void* open_library(const std::string& path) {
  // Local symbols, everything resolved now: a library that lacks something fails here and not in the middle of a read.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) throw HostError(kExitLibrary, "cannot load the driver library: " + loader_message());
  return handle;
}

template <typename Function>
void find_entry(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (function == nullptr) throw HostError(kExitLibrary, "the driver library has no entry point " + std::string(name));
}

std::string first_present(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (path.find('/') == std::string::npos || access(path.c_str(), R_OK) == 0) return path;
  }
  return kLibraryName;
}

}  // namespace

std::string program_folder() {
  char target[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", target, sizeof target);
  if (length <= 0 || static_cast<size_t>(length) >= sizeof target) return ".";
  const std::string path(target, static_cast<size_t>(length));
  return path.substr(0, path.rfind('/'));
}

std::vector<std::string> default_library_paths() {
  const std::string folder = program_folder();
  return {folder + "/" + kLibraryName, folder + "/../lib/" + kLibraryName,
          folder + "/../" PLC_HOST_LIBDIR "/" + kLibraryName, folder + "/../src/" + kLibraryName, kLibraryName};
}

DriverLibrary load_driver_library(const std::string& path) {
  DriverLibrary library;
  library.path = path.empty() ? first_present(default_library_paths()) : path;
  // Without a slash the loader would search its own path and not the working directory.
  if (!path.empty() && path.find('/') == std::string::npos && access(path.c_str(), R_OK) == 0) {
    library.path = "./" + path;
  }
  void* handle = open_library(library.path);
  find_entry(handle, "ev_plc_driver_info", library.driver_info);
  find_entry(handle, "ev_plc_init", library.init);
  find_entry(handle, "ev_OMRON_plc_register", library.register_host);
  find_entry(handle, "ev_plc_read", library.read);
  find_entry(handle, "ev_plc_write", library.write);
  find_entry(handle, "ev_OMRON_plc_read", library.read_batch);
  library.build_tagtable = reinterpret_cast<BuildTagTable>(dlsym(handle, "build_tagtable"));
  return library;
}

}  // namespace plc_host
