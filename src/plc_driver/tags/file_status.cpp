// What the system says of an open file, asked so that every C library has the call and any file can be described.

// A file's number may take 64 bits on 32-bit builds too.
#define _FILE_OFFSET_BITS 64

#include "plc_driver/tags/file_status.h"

#include <sys/stat.h>

// glibc has fstat since 2.33, and panels are older. Below it lies this function, in every glibc, shared and static; its
// first argument says which record the caller means. On 32 bits it also describes files that are dated beyond 2038,
// which the newer call refuses.
#if defined(__GLIBC__) && defined(__x86_64__) && defined(__LP64__)
#define PLC_STATUS_RECORD 1
#elif defined(__GLIBC__) && defined(__aarch64__) && defined(__LP64__)
#define PLC_STATUS_RECORD 0
#elif defined(__GLIBC__) && (defined(__arm__) || defined(__i386__))
#define PLC_STATUS_RECORD 3
#endif

#ifdef PLC_STATUS_RECORD
extern "C" int plc_old_fstat(int record, int descriptor, struct stat* status) __asm__("__fxstat64");
#endif

namespace plc {
namespace {

int ask(int descriptor, struct stat* status) {
#ifdef PLC_STATUS_RECORD
  return plc_old_fstat(PLC_STATUS_RECORD, descriptor, status);
#else
  return fstat(descriptor, status);
#endif
}

}  // namespace

bool ask_file_status(int descriptor, FileStatus* status) {
  struct stat found = {};
  if (ask(descriptor, &found) != 0) return false;
  status->is_regular = S_ISREG(found.st_mode);
  status->bytes = found.st_size;
  return true;
}

}  // namespace plc
