// Binds the shared library's fcntl to the version that every C library of the target has.
//
// On 32-bit targets the linker picks the version that glibc 2.28 added for 64-bit file locks. The driver only reads and
// sets status flags, for which both are the same, and panels are older. The library is linked with --wrap=fcntl, which
// brings every call here; the static library of the tests is not.
#include <cstdarg>

#if defined(__arm__)
__asm__(".symver plc_old_fcntl, fcntl@GLIBC_2.4");
#elif defined(__i386__)
__asm__(".symver plc_old_fcntl, fcntl@GLIBC_2.0");
#endif

extern "C" {

int plc_old_fcntl(int descriptor, int command, ...);

__attribute__((visibility("hidden"))) int __wrap_fcntl(int descriptor, int command, ...);

int __wrap_fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const int value = va_arg(arguments, int);
  va_end(arguments);
  return plc_old_fcntl(descriptor, command, value);
}
}
