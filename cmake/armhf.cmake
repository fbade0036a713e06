# Toolchain of the panel: 32-bit ARM, hard float, programs run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Without a word about parameters that compilers before GCC 7.1 passed otherwise.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
# The tools' libraries lie in a root of their own (scripts/sysroot armhf).
get_filename_component(plc_sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/armhf ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${plc_sysroot}/usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf ${plc_sysroot})
set(ENV{PKG_CONFIG_LIBDIR} ${plc_sysroot}/usr/lib/arm-linux-gnueabihf/pkgconfig:${plc_sysroot}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${plc_sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
