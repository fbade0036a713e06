// Finds and loads the driver library.
#include "client/driver/driver_library.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>

#include "base/files.h"
#include "base/text.h"
#include "client/client_error.h"

namespace plc_client::core {
namespace {

constexpr char kLibraryName[] = "libplc_driver.so.1";
constexpr char kContract[] = "contract";
constexpr char kGuarded[] = "guarded";
constexpr char kAdvice[] =
    ". Try: give the path of a libplc_driver.so.1 as the driver (plc-host: --driver PATH; else the setting driver), or "
    "none for the installed one";

std::string loader_message() {
  const char* message = dlerror();
  return message != nullptr ? message : "unknown reason";
}

// The loader would wait for a pipe. It knows best what is wrong with a path that leads nowhere.
void demand_regular_file(const std::string& path) {
  if (access(path.c_str(), F_OK) != 0) return;
  errno = 0;
  const plc_base::OpenedFile file = plc_base::open_regular_file(path);
  const bool is_short = errno == EMFILE;
  if (file.problem.empty()) {
    close(file.descriptor);
    return;
  }
  throw ClientError(ClientError::Kind::kLibrary,
                    "cannot load the driver library: cannot read " + plc_base::told_name(path) + ": " + file.problem +
                        (is_short ? std::string(". Try: ") + plc_base::kMoreDescriptors : kAdvice));
}

void* open_library(const std::string& path) {
  // A name without a slash is the loader's to find.
  if (path.find('/') != std::string::npos) demand_regular_file(path);
  // Local symbols, everything resolved now: a library that lacks something fails here and not in the middle of a read.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw ClientError(ClientError::Kind::kLibrary, "cannot load the driver library: " + loader_message() + kAdvice);
  }
  return handle;
}

template <typename Function>
void find_entry(void* handle, const std::string& path, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (function == nullptr) {
    throw ClientError(ClientError::Kind::kLibrary,
                      path + " is not a driver library: it has no entry point " + name + kAdvice);
  }
}

// CMake has its own files where it builds, and installs none of them; a module lies in a folder below.
bool is_built_in(const std::string& folder) {
  return access((folder + "/CMakeFiles").c_str(), F_OK) == 0 || access((folder + "/../CMakeFiles").c_str(), F_OK) == 0;
}

// Where a library may lie that belongs to what lies in the folder: beside it, installed with it, built with it.
std::vector<std::string> paths_around(const std::string& folder, const std::string& file,
                                      const std::string& installed) {
  std::vector<std::string> paths = {folder + file, folder + "/../lib" + installed,
                                    folder + "/../" PLC_HOST_LIBDIR + installed};
  if (installed != file) paths.push_back(folder + installed);  // what asks is a library itself
  if (is_built_in(folder)) {
    paths.push_back(folder + "/../src" + file);
    paths.push_back(folder + "/../../src" + file);
  }
  return paths;
}

void add_new(std::vector<std::string>& paths, const std::vector<std::string>& more) {
  for (const std::string& path : more) {
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
  }
}

// The first that there is, "" when there is none; the loader knows whether there is a name without a slash.
std::string first_present(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (path.find('/') == std::string::npos || access(path.c_str(), R_OK) == 0) return path;
  }
  return {};
}

std::string guarded_path() {
  const std::vector<std::string> paths = guarded_library_paths();
  std::string found = first_present(paths);
  if (!found.empty()) return found;
  std::string places;
  std::vector<std::string> named;
  for (const std::string& path : paths) add_new(named, {std::filesystem::path(path).lexically_normal().string()});
  for (const std::string& path : named) places += (places.empty() ? "" : ", ") + path;
  throw ClientError(ClientError::Kind::kLibrary, "there is no guarded build of the driver library; looked for " +
                                                     places +
                                                     "; install it there, or give the path of one as the driver "
                                                     "(plc-host: --driver PATH; else the setting driver)");
}

std::string chosen_path(const std::string& choice) {
  if (choice == kGuarded) return guarded_path();
  if (choice == kContract) return first_present(default_library_paths());
  if (choice.empty()) {
    const std::string guarded = first_present(guarded_library_paths());
    return guarded.empty() ? first_present(default_library_paths()) : guarded;
  }
  // Without a slash the loader would search its own path and not the working directory.
  const bool is_here = choice.find('/') == std::string::npos && access(choice.c_str(), R_OK) == 0;
  return is_here ? "./" + choice : choice;
}

// Libraries from before there were two builds do not say which one they are.
void find_build(void* handle, DriverLibrary& library) {
  using BuildName = const char* (*)();
  const auto build = reinterpret_cast<BuildName>(dlsym(handle, "plc_driver_build"));
  library.build = build != nullptr ? build() : "contract, unnamed version";
  library.is_guarded = library.build.substr(library.build.rfind(' ') + 1) == kGuarded;
}

}  // namespace

std::string program_folder() {
  char target[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", target, sizeof target);
  if (length <= 0 || static_cast<size_t>(length) >= sizeof target) return ".";
  const std::string path(target, static_cast<size_t>(length));
  return path.substr(0, path.rfind('/'));
}

bool is_in_build_tree() { return is_built_in(program_folder()); }

std::string own_folder() {
  Dl_info here{};
  if (dladdr(reinterpret_cast<const void*>(&find_driver_file), &here) == 0 || here.dli_fname == nullptr) return ".";
  const std::string path = here.dli_fname;
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? program_folder() : path.substr(0, slash);
}

std::vector<std::string> default_library_paths() {
  const std::string file = std::string("/") + kLibraryName;
  std::vector<std::string> paths = paths_around(program_folder(), file, file);
  add_new(paths, paths_around(own_folder(), file, file));
  paths.emplace_back(kLibraryName);
  return paths;
}

std::vector<std::string> guarded_library_paths() {
  const std::string file = std::string("/guarded/") + kLibraryName;
  std::vector<std::string> paths = paths_around(program_folder(), file, "/plc_driver" + file);
  add_new(paths, paths_around(own_folder(), file, "/plc_driver" + file));
  return paths;
}

std::string find_driver_file(const std::string& choice) {
  std::string path = chosen_path(choice);
  if (path.find('/') != std::string::npos) return path;
  void* handle = open_library(path);
  const link_map* map = nullptr;
  const bool is_told = dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0;
  std::string file = is_told ? map->l_name : path;
  dlclose(handle);
  return file;
}

void bind_entry_points(void* handle, const std::string& choice, DriverLibrary& library) {
  find_entry(handle, library.path, "ev_plc_driver_info", library.driver_info);
  find_entry(handle, library.path, "ev_plc_init", library.init);
  find_entry(handle, library.path, "ev_OMRON_plc_register", library.register_host);
  find_entry(handle, library.path, "ev_plc_read", library.read);
  find_entry(handle, library.path, "ev_plc_write", library.write);
  find_entry(handle, library.path, "ev_OMRON_plc_read", library.read_batch);
  library.build_tagtable = reinterpret_cast<BuildTagTable>(dlsym(handle, "build_tagtable"));
  library.load_tags = reinterpret_cast<decltype(&plc_driver_load_tags)>(dlsym(handle, "plc_driver_load_tags"));
  find_build(handle, library);
  if (choice == kGuarded && !library.is_guarded) {
    throw ClientError(ClientError::Kind::kLibrary, library.path + " is not the guarded build but " + library.build);
  }
}

DriverLibrary load_driver_library(const std::string& choice) {
  DriverLibrary library;
  library.path = chosen_path(choice);
  bind_entry_points(open_library(library.path), choice, library);
  return library;
}

}  // namespace plc_client::core
