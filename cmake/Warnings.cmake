# plc_set_warnings(target): the warnings of this project, all of them errors, on every compiler that it uses.
function(plc_set_warnings target)
  set(common -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wcast-qual
             -Wformat=2 -Wundef -Wvla -Wdouble-promotion -Wnull-dereference -Wimplicit-fallthrough)
  set(cxx -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi)
  set(gcc -Wlogical-op -Wduplicated-cond -Wduplicated-branches)
  target_compile_options(${target} PRIVATE
    ${common}
    $<$<COMPILE_LANGUAGE:CXX>:${cxx}>
    $<$<CXX_COMPILER_ID:GNU>:${gcc}>)
endfunction()
