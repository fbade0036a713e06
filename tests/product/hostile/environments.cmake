# The programs where memory, descriptors, standard streams or room for files are out: with GCC in the reference build and under the
# sanitizers, nowhere else.
if(NOT (CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" OR PLC_SANITIZE))
  return()
endif()
set(programs plc_host plc_sim)
if(TARGET plc-gateway)
  list(APPEND programs plc_gateway)
endif()
foreach(program ${programs})
  add_executable(${program}_scarce ${PROJECT_SOURCE_DIR}/tools/${program}/main.cpp scarce_memory.cpp)
  plc_set_warnings(${program}_scarce)
  target_link_libraries(${program}_scarce PRIVATE ${program}_core)
endforeach()
# A controller's connection that a busy machine is slow to make is a finding of why: these are given how long it took.
set(reach ${PROJECT_SOURCE_DIR}/tests/tools/plc_host/given_reach.cpp)
target_sources(plc_host_scarce PRIVATE ${reach})
target_link_options(plc_host_scarce PRIVATE -Wl,--wrap=_ZN10wire_trace16reach_controllerEjti)
foreach(what memory descriptors streams disk)
  add_test(NAME hostile.${what}
           COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/check_environments.py ${what}
                   --library $<TARGET_FILE:plc_driver_guarded> --host $<TARGET_FILE:plc_host_given_reach>
                   --sim $<TARGET_FILE:plc-sim> --scarce-host $<TARGET_FILE:plc_host_scarce>
                   --scarce-sim $<TARGET_FILE:plc_sim_scarce>)
  set_tests_properties(hostile.${what} PROPERTIES TIMEOUT 3600 LABELS hostile)
endforeach()
if(TARGET plc-gateway)
  set(wants memory descriptors streams disk)
  if(NOT PLC_SANITIZE) # the sanitizers need more addresses than any limit leaves
    list(APPEND wants space)
  endif()
  foreach(what ${wants})
    add_test(NAME hostile.gateway.${what}
             COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/check_gateway.py ${what}
                     --library $<TARGET_FILE:plc_driver_guarded> --sim $<TARGET_FILE:plc-sim>
                     --gateway $<TARGET_FILE:plc-gateway> --scarce-gateway $<TARGET_FILE:plc_gateway_scarce>)
    set_tests_properties(hostile.gateway.${what} PROPERTIES TIMEOUT 3600 LABELS hostile)
  endforeach()
endif()
