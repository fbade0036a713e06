// The value that the stack protector's functions compare on ARM, owned by the library itself.
//
// On x86 the value lives in the thread's control block. On ARM the compiler refers to a variable that the C library
// keeps in its loader, which would become a second needed library; this hidden variable of the same name takes its
// place. It is set while the library is loaded, before any of its functions can be on the stack.
#include <sys/auxv.h>

#include <cstdint>
#include <cstring>

extern "C" __attribute__((visibility("hidden"))) uintptr_t __stack_chk_guard;
uintptr_t __stack_chk_guard = 0;

namespace {

// The kernel gives every process 16 random bytes. The C library makes its own two guards of the first words; on 32-bit
// targets the third word is used by nobody else, on 64-bit ones both words are folded into a third value.
constexpr size_t kRandomBytes = 16;

__attribute__((constructor, no_stack_protector)) void set_stack_guard() {
  unsigned char random[kRandomBytes];
  uintptr_t guard = reinterpret_cast<uintptr_t>(&random) * 2654435761u;
  const auto* given = reinterpret_cast<const unsigned char*>(getauxval(AT_RANDOM));
  if (given != nullptr) {
    memcpy(random, given, sizeof random);
    uintptr_t first;
    uintptr_t last;
    memcpy(&first, random, sizeof first);
    memcpy(&last, random + kRandomBytes - sizeof last, sizeof last);
    guard ^= (first << 7) ^ last;
  }
  // A zero in the byte that lies lowest: text that runs over its end stops there.
  __stack_chk_guard = guard & ~static_cast<uintptr_t>(0xFF);
}

}  // namespace
