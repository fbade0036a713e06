// A build of the driver, loaded by its path.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "plc_driver.h"

namespace plc_endure {

class Library {
 public:
  explicit Library(const char* path);

  decltype(&ev_plc_init) init;
  decltype(&ev_plc_read) read;
  decltype(&ev_plc_write) write;
  decltype(&ev_OMRON_plc_read) read_batch;
  uint32_t* (*build_table)(TagEntry**, IndexedTagEntry**, const char*, uint32_t*);
  std::string build;  // "1.1.0 guarded"

  bool is_guarded() const { return build.find("guarded") != std::string::npos; }

 private:
  void* handle_;
  template <typename Function>
  void find(Function* function, const char* name);
};

}  // namespace plc_endure
