# Toolchain of the check with another C library: musl's headers, start files and loader (Debian's musl-tools). Of the
# machine's libstdc++ the driver takes the headers that stand for C's; they were configured for glibc and ask its version.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE plc_gcc_version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-file-name=include OUTPUT_VARIABLE plc_gcc_include OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_CXX_FLAGS_INIT "-nostdinc \"-D__GLIBC_PREREQ(major,minor)=0\"")
foreach(folder /usr/include/c++/${plc_gcc_version} /usr/include/x86_64-linux-gnu/c++/${plc_gcc_version}
        /usr/include/x86_64-linux-musl ${plc_gcc_include})
  string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${folder}")
endforeach()
# g++ would link with glibc; the driver and its hosts are linked by musl-gcc.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
