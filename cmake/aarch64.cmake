# Toolchain of 64-bit ARM panels, programs run under qemu-aarch64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# The tools' libraries lie in a root of their own (scripts/sysroot arm64).
get_filename_component(plc_sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/arm64 ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-aarch64;-L;/usr/aarch64-linux-gnu;-E;LD_LIBRARY_PATH=${plc_sysroot}/usr/lib/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu ${plc_sysroot})
set(ENV{PKG_CONFIG_LIBDIR} ${plc_sysroot}/usr/lib/aarch64-linux-gnu/pkgconfig:${plc_sysroot}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${plc_sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
