# Tests that exchange frames run against both builds of the driver: they are compiled once and linked twice. Those that
# expect something else of the guarded build stand in tests/driver/guarded_differences.csv.
set(plc_differences ${PROJECT_SOURCE_DIR}/tests/driver/guarded_differences.csv)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${plc_differences})

# A test whose other expectation stands in a test of its own is none of the guarded build.
file(STRINGS ${plc_differences} plc_difference_rows REGEX "^[^#]")
set(plc_guarded_filter "")
foreach(row IN LISTS plc_difference_rows)
  if(row MATCHES "^([^,]+),([^,]+)," AND NOT CMAKE_MATCH_2 STREQUAL "itself")
    string(APPEND plc_guarded_filter ":${CMAKE_MATCH_1}")
  endif()
endforeach()
string(REGEX REPLACE "^:" "-" plc_guarded_filter "${plc_guarded_filter}")

# plc_add_guarded_gtest(EXECUTABLE [plc_add_gtest's arguments]): its tests that run against the guarded build.
function(plc_add_guarded_gtest executable)
  set_property(GLOBAL APPEND PROPERTY plc_guarded_executables ${executable})
  plc_add_gtest(${executable} FILTER "${plc_guarded_filter}" ${ARGN})
endfunction()

# plc_add_driver_tests(NAME SOURCES source... [FIXTURES library...] [LIBRARIES library...] [SHARES count]): the
# executables NAME and NAME_guarded. FIXTURES are object libraries; the sources become one too, NAME_objects.
function(plc_add_driver_tests name)
  cmake_parse_arguments(PARSE_ARGV 1 tests "" "SHARES" "SOURCES;FIXTURES;LIBRARIES")
  if(NOT tests_SHARES)
    set(tests_SHARES 1)
  endif()
  add_library(${name}_objects OBJECT ${tests_SOURCES})
  plc_set_warnings(${name}_objects)
  plc_precompile_gtest(${name}_objects)
  target_link_libraries(${name}_objects PUBLIC gmock ${tests_FIXTURES} ${tests_LIBRARIES})
  foreach(build "" _guarded)
    add_executable(${name}${build})
    target_link_libraries(${name}${build} PRIVATE
      ${name}_objects ${tests_FIXTURES} test_program_stamp plc_driver${build}_static gtest_main)
  endforeach()
  plc_add_gtest(${name} SHARES ${tests_SHARES})
  plc_add_guarded_gtest(${name}_guarded SHARES ${tests_SHARES})
endfunction()
