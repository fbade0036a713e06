# GoogleTest and GoogleMock, built from the distribution's sources so that every target of the build has them.
find_path(PLC_GOOGLETEST_DIR NAMES googletest/CMakeLists.txt PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory(${PLC_GOOGLETEST_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)

# plc_precompile_gtest(TARGET): GCC reads these headers once for the target instead of once for each of its files. Clang
# does not: there a header that a test forgets to include is missing.
function(plc_precompile_gtest target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_precompile_headers(${target} PRIVATE <gmock/gmock.h> <gtest/gtest.h> <algorithm> <string> <vector>)
  endif()
endfunction()
