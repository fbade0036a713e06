# Included by scripts/coverage and scripts/mutants behind the project() call: the driver's objects without optimisation,
# so that each line and branch of the sources is one of the program; with PLC_COVERAGE they count their executions.
function(plc_measure_driver)
  foreach(objects plc_driver_objects plc_driver_by_order_objects plc_driver_guarded_objects
          plc_driver_guarded_small_objects)
    target_compile_options(${objects} PRIVATE -O0)
    if(PLC_COVERAGE)
      target_compile_options(${objects} PRIVATE --coverage)
    endif()
  endforeach()
endfunction()
cmake_language(DEFER CALL plc_measure_driver)
