# GoogleTest and GoogleMock, built from the distribution's sources so that every target of the build has them, and how a
# program of theirs becomes tests of the run.
find_path(PLC_GOOGLETEST_DIR NAMES googletest/CMakeLists.txt PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory(${PLC_GOOGLETEST_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

# The folder that test programs leave a report in, one file each: every test of theirs is counted from there.
set(plc_test_reports ${CMAKE_BINARY_DIR}/test-reports)

# plc_add_gtest(EXECUTABLE [AS name] [FILTER tests] [SHARES count] [TIMEOUT seconds] [COST weight]): runs a program as
# one test of the run, or as so many that run side by side, each with its share of the program's tests. A process per
# test would cost more than most tests do, under emulation far more.
function(plc_add_gtest executable)
  cmake_parse_arguments(PARSE_ARGV 1 run "" "AS;FILTER;SHARES;TIMEOUT;COST" "")
  foreach(setting "AS:${executable}" SHARES:1 TIMEOUT:300 COST:10)
    string(REGEX MATCH "^([^:]+):(.*)$" match "${setting}")
    if(NOT DEFINED run_${CMAKE_MATCH_1})
      set(run_${CMAKE_MATCH_1} "${CMAKE_MATCH_2}")
    endif()
  endforeach()
  set(filter "")
  if(run_FILTER)
    set(filter "--gtest_filter=${run_FILTER}")
  endif()
  foreach(share RANGE 1 ${run_SHARES})
    set(name ${run_AS})
    set(environment "")
    if(run_SHARES GREATER 1)
      set(name ${run_AS}.${share})
      math(EXPR index "${share} - 1")
      set(environment GTEST_TOTAL_SHARDS=${run_SHARES} GTEST_SHARD_INDEX=${index})
    endif()
    set_property(GLOBAL APPEND PROPERTY plc_test_programs ${name})
    add_test(NAME ${name} COMMAND ${executable} ${filter} --gtest_output=xml:${plc_test_reports}/${name}.xml)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${run_TIMEOUT} COST ${run_COST} LABELS gtest
                         ENVIRONMENT "${environment}")
  endforeach()
endfunction()
