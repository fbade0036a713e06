# plc_set_warnings(target): the warnings of this project, on every compiler that it uses; errors with PLC_WERROR.
option(PLC_WARNINGS "Compile with this project's warnings" ON)
option(PLC_WERROR "These warnings are errors" OFF)

function(plc_set_warnings target)
  if(NOT PLC_WARNINGS)
    return()
  endif()
  set(common -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
             -Wformat=2 -Wundef -Wvla -Wdouble-promotion -Wimplicit-fallthrough)
  if(PLC_WERROR)
    list(APPEND common -Werror)
  endif()
  set(cxx -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi)
  # Tests lay records over buffers that they align themselves; the alignment sanitizer watches them.
  if(NOT CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/(tests|fuzz|bench)")
    list(APPEND common -Wcast-align)
  endif()
  # The optimiser's guesses about pointers hold for the driver; in the standard library's inlined code they do not.
  if(CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/src")
    list(APPEND common -Wnull-dereference)
  endif()
  set(gcc -Wlogical-op -Wduplicated-cond -Wduplicated-branches)
  target_compile_options(${target} PRIVATE
    ${common}
    $<$<COMPILE_LANGUAGE:CXX>:${cxx}>
    $<$<CXX_COMPILER_ID:GNU>:${gcc}>)
endfunction()
